// Bicubic upscaling to float: hand-computed cases, the edge cases of the
// definition, and bit-exact agreement with the reference on random planes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "allocation.h"
#include "failure_injection.h"
#include "bicubic_internal.h"
#include "bicubic_reference.h"
#include "ej_cmc_resample.h"
#include "guarded.h"

namespace {

// A float no kernel writes: marks destination samples left untouched.
const float kUntouched = std::nanf("0x5a5a");

// Runs the 8- or 16-bit kernel on one plane of integer samples.
template <typename Sample>
uint32_t upscale(const std::vector<Sample> &src, int sw, int sh, std::vector<float> &dst, int dw,
                 int dh)
{
    dst.assign(static_cast<size_t>(dw) * dh, kUntouched);
    const Sample *in[1] = {src.data()};
    float *out[1] = {dst.data()};
    if constexpr (sizeof(Sample) == 1)
        return image_bicubic_upscale_uint8_to_float(in, out, sw, sh, dw, dh, 1);
    else
        return image_bicubic_upscale_uint16_to_float(in, out, sw, sh, dw, dh, 1);
}

template <typename Sample>
std::vector<float> as_float(const std::vector<Sample> &s)
{
    return std::vector<float>(s.begin(), s.end());
}

size_t untouched_count(const std::vector<float> &v)
{
    return std::count_if(v.begin(), v.end(), [](float f) { return std::isnan(f); });
}

// Float of random sign and mantissa over 2^-range ... 2^range: sums of such
// values show their evaluation order in the rounding.
float mixed_magnitude(std::mt19937 &rng, int range)
{
    return std::ldexp(std::uniform_real_distribution<float>(-1.0f, 1.0f)(rng),
                      std::uniform_int_distribution<int>(-range, range)(rng));
}

template <typename Sample>
void compare_with_reference_on_random_planes(unsigned seed)
{
    std::mt19937 rng(seed);
    auto extent = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    for (int trial = 0; trial < 300; ++trial) {
        const int sw = extent(1, 12), sh = extent(1, 12);
        const int dw = sw + extent(0, 40), dh = sh + extent(0, 40);
        SCOPED_TRACE(testing::Message() << sw << "x" << sh << " -> " << dw << "x" << dh);
        const auto src = ejtest::random_plane<Sample>(static_cast<size_t>(sw) * sh, seed + trial);
        std::vector<float> got;
        ASSERT_EQ(upscale(src, sw, sh, got, dw, dh), 0u);
        std::vector<float> want(got.size(), kUntouched);
        bicubic_ref::upscale(as_float(src), sw, sh, want, dw, dh);
        ASSERT_EQ(bicubic_ref::bits(got), bicubic_ref::bits(want));
        ASSERT_EQ(untouched_count(got), 0u); // dst >= src: every sample written once
    }
}

} // namespace

TEST(BicubicUpscale, MatchesTheReferenceBitForBit)
{
    compare_with_reference_on_random_planes<uint8_t>(11);
    // Full-range samples overshoot past both clamp bounds.
    compare_with_reference_on_random_planes<uint16_t>(12);
}

TEST(BicubicUpscale, CoefficientsFollowTheirWrittenOrder)
{
    // Integer samples sum exactly in any order; float ones of mixed magnitude
    // do not.
    std::mt19937 rng(9);
    for (int trial = 0; trial < 2000; ++trial) {
        float buffer[5 * 4];
        float p[4][4];
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                p[r][c] = buffer[r * 5 + c] = mixed_magnitude(rng, 12);
        float a[16];
        bicubic_cell_coefficients(buffer, 5, a);
        for (int k = 0; k < 16; ++k) {
            const float want = bicubic_ref::evaluate_formula(bicubic_ref::coefficient_terms()[k], p);
            ASSERT_EQ(bicubic_ref::bits({a[k]}), bicubic_ref::bits({want})) << "a" << k / 4 << k % 4;
        }
    }
}

TEST(BicubicUpscale, BuffersMatchTheReference)
{
    // 16-bit samples at frac_bits 3, every extent up to 6 x 6.
    std::mt19937 rng(5);
    for (int w = 1; w <= 6; ++w) {
        for (int h = 1; h <= 6; ++h) {
            const auto src = ejtest::random_plane<uint16_t>(static_cast<size_t>(w) * h, rng());
            std::vector<float> buffer(bicubic_buffer_floats(w, h), kUntouched);
            create_buffer_for_bicubic_uint16(src.data(), buffer.data(), w, h, 3);
            std::vector<float> scaled = as_float(src);
            for (auto &f : scaled)
                f *= 0.125f;
            EXPECT_EQ(bicubic_ref::bits(buffer), bicubic_ref::bits(bicubic_ref::padded(scaled, w, h)))
                << w << "x" << h;
        }
    }
    // Float samples of mixed magnitude: the corners' fused doublings round
    // differently from the plain mean of the two extrapolations.
    for (int trial = 0; trial < 200; ++trial) {
        const int w = 2 + trial % 5, h = 2 + trial / 5 % 5;
        std::vector<float> src(static_cast<size_t>(w) * h);
        for (auto &s : src)
            s = mixed_magnitude(rng, 10);
        std::vector<float> buffer(bicubic_buffer_floats(w, h), kUntouched);
        create_buffer_for_bicubic_float(src.data(), buffer.data(), w, h);
        ASSERT_EQ(bicubic_ref::bits(buffer), bicubic_ref::bits(bicubic_ref::padded(src, w, h)))
            << w << "x" << h << " trial " << trial;
    }
}

TEST(BicubicUpscale, FracBitsAreTakenModulo32)
{
    const std::vector<uint16_t> src = {1024, 2048, 3072, 4096};
    std::vector<float> want(bicubic_buffer_floats(2, 2)), got(want.size());
    create_buffer_for_bicubic_uint16(src.data(), want.data(), 2, 2, 10);
    EXPECT_EQ(want[6], 1.0f); // B[1][1] = 1024 / 2^10
    for (int frac_bits : {42, -22}) {
        create_buffer_for_bicubic_uint16(src.data(), got.data(), 2, 2, frac_bits);
        EXPECT_EQ(got, want) << frac_bits;
    }
}

TEST(BicubicUpscale, WorkedExamples)
{
    // Rows 0, 10, 40 (quadratic down the column, constant along the row):
    // extrapolated border rows -10 above, 70 and 100 below. Output rows 1 and
    // 3 are Catmull-Rom midpoints (-p0 + 9 p1 + 9 p2 - p3) / 16 of cell rows
    // 0 and 1; even rows fall on the source rows.
    std::vector<float> out;
    ASSERT_EQ(upscale(std::vector<uint8_t>{0, 0, 0, 10, 10, 10, 40, 40, 40}, 3, 3, out, 5, 5), 0u);
    const float expected_rows[5] = {0.0f, 3.75f, 10.0f, 23.75f, 40.0f};
    for (int k = 0; k < 25; ++k)
        EXPECT_FLOAT_EQ(out[k], expected_rows[k / 5]) << k;

    // Even positions of a random 3 x 3 equal the source samples.
    const std::vector<uint8_t> random = {17, 200, 3, 99, 0, 255, 128, 64, 7};
    ASSERT_EQ(upscale(random, 3, 3, out, 5, 5), 0u);
    for (int k = 0; k < 9; ++k)
        EXPECT_EQ(out[(k / 3) * 10 + (k % 3) * 2], random[k]) << k;

    // Equal extents reproduce the source.
    for (int n : {2, 3, 7, 16}) {
        const auto src = ejtest::random_plane<uint16_t>(static_cast<size_t>(n) * (n + 1), n);
        ASSERT_EQ(upscale(src, n, n + 1, out, n, n + 1), 0u);
        EXPECT_EQ(out, as_float(src)) << n;
    }

    // value = 3 x + 5 y + 2: the border keeps the ramp and the cubic
    // reproduces it, up to rounding.
    std::vector<uint16_t> ramp(5 * 4);
    for (int k = 0; k < 20; ++k)
        ramp[k] = static_cast<uint16_t>(3 * (k % 5) + 5 * (k / 5) + 2);
    ASSERT_EQ(upscale(ramp, 5, 4, out, 17, 10), 0u);
    for (int k = 0; k < 170; ++k) {
        const float sx = (k % 17) * (4.0f / 16.0f), sy = (k / 17) * (3.0f / 9.0f);
        EXPECT_NEAR(out[k], 3 * sx + 5 * sy + 2, 1e-3) << k;
    }
}

TEST(BicubicUpscale, OvershootIsClampedToMinus255And65535)
{
    // A single bright column next to dark ones rings below 0 (well past -255)
    // and a dark one next to bright ones rings above 65535.
    const std::vector<uint16_t> src = {0, 0, 65535, 65535, 0, 0, 0, 65535, 65535, 0};
    std::vector<float> out;
    ASSERT_EQ(upscale(src, 5, 2, out, 41, 2), 0u);
    EXPECT_EQ(*std::min_element(out.begin(), out.end()), -255.0f);
    EXPECT_EQ(*std::max_element(out.begin(), out.end()), 65535.0f);
}

TEST(BicubicUpscale, SourceExtentOneCarriesOnlyTheDataLine)
{
    // One column: every output column is the vertical interpolation of it.
    std::vector<float> out;
    ASSERT_EQ(upscale(std::vector<uint8_t>{10, 50, 20}, 1, 3, out, 4, 5), 0u);
    for (int k = 0; k < 20; ++k)
        EXPECT_EQ(out[k], out[k / 4 * 4]) << k;
    EXPECT_EQ(out[0], 10.0f);
    EXPECT_EQ(out[2 * 4], 50.0f);
    EXPECT_EQ(out[4 * 4], 20.0f);

    // One sample, any destination (a destination extent of 1 included).
    for (int d : {1, 2, 7}) {
        ASSERT_EQ(upscale(std::vector<uint16_t>{4242}, 1, 1, out, d, 3), 0u);
        EXPECT_EQ(out, std::vector<float>(out.size(), 4242.0f)) << d;
    }
}

TEST(BicubicUpscale, RejectionsAndEmptyCallsWriteNothing)
{
    const std::vector<uint8_t> src(16, 9);
    std::vector<float> out;
    EXPECT_EQ(upscale(src, 4, 4, out, 3, 4), 32u); // dst_width = src_width - 1
    EXPECT_EQ(untouched_count(out), out.size());
    EXPECT_EQ(upscale(src, 4, 4, out, 4, 3), 32u);
    EXPECT_EQ(untouched_count(out), out.size());

    // Source extents above 65532, null plane arrays or planes: refused
    // before any plane is read.
    const uint16_t *never[1] = {nullptr};
    float *nowhere[1] = {nullptr};
    EXPECT_EQ(image_bicubic_upscale_uint16_to_float(never, nowhere, 65533, 1, 65533, 1, 1), 32u);
    EXPECT_EQ(image_bicubic_upscale_uint16_to_float(never, nowhere, 1, 65535, 1, 65535, 1), 32u);
    EXPECT_EQ(image_bicubic_upscale_uint16_to_float(nullptr, nowhere, 1, 1, 1, 1, 1), 32u);
    EXPECT_EQ(image_bicubic_upscale_uint16_to_float(never, nowhere, 1, 1, 1, 1, 1), 32u);

    // No plane, no column or no row: nothing to do.
    out.assign(16, kUntouched);
    const uint8_t *in[1] = {src.data()};
    float *dst[1] = {out.data()};
    EXPECT_EQ(image_bicubic_upscale_uint8_to_float(in, dst, 4, 4, 4, 4, 0), 0u);
    EXPECT_EQ(image_bicubic_upscale_uint8_to_float(nullptr, nullptr, 4, 4, 4, 4, 0), 0u);
    EXPECT_EQ(image_bicubic_upscale_uint16_to_float(nullptr, nullptr, 4, 4, 4, 4, 0), 0u);
    EXPECT_EQ(image_bicubic_upscale_uint8_to_float(in, dst, 0, 4, 4, 4, 1), 0u);
    EXPECT_EQ(image_bicubic_upscale_uint8_to_float(in, dst, 4, 0, 4, 4, 1), 0u);
    EXPECT_EQ(untouched_count(out), out.size());
}

TEST(BicubicUpscale, AllocationFailureWritesNothing)
{
    for (uint64_t k : {1u, 2u}) {
        std::vector<float> out;
        ejtest::FailureInjection fail(k);
        EXPECT_EQ(upscale(std::vector<uint16_t>(6, 1), 3, 2, out, 5, 5), 4u) << k;
        EXPECT_EQ(untouched_count(out), out.size());
    }
}

TEST(BicubicUpscale, EveryPlaneOfASetIsUpscaled)
{
    const auto a = ejtest::random_plane<uint8_t>(6, 1), b = ejtest::random_plane<uint8_t>(6, 2);
    std::vector<float> oa(35, kUntouched), ob(oa), ra(oa), rb(oa);
    const uint8_t *in[2] = {a.data(), b.data()};
    float *out[2] = {oa.data(), ob.data()};
    ASSERT_EQ(image_bicubic_upscale_uint8_to_float(in, out, 3, 2, 7, 5, 2), 0u);
    bicubic_ref::upscale(as_float(a), 3, 2, ra, 7, 5);
    bicubic_ref::upscale(as_float(b), 3, 2, rb, 7, 5);
    EXPECT_EQ(bicubic_ref::bits(oa), bicubic_ref::bits(ra));
    EXPECT_EQ(bicubic_ref::bits(ob), bicubic_ref::bits(rb));
}
