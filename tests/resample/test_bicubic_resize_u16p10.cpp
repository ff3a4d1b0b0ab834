// Bicubic resize to u16p10: exact positions, wrap-around, the conversion of
// the interpolated value, refused extents, and bit-exact agreement with the
// reference on random planes.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "allocation.h"
#include "failure_injection.h"
#include "bicubic_internal.h"
#include "bicubic_reference.h"
#include "ej_cmc_resample.h"

namespace {

constexpr uint16_t kUntouched = 0xBEEF;

using ejtest::FailureInjection;

uint32_t resize_f(const std::vector<float> &src, int sh, int sw, std::vector<uint16_t> &dst, int dh,
                  int dw)
{
    dst.assign(static_cast<size_t>(dh) * dw, kUntouched);
    return bicubic_resize_32f_to_u16p10(src.data(), sh, sw, dst.data(), dh, dw);
}

uint32_t resize_u(const std::vector<uint16_t> &src, int sh, int sw, int frac_bits,
                  std::vector<uint16_t> &dst, int dh, int dw)
{
    dst.assign(static_cast<size_t>(dh) * dw, kUntouched);
    return bicubic_resize_u16_to_u16(src.data(), sh, sw, frac_bits, dst.data(), dh, dw);
}

uint16_t trunc_u16p10(float s)
{
    return static_cast<uint16_t>(static_cast<int32_t>(std::trunc(s * 1024.0f)));
}

bool all_untouched(const std::vector<uint16_t> &v)
{
    for (uint16_t x : v)
        if (x != kUntouched)
            return false;
    return true;
}

int random_extent(std::mt19937 &rng)
{
    const int e = std::uniform_int_distribution<int>(0, 30)(rng);
    return e == 1 ? 2 : e;
}

} // namespace

TEST(BicubicResize, FloatMatchesTheReferenceBitForBit)
{
    std::mt19937 rng(21);
    std::uniform_real_distribution<float> value(-80.0f, 80.0f);
    for (int trial = 0; trial < 400; ++trial) {
        const int sw = std::uniform_int_distribution<int>(1, 12)(rng);
        const int sh = std::uniform_int_distribution<int>(1, 12)(rng);
        const int dw = random_extent(rng), dh = random_extent(rng);
        std::vector<float> src(static_cast<size_t>(sw) * sh);
        for (auto &s : src)
            s = value(rng);
        std::vector<uint16_t> got;
        ASSERT_EQ(resize_f(src, sh, sw, got, dh, dw), 0u);
        ASSERT_EQ(got, bicubic_ref::resize(src, sh, sw, dh, dw))
            << sw << "x" << sh << " -> " << dw << "x" << dh;
    }
}

TEST(BicubicResize, U16MatchesTheReferenceBitForBit)
{
    std::mt19937 rng(22);
    for (int trial = 0; trial < 400; ++trial) {
        const int sw = std::uniform_int_distribution<int>(1, 12)(rng);
        const int sh = std::uniform_int_distribution<int>(1, 12)(rng);
        const int dw = random_extent(rng), dh = random_extent(rng);
        const int frac_bits = std::uniform_int_distribution<int>(0, 16)(rng);
        std::vector<uint16_t> src(static_cast<size_t>(sw) * sh);
        std::vector<float> scaled(src.size());
        for (size_t k = 0; k < src.size(); ++k) {
            src[k] = static_cast<uint16_t>(rng());
            scaled[k] = static_cast<float>(src[k]) / std::ldexp(1.0f, frac_bits);
        }
        std::vector<uint16_t> got;
        ASSERT_EQ(resize_u(src, sh, sw, frac_bits, got, dh, dw), 0u);
        ASSERT_EQ(got, bicubic_ref::resize(scaled, sh, sw, dh, dw))
            << sw << "x" << sh << " -> " << dw << "x" << dh << " frac " << frac_bits;
    }
}

TEST(BicubicResize, EqualExtentsWithPowerOfTwoStepsGiveTruncatedSamples)
{
    std::mt19937 rng(4);
    std::uniform_real_distribution<float> value(-70.0f, 70.0f);
    for (int n : {2, 3, 5, 9, 17, 33}) {
        std::vector<float> src(static_cast<size_t>(n) * n);
        for (auto &s : src)
            s = value(rng);
        std::vector<uint16_t> out;
        ASSERT_EQ(resize_f(src, n, n, out, n, n), 0u);
        for (size_t k = 0; k < src.size(); ++k)
            ASSERT_EQ(out[k], trunc_u16p10(src[k])) << n << " at " << k;

        // A u16p10 plane resized at frac_bits 10 comes back unchanged.
        std::vector<uint16_t> fixed(src.size());
        for (auto &s : fixed)
            s = static_cast<uint16_t>(rng());
        ASSERT_EQ(resize_u(fixed, n, n, 10, out, n, n), 0u);
        EXPECT_EQ(out, fixed) << n;
        // Other fractional bits: trunc(S / 2^frac_bits * 1024).
        ASSERT_EQ(resize_u(fixed, n, n, 12, out, n, n), 0u);
        for (size_t k = 0; k < fixed.size(); ++k)
            ASSERT_EQ(out[k], static_cast<uint16_t>(fixed[k] / 4)) << n;
    }
}

TEST(BicubicResize, OtherEqualExtentsStayWithinOneUnit)
{
    // With n - 1 not a power of two some positions land one ulp off the
    // integer (n = 23, i = 13 maps to 12.999999) and interpolate there.
    std::vector<float> src(23 * 2);
    for (size_t k = 0; k < src.size(); ++k)
        src[k] = static_cast<float>((k * 7919) % 61) * 0.75f;
    std::vector<uint16_t> out;
    ASSERT_EQ(resize_f(src, 2, 23, out, 2, 23), 0u);
    for (size_t k = 0; k < src.size(); ++k)
        EXPECT_LE(std::abs(out[k] - static_cast<int>(trunc_u16p10(src[k]))), 1) << k;
}

TEST(BicubicResize, LinearRampIsReproduced)
{
    // value = 0.5 x + 0.25 y + 1: the extrapolated border keeps the ramp and
    // the cubic reproduces it, up to one unit of the truncated result.
    std::vector<float> src(5 * 4);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x)
            src[y * 5 + x] = 0.5f * x + 0.25f * y + 1.0f;
    std::vector<uint16_t> out;
    ASSERT_EQ(resize_f(src, 4, 5, out, 7, 9), 0u);
    for (int i = 0; i < 7; ++i) {
        for (int j = 0; j < 9; ++j) {
            const double v = 0.5 * (j * 4.0 / 8.0) + 0.25 * (i * 3.0 / 6.0) + 1.0;
            EXPECT_NEAR(out[i * 9 + j], std::trunc(v * 1024.0), 1.0) << i << "," << j;
        }
    }
}

TEST(BicubicResize, ReductionNineToFiveSamplesEverySecondSample)
{
    std::vector<float> src(81);
    for (int k = 0; k < 81; ++k)
        src[k] = static_cast<float>((k * 37) % 23) * 1.25f;
    std::vector<uint16_t> out;
    ASSERT_EQ(resize_f(src, 9, 9, out, 5, 5), 0u);
    for (int i = 0; i < 5; ++i)
        for (int j = 0; j < 5; ++j)
            EXPECT_EQ(out[i * 5 + j], trunc_u16p10(src[(2 * i) * 9 + 2 * j])) << i << "," << j;
}

TEST(BicubicResize, ConstantsAndWrapAround)
{
    std::vector<uint16_t> out;
    ASSERT_EQ(resize_f(std::vector<float>(12, 1.5f), 3, 4, out, 7, 5), 0u);
    EXPECT_EQ(out, std::vector<uint16_t>(35, 1536));
    // No saturation: -1 * 1024 wraps to 64512, 70 * 1024 to 71680 - 65536.
    ASSERT_EQ(resize_f(std::vector<float>(6, -1.0f), 2, 3, out, 4, 4), 0u);
    EXPECT_EQ(out, std::vector<uint16_t>(16, 64512));
    ASSERT_EQ(resize_f(std::vector<float>(6, 70.0f), 2, 3, out, 3, 2), 0u);
    EXPECT_EQ(out, std::vector<uint16_t>(6, 6144));
    // NaN and values beyond the int32 range become INT32_MIN: low bits 0.
    ASSERT_EQ(resize_f(std::vector<float>(4, std::nanf("")), 2, 2, out, 2, 2), 0u);
    EXPECT_EQ(out, std::vector<uint16_t>(4, 0));
    ASSERT_EQ(resize_f(std::vector<float>(4, 3.0e6f), 2, 2, out, 2, 2), 0u);
    EXPECT_EQ(out, std::vector<uint16_t>(4, 0));
}

TEST(BicubicResize, InterpolatedValueConversion)
{
    struct Case {
        float value;
        int32_t expected;
    };
    const float below_2_31 = std::nextafter(2147483648.0f, 0.0f) / 1024.0f;
    const Case cases[] = {
        {1.5f, 1536},
        {-1.0f, -1024},
        {0.0009765f, 0},                     // below one unit: truncated to 0
        {-0.0009765f, 0},                    // toward zero, not down
        {below_2_31, 2147483520},            // largest float below 2^31
        {2097152.0f, INT32_MIN},             // exactly 2^31: out of range
        {-2097152.0f, INT32_MIN},            // exactly -2^31: in range
        {std::numeric_limits<float>::infinity(), INT32_MIN},
        {std::nanf(""), INT32_MIN},
    };
    for (const Case &c : cases) {
        float p[16];
        for (float &v : p)
            v = c.value;
        EXPECT_EQ(bicubicInterpolate_32f_to_u16p10(p, 0.0f, 0.0f), c.expected) << c.value;
    }
    // Catmull-Rom midpoint of 0, 1, 2, 3 along x is 1.5 in every row.
    float ramp[16];
    for (int k = 0; k < 16; ++k)
        ramp[k] = static_cast<float>(k % 4);
    EXPECT_EQ(bicubicInterpolate_32f_to_u16p10(ramp, 0.25f, 0.5f), 1536);
}

TEST(BicubicResize, SourceExtentOneCarriesOnlyTheDataLine)
{
    std::vector<uint16_t> out;
    ASSERT_EQ(resize_f({2.5f}, 1, 1, out, 3, 4), 0u);
    EXPECT_EQ(out, std::vector<uint16_t>(12, 2560));
    // One row of 3 stretched to 4 x 5: every output row is the same.
    ASSERT_EQ(resize_f({1.0f, 4.0f, 2.0f}, 1, 3, out, 4, 5), 0u);
    for (int i = 1; i < 4; ++i)
        for (int j = 0; j < 5; ++j)
            EXPECT_EQ(out[i * 5 + j], out[j]);
    EXPECT_EQ(out[0], 1024);
    EXPECT_EQ(out[2], 4096);
    EXPECT_EQ(out[4], 2048);
}

TEST(BicubicResize, RefusedCallsWriteNothing)
{
    const std::vector<float> src(16, 1.0f);
    const std::vector<uint16_t> src16(16, 1);
    std::vector<uint16_t> out;
    struct Case {
        int sh, sw, dh, dw;
    };
    // Destination extent 1; source extent 0 (mapped outside any buffer).
    for (const Case &c : {Case{4, 4, 1, 4}, Case{4, 4, 4, 1}, Case{0, 4, 4, 4}, Case{4, 0, 4, 4}}) {
        EXPECT_EQ(resize_f(src, c.sh, c.sw, out, c.dh, c.dw), 32u);
        EXPECT_TRUE(all_untouched(out));
        EXPECT_EQ(resize_u(src16, c.sh, c.sw, 0, out, c.dh, c.dw), 32u);
        EXPECT_TRUE(all_untouched(out));
    }
    // Source extents above 65532 and null planes: refused before reading.
    uint16_t one = 0;
    EXPECT_EQ(bicubic_resize_u16_to_u16(&one, 65533, 1, 0, &one, 2, 2), 32u);
    EXPECT_EQ(bicubic_resize_32f_to_u16p10(nullptr, 1, 65535, &one, 2, 2), 32u);
    EXPECT_EQ(bicubic_resize_32f_to_u16p10(src.data(), 4, 4, nullptr, 2, 2), 32u);
    EXPECT_EQ(one, 0);
}

TEST(BicubicResize, ZeroDestinationAndAllocationFailure)
{
    const std::vector<float> src(16, 1.0f);
    std::vector<uint16_t> out;
    EXPECT_EQ(resize_f(src, 4, 4, out, 0, 5), 0u);
    EXPECT_EQ(resize_f(src, 4, 4, out, 5, 0), 0u);
    {
        FailureInjection fail(1);
        EXPECT_EQ(resize_f(src, 4, 4, out, 3, 3), 4u);
        EXPECT_TRUE(all_untouched(out));
    }
    {
        FailureInjection fail(1);
        EXPECT_EQ(resize_u(std::vector<uint16_t>(16, 1), 4, 4, 0, out, 3, 3), 4u);
        EXPECT_TRUE(all_untouched(out));
    }
}
