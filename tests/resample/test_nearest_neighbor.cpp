// Nearest-neighbour kernels: 16.16 stepping and the 1-based float-ratio rule,
// checked against references written here from the rules, on worked examples
// and seeded random planes, with guard zones around every destination.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "ej_cmc_resample.h"
#include "guarded.h"

using namespace ejtest;

namespace {

// 16.16 rule: index of output k is (k * step) >> 16, step computed once,
// limited to the last sample.
std::vector<uint32_t> step_indices(uint32_t src, uint32_t dst)
{
    const uint64_t step = (uint64_t(src) << 16) / dst + 1;
    std::vector<uint32_t> idx(dst);
    for (uint32_t k = 0; k < dst; ++k)
        idx[k] = uint32_t(std::min<uint64_t>((uint64_t(k) * step) >> 16, src - 1));
    return idx;
}

// Float-ratio rule with the 0.0001 tolerance, 1-based.
std::vector<uint32_t> tolerant_indices(uint32_t src, uint32_t dst)
{
    const float ratio = float(src) / float(dst);
    std::vector<uint32_t> idx(dst);
    for (uint32_t k = 1; k <= dst; ++k) {
        const float t = float(k) * ratio;
        const float fl = std::floor(t);
        const bool integral = t - fl < 0.0001f && t >= 1.0f;
        idx[k - 1] = std::min<uint32_t>(uint32_t(fl) - (integral ? 1 : 0), src - 1);
    }
    return idx;
}

// Float-ratio rule where only an exact integer counts: ceil(t) - 1.
std::vector<uint32_t> exact_indices(uint32_t src, uint32_t dst)
{
    const float ratio = float(src) / float(dst);
    std::vector<uint32_t> idx(dst);
    for (uint32_t k = 1; k <= dst; ++k)
        idx[k - 1] = std::min<uint32_t>(uint32_t(std::ceil(float(k) * ratio)) - 1, src - 1);
    return idx;
}

// Separable picking of a plane of `channels` values per pixel.
template <typename T>
std::vector<T> pick(const std::vector<T> &src, uint32_t src_width, uint32_t channels,
                    const std::vector<uint32_t> &ix, const std::vector<uint32_t> &iy)
{
    std::vector<T> out;
    for (uint32_t y : iy)
        for (uint32_t x : ix)
            for (uint32_t c = 0; c < channels; ++c)
                out.push_back(src[(size_t(y) * src_width + x) * channels + c]);
    return out;
}

// Block maximum with a previous index of 0 before the first row and column.
std::vector<int32_t> block_max_ref(const std::vector<int32_t> &src, uint32_t src_width,
                                   const std::vector<uint32_t> &ix,
                                   const std::vector<uint32_t> &iy)
{
    std::vector<int32_t> out;
    for (size_t oy = 0; oy < iy.size(); ++oy) {
        const uint32_t py = oy == 0 ? 0 : iy[oy - 1];
        for (size_t ox = 0; ox < ix.size(); ++ox) {
            const uint32_t px = ox == 0 ? 0 : ix[ox - 1];
            int32_t best = 0;
            for (uint32_t y = py + 1; y <= iy[oy]; ++y)
                for (uint32_t x = px + 1; x <= ix[ox]; ++x)
                    best = std::max(best, src[size_t(y) * src_width + x]);
            out.push_back(iy[oy] <= py ? 0 : best);
        }
    }
    return out;
}

// Enlargements, reductions, equal extents, extents where the rules alone
// would pass the last sample (2 -> 397 for 16.16, 1 -> 280 in the worked
// examples; 14 -> 13 and 3000 -> 1237 for the float ratio), and 4 -> 28,
// 5 -> 35, where an interior t rounds to 3.0000002 (the tolerant rule picks
// 2, the exact one 3); columns evenly spaced by 3, 4 and 1 (taken as strided
// loads), and rows wider than one strip of 4096 columns.
TEST(NearestNeighbor, KernelsMatchTheReferences)
{
    const struct {
        uint32_t sw, sh, dw, dh;
    } shapes[] = {{3, 3, 3, 3},      {4, 4, 2, 2},      {2, 2, 4, 4},      {7, 5, 3, 11},
                  {5, 3, 21, 2},     {14, 13, 13, 14},  {2, 3, 397, 5},    {16, 9, 7, 4},
                  {640, 3, 1237, 2}, {3000, 2, 1237, 3}, {1000, 2, 1023, 2}, {4, 5, 28, 35},  {700, 4, 2500, 9},
                  {3001, 4, 1001, 2}, {4001, 3, 1001, 2}, {2500, 2, 2500, 2}, {1000, 2, 5000, 2},
                  {9001, 2, 4501, 2}};
    for (const auto &s : shapes) {
        SCOPED_TRACE(testing::Message() << s.sw << "x" << s.sh << " -> " << s.dw << "x" << s.dh);
        const size_t n = size_t(s.dw) * s.dh;
        const auto step_x = step_indices(s.sw, s.dw), step_y = step_indices(s.sh, s.dh);
        const auto u32 = random_plane<uint32_t>(size_t(s.sw) * s.sh, 11 + s.sw);
        EXPECT_EQ(run_guarded<uint32_t>(n, [&](uint32_t *d) {
                      return image_nearest_neighbor_scale_uint32(u32.data(), int32_t(s.sw),
                                                                 int32_t(s.sh), d, int32_t(s.dw),
                                                                 int32_t(s.dh));
                  }),
                  pick(u32, s.sw, 1, step_x, step_y));
        for (uint32_t channels : {1u, 2u, 3u, 5u}) {
            const auto src = random_plane<int32_t>(size_t(s.sw) * s.sh * channels, 7 * channels);
            EXPECT_EQ(run_guarded<int32_t>(n * channels, [&](int32_t *d) {
                          return image_nearest_neighbor_scale_interleaved_int32(
                              src.data(), s.sw, s.sh, channels, d, s.dw, s.dh);
                      }),
                      pick(src, s.sw, channels, step_x, step_y))
                << channels << " channels";
        }
        const auto u16 = random_plane<uint16_t>(size_t(s.sw) * s.sh, 3 + s.dw);
        EXPECT_EQ(run_guarded<uint16_t>(n, [&](uint16_t *d) {
                      return image_upscale_nearest_neighbor_uint16(u16.data(), d, uint16_t(s.sw),
                                                                   uint16_t(s.sh), uint16_t(s.dw),
                                                                   uint16_t(s.dh));
                  }),
                  pick(u16, s.sw, 1, tolerant_indices(s.sw, s.dw), tolerant_indices(s.sh, s.dh)));
        const auto i32 = random_plane<int32_t>(size_t(s.sw) * s.sh, 5 + s.sh);
        const auto ix = exact_indices(s.sw, s.dw), iy = exact_indices(s.sh, s.dh);
        for (uint8_t use_max : {0, 1, 255}) {
            EXPECT_EQ(run_guarded<int32_t>(n, [&](int32_t *d) {
                          return image_downscale_nearest_neighbor_int32(
                              i32.data(), d, uint16_t(s.sw), uint16_t(s.sh), uint16_t(s.dw),
                              uint16_t(s.dh), use_max);
                      }),
                      use_max ? block_max_ref(i32, s.sw, ix, iy) : pick(i32, s.sw, 1, ix, iy))
                << int(use_max);
        }
    }
}

TEST(NearestNeighbor, IndexRulesOnWorkedExamples)
{
    EXPECT_EQ(step_indices(2, 4), (std::vector<uint32_t>{0, 0, 1, 1}));   // step 32769
    EXPECT_EQ(step_indices(4, 2), (std::vector<uint32_t>{0, 2}));         // step 131073
    EXPECT_EQ(tolerant_indices(2, 4), (std::vector<uint32_t>{0, 0, 1, 1}));
    EXPECT_EQ(tolerant_indices(3, 2), (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(exact_indices(5, 3), (std::vector<uint32_t>{1, 3, 4}));
    // 3 -> 21: the last t rounds to 3.0000002; the tolerance makes it index 2.
    EXPECT_GT(21.0f * (3.0f / 21.0f), 3.0f);
    EXPECT_EQ(tolerant_indices(3, 21).back(), 2u);

    // The shapes above really reach the limit: without it the index would be
    // the extent itself.
    EXPECT_EQ((uint64_t(396) * ((uint64_t(2) << 16) / 397 + 1)) >> 16, 2u);
    EXPECT_EQ((uint64_t(279) * ((uint64_t(1) << 16) / 280 + 1)) >> 16, 1u);
    EXPECT_GT(13.0f * (14.0f / 13.0f), 14.0f);
}

TEST(NearestNeighbor, WorkedExamples)
{
    // 1 -> 280 repeats the last sample; an interleaved pixel is copied whole.
    const std::vector<uint32_t> ten = {10};
    EXPECT_EQ(run_guarded<uint32_t>(280, [&](uint32_t *d) {
                  return image_nearest_neighbor_scale_uint32(ten.data(), 1, 1, d, 280, 1);
              }),
              std::vector<uint32_t>(280, 10));
    const std::vector<int32_t> pixel = {-1, 2, 3};
    EXPECT_EQ(run_guarded<int32_t>(12, [&](int32_t *d) {
                  return image_nearest_neighbor_scale_interleaved_int32(pixel.data(), 1, 1, 3, d,
                                                                        2, 2);
              }),
              (std::vector<int32_t>{-1, 2, 3, -1, 2, 3, -1, 2, 3, -1, 2, 3}));
    const std::vector<uint16_t> four = {1, 2, 3, 4};
    EXPECT_EQ(run_guarded<uint16_t>(16, [&](uint16_t *d) {
                  return image_upscale_nearest_neighbor_uint16(four.data(), d, 2, 2, 4, 4);
              }),
              (std::vector<uint16_t>{1, 1, 2, 2, 1, 1, 2, 2, 3, 3, 4, 4, 3, 3, 4, 4}));

    // Block maximum of 1 ... 16 picking rows and columns 1 and 3: the blocks
    // are row/column 1 and 2 ... 3. Negative samples give the initial 0.
    std::vector<int32_t> src(16);
    for (int i = 0; i < 16; ++i)
        src[i] = i + 1;
    const std::vector<int32_t> negative(16, -5);
    auto block_max = [](const std::vector<int32_t> &s, uint16_t d) {
        return run_guarded<int32_t>(size_t(d) * d, [&](int32_t *out) {
            return image_downscale_nearest_neighbor_int32(s.data(), out, 4, 4, d, d, 1);
        });
    };
    EXPECT_EQ(block_max(src, 2), (std::vector<int32_t>{6, 8, 14, 16}));
    EXPECT_EQ(block_max(negative, 2), std::vector<int32_t>(4, 0));
    // Equal extents: row and column 0 never enter a maximum, so the first
    // output row and column are 0; every other output is its own sample.
    EXPECT_EQ(block_max(src, 4),
              (std::vector<int32_t>{0, 0, 0, 0, 0, 6, 7, 8, 0, 10, 11, 12, 0, 14, 15, 16}));
}

TEST(NearestNeighbor, RejectionsAndEmptyCallsWriteNothing)
{
    const std::vector<int32_t> s32(64, 1);
    const std::vector<uint32_t> u32(64, 1);
    const std::vector<uint16_t> u16(64, 1);
    Guarded<int32_t> d32(64);
    Guarded<uint32_t> du32(64);
    Guarded<uint16_t> d16(64);
    auto il = [&](const int32_t *s, uint32_t sw, uint32_t sh, int32_t *d, uint32_t dw, uint32_t dh) {
        return image_nearest_neighbor_scale_interleaved_int32(s, sw, sh, 1, d, dw, dh);
    };
    auto u = [&](const uint32_t *s, int32_t sw, int32_t sh, uint32_t *d, int32_t dw, int32_t dh) {
        return image_nearest_neighbor_scale_uint32(s, sw, sh, d, dw, dh);
    };
    const uint32_t statuses[] = {
        il(s32.data(), 0, 2, d32.data(), 2, 2),
        il(s32.data(), 2, 0, d32.data(), 2, 2), // no source row to read
        il(s32.data(), 2, 2, d32.data(), 2, 0),
        il(nullptr, 2, 2, d32.data(), 2, 2),
        il(s32.data(), 2, 2, nullptr, 2, 2),
        il(s32.data(), 65536, 1, d32.data(), 2, 2), // 16.16 position overflows
        il(s32.data(), 1, 65536, d32.data(), 2, 2),
        u(u32.data(), 0, 2, du32.data(), 2, 2),
        u(u32.data(), 2, -1, du32.data(), 2, 2),
        u(u32.data(), 2, 2, du32.data(), 0, 2),
        u(u32.data(), 2, 2, du32.data(), 2, -3),
        u(nullptr, 2, 2, du32.data(), 2, 2),
        u(u32.data(), 2, 2, nullptr, 2, 2),
        u(u32.data(), 32768, 1, du32.data(), 2, 2),
        u(u32.data(), 1, 32768, du32.data(), 2, 2),
        image_upscale_nearest_neighbor_uint16(u16.data(), d16.data(), 1, 4, 4, 4),
        image_upscale_nearest_neighbor_uint16(u16.data(), d16.data(), 4, 1, 4, 4),
        image_upscale_nearest_neighbor_uint16(u16.data(), d16.data(), 4, 4, 1, 4),
        image_upscale_nearest_neighbor_uint16(u16.data(), d16.data(), 4, 4, 4, 0),
        image_downscale_nearest_neighbor_int32(s32.data(), d32.data(), 1, 4, 2, 2, 0),
        image_downscale_nearest_neighbor_int32(s32.data(), d32.data(), 4, 0, 2, 2, 1),
        image_downscale_nearest_neighbor_int32(s32.data(), d32.data(), 4, 4, 1, 2, 0),
        image_downscale_nearest_neighbor_int32(s32.data(), d32.data(), 4, 4, 2, 1, 1),
    };
    for (size_t i = 0; i < std::size(statuses); ++i)
        EXPECT_EQ(statuses[i], 32u) << "case " << i;
    // No destination column or no channel: accepted, nothing to write.
    EXPECT_EQ(il(s32.data(), 2, 2, d32.data(), 0, 2), 0u);
    EXPECT_EQ(image_nearest_neighbor_scale_interleaved_int32(s32.data(), 2, 2, 0, d32.data(), 2, 2),
              0u);
    EXPECT_TRUE(d32.all_untouched());
    EXPECT_TRUE(du32.all_untouched());
    EXPECT_TRUE(d16.all_untouched());
}

} // namespace
