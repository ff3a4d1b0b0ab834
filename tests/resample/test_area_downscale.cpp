// Area-averaging downscale: a reference that lists each output's band and
// weights per axis, compared bit for bit on seeded random planes (whole planes
// and regions, several planes per call); worked examples; validation order.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include "ej_cmc_resample.h"
#include "guarded.h"

using namespace ejtest;

namespace {

using Band = std::vector<std::pair<uint32_t, float>>; // (sample, weight)

// Bands of one axis: output k covers e(k - 1) ... e(k), e(k) = min(k * ratio,
// extent); the first sample weighs 1 minus the previous end's fraction, a
// trailing partial sample its fraction, the rest 1.
std::vector<Band> bands(float ratio, uint32_t extent, uint32_t n)
{
    std::vector<Band> out;
    uint32_t start = 0;
    float start_frac = 0.0f;
    for (uint32_t k = 1; k <= n; ++k) {
        const float e = std::min(float(k) * ratio, float(extent));
        const uint32_t whole = uint32_t(std::floor(e));
        const float frac = e - float(whole);
        Band b;
        for (uint32_t s = start; s < whole; ++s)
            b.emplace_back(s, s == start ? 1.0f - start_frac : 1.0f);
        if (frac != 0.0f)
            b.emplace_back(whole, whole == start ? 1.0f - start_frac : frac);
        out.push_back(b);
        start = whole;
        start_frac = frac;
    }
    return out;
}

struct Region {
    uint32_t x, y, w, h;
};

// Band sums of one plane in the required order (rows, then each row left to
// right, accumulated with fused multiply-adds), each finished by finish(sum,
// 1 / area) and stored as the low 16 bits of the truncated value (0 beyond
// the 32-bit range and for NaN).
template <typename T, typename Finish>
std::vector<uint16_t> reference(const std::vector<T> &plane, uint32_t sw, Region r, uint32_t dw,
                                uint32_t dh, Finish finish)
{
    const float inv_area = 1.0f / ((float(r.w) / float(dw)) * (float(r.h) / float(dh)));
    std::vector<uint16_t> out;
    for (const Band &rows : bands(float(r.h) / float(dh), r.h, dh))
        for (const Band &cols : bands(float(r.w) / float(dw), r.w, dw)) {
            float sum = 0.0f;
            for (const auto &[row, wr] : rows)
                for (const auto &[col, wc] : cols)
                    sum = std::fma(wr * wc, float(plane[size_t(r.y + row) * sw + r.x + col]), sum);
            const float v = finish(sum, inv_area);
            out.push_back(std::isnan(v) || v <= -2147483904.0f || v >= 2147483648.0f
                              ? 0
                              : uint16_t(int64_t(v) & 0xFFFF));
        }
    return out;
}

TEST(AreaDownscale, KernelsMatchTheReference)
{
    // Whole planes (roi width 0) and regions.
    const struct {
        uint32_t sw, sh, dw, dh;
        Region roi;
    } cases[] = {
        {6, 6, 3, 3, {}},      {7, 6, 3, 3, {}},       {7, 7, 3, 3, {}},
        {17, 11, 5, 4, {}},    {100, 37, 33, 36, {}},  {64, 48, 63, 5, {}},
        {20, 20, 3, 3, {4, 5, 11, 7}}, {20, 20, 4, 3, {0, 0, 20, 3}},
        {20, 20, 5, 6, {15, 14, 5, 6}}, {40, 30, 7, 9, {3, 1, 29, 28}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.sw << "x" << c.sh << " -> " << c.dw << "x" << c.dh
                                        << " roi width " << c.roi.w);
        const Region r = c.roi.w != 0 ? c.roi : Region{0, 0, c.sw, c.sh};
        const uint16_t roi_values[4] = {uint16_t(r.x), uint16_t(r.y), uint16_t(r.w), uint16_t(r.h)};
        const uint16_t *roi = c.roi.w != 0 ? roi_values : nullptr;
        // Values around 0 ... 70 cover rounding, negatives and the wrap past
        // 64; around 12000 (third plane) the added 2^-11 is half an ulp of the
        // mean, where only the fused multiply-add rounds as defined.
        std::vector<std::vector<float>> src;
        std::vector<Guarded<uint16_t>> dst;
        for (uint32_t p = 0; p < 3; ++p) {
            auto plane = random_plane<float>(size_t(c.sw) * c.sh, 100 * p + c.sw);
            for (float &v : plane)
                v = p == 2 ? v * 4.0f + 12000.0f : v * 0.04f + 30.0f;
            src.push_back(plane);
            dst.emplace_back(size_t(c.dw) * c.dh);
        }
        const float *srcp[3] = {src[0].data(), src[1].data(), src[2].data()};
        uint16_t *dstp[3] = {dst[0].data(), dst[1].data(), dst[2].data()};
        ASSERT_EQ(image_downscale_32f_to_u16p10(srcp, dstp, uint16_t(c.sw), uint16_t(c.sh),
                                                uint16_t(c.dw), uint16_t(c.dh), 3, roi),
                  0u);
        for (uint32_t p = 0; p < 3; ++p) {
            EXPECT_TRUE(dst[p].guards_intact());
            const auto finish = [](float sum, float inv) {
                return std::fma(sum, inv, 1.0f / 2048) * 1024.0f;
            };
            EXPECT_EQ(dst[p].values(), reference(src[p], c.sw, r, c.dw, c.dh, finish))
                << "plane " << p;
        }

        // 16-bit samples, fractional bits in and out taken modulo 32.
        const auto src16 = random_plane<uint16_t>(size_t(c.sw) * c.sh, c.dw * 7 + c.dh);
        const uint16_t *src16p[1] = {src16.data()};
        const std::pair<int, int> bits[] = {{10, 10}, {0, 10}, {12, 4},
                                            {16, 0},  {-22, 42}, {3, 31}};
        for (const auto &[in_bits, out_bits] : bits) {
            const float in_scale = std::ldexp(1.0f, -(in_bits & 31));
            const float out_scale = std::ldexp(1.0f, out_bits & 31);
            EXPECT_EQ(run_guarded<uint16_t>(size_t(c.dw) * c.dh, [&](uint16_t *d) {
                          uint16_t *dstp16[1] = {d};
                          return image_downscale_u16_to_u16(src16p, dstp16, uint16_t(c.sw),
                                                            uint16_t(c.sh), in_bits, uint16_t(c.dw),
                                                            uint16_t(c.dh), out_bits, 1, roi);
                      }),
                      reference(src16, c.sw, r, c.dw, c.dh, [&](float sum, float inv) {
                          return std::fma(inv * sum, in_scale, 1.0f / 2048) * out_scale;
                      }))
                << in_bits << " -> " << out_bits;
        }
    }
}

// One plane of w x h samples downscaled to 3 x 3 (fixed point with 10
// fractional bits in and out for 16-bit samples).
template <typename T>
std::vector<uint16_t> to_3x3(const std::vector<T> &plane, uint16_t w, uint16_t h)
{
    return run_guarded<uint16_t>(9, [&](uint16_t *d) {
        const T *srcp[1] = {plane.data()};
        uint16_t *dstp[1] = {d};
        if constexpr (std::is_same_v<T, float>)
            return image_downscale_32f_to_u16p10(srcp, dstp, w, h, 3, 3, 1, nullptr);
        else
            return image_downscale_u16_to_u16(srcp, dstp, w, h, 10, 3, 3, 10, 1, nullptr);
    });
}

TEST(AreaDownscale, WorkedExamples)
{
    std::vector<float> blocks(36, 1.0f);
    blocks[1 * 6 + 1] = 2.0f; // the first 2 x 2 block is 1, 1, 1, 2
    EXPECT_EQ(to_3x3(blocks, 6, 6)[0], 1280);
    // Stored as the low 16 bits of the truncated value: -1023 and 65536 wrap;
    // beyond the 32-bit range and NaN store 0.
    const std::pair<float, uint16_t> constants[] = {
        {2.0f, 2048}, {63.999f, 65535}, {-1.0f, 65536 - 1023}, {64.0f, 0}, {1e10f, 0}, {NAN, 0}};
    for (const auto &[value, expected] : constants)
        EXPECT_EQ(to_3x3(std::vector<float>(36, value), 6, 6), std::vector<uint16_t>(9, expected))
            << value;

    // A 16-bit constant stays (for bands short enough that the
    // single-precision sum stays within half a unit).
    for (uint16_t sw : {6, 7, 11, 13})
        EXPECT_EQ(to_3x3(std::vector<uint16_t>(size_t(sw) * sw, 51234), sw, sw),
                  std::vector<uint16_t>(9, 51234))
            << sw;
}

TEST(AreaDownscale, SevenToThreeBandWeights)
{
    const auto b = bands(7.0f / 3.0f, 7, 3);
    const float expected[3][3] = {{1, 1, 1.0f / 3}, {2.0f / 3, 1, 2.0f / 3}, {1.0f / 3, 1, 1}};
    ASSERT_EQ(b.size(), 3u);
    for (size_t k = 0; k < 3; ++k) {
        ASSERT_EQ(b[k].size(), 3u);
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(b[k][i].first, 2 * k + i); // bands start at 0, 2, 4
            EXPECT_NEAR(b[k][i].second, expected[k][i], 1e-6);
        }
    }
    // The kernel applies them: a one-hot column 2 of a 7 x 6 plane gives
    // 1024 * 3/7 * 1/3 = 146.3 and 1024 * 3/7 * 2/3 = 292.6.
    std::vector<float> plane(42, 0.0f);
    for (uint32_t r = 0; r < 6; ++r)
        plane[r * 7 + 2] = 1.0f;
    const auto v = to_3x3(plane, 7, 6);
    EXPECT_EQ(v[0], 146);
    EXPECT_EQ(v[1], 293);
    EXPECT_EQ(v[2], 0);
}

TEST(AreaDownscale, RejectionsWriteNothing)
{
    const std::vector<float> fsrc(400, 1.0f);
    const std::vector<uint16_t> usrc(400, 1);
    Guarded<uint16_t> dst(100);
    const float *fp[1] = {fsrc.data()};
    const uint16_t *up[1] = {usrc.data()};
    uint16_t *dp[1] = {dst.data()};
    const struct {
        uint16_t dw, dh;
        std::vector<uint16_t> roi; // x, y, width, height; none when empty
        bool null_src, null_dst;
    } rejects[] = {
        {20, 10, {}, false, false},            // dst_width = src_width
        {10, 21, {}, false, false},
        {2, 10, {}, false, false},             // destination extent 2
        {10, 2, {}, false, false},
        {10, 10, {}, true, false},
        {10, 10, {}, false, true},
        {10, 10, {5, 0, 16, 20}, false, false}, // one column past the edge
        {10, 10, {20, 0, 0, 20}, false, false},
        {10, 10, {0, 20, 20, 0}, false, false},
        {4, 4, {0, 17, 20, 3}, false, false},   // lower than the destination
        {4, 4, {0, 0, 3, 20}, false, false},    // narrower than the destination
        {3, 3, {2, 2, 0, 10}, false, false},
    };
    for (size_t i = 0; i < std::size(rejects); ++i) {
        const auto &r = rejects[i];
        const uint16_t *roi = r.roi.empty() ? nullptr : r.roi.data();
        EXPECT_EQ(image_downscale_32f_to_u16p10(r.null_src ? nullptr : fp, r.null_dst ? nullptr : dp,
                                                20, 20, r.dw, r.dh, 1, roi),
                  32u)
            << "case " << i;
        EXPECT_EQ(image_downscale_u16_to_u16(r.null_src ? nullptr : up, r.null_dst ? nullptr : dp,
                                             20, 20, 10, r.dw, r.dh, 10, 1, roi),
                  32u)
            << "case " << i;
    }
    // No planes: accepted, nothing written.
    EXPECT_EQ(image_downscale_32f_to_u16p10(fp, dp, 20, 20, 10, 10, 0, nullptr), 0u);
    EXPECT_TRUE(dst.all_untouched());

    // A region ending exactly at the edge is accepted.
    const uint16_t edge[4] = {5, 0, 15, 20};
    EXPECT_EQ(image_downscale_32f_to_u16p10(fp, dp, 20, 20, 10, 10, 1, edge), 0u);
    EXPECT_EQ(dst.values(), std::vector<uint16_t>(100, 1024));
    EXPECT_TRUE(dst.guards_intact());
}

} // namespace
