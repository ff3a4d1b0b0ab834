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

namespace {

// A float no kernel writes: marks destination samples left untouched.
const float kUntouched = std::nanf("0x5a5a");

using ejtest::FailureInjection;

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

template <typename Sample>
void compare_with_reference_on_random_planes(unsigned seed, int max_value)
{
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> sample(0, max_value);
    for (int trial = 0; trial < 300; ++trial) {
        const int sw = std::uniform_int_distribution<int>(1, 12)(rng);
        const int sh = std::uniform_int_distribution<int>(1, 12)(rng);
        const int dw = sw + std::uniform_int_distribution<int>(0, 40)(rng);
        const int dh = sh + std::uniform_int_distribution<int>(0, 40)(rng);
        std::vector<Sample> src(static_cast<size_t>(sw) * sh);
        for (auto &s : src)
            s = static_cast<Sample>(sample(rng));
        std::vector<float> got;
        ASSERT_EQ(upscale(src, sw, sh, got, dw, dh), 0u);
        std::vector<float> want(got.size(), kUntouched);
        bicubic_ref::upscale(as_float(src), sw, sh, want, dw, dh);
        ASSERT_EQ(bicubic_ref::bits(got), bicubic_ref::bits(want))
            << sw << "x" << sh << " -> " << dw << "x" << dh << " trial " << trial;
        // With dst >= src every output sample is written once.
        ASSERT_EQ(untouched_count(got), 0u) << sw << "x" << sh << " -> " << dw << "x" << dh;
    }
}

} // namespace

TEST(BicubicUpscale, MatchesTheReferenceBitForBit8Bit)
{
    compare_with_reference_on_random_planes<uint8_t>(11, 255);
}

TEST(BicubicUpscale, MatchesTheReferenceBitForBit16Bit)
{
    // Full-range samples overshoot past both clamp bounds.
    compare_with_reference_on_random_planes<uint16_t>(12, 65535);
}

TEST(BicubicUpscale, CoefficientsFollowTheirWrittenOrder)
{
    // Float neighbourhoods of mixed magnitude, where the order of the sums
    // shows in the rounding (integer samples sum exactly in any order).
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> mantissa(-1.0f, 1.0f);
    std::uniform_int_distribution<int> exponent(-12, 12);
    for (int trial = 0; trial < 2000; ++trial) {
        float buffer[5 * 4];
        float p[4][4];
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                p[r][c] = buffer[r * 5 + c] = std::ldexp(mantissa(rng), exponent(rng));
        float a[16];
        bicubic_cell_coefficients(buffer, 5, a);
        for (int k = 0; k < 16; ++k) {
            const float want = bicubic_ref::evaluate_formula(bicubic_ref::coefficient_terms()[k], p);
            ASSERT_EQ(bicubic_ref::bits({a[k]}), bicubic_ref::bits({want})) << "a" << k / 4 << k % 4;
        }
    }
}

TEST(BicubicUpscale, BufferMatchesTheReference)
{
    std::mt19937 rng(5);
    for (int w = 1; w <= 6; ++w) {
        for (int h = 1; h <= 6; ++h) {
            std::vector<uint16_t> src(static_cast<size_t>(w) * h);
            for (auto &s : src)
                s = static_cast<uint16_t>(rng());
            std::vector<float> buffer(bicubic_buffer_floats(w, h), kUntouched);
            create_buffer_for_bicubic_uint16(src.data(), buffer.data(), w, h, 3);
            std::vector<float> scaled = as_float(src);
            for (auto &f : scaled)
                f *= 0.125f;
            EXPECT_EQ(bicubic_ref::bits(buffer), bicubic_ref::bits(bicubic_ref::padded(scaled, w, h)))
                << w << "x" << h;
        }
    }
}

TEST(BicubicUpscale, FloatBufferCornersFollowTheirFusedForm)
{
    // Float samples of mixed magnitude: the corners' fused doublings round
    // differently from the plain mean of the two extrapolations.
    std::mt19937 rng(6);
    std::uniform_real_distribution<float> mantissa(-1.0f, 1.0f);
    std::uniform_int_distribution<int> exponent(-10, 10);
    for (int trial = 0; trial < 200; ++trial) {
        const int w = 2 + trial % 5, h = 2 + trial / 5 % 5;
        std::vector<float> src(static_cast<size_t>(w) * h);
        for (auto &s : src)
            s = std::ldexp(mantissa(rng), exponent(rng));
        std::vector<float> buffer(bicubic_buffer_floats(w, h), kUntouched);
        create_buffer_for_bicubic_float(src.data(), buffer.data(), w, h);
        ASSERT_EQ(bicubic_ref::bits(buffer), bicubic_ref::bits(bicubic_ref::padded(src, w, h)))
            << w << "x" << h << " trial " << trial;
    }
}

TEST(BicubicUpscale, FracBitsAreTakenModulo32)
{
    const std::vector<uint16_t> src = {1024, 2048, 3072, 4096};
    std::vector<float> a(bicubic_buffer_floats(2, 2)), b(a.size()), c(a.size());
    create_buffer_for_bicubic_uint16(src.data(), a.data(), 2, 2, 10);
    create_buffer_for_bicubic_uint16(src.data(), b.data(), 2, 2, 42);
    create_buffer_for_bicubic_uint16(src.data(), c.data(), 2, 2, -22);
    EXPECT_EQ(a, b);
    EXPECT_EQ(a, c);
    EXPECT_EQ(a[6], 1.0f); // B[1][1] = 1024 / 2^10
}

TEST(BicubicUpscale, EqualExtentsReproduceTheSource)
{
    std::mt19937 rng(3);
    for (int n : {2, 3, 7, 16}) {
        std::vector<uint16_t> src(static_cast<size_t>(n) * (n + 1));
        for (auto &s : src)
            s = static_cast<uint16_t>(rng());
        std::vector<float> out;
        ASSERT_EQ(upscale(src, n, n + 1, out, n, n + 1), 0u);
        EXPECT_EQ(out, as_float(src)) << n;
    }
}

TEST(BicubicUpscale, ThreeByThreeToFiveByFiveRunStructure)
{
    // Rows 0, 10, 40 (quadratic down the column, constant along the row):
    // extrapolated border rows -10 above, 70 and 100 below. Output rows 1 and
    // 3 are Catmull-Rom midpoints (-p0 + 9 p1 + 9 p2 - p3) / 16 of cell rows
    // 0 and 1; even rows fall on the source rows.
    const std::vector<uint8_t> src = {0, 0, 0, 10, 10, 10, 40, 40, 40};
    std::vector<float> out;
    ASSERT_EQ(upscale(src, 3, 3, out, 5, 5), 0u);
    const float expected_rows[5] = {0.0f, 3.75f, 10.0f, 23.75f, 40.0f};
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 5; ++x)
            EXPECT_FLOAT_EQ(out[y * 5 + x], expected_rows[y]) << y << "," << x;

    // Even positions of a random 3 x 3 equal the source samples.
    const std::vector<uint8_t> random = {17, 200, 3, 99, 0, 255, 128, 64, 7};
    ASSERT_EQ(upscale(random, 3, 3, out, 5, 5), 0u);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(out[(2 * y) * 5 + 2 * x], random[y * 3 + x]);
}

TEST(BicubicUpscale, ConstantAndRampSources)
{
    std::vector<float> out;
    ASSERT_EQ(upscale(std::vector<uint16_t>(12, 777), 4, 3, out, 13, 9), 0u);
    for (float v : out)
        EXPECT_EQ(v, 777.0f);

    // value = 3 x + 5 y + 2: the border keeps the ramp and the cubic
    // reproduces it, up to rounding.
    std::vector<uint16_t> ramp(5 * 4);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x)
            ramp[y * 5 + x] = static_cast<uint16_t>(3 * x + 5 * y + 2);
    ASSERT_EQ(upscale(ramp, 5, 4, out, 17, 10), 0u);
    for (int y = 0; y < 10; ++y) {
        for (int x = 0; x < 17; ++x) {
            const float sx = x * (4.0f / 16.0f), sy = y * (3.0f / 9.0f);
            EXPECT_NEAR(out[y * 17 + x], 3 * sx + 5 * sy + 2, 1e-3) << x << "," << y;
        }
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
    const std::vector<uint8_t> column = {10, 50, 20};
    std::vector<float> out;
    ASSERT_EQ(upscale(column, 1, 3, out, 4, 5), 0u);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(out[y * 4 + x], out[y * 4]) << x << "," << y;
    EXPECT_EQ(out[0], 10.0f);
    EXPECT_EQ(out[2 * 4], 50.0f);
    EXPECT_EQ(out[4 * 4], 20.0f);

    // One sample, any destination (a destination extent of 1 included).
    for (int d : {1, 2, 7}) {
        ASSERT_EQ(upscale(std::vector<uint16_t>{4242}, 1, 1, out, d, 3), 0u);
        for (float v : out)
            EXPECT_EQ(v, 4242.0f);
    }
}

TEST(BicubicUpscale, RejectedCallsWriteNothing)
{
    const std::vector<uint8_t> src(16, 9);
    std::vector<float> out;
    EXPECT_EQ(upscale(src, 4, 4, out, 3, 4), 32u); // dst_width = src_width - 1
    EXPECT_EQ(untouched_count(out), out.size());
    EXPECT_EQ(upscale(src, 4, 4, out, 4, 3), 32u);
    EXPECT_EQ(untouched_count(out), out.size());

    // Source extents above 65532: refused before any plane is read.
    const uint16_t *never[1] = {nullptr};
    float *nowhere[1] = {nullptr};
    EXPECT_EQ(image_bicubic_upscale_uint16_to_float(never, nowhere, 65533, 1, 65533, 1, 1), 32u);
    EXPECT_EQ(image_bicubic_upscale_uint16_to_float(never, nowhere, 1, 65535, 1, 65535, 1), 32u);
    // Null plane arrays or planes.
    EXPECT_EQ(image_bicubic_upscale_uint16_to_float(nullptr, nowhere, 1, 1, 1, 1, 1), 32u);
    EXPECT_EQ(image_bicubic_upscale_uint16_to_float(never, nowhere, 1, 1, 1, 1, 1), 32u);
}

TEST(BicubicUpscale, NothingToDoReturnsZero)
{
    const std::vector<uint8_t> src(16, 9);
    std::vector<float> out(16, kUntouched);
    const uint8_t *in[1] = {src.data()};
    float *dst[1] = {out.data()};
    EXPECT_EQ(image_bicubic_upscale_uint8_to_float(in, dst, 4, 4, 4, 4, 0), 0u); // no plane
    EXPECT_EQ(image_bicubic_upscale_uint8_to_float(nullptr, nullptr, 4, 4, 4, 4, 0), 0u);
    EXPECT_EQ(image_bicubic_upscale_uint16_to_float(nullptr, nullptr, 4, 4, 4, 4, 0), 0u);
    EXPECT_EQ(image_bicubic_upscale_uint8_to_float(in, dst, 0, 4, 4, 4, 1), 0u); // no column
    EXPECT_EQ(image_bicubic_upscale_uint8_to_float(in, dst, 4, 0, 4, 4, 1), 0u); // no row
    EXPECT_EQ(untouched_count(out), out.size());
}

TEST(BicubicUpscale, AllocationFailureWritesNothing)
{
    const std::vector<uint16_t> src(6, 1);
    for (uint64_t k : {1u, 2u}) {
        std::vector<float> out;
        FailureInjection fail(k);
        EXPECT_EQ(upscale(src, 3, 2, out, 5, 5), 4u) << k;
        EXPECT_EQ(untouched_count(out), out.size());
    }
}

TEST(BicubicUpscale, EveryPlaneOfASetIsUpscaled)
{
    std::vector<uint8_t> a(6), b(6);
    for (int k = 0; k < 6; ++k) {
        a[k] = static_cast<uint8_t>(k * 40);
        b[k] = static_cast<uint8_t>(255 - k * 7);
    }
    std::vector<float> oa(35, kUntouched), ob(35, kUntouched), ra(35), rb(35);
    const uint8_t *in[2] = {a.data(), b.data()};
    float *out[2] = {oa.data(), ob.data()};
    ASSERT_EQ(image_bicubic_upscale_uint8_to_float(in, out, 3, 2, 7, 5, 2), 0u);
    ASSERT_EQ(upscale(a, 3, 2, ra, 7, 5), 0u);
    ASSERT_EQ(upscale(b, 3, 2, rb, 7, 5), 0u);
    EXPECT_EQ(bicubic_ref::bits(oa), bicubic_ref::bits(ra));
    EXPECT_EQ(bicubic_ref::bits(ob), bicubic_ref::bits(rb));
}
