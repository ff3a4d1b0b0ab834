// The x86-64-v3 loops of the bilinear resize against the portable ones, bit
// for bit: every member runs on seeded random planes over many extents, once
// with the portable variant forced and once as dispatched, and the two
// destinations (guard zones included) must be identical. The sources are
// exact-size vectors, so the sanitizer build also catches reads past them.
#include <gtest/gtest.h>

#include <cstdint>
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

class IsaVariantsBilinear : public ejtest::IsaVariantsTest {};


// Bilinear extents: small ones of every shape, strips of several hundred
// columns, strong reductions whose source span limits the strip.
std::vector<Extents> bilinear_extents()
{
    std::vector<Extents> out;
    std::mt19937 gen(23);
    for (int k = 0; k < 40; ++k)
        out.push_back({uint16_t(2 + gen() % 60), uint16_t(2 + gen() % 20), uint16_t(2 + gen() % 90),
                       uint16_t(2 + gen() % 20)});
    out.push_back({37, 5, 1300, 3});
    out.push_back({3000, 3, 600, 2});
    out.push_back({9000, 2, 515, 4});
    out.push_back({600, 4, 599, 7});
    out.push_back({2, 2, 2, 2});
    // Integer reductions and equal extents put whole weights on one sample.
    out.push_back({41, 21, 21, 11});
    out.push_back({31, 7, 11, 3});
    out.push_back({9, 9, 9, 9});
    out.push_back({2049, 3, 1025, 2});
    // Reductions whose eight columns span three or four registers, or more
    // (then gathered), over a strip boundary.
    out.push_back({1700, 3, 560, 2});
    out.push_back({2100, 4, 600, 3});
    out.push_back({130, 5, 37, 3});
    out.push_back({100, 4, 33, 3});
    return out;
}

template <typename T, typename Resize>
void compare_bilinear(const std::vector<Extents> &list, Resize resize, const char *name)
{
    uint32_t seed = 300;
    for (const Extents &e : list) {
        const auto src = random_plane<T>(size_t(e.sw) * e.sh, seed++);
        for (int32_t step : {1, 3}) {
            expect_same_bits<T>(size_t(e.dw) * e.dh * size_t(step), [&](T *dst) {
                return resize(src.data(), e, dst, step);
            }, std::string(name) + " step " + std::to_string(step) + " " + describe(e));
        }
    }
}

void compare_all_members(const std::vector<Extents> &list)
{
    compare_bilinear<uint8_t>(list, [](const uint8_t *src, const Extents &e, uint8_t *dst, int32_t step) {
        return step == 1 ? resize_2d_array_uint8(src, e.sw, e.sh, dst, e.dw, e.dh)
                         : resize_2d_array_uint8_v1(src, e.sw, e.sh, dst, e.dw, e.dh, step);
    }, "uint8");
    compare_bilinear<uint16_t>(list, [](const uint16_t *src, const Extents &e, uint16_t *dst, int32_t step) {
        return step == 1 ? resize_2d_array_uint16(src, e.sw, e.sh, dst, e.dw, e.dh)
                         : resize_2d_array_uint16_v1(src, e.sw, e.sh, dst, e.dw, e.dh, step);
    }, "uint16");
    // The crop: margins from the step argument (1: none; 3: 1 left, 2 right, 1 top).
    compare_bilinear<uint16_t>(list, [](const uint16_t *src, const Extents &e, uint16_t *dst, int32_t step) {
        const resize_crop_pair tl = {step == 1 ? 0 : 1, step == 1 ? 0 : 1};
        const resize_crop_pair br = {step == 1 ? 0 : 2, 0};
        return crop_resize_2d_array_uint16(src, e.sw, e.sh, tl, br, dst, e.dw, e.dh);
    }, "crop uint16");
    compare_bilinear<int32_t>(list, [](const int32_t *src, const Extents &e, int32_t *dst, int32_t step) {
        return resize_2d_array_int32(src, e.sw, e.sh, dst, e.dw + step - 1, e.dh);
    }, "int32");
    compare_bilinear<uint32_t>(list, [](const uint32_t *src, const Extents &e, uint32_t *dst, int32_t step) {
        return resize_2d_array_uint32(src, e.sw, e.sh, dst, e.dw + step - 1, e.dh);
    }, "uint32");
    compare_bilinear<float>(list, [](const float *src, const Extents &e, float *dst, int32_t step) {
        return resize_2d_array_float(src, e.sw, e.sh, dst, uint16_t(e.dw + step - 1), e.dh);
    }, "float");
}


// Reductions walked row by row, enlargements band by band (rows on one pair
// of source rows, long bands split). Ratios from 1 to 15 put the columns of
// a vector in one to four registers or beyond (gathered); odd widths leave
// tails; the windows near the end of the last rows fall back to gathers.
std::vector<Extents> reduction_extents()
{
    return {{200, 9, 97, 4},  {400, 9, 97, 4},   {700, 9, 101, 3}, {900, 7, 99, 3},
            {1500, 5, 97, 3}, {50, 9, 30, 9},    {33, 17, 9, 5},   {3, 3, 2, 2},
            {4096, 3, 1025, 2}, {97, 31, 96, 30}, {260, 6, 37, 5}, {3840, 6, 1920, 3},
            {1280, 4, 640, 3}, {50, 9, 97, 14}, {64, 6, 300, 40}, {5, 2, 40, 300},
            {7, 3, 61, 200},  {64, 48, 401, 300}};
}

// Halvings with whole weights (x step 512, y step a multiple of 256): the
// even samples of a row packed into vectors, with tails and with vectors
// ending on the last sample of the source. With the crop's margins (1 left,
// 2 right, 1 top) {66, 10, 32, 2} and {130, 7, 64, 6} halve too.
std::vector<Extents> halving_extents()
{
    return {{63, 9, 32, 5},  {129, 7, 65, 7},  {1023, 5, 512, 3}, {97, 13, 49, 4},
            {67, 3, 34, 2},  {65, 3, 33, 2},   {33, 3, 17, 3},    {129, 2, 65, 2},
            {66, 10, 32, 2}, {130, 7, 64, 6},  {3, 5, 2, 3},      {257, 4, 129, 4}};
}

// Whole weights with column steps of k samples (extents (d - 1) k + 1 -> d):
// k = 1 (a copy), 3, 4, 5, 7 and 8 are walked row by row with shuffles, with
// vectors ending on the last sample of the source; k = 9 keeps the strips.
std::vector<Extents> pick_extents()
{
    return {{37, 5, 37, 5},   {118, 13, 40, 5}, {133, 3, 34, 3}, {246, 7, 50, 7},
            {120, 3, 18, 2},  {505, 9, 64, 5},  {181, 5, 21, 5}, {49, 25, 17, 9}};
}

TEST_F(IsaVariantsBilinear, WholeStepPicks)
{
    compare_all_members(pick_extents());
}

// 8-bit strips, sixteen columns per vector from byte shuffles: steps whose
// eight columns span just under, at and just over sixteen bytes (some
// vectors fit, their neighbours do not), enlargements over two strips, and
// the last rows, where sixteen bytes from a vector's second half would run
// past the source.
std::vector<Extents> byte_shuffle_extents()
{
    return {{201, 5, 100, 3},  {190, 6, 100, 4},  {1900, 3, 1000, 2}, {3000, 4, 1600, 3},
            {1000, 4, 1999, 5}, {17, 3, 40, 5},    {30, 2, 59, 2},     {2047, 3, 1100, 2},
            {24, 3, 13, 2},     {23, 4, 12, 3}};
}

TEST_F(IsaVariantsBilinear, ByteShuffles)
{
    compare_all_members(byte_shuffle_extents());
}

TEST_F(IsaVariantsBilinear, AllMembers)
{
    compare_all_members(bilinear_extents());
}

TEST_F(IsaVariantsBilinear, Reductions)
{
    compare_all_members(reduction_extents());
}

TEST_F(IsaVariantsBilinear, Halvings)
{
    compare_all_members(halving_extents());
}

// 16-bit rows whose pairs come from one load per half vector (x steps up to
// 512): steps just under 512 (pairs reaching the eighth sample), just over
// it (the direct walk), 2x enlargements that fall back near the end of the
// last rows, rows wider than the kept sums (two passes), whole column
// weights with fractional row weights and the reverse; then planes at the
// ends of the range, where the signed multiply-add must still give the
// unsigned sums.
std::vector<Extents> pair_shuffle_extents()
{
    return {{1000, 6, 501, 9}, {1000, 6, 499, 9}, {1920, 5, 3839, 9}, {19, 4, 37, 7},
            {40, 40, 79, 79}, {300, 9, 251, 7},  {17, 3, 9, 2},     {2500, 3, 2100, 4},
            {4000, 2, 5001, 3}, {300, 5, 300, 9}, {300, 9, 601, 9}, {7, 9, 13, 5}};
}

// Enough outputs (about 190 000) that some sums end in 0x7FFF below 2^16,
// where a rounding bias off by one would change the result.
TEST_F(IsaVariantsBilinear, SixteenBitRowsRounding)
{
    const Extents e = {1500, 100, 1801, 107}; // odd steps 213 and 239: odd weights
    const auto src = random_plane<uint16_t>(size_t(e.sw) * e.sh, 91);
    expect_same_bits<uint16_t>(size_t(e.dw) * e.dh, [&](uint16_t *dst) {
        return resize_2d_array_uint16(src.data(), e.sw, e.sh, dst, e.dw, e.dh);
    }, "rounding " + describe(e));
}

TEST_F(IsaVariantsBilinear, SixteenBitRows)
{
    compare_all_members(pair_shuffle_extents());
}

TEST_F(IsaVariantsBilinear, SixteenBitExtremeSamples)
{
    for (const Extents &e : pair_shuffle_extents()) {
        const size_t n = size_t(e.sw) * e.sh;
        // Four flat planes, then one alternating between 0 and 65535.
        std::vector<std::vector<uint16_t>> planes;
        for (uint16_t value : {0, 32767, 32768, 65535})
            planes.emplace_back(n, value);
        planes.emplace_back(n, uint16_t(0));
        for (size_t k = 1; k < n; k += 2)
            planes.back()[k] = 65535;
        for (const std::vector<uint16_t> &src : planes) {
            expect_same_bits<uint16_t>(size_t(e.dw) * e.dh, [&](uint16_t *dst) {
                return resize_2d_array_uint16(src.data(), e.sw, e.sh, dst, e.dw, e.dh);
            }, "sample " + std::to_string(src[0]) + " " + describe(e));
        }
        // A flat plane resizes to itself: the weights of a sample add up to 2^16.
        for (size_t p = 0; p < 4; ++p) {
            std::vector<uint16_t> out(size_t(e.dw) * e.dh);
            ASSERT_EQ(resize_2d_array_uint16(planes[p].data(), e.sw, e.sh, out.data(), e.dw, e.dh), 0u);
            for (uint16_t v : out)
                ASSERT_EQ(v, planes[p][0]) << describe(e);
        }
    }
}

// The widest 32-bit sources: positions reach 2^32 - 4096, so lanes past the
// last column of a vector would wrap; they must neither read outside nor
// disturb the stored lanes.
TEST_F(IsaVariantsBilinear, WidestThirtyTwoBitRows)
{
    constexpr int32_t sw = int32_t(1) << 20;
    const auto s = random_plane<int32_t>(size_t(sw) * 2, 77);
    const auto u = random_plane<uint32_t>(size_t(sw) * 2, 78);
    for (int32_t dw : {2, 3, 9, 13}) {
        const std::string what = "width " + std::to_string(dw);
        expect_same_bits<int32_t>(size_t(dw) * 2, [&](int32_t *dst) {
            return resize_2d_array_int32(s.data(), sw, 2, dst, dw, 2);
        }, "int32 " + what);
        expect_same_bits<uint32_t>(size_t(dw) * 3, [&](uint32_t *dst) {
            return resize_2d_array_uint32(u.data(), sw, 2, dst, dw, 3);
        }, "uint32 " + what);
    }
}

} // namespace
