// The nearest-neighbour and area-averaging loops, bit for bit: the x86-64-v3
// area loops against the portable ones on seeded random planes (general and
// whole-number ratios, regions, plane edges, non-finite samples), and the
// block-maximum strips against a reference written here from the rule, over
// extents that cross every strip limit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "ej_cmc_resample.h"
#include "isa_compare.h"

namespace {

using ejtest::describe;
using ejtest::expect_same_bits;
using ejtest::Extents;
using ejtest::Guarded;
using ejtest::random_plane;

class IsaVariantsNearestArea : public ejtest::IsaVariantsTest {};


// Both area kernels on one source pair, whole plane or region.
void compare_area(const Extents &e, const std::vector<float> &f, const std::vector<uint16_t> &u16,
                  const uint16_t *region, int32_t in_bits, int32_t out_bits)
{
    const std::string what = describe(e) + (region ? " region" : "");
    expect_same_bits<uint16_t>(size_t(e.dw) * e.dh, [&](uint16_t *dst) {
        const float *in[1] = {f.data()};
        uint16_t *out[1] = {dst};
        return image_downscale_32f_to_u16p10(in, out, e.sw, e.sh, e.dw, e.dh, 1, region);
    }, "32f " + what);
    expect_same_bits<uint16_t>(size_t(e.dw) * e.dh, [&](uint16_t *dst) {
        const uint16_t *in[1] = {u16.data()};
        uint16_t *out[1] = {dst};
        return image_downscale_u16_to_u16(in, out, e.sw, e.sh, in_bits, e.dw, e.dh, out_bits, 1,
                                          region);
    }, "u16 " + what);
}

// Area downscale over whole planes and regions, ratios near 1 to large,
// float sources with ordinary, huge and non-finite values.
TEST_F(IsaVariantsNearestArea, AreaDownscale)
{
    std::mt19937 gen(41);
    uint32_t seed = 500;
    for (int round = 0; round < 60; ++round) {
        const uint16_t sw = uint16_t(4 + gen() % 70), sh = uint16_t(4 + gen() % 30);
        const uint16_t dw = uint16_t(3 + gen() % (sw - 3)), dh = uint16_t(3 + gen() % (sh - 3));
        uint16_t roi[4] = {0, 0, sw, sh};
        if (round % 2 == 1) {
            roi[0] = uint16_t(gen() % (sw - dw + 1));
            roi[1] = uint16_t(gen() % (sh - dh + 1));
            roi[2] = uint16_t(dw + gen() % (sw - roi[0] - dw + 1));
            roi[3] = uint16_t(dh + gen() % (sh - roi[1] - dh + 1));
        }
        std::vector<float> f = random_plane<float>(size_t(sw) * sh, seed++);
        if (round % 5 == 0) {
            f[gen() % f.size()] = 1.0e30f;
            f[gen() % f.size()] = std::numeric_limits<float>::quiet_NaN();
        }
        const auto u16 = random_plane<uint16_t>(size_t(sw) * sh, seed++);
        compare_area({sw, sh, dw, dh}, f, u16, round % 2 == 1 ? roi : nullptr,
                     int32_t(gen() % 16), int32_t(gen() % 16));
    }
    // Integer and near-integer reductions: the bands of eight outputs fill
    // one to four registers or more than four (the samples are then
    // gathered), with the last vectors at the plane's right edge.
    const Extents big[] = {{1200, 6, 1100, 3}, {2000, 9, 600, 4},  {256, 6, 128, 3},
                           {387, 9, 129, 3},   {516, 8, 129, 4},  {129, 5, 32, 3},
                           {645, 10, 129, 5},  {1001, 7, 230, 3}, {91, 6, 21, 3}};
    for (const Extents &e : big) {
        const auto u16 = random_plane<uint16_t>(size_t(e.sw) * e.sh, seed++);
        const auto f = random_plane<float>(size_t(e.sw) * e.sh, seed++);
        const uint16_t roi[4] = {1, 1, uint16_t(e.sw - 1), uint16_t(e.sh - 1)};
        compare_area(e, f, u16, nullptr, 10, 10);
        compare_area(e, f, u16, roi, 10, 10);
    }
}

// Whole-number ratios of the region to the destination: one to four
// columns and one to many rows per output (16-bit sums up to the largest
// exact one and beyond it), destination widths with and without a partial
// last vector, regions cut at every side, and float samples of mixed
// magnitudes and signs (rounding order), signed zeros and non-finite values.
TEST_F(IsaVariantsNearestArea, AreaWholeRatios)
{
    struct Case {
        uint16_t nx, ny, dw, dh;
    };
    const Case cases[] = {{2, 2, 16, 5}, {2, 2, 21, 4}, {3, 3, 8, 3},    {3, 3, 29, 6},
                          {4, 4, 17, 3}, {4, 2, 3, 4},  {1, 2, 13, 3},   {2, 1, 11, 5},
                          {3, 7, 10, 3}, {4, 64, 9, 3}, {4, 65, 9, 3},   {2, 200, 8, 3},
                          {5, 5, 12, 3}, {6, 2, 20, 4}, {2, 3, 1030, 3}, {3, 2, 3, 3}};
    uint32_t seed = 900;
    std::mt19937 gen(77);
    for (const Case &c : cases) {
        const uint16_t rw = uint16_t(c.nx * c.dw), rh = uint16_t(c.ny * c.dh);
        for (int shape = 0; shape < 3; ++shape) {
            // 0: the whole plane (needs a true reduction); 1: a region with
            // margins on every side; 2: a region touching the right and
            // bottom edges.
            if (shape == 0 && (c.nx == 1 || c.ny == 1))
                continue;
            const uint16_t left = shape == 0 ? 0 : uint16_t(1 + gen() % 5);
            const uint16_t top = shape == 0 ? 0 : uint16_t(1 + gen() % 3);
            const uint16_t right = shape == 1 ? uint16_t(1 + gen() % 4) : 0;
            const uint16_t bottom = shape == 1 ? 2 : 0;
            Extents e = {uint16_t(left + rw + right), uint16_t(top + rh + bottom), c.dw, c.dh};
            if (shape != 0 && (e.sw <= e.dw || e.sh <= e.dh))
                continue;
            std::vector<float> f = random_plane<float>(size_t(e.sw) * e.sh, seed++);
            for (size_t i = 0; i < f.size(); i += 7)
                f[i] *= 1.0e6f; // large and small magnitudes in one sum
            for (size_t i = 3; i < f.size(); i += 11)
                f[i] = -0.0f;
            if (shape == 1) {
                f[gen() % f.size()] = std::numeric_limits<float>::quiet_NaN();
                f[gen() % f.size()] = std::numeric_limits<float>::infinity();
                f[gen() % f.size()] = 3.0e38f;
            }
            std::vector<uint16_t> u16 = random_plane<uint16_t>(size_t(e.sw) * e.sh, seed++);
            if (shape == 2)
                std::fill(u16.begin(), u16.end(), uint16_t(65535)); // the largest sums
            const uint16_t roi[4] = {left, top, rw, rh};
            compare_area(e, f, u16, shape == 0 ? nullptr : roi, int32_t(gen() % 16),
                         int32_t(gen() % 16));
        }
    }
}

// Block maximum by the rule, from the picked indices of every output: the
// maximum of 0 and the samples after the previous output's row and column
// (0 before the first) up to the output's own.
std::vector<int32_t> block_max_ref(const std::vector<int32_t> &src, uint32_t sw, uint32_t sh,
                                   uint32_t dw, uint32_t dh)
{
    const auto indices = [](uint32_t s, uint32_t d) {
        const float ratio = float(s) / float(d);
        std::vector<uint32_t> idx(d);
        for (uint32_t k = 1; k <= d; ++k)
            idx[k - 1] = std::min<uint32_t>(uint32_t(std::ceil(float(k) * ratio)) - 1, s - 1);
        return idx;
    };
    const auto ix = indices(sw, dw), iy = indices(sh, dh);
    std::vector<int32_t> out;
    for (uint32_t oy = 0; oy < dh; ++oy) {
        const uint32_t py = oy == 0 ? 0 : iy[oy - 1];
        for (uint32_t ox = 0; ox < dw; ++ox) {
            const uint32_t px = ox == 0 ? 0 : ix[ox - 1];
            int32_t best = 0;
            for (uint32_t y = py + 1; y <= iy[oy]; ++y)
                for (uint32_t x = px + 1; x <= ix[ox]; ++x)
                    best = std::max(best, src[size_t(y) * sw + x]);
            out.push_back(best);
        }
    }
    return out;
}

// Strips of outputs end at 2048 outputs or when their blocks would span more
// than 4096 source columns; a single block wider than that is taken on its
// own. Blocks of a strip may all be one to four columns wide, at most one
// column, or neither. Random samples check the maximum's floor of 0; ramps rising and
// falling along the rows put the maximum at a block's last and first sample.
TEST(NearestNeighborBlockMaximum, StripsMatchTheRule)
{
    const Extents shapes[] = {{3840, 5, 1280, 3}, {1920, 4, 3840, 7}, {2500, 3, 1100, 2},
                              {20000, 4, 2, 2},   {30000, 3, 5, 3},   {8196, 3, 2, 2},
                              {8194, 3, 2, 2},
                              {5000, 3, 1500, 3}, {4097, 2, 2, 2},    {60000, 2, 7000, 2},
                              {7, 9, 5, 4},       {2, 2, 2100, 3},    {33, 17, 8, 5},
                              // Bands of 1 ... 10 rows (taken three, two and one at a time).
                              {40, 31, 7, 3},     {30, 17, 6, 4},     {12, 20, 5, 4},
                              {9, 12, 4, 4},      {300, 6, 100, 3},
                              // Strips of 2048 outputs, or fewer at 4096 columns.
                              {4200, 3, 2100, 3}, {2100, 3, 4100, 3}, {6000, 2, 2049, 2}};
    uint32_t seed = 1300;
    for (const Extents &e : shapes) {
        const size_t n = size_t(e.sw) * e.sh;
        std::vector<int32_t> rising(n), falling(n);
        for (size_t i = 0; i < n; ++i) {
            rising[i] = int32_t(i);
            falling[i] = int32_t(n - i);
        }
        for (const auto &src : {random_plane<int32_t>(n, seed++), rising, falling}) {
            EXPECT_EQ(ejtest::run_guarded<int32_t>(size_t(e.dw) * e.dh, [&](int32_t *d) {
                          return image_downscale_nearest_neighbor_int32(src.data(), d, e.sw, e.sh,
                                                                        e.dw, e.dh, 1);
                      }),
                      block_max_ref(src, e.sw, e.sh, e.dw, e.dh))
                << describe(e);
        }
    }
}

// Three-channel pixels by the 16.16 rule (indices limited to the last
// sample), against the kernel's block moves: pairs of output rows from
// different source rows and single ones, repeated rows, strips of 1024
// outputs, and the last source pixel picked many times (its block would end
// past the plane).
TEST(NearestNeighborInterleaved, ThreeChannelRowsMatchTheRule)
{
    const Extents shapes[] = {{3840, 9, 1920, 5}, {3840, 10, 1280, 3}, {1920, 4, 3840, 9},
                              {1, 1, 280, 3},     {2, 3, 397, 5},      {64, 48, 1100, 7},
                              {7, 7, 7, 7},       {2100, 5, 2090, 4},  {9, 31, 4, 30}};
    uint32_t seed = 1700;
    for (const Extents &e : shapes) {
        const auto src = random_plane<int32_t>(size_t(e.sw) * e.sh * 3, seed++);
        const auto index = [](uint32_t s, uint32_t d, uint32_t k) {
            const uint64_t step = (uint64_t(s) << 16) / d + 1;
            return uint32_t(std::min<uint64_t>((uint64_t(k) * step) >> 16, s - 1));
        };
        std::vector<int32_t> expected;
        for (uint32_t oy = 0; oy < e.dh; ++oy)
            for (uint32_t ox = 0; ox < e.dw; ++ox) {
                const size_t pixel = size_t(index(e.sh, e.dh, oy)) * e.sw + index(e.sw, e.dw, ox);
                for (uint32_t c = 0; c < 3; ++c)
                    expected.push_back(src[pixel * 3 + c]);
            }
        EXPECT_EQ(ejtest::run_guarded<int32_t>(size_t(e.dw) * e.dh * 3, [&](int32_t *d) {
                      return image_nearest_neighbor_scale_interleaved_int32(src.data(), e.sw,
                                                                            e.sh, 3, d, e.dw, e.dh);
                  }),
                  expected)
            << describe(e);
    }
}

// 16-bit picks by the 1-based rule with the 0.0001 tolerance, against the
// kernel's strided moves (columns one to four samples apart over a whole
// strip of 1024 outputs or its rest) and its table picks, in groups of one to
// four output rows.
TEST(NearestNeighborUint16, StridedRowsMatchTheRule)
{
    const Extents shapes[] = {{3840, 7, 1280, 3}, {4096, 9, 1024, 4}, {2100, 5, 2100, 5},
                              {4000, 13, 2000, 6}, {3000, 5, 1100, 4}, {9, 30, 3, 29},
                              {1920, 3, 3840, 5}};
    uint32_t seed = 2100;
    for (const Extents &e : shapes) {
        const auto src = random_plane<uint16_t>(size_t(e.sw) * e.sh, seed++);
        const auto index = [](uint32_t s, uint32_t d, uint32_t k) {
            const float t = float(k) * (float(s) / float(d));
            const float whole = std::trunc(t);
            const uint32_t i = uint32_t(whole) - (t - whole < 0.0001f && t >= 1.0f ? 1 : 0);
            return std::min(i, s - 1);
        };
        std::vector<uint16_t> expected;
        for (uint32_t oy = 1; oy <= e.dh; ++oy)
            for (uint32_t ox = 1; ox <= e.dw; ++ox)
                expected.push_back(
                    src[size_t(index(e.sh, e.dh, oy)) * e.sw + index(e.sw, e.dw, ox)]);
        EXPECT_EQ(ejtest::run_guarded<uint16_t>(size_t(e.dw) * e.dh, [&](uint16_t *d) {
                      return image_upscale_nearest_neighbor_uint16(src.data(), d, e.sw, e.sh, e.dw,
                                                                   e.dh);
                  }),
                  expected)
            << describe(e);
    }
}

// 32-bit picks of the uint32 kernel (16.16 rule) and of the int32 kernel
// without the maximum (1-based rule, exact integral test), against the
// kernels' moves: enlargements by two (each column stored twice, strips
// starting at an even or odd output, an odd last output), strided and table
// picks, in groups of one to four rows.
TEST(NearestNeighborWords, PicksMatchTheRule)
{
    const Extents shapes[] = {{1920, 5, 3840, 9}, {3, 2, 5, 3},      {1025, 3, 2049, 4},
                              {2, 2, 4, 4},       {700, 4, 1400, 7}, {64, 48, 1100, 7},
                              {3840, 9, 1280, 3}, {9, 31, 4, 30},    {2100, 5, 2090, 4}};
    uint32_t seed = 2500;
    for (const Extents &e : shapes) {
        const auto src = random_plane<int32_t>(size_t(e.sw) * e.sh, seed++);
        const auto step_index = [](uint32_t s, uint32_t d, uint32_t k) {
            const uint64_t step = (uint64_t(s) << 16) / d + 1;
            return uint32_t(std::min<uint64_t>((uint64_t(k) * step) >> 16, s - 1));
        };
        const auto exact_index = [](uint32_t s, uint32_t d, uint32_t k) {
            const float t = float(k + 1) * (float(s) / float(d));
            uint32_t i = uint32_t(std::trunc(t)) & 0xFFFFu;
            if (t - float(i) == 0.0f && i != 0)
                --i;
            return std::min(i, s - 1);
        };
        std::vector<int32_t> stepped, exact;
        for (uint32_t oy = 0; oy < e.dh; ++oy)
            for (uint32_t ox = 0; ox < e.dw; ++ox) {
                stepped.push_back(src[size_t(step_index(e.sh, e.dh, oy)) * e.sw +
                                      step_index(e.sw, e.dw, ox)]);
                exact.push_back(src[size_t(exact_index(e.sh, e.dh, oy)) * e.sw +
                                    exact_index(e.sw, e.dw, ox)]);
            }
        const std::vector<uint32_t> unsigned_src(src.begin(), src.end());
        const std::vector<uint32_t> unsigned_stepped(stepped.begin(), stepped.end());
        EXPECT_EQ(ejtest::run_guarded<uint32_t>(size_t(e.dw) * e.dh, [&](uint32_t *d) {
                      return image_nearest_neighbor_scale_uint32(unsigned_src.data(),
                                                                 int32_t(e.sw), int32_t(e.sh), d,
                                                                 int32_t(e.dw), int32_t(e.dh));
                  }),
                  unsigned_stepped)
            << describe(e);
        if (e.sw < 2 || e.sh < 2 || e.dw < 2 || e.dh < 2)
            continue;
        EXPECT_EQ(ejtest::run_guarded<int32_t>(size_t(e.dw) * e.dh, [&](int32_t *d) {
                      return image_downscale_nearest_neighbor_int32(src.data(), d, e.sw, e.sh,
                                                                    e.dw, e.dh, 0);
                  }),
                  exact)
            << describe(e);
    }
}

} // namespace
