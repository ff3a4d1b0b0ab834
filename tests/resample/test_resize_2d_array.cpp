// Bilinear 2-D array resize: the integer members against a reference that
// computes every position by multiplication and every pair by division, the
// float member against its formula, the crop against absolute positions; the
// worked examples; guard zones; rejections that write nothing.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "ej_cmc_resample.h"
#include "guarded.h"

using namespace ejtest;

namespace {

template <typename T>
constexpr unsigned kFracBits = sizeof(T) == 4 ? 12 : 8;

// Reference of the fixed-point rule on one axis: position k * step (no
// accumulation), pair and upper weight by division.
struct AxisRef {
    uint32_t lower;
    int64_t upper_weight;
};

std::vector<AxisRef> fixed_axis(uint32_t start, uint32_t crop, uint32_t dst, unsigned F)
{
    const uint64_t one = uint64_t(1) << F;
    const uint64_t step = (uint64_t(crop - 1) * one) / (dst - 1);
    std::vector<AxisRef> axis;
    for (uint32_t k = 0; k < dst; ++k) {
        const uint64_t pos = uint64_t(start) * one + k * step;
        const uint64_t lower = pos == 0 ? 0 : (pos - 1) / one;
        axis.push_back({uint32_t(lower), int64_t(pos - lower * one)});
    }
    return axis;
}

// floor(a / 2^s) for any sign, without relying on shifts of negatives.
int64_t floor_div_pow2(int64_t a, unsigned s)
{
    const int64_t d = int64_t(1) << s;
    return a >= 0 ? a / d : -((-a + d - 1) / d);
}

template <typename T>
std::vector<T> bilinear_ref(const std::vector<T> &src, uint32_t stride, uint32_t left,
                            uint32_t top, uint32_t crop_w, uint32_t crop_h, uint32_t dw,
                            uint32_t dh)
{
    constexpr unsigned F = kFracBits<T>;
    const int64_t one = int64_t(1) << F;
    const auto ax = fixed_axis(left, crop_w, dw, F);
    const auto ay = fixed_axis(top, crop_h, dh, F);
    std::vector<T> out;
    for (const AxisRef &y : ay)
        for (const AxisRef &x : ax) {
            auto s = [&](uint32_t r, uint32_t c) { return int64_t(src[size_t(r) * stride + c]); };
            const int64_t wx1 = x.upper_weight, wx0 = one - wx1;
            const int64_t wy1 = y.upper_weight, wy0 = one - wy1;
            const int64_t sum = (s(y.lower + 1, x.lower) * wx0 + s(y.lower + 1, x.lower + 1) * wx1) * wy1 +
                                (s(y.lower, x.lower) * wx0 + s(y.lower, x.lower + 1) * wx1) * wy0;
            out.push_back(T(floor_div_pow2(sum + one * one / 2, 2 * F)));
        }
    return out;
}

// The float member's formula, position per index, upper neighbour clamped;
// the truncated position is an unsigned 16-bit index.
std::vector<float> float_ref(const std::vector<float> &src, uint32_t sw, uint32_t sh, uint32_t dw,
                             uint32_t dh)
{
    const float scale_x = (float(sw) - 1.0f) / (float(dw) - 1.0f);
    const float scale_y = (float(sh) - 1.0f) / (float(dh) - 1.0f);
    std::vector<float> out;
    for (uint32_t i = 0; i < dh; ++i) {
        const float y = float(i) * scale_y;
        const uint32_t y0 = uint32_t(y) & 0xFFFFu, y1 = y0 + 1 < sh ? y0 + 1 : y0;
        const float fy = y - float(y0);
        for (uint32_t j = 0; j < dw; ++j) {
            const float x = float(j) * scale_x;
            const uint32_t x0 = uint32_t(x), x1 = x0 + 1 < sw ? x0 + 1 : x0;
            const float fx = x - float(x0);
            auto s = [&](uint32_t r, uint32_t c) { return src[size_t(r) * sw + c]; };
            const float a = fx * s(y0, x1) * (1 - fy);
            const float b = std::fma((1 - fx) * s(y0, x0), 1 - fy, a);
            const float c = std::fma((1 - fx) * s(y1, x0), fy, b);
            out.push_back(std::fma(fx * s(y1, x1), fy, c));
        }
    }
    return out;
}

struct Shape {
    uint32_t sw, sh, dw, dh;
};

template <typename T, typename Fn>
void check_dense(const Shape &s, Fn resize)
{
    const auto src = random_plane<T>(size_t(s.sw) * s.sh, s.sw * 31 + s.dh);
    EXPECT_EQ(run_guarded<T>(size_t(s.dw) * s.dh, [&](T *d) {
                  return resize(src.data(), int32_t(s.sw), int32_t(s.sh), d, int32_t(s.dw),
                                int32_t(s.dh));
              }),
              bilinear_ref(src, s.sw, 0, 0, s.sw, s.sh, s.dw, s.dh));
}

// The strided members write the dense result at every step-th element and
// nothing in between or outside.
template <typename T, typename Fn>
void check_strided(const Shape &s, Fn resize)
{
    const auto src = random_plane<T>(size_t(s.sw) * s.sh, s.sh * 17 + s.dw);
    const auto expected = bilinear_ref(src, s.sw, 0, 0, s.sw, s.sh, s.dw, s.dh);
    for (int32_t step : {1, 2, 3, 4}) {
        Guarded<T> dst((expected.size() - 1) * step + 1);
        ASSERT_EQ(resize(src.data(), int32_t(s.sw), int32_t(s.sh), dst.data(), int32_t(s.dw),
                         int32_t(s.dh), step),
                  0u);
        EXPECT_TRUE(dst.guards_intact());
        const auto got = dst.values();
        for (size_t i = 0; i < got.size(); ++i) {
            if (i % step == 0) {
                EXPECT_EQ(got[i], expected[i / step]) << "step " << step << " element " << i;
            } else {
                EXPECT_TRUE(dst.untouched(i)) << "step " << step << " element " << i;
            }
        }
    }
}

TEST(Resize2dArray, MembersMatchTheReferences)
{
    const Shape shapes[] = {{2, 2, 3, 3},      {3, 2, 4, 2},     {5, 5, 3, 3},   {2, 2, 2, 2},
                            {7, 4, 23, 9},     {31, 17, 5, 6},   {2, 3, 300, 2}, {100, 3, 7, 50},
                            {640, 2, 1919, 3}, {1920, 3, 641, 2}};
    for (const Shape &s : shapes) {
        SCOPED_TRACE(testing::Message() << s.sw << "x" << s.sh << " -> " << s.dw << "x" << s.dh);
        check_dense<uint8_t>(s, resize_2d_array_uint8);
        check_dense<uint16_t>(s, resize_2d_array_uint16);
        check_dense<int32_t>(s, resize_2d_array_int32);
        check_dense<uint32_t>(s, resize_2d_array_uint32);
        check_strided<uint8_t>(s, resize_2d_array_uint8_v1);
        check_strided<uint16_t>(s, resize_2d_array_uint16_v1);
        // The crop member without margins.
        check_dense<uint16_t>(s, [](const uint16_t *src, int32_t sw, int32_t sh, uint16_t *d,
                                    int32_t dw, int32_t dh) {
            return crop_resize_2d_array_uint16(src, sw, sh, {0, 0}, {0, 0}, d, dw, dh);
        });
        const auto src = random_plane<float>(size_t(s.sw) * s.sh, s.dw);
        EXPECT_TRUE(same_bits(run_guarded<float>(size_t(s.dw) * s.dh, [&](float *d) {
                                  return resize_2d_array_float(src.data(), uint16_t(s.sw),
                                                               int32_t(s.sh), d, uint16_t(s.dw),
                                                               int32_t(s.dh));
                              }),
                              float_ref(src, s.sw, s.sh, s.dw, s.dh)));
    }
}

TEST(Resize2dArray, CropMatchesAbsolutePositionReference)
{
    const struct {
        uint32_t sw, sh;
        resize_crop_pair tl, br;
        uint32_t dw, dh;
    } crops[] = {{10, 6, {2, 1}, {1, 2}, 7, 3},  {10, 6, {2, 0}, {0, 0}, 5, 9},
                 {33, 20, {5, 7}, {9, 3}, 40, 11}, {33, 20, {0, 18}, {31, 0}, 3, 3},
                 {64, 48, {13, 2}, {3, 21}, 19, 64}};
    for (const auto &c : crops) {
        const auto src = random_plane<uint16_t>(size_t(c.sw) * c.sh, c.dw * 3 + c.dh);
        const uint32_t cw = c.sw - c.tl.x - c.br.x, ch = c.sh - c.tl.y - c.br.y;
        EXPECT_EQ(run_guarded<uint16_t>(size_t(c.dw) * c.dh, [&](uint16_t *d) {
                      return crop_resize_2d_array_uint16(src.data(), c.sw, c.sh, c.tl, c.br, d,
                                                         c.dw, c.dh);
                  }),
                  bilinear_ref(src, c.sw, uint32_t(c.tl.x), uint32_t(c.tl.y), cw, ch, c.dw, c.dh))
            << c.sw << "x" << c.sh << " -> " << c.dw << "x" << c.dh;
    }

    // A 10 x 3 ramp, value 100 * column + row. Cropping 2 and 1 columns to 7
    // keeps the samples; crop_w 8 to 5 (step 448) gives columns 2, 3.75, 5.5,
    // 7.25 and 9 of rows 0 and 1.
    std::vector<uint16_t> ramp(30);
    for (uint32_t k = 0; k < 30; ++k)
        ramp[k] = uint16_t(100 * (k % 10) + k / 10);
    const auto seven = run_guarded<uint16_t>(21, [&](uint16_t *d) {
        return crop_resize_2d_array_uint16(ramp.data(), 10, 3, {2, 0}, {1, 0}, d, 7, 3);
    });
    for (uint32_t k = 0; k < 21; ++k)
        EXPECT_EQ(seven[k], ramp[k / 7 * 10 + k % 7 + 2]) << k;
    EXPECT_EQ(run_guarded<uint16_t>(10, [&](uint16_t *d) {
                  return crop_resize_2d_array_uint16(ramp.data(), 10, 3, {2, 0}, {0, 1}, d, 5, 2);
              }),
              (std::vector<uint16_t>{200, 375, 550, 725, 900, 201, 376, 551, 726, 901}));
}

template <typename T, typename Fn>
std::vector<T> resized(Fn resize, const std::vector<T> &src, int32_t sw, int32_t sh, int32_t dw,
                       int32_t dh)
{
    return run_guarded<T>(size_t(dw) * dh,
                          [&](T *d) { return resize(src.data(), sw, sh, d, dw, dh); });
}

TEST(Resize2dArray, WorkedExamples)
{
    // 2 x 2 -> 3 x 3: step 128, centre 150, corners kept.
    const std::vector<uint16_t> four = {0, 100, 200, 300};
    const auto v9 = resized(resize_2d_array_uint16, four, 2, 2, 3, 3);
    EXPECT_EQ(v9[4], 150);
    EXPECT_EQ((std::vector<uint16_t>{v9[0], v9[2], v9[6], v9[8]}), four);

    // 3 -> 4: positions 0, 170, 340, 510; the last output is 2/256 of sample
    // 1 and 254/256 of sample 2.
    EXPECT_EQ(resized(resize_2d_array_uint16, std::vector<uint16_t>{0, 1000, 2000, 0, 1000, 2000},
                      3, 2, 4, 2),
              (std::vector<uint16_t>{0, 664, 1328, 1992, 0, 664, 1328, 1992}));

    // 5 -> 3: step 512, samples 0, 2 and 4 exactly.
    EXPECT_EQ(resized(resize_2d_array_uint8,
                      std::vector<uint8_t>{10, 20, 30, 40, 50, 10, 20, 30, 40, 50}, 5, 2, 3, 2),
              (std::vector<uint8_t>{10, 30, 50, 10, 30, 50}));

    // Half a unit rounds up: samples 0 and 1 at 128 / 128 give 1.
    EXPECT_EQ(resized(resize_2d_array_uint8, std::vector<uint8_t>{0, 1, 0, 1}, 2, 2, 3, 2),
              (std::vector<uint8_t>{0, 1, 1, 0, 1, 1}));

    // int32 at equal weights: floor((a + b) / 2 + 1/2).
    const struct {
        int32_t a, b, middle;
    } cases[] = {{-1, -2, -1}, {-3, -2, -2}, {-1, 0, 0}, {-2147483647 - 1, 2147483647, 0},
                 {2147483647, 2147483646, 2147483647}};
    for (const auto &c : cases)
        EXPECT_EQ(resized(resize_2d_array_int32, std::vector<int32_t>{c.a, c.b, c.a, c.b}, 2, 2, 3,
                          2),
                  (std::vector<int32_t>{c.a, c.middle, c.b, c.a, c.middle, c.b}))
            << c.a << " " << c.b;
    // uint32 keeps samples above 2^24.
    EXPECT_EQ(resized(resize_2d_array_uint32, std::vector<uint32_t>(12, 4000000000u), 4, 3, 7, 5),
              std::vector<uint32_t>(35, 4000000000u));
}

TEST(Resize2dArray, FloatWorkedExamples)
{
    auto resize_float = [](const std::vector<float> &src, uint16_t sw, int32_t sh, uint16_t dw,
                           int32_t dh) {
        return run_guarded<float>(size_t(dw) * dh, [&](float *d) {
            return resize_2d_array_float(src.data(), sw, sh, d, dw, dh);
        });
    };
    const auto src = random_plane<float>(12, 99);
    EXPECT_TRUE(same_bits(resize_float(src, 4, 3, 4, 3), src));
    EXPECT_EQ(resize_float({1.0f, 4.0f, 1.0f, 4.0f}, 2, 2, 3, 2),
              (std::vector<float>{1.0f, 2.5f, 4.0f, 1.0f, 2.5f, 4.0f}));

    // 65538 rows -> 3: the last row's position 65537 truncates to the 16-bit
    // index 1, with fraction 65536 (rows 1 and 2 hold 1 and 2 in column 0).
    std::vector<float> tall(2 * 65538, 0.0f);
    tall[2] = 1.0f;
    tall[4] = 2.0f;
    const auto out = resize_float(tall, 2, 65538, 2, 3);
    EXPECT_EQ(out[4], 65537.0f); // 1 * (1 - 65536) + 2 * 65536
    EXPECT_TRUE(same_bits(out, float_ref(tall, 2, 65538, 2, 3)));
}

TEST(Resize2dArray, RejectionsWriteNothing)
{
    const std::vector<uint8_t> s8(64, 1);
    const std::vector<uint16_t> s16(64, 1);
    const std::vector<int32_t> s32(64, 1);
    const std::vector<uint32_t> su32(64, 1);
    const std::vector<float> sf(64, 1.0f);
    Guarded<uint8_t> d8(64);
    Guarded<uint16_t> d16(64);
    Guarded<int32_t> d32(64);
    Guarded<uint32_t> du32(64);
    Guarded<float> df(64);
    const int32_t kMax8 = 1 << 24, kMax12 = 1 << 20;
    const uint32_t statuses[] = {
        resize_2d_array_uint8(s8.data(), 1, 4, d8.data(), 4, 4),
        resize_2d_array_uint8(s8.data(), 4, 4, d8.data(), 4, -4),
        resize_2d_array_uint8(s8.data(), kMax8 + 1, 2, d8.data(), 2, 2), // position overflows
        resize_2d_array_uint8_v1(s8.data(), 4, 4, d8.data(), 4, 4, 0),
        resize_2d_array_uint8_v1(s8.data(), 4, 4, nullptr, 4, 4, 1),
        resize_2d_array_uint8_v1(s8.data(), 4, 1, d8.data(), 4, 4, 1),
        resize_2d_array_uint16(s16.data(), 4, 4, d16.data(), 1, 4),
        resize_2d_array_uint16(s16.data(), 2, kMax8 + 1, d16.data(), 2, 2),
        resize_2d_array_uint16_v1(s16.data(), 4, 4, d16.data(), 4, 4, -1),
        resize_2d_array_uint16_v1(s16.data(), 4, 4, nullptr, 4, 4, 2),
        resize_2d_array_uint16_v1(s16.data(), 4, 4, d16.data(), 4, 0, 1),
        resize_2d_array_int32(s32.data(), 4, 0, d32.data(), 4, 4),
        resize_2d_array_int32(s32.data(), kMax12 + 1, 2, d32.data(), 2, 2),
        resize_2d_array_uint32(su32.data(), 4, 4, du32.data(), 4, 1),
        resize_2d_array_uint32(su32.data(), 2, kMax12 + 1, du32.data(), 2, 2),
        resize_2d_array_float(sf.data(), 1, 4, df.data(), 4, 4),
        resize_2d_array_float(sf.data(), 4, 1, df.data(), 4, 4),
        resize_2d_array_float(sf.data(), 4, 4, df.data(), 0, 4),
        resize_2d_array_float(sf.data(), 4, 4, df.data(), 4, -2),
        crop_resize_2d_array_uint16(s16.data(), 8, 8, {4, 0}, {4, 0}, d16.data(), 4, 4),  // sum = width
        crop_resize_2d_array_uint16(s16.data(), 8, 8, {5, 0}, {4, 0}, d16.data(), 4, 4),  // sum > width
        crop_resize_2d_array_uint16(s16.data(), 8, 8, {0, 3}, {0, 4}, d16.data(), 4, 4),  // crop_h 1
        crop_resize_2d_array_uint16(s16.data(), 8, 8, {-1, 0}, {0, 0}, d16.data(), 4, 4), // outside
        crop_resize_2d_array_uint16(s16.data(), 8, 8, {0, 0}, {0, -2}, d16.data(), 4, 4),
        crop_resize_2d_array_uint16(s16.data(), 8, 8, {0, 0}, {-2147483647 - 1, 0}, d16.data(), 4, 4),
        crop_resize_2d_array_uint16(s16.data(), 8, 8, {0, 0}, {0, 0}, d16.data(), 1, 4),
        crop_resize_2d_array_uint16(s16.data(), 8, 8, {0, 0}, {0, 0}, d16.data(), 4, 1),
        crop_resize_2d_array_uint16(s16.data(), (1u << 24) + 1, 2, {0, 0}, {(1 << 24) - 1, 0},
                                    d16.data(), 2, 2),
    };
    for (size_t i = 0; i < std::size(statuses); ++i)
        EXPECT_EQ(statuses[i], 32u) << "case " << i;
    EXPECT_TRUE(d8.all_untouched());
    EXPECT_TRUE(d16.all_untouched());
    EXPECT_TRUE(d32.all_untouched());
    EXPECT_TRUE(du32.all_untouched());
    EXPECT_TRUE(df.all_untouched());
}

} // namespace
