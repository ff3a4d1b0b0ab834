// Area-averaging downscale: a reference that lists each output's band and
// weights per axis, compared bit for bit on seeded random planes (whole planes
// and regions, several planes per call); worked examples; validation order.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
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

// Band sums of one plane in the required order: rows, then each row left to
// right, accumulated with fused multiply-adds.
template <typename T>
std::vector<float> band_sums(const std::vector<T> &plane, uint32_t sw, Region r, uint32_t dw,
                             uint32_t dh)
{
    const auto bx = bands(float(r.w) / float(dw), r.w, dw);
    const auto by = bands(float(r.h) / float(dh), r.h, dh);
    std::vector<float> sums;
    for (const Band &rows : by)
        for (const Band &cols : bx) {
            float sum = 0.0f;
            for (const auto &[row, wr] : rows)
                for (const auto &[col, wc] : cols)
                    sum = std::fma(wr * wc, float(plane[size_t(r.y + row) * sw + r.x + col]), sum);
            sums.push_back(sum);
        }
    return sums;
}

uint16_t low16(float v)
{
    return std::isnan(v) || v <= -2147483904.0f || v >= 2147483648.0f ? 0
                                                                        : uint16_t(int64_t(v) & 0xFFFF);
}

float inv_area(Region r, uint32_t dw, uint32_t dh)
{
    return 1.0f / ((float(r.w) / float(dw)) * (float(r.h) / float(dh)));
}

std::vector<uint16_t> ref_32f(const std::vector<float> &plane, uint32_t sw, Region r, uint32_t dw,
                              uint32_t dh)
{
    std::vector<uint16_t> out;
    for (float sum : band_sums(plane, sw, r, dw, dh))
        out.push_back(low16(std::fma(sum, inv_area(r, dw, dh), 1.0f / 2048) * 1024.0f));
    return out;
}

std::vector<uint16_t> ref_u16(const std::vector<uint16_t> &plane, uint32_t sw, Region r,
                              int in_bits, uint32_t dw, uint32_t dh, int out_bits)
{
    std::vector<uint16_t> out;
    const float in_scale = std::ldexp(1.0f, -(in_bits & 31));
    const float out_scale = std::ldexp(1.0f, out_bits & 31);
    for (float sum : band_sums(plane, sw, r, dw, dh))
        out.push_back(
            low16(std::fma(inv_area(r, dw, dh) * sum, in_scale, 1.0f / 2048) * out_scale));
    return out;
}

struct Case {
    uint32_t sw, sh, dw, dh;
    bool has_roi;
    Region roi;
};

void PrintTo(const Case &c, std::ostream *os)
{
    *os << c.sw << "x" << c.sh << "->" << c.dw << "x" << c.dh;
    if (c.has_roi)
        *os << " roi " << c.roi.x << "," << c.roi.y << " " << c.roi.w << "x" << c.roi.h;
}

const Case kCases[] = {
    {6, 6, 3, 3, false, {}},         {7, 6, 3, 3, false, {}},          {7, 7, 3, 3, false, {}},
    {17, 11, 5, 4, false, {}},       {100, 37, 33, 36, false, {}},     {64, 48, 63, 5, false, {}},
    {20, 20, 3, 3, true, {4, 5, 11, 7}}, {20, 20, 4, 3, true, {0, 0, 20, 3}},
    {20, 20, 5, 6, true, {15, 14, 5, 6}}, {40, 30, 7, 9, true, {3, 1, 29, 28}},
};

class AreaCases : public ::testing::TestWithParam<Case> {};

TEST_P(AreaCases, FloatKernelMatchesReference)
{
    const Case c = GetParam();
    const Region r = c.has_roi ? c.roi : Region{0, 0, c.sw, c.sh};
    const uint16_t roi[4] = {uint16_t(r.x), uint16_t(r.y), uint16_t(r.w), uint16_t(r.h)};
    // Values around 0 ... 70 cover rounding, negatives and the wrap past 64;
    // around 12000 (third plane) the added 2^-11 is half an ulp of the mean,
    // where only the fused multiply-add rounds as defined.
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
                                            uint16_t(c.dw), uint16_t(c.dh), 3,
                                            c.has_roi ? roi : nullptr),
              0u);
    for (uint32_t p = 0; p < 3; ++p) {
        EXPECT_TRUE(dst[p].guards_intact());
        EXPECT_EQ(dst[p].values(), ref_32f(src[p], c.sw, r, c.dw, c.dh)) << "plane " << p;
    }
}

TEST_P(AreaCases, U16KernelMatchesReference)
{
    const Case c = GetParam();
    const Region r = c.has_roi ? c.roi : Region{0, 0, c.sw, c.sh};
    const uint16_t roi[4] = {uint16_t(r.x), uint16_t(r.y), uint16_t(r.w), uint16_t(r.h)};
    const auto src = random_plane<uint16_t>(size_t(c.sw) * c.sh, c.dw * 7 + c.dh);
    const std::pair<int, int> bits[] = {{10, 10}, {0, 10}, {12, 4}, {16, 0}, {-22, 42}, {3, 31}};
    for (const auto &[in_bits, out_bits] : bits) {
        Guarded<uint16_t> dst(size_t(c.dw) * c.dh);
        const uint16_t *srcp[1] = {src.data()};
        uint16_t *dstp[1] = {dst.data()};
        ASSERT_EQ(image_downscale_u16_to_u16(srcp, dstp, uint16_t(c.sw), uint16_t(c.sh), in_bits,
                                             uint16_t(c.dw), uint16_t(c.dh), out_bits, 1,
                                             c.has_roi ? roi : nullptr),
                  0u);
        EXPECT_TRUE(dst.guards_intact());
        EXPECT_EQ(dst.values(), ref_u16(src, c.sw, r, in_bits, c.dw, c.dh, out_bits))
            << in_bits << " -> " << out_bits;
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, AreaCases, ::testing::ValuesIn(kCases));

// One float plane of a constant, or of a 2 x 2 pattern, downscaled 6 x 6 -> 3 x 3.
std::vector<uint16_t> downscale_6x6(const std::vector<float> &plane)
{
    Guarded<uint16_t> dst(9);
    const float *srcp[1] = {plane.data()};
    uint16_t *dstp[1] = {dst.data()};
    EXPECT_EQ(image_downscale_32f_to_u16p10(srcp, dstp, 6, 6, 3, 3, 1, nullptr), 0u);
    EXPECT_TRUE(dst.guards_intact());
    return dst.values();
}

TEST(AreaDownscale, WorkedExamples)
{
    std::vector<float> blocks(36, 1.0f);
    blocks[1 * 6 + 1] = 2.0f; // the first 2 x 2 block is 1, 1, 1, 2
    EXPECT_EQ(downscale_6x6(blocks)[0], 1280);
    EXPECT_EQ(downscale_6x6(std::vector<float>(36, 2.0f)), std::vector<uint16_t>(9, 2048));
    EXPECT_EQ(downscale_6x6(std::vector<float>(36, 63.999f)), std::vector<uint16_t>(9, 65535));
    // Stored as the low 16 bits of the truncated value: -1023 and 65536 wrap;
    // beyond the 32-bit range and NaN store 0.
    EXPECT_EQ(downscale_6x6(std::vector<float>(36, -1.0f)), std::vector<uint16_t>(9, 65536 - 1023));
    EXPECT_EQ(downscale_6x6(std::vector<float>(36, 64.0f)), std::vector<uint16_t>(9, 0));
    EXPECT_EQ(downscale_6x6(std::vector<float>(36, 1e10f)), std::vector<uint16_t>(9, 0));
    EXPECT_EQ(downscale_6x6(std::vector<float>(36, NAN)), std::vector<uint16_t>(9, 0));

    // Fixed point in and out with 10 bits: a constant stays (for bands short
    // enough that the single-precision sum stays within half a unit).
    for (uint32_t sw : {6u, 7u, 11u, 13u}) {
        const std::vector<uint16_t> constant(size_t(sw) * sw, 51234);
        Guarded<uint16_t> dst(9);
        const uint16_t *srcp[1] = {constant.data()};
        uint16_t *dstp[1] = {dst.data()};
        ASSERT_EQ(image_downscale_u16_to_u16(srcp, dstp, uint16_t(sw), uint16_t(sw), 10, 3, 3, 10,
                                             1, nullptr),
                  0u);
        EXPECT_EQ(dst.values(), std::vector<uint16_t>(9, 51234)) << sw;
    }
}

TEST(AreaDownscale, SevenToThreeBandWeights)
{
    const auto b = bands(7.0f / 3.0f, 7, 3);
    ASSERT_EQ(b.size(), 3u);
    const std::vector<std::vector<float>> expected = {
        {1, 1, 1.0f / 3}, {2.0f / 3, 1, 2.0f / 3}, {1.0f / 3, 1, 1}};
    const std::vector<uint32_t> first = {0, 2, 4};
    for (size_t k = 0; k < 3; ++k) {
        ASSERT_EQ(b[k].size(), 3u);
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(b[k][i].first, first[k] + i);
            EXPECT_NEAR(b[k][i].second, expected[k][i], 1e-6);
        }
    }
    // The kernel applies them: a one-hot column 2 of a 7 x 6 plane gives
    // outputs 1/3 and 2/3 of 1024 * 3 / 7.
    std::vector<float> plane(42, 0.0f);
    for (uint32_t r = 0; r < 6; ++r)
        plane[r * 7 + 2] = 1.0f;
    Guarded<uint16_t> dst(9);
    const float *srcp[1] = {plane.data()};
    uint16_t *dstp[1] = {dst.data()};
    ASSERT_EQ(image_downscale_32f_to_u16p10(srcp, dstp, 7, 6, 3, 3, 1, nullptr), 0u);
    const auto v = dst.values();
    EXPECT_EQ(v[0], 146); // 1024 * 3/7 * 1/3 = 146.3
    EXPECT_EQ(v[1], 293); // 1024 * 3/7 * 2/3 = 292.6
    EXPECT_EQ(v[2], 0);
}

TEST(AreaDownscale, RejectionsInOrderWriteNothing)
{
    const std::vector<float> fsrc(400, 1.0f);
    const std::vector<uint16_t> usrc(400, 1);
    Guarded<uint16_t> dst(100);
    const float *fp[1] = {fsrc.data()};
    const uint16_t *up[1] = {usrc.data()};
    uint16_t *dp[1] = {dst.data()};
    struct Reject {
        uint16_t sw, sh, dw, dh;
        const uint16_t *roi;
        bool null_src, null_dst;
    };
    const uint16_t edge[4] = {5, 0, 15, 20};    // x + width = src_width: accepted
    const uint16_t past[4] = {5, 0, 16, 20};    // one column past the edge
    const uint16_t x_out[4] = {20, 0, 0, 20};
    const uint16_t y_out[4] = {0, 20, 20, 0};
    const uint16_t low[4] = {0, 17, 20, 3};     // lower than the destination
    const uint16_t narrow[4] = {0, 0, 3, 20};   // narrower than the destination
    const uint16_t empty[4] = {2, 2, 0, 10};
    const Reject rejects[] = {
        {20, 20, 20, 10, nullptr, false, false}, // dst_width = src_width
        {20, 20, 10, 21, nullptr, false, false},
        {20, 20, 2, 10, nullptr, false, false},  // destination extent 2
        {20, 20, 10, 2, nullptr, false, false},
        {20, 20, 10, 10, nullptr, true, false},
        {20, 20, 10, 10, nullptr, false, true},
        {20, 20, 10, 10, past, false, false},
        {20, 20, 10, 10, x_out, false, false},
        {20, 20, 10, 10, y_out, false, false},
        {20, 20, 4, 4, low, false, false},
        {20, 20, 4, 4, narrow, false, false},
        {20, 20, 3, 3, empty, false, false},
    };
    for (size_t i = 0; i < std::size(rejects); ++i) {
        const Reject &r = rejects[i];
        EXPECT_EQ(image_downscale_32f_to_u16p10(r.null_src ? nullptr : fp, r.null_dst ? nullptr : dp,
                                                r.sw, r.sh, r.dw, r.dh, 1, r.roi),
                  32u)
            << "case " << i;
        EXPECT_EQ(image_downscale_u16_to_u16(r.null_src ? nullptr : up, r.null_dst ? nullptr : dp,
                                             r.sw, r.sh, 10, r.dw, r.dh, 10, 1, r.roi),
                  32u)
            << "case " << i;
    }
    EXPECT_TRUE(dst.all_untouched());

    // No planes: accepted, nothing written.
    EXPECT_EQ(image_downscale_32f_to_u16p10(fp, dp, 20, 20, 10, 10, 0, nullptr), 0u);
    EXPECT_TRUE(dst.all_untouched());

    // A region ending exactly at the edge is accepted.
    EXPECT_EQ(image_downscale_32f_to_u16p10(fp, dp, 20, 20, 10, 10, 1, edge), 0u);
    EXPECT_EQ(dst.values(), std::vector<uint16_t>(100, 1024));
    EXPECT_TRUE(dst.guards_intact());
}

} // namespace
