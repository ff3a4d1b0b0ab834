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
#include "guarded.h"

namespace {

constexpr uint16_t kUntouched = 0xBEEF;

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
    return v == std::vector<uint16_t>(v.size(), kUntouched);
}

} // namespace

TEST(BicubicResize, MatchesTheReferenceBitForBit)
{
    // Enlargements and reductions, destination extents 0 and 2 ... 30.
    std::mt19937 rng(21);
    auto extent = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    auto dst_extent = [&] {
        const int e = extent(0, 30);
        return e == 1 ? 2 : e;
    };
    for (int trial = 0; trial < 400; ++trial) {
        const int sw = extent(1, 12), sh = extent(1, 12);
        const int dw = dst_extent(), dh = dst_extent();
        const int frac_bits = extent(0, 16);
        SCOPED_TRACE(testing::Message() << sw << "x" << sh << " -> " << dw << "x" << dh
                                        << " frac " << frac_bits);
        auto src = ejtest::random_plane<float>(static_cast<size_t>(sw) * sh, trial);
        for (auto &s : src)
            s *= 0.08f; // -80 ... 80: wraps past 64 both ways
        std::vector<uint16_t> got;
        ASSERT_EQ(resize_f(src, sh, sw, got, dh, dw), 0u);
        ASSERT_EQ(got, bicubic_ref::resize(src, sh, sw, dh, dw));

        const auto fixed = ejtest::random_plane<uint16_t>(src.size(), trial);
        std::vector<float> scaled(fixed.size());
        for (size_t k = 0; k < fixed.size(); ++k)
            scaled[k] = static_cast<float>(fixed[k]) / std::ldexp(1.0f, frac_bits);
        ASSERT_EQ(resize_u(fixed, sh, sw, frac_bits, got, dh, dw), 0u);
        ASSERT_EQ(got, bicubic_ref::resize(scaled, sh, sw, dh, dw));
    }
}

TEST(BicubicResize, EqualExtentsWithPowerOfTwoStepsGiveTruncatedSamples)
{
    for (int n : {2, 3, 5, 9, 17, 33}) {
        auto src = ejtest::random_plane<float>(static_cast<size_t>(n) * n, n);
        for (auto &s : src)
            s *= 0.07f;
        std::vector<uint16_t> out;
        ASSERT_EQ(resize_f(src, n, n, out, n, n), 0u);
        for (size_t k = 0; k < src.size(); ++k)
            ASSERT_EQ(out[k], trunc_u16p10(src[k])) << n << " at " << k;

        // A u16p10 plane resized at frac_bits 10 comes back unchanged; at 12,
        // trunc(S / 2^12 * 1024).
        const auto fixed = ejtest::random_plane<uint16_t>(src.size(), n);
        ASSERT_EQ(resize_u(fixed, n, n, 10, out, n, n), 0u);
        EXPECT_EQ(out, fixed) << n;
        ASSERT_EQ(resize_u(fixed, n, n, 12, out, n, n), 0u);
        for (size_t k = 0; k < fixed.size(); ++k)
            ASSERT_EQ(out[k], static_cast<uint16_t>(fixed[k] / 4)) << n;
    }
}

TEST(BicubicResize, WorkedExamples)
{
    // value = 0.5 x + 0.25 y + 1: the extrapolated border keeps the ramp and
    // the cubic reproduces it, up to one unit of the truncated result.
    std::vector<float> src(5 * 4);
    for (int k = 0; k < 20; ++k)
        src[k] = 0.5f * (k % 5) + 0.25f * (k / 5) + 1.0f;
    std::vector<uint16_t> out;
    ASSERT_EQ(resize_f(src, 4, 5, out, 7, 9), 0u);
    for (int k = 0; k < 63; ++k) {
        const double v = 0.5 * ((k % 9) * 4.0 / 8.0) + 0.25 * ((k / 9) * 3.0 / 6.0) + 1.0;
        EXPECT_NEAR(out[k], std::trunc(v * 1024.0), 1.0) << k;
    }

    // 9 -> 5 samples every second source sample.
    src.resize(81);
    for (int k = 0; k < 81; ++k)
        src[k] = static_cast<float>((k * 37) % 23) * 1.25f;
    ASSERT_EQ(resize_f(src, 9, 9, out, 5, 5), 0u);
    for (int k = 0; k < 25; ++k)
        EXPECT_EQ(out[k], trunc_u16p10(src[(k / 5) * 18 + (k % 5) * 2])) << k;
}

TEST(BicubicResize, InterpolatedValueConversion)
{
    // The interpolated value x 1024 truncated toward zero, INT32_MIN outside
    // the int32 range or for NaN; a constant plane stores its low 16 bits (no
    // saturation: -1 * 1024 wraps to 64512, 70 * 1024 to 71680 - 65536).
    const float below_2_31 = std::nextafter(2147483648.0f, 0.0f) / 1024.0f;
    const struct {
        float value;
        int32_t expected;
    } cases[] = {
        {1.5f, 1536},
        {-1.0f, -1024},
        {70.0f, 71680},
        {3.0e6f, INT32_MIN},
        {0.0009765f, 0},                     // below one unit: truncated to 0
        {-0.0009765f, 0},                    // toward zero, not down
        {below_2_31, 2147483520},            // largest float below 2^31
        {2097152.0f, INT32_MIN},             // exactly 2^31: out of range
        {-2097152.0f, INT32_MIN},            // exactly -2^31: in range
        {std::numeric_limits<float>::infinity(), INT32_MIN},
        {std::nanf(""), INT32_MIN},
    };
    for (const auto &c : cases) {
        float p[16];
        std::fill(p, p + 16, c.value);
        EXPECT_EQ(bicubicInterpolate_32f_to_u16p10(p, 0.0f, 0.0f), c.expected) << c.value;
        // Enlarged for small values; at equal extents (fraction 0) for the
        // others, whose cubic at a fraction rounds away from the constant.
        const bool small = std::fabs(c.value) < 100.0f;
        std::vector<uint16_t> out;
        const std::vector<float> plane(12, c.value);
        ASSERT_EQ(resize_f(plane, 3, 4, out, small ? 7 : 3, small ? 5 : 4), 0u);
        EXPECT_EQ(out, std::vector<uint16_t>(out.size(), uint16_t(uint32_t(c.expected))))
            << c.value;
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
    for (int k = 5; k < 20; ++k)
        EXPECT_EQ(out[k], out[k % 5]) << k;
    EXPECT_EQ(out[0], 1024);
    EXPECT_EQ(out[2], 4096);
    EXPECT_EQ(out[4], 2048);
}

TEST(BicubicResize, RefusalsAndAllocationFailureWriteNothing)
{
    const std::vector<float> src(16, 1.0f);
    const std::vector<uint16_t> src16(16, 1);
    std::vector<uint16_t> out;
    // Destination extent 1; source extent 0 (mapped outside any buffer).
    const struct {
        int sh, sw, dh, dw;
    } cases[] = {{4, 4, 1, 4}, {4, 4, 4, 1}, {0, 4, 4, 4}, {4, 0, 4, 4}};
    for (const auto &c : cases) {
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

    EXPECT_EQ(resize_f(src, 4, 4, out, 0, 5), 0u);
    EXPECT_EQ(resize_f(src, 4, 4, out, 5, 0), 0u);
    for (bool fixed : {false, true}) {
        ejtest::FailureInjection fail(1);
        EXPECT_EQ(fixed ? resize_u(src16, 4, 4, 0, out, 3, 3) : resize_f(src, 4, 4, out, 3, 3), 4u);
        EXPECT_TRUE(all_untouched(out));
    }
}
