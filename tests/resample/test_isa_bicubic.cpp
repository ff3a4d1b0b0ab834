// The x86-64-v3 bicubic loops against the portable ones, bit for bit, on the
// shapes their branches depend on: the exact separable coefficients (small
// samples) and the literal ones (large samples), streamed and ordinary stores
// (large and small planes, aligned and unaligned rows), bands of cell rows,
// resize strips cut by the source span, float rows read in place or copied,
// one-register windows and per-column tap loads.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "ej_cmc_resample.h"
#include "guarded.h"
#include "isa_dispatch.h"

namespace {

using ejtest::Guarded;

struct PortableScope {
    PortableScope() { cmc_isa_force_portable(true); }
    ~PortableScope() { cmc_isa_force_portable(false); }
};

template <typename T, typename Call>
void expect_same_bits(size_t n, Call call, const std::string &what)
{
    Guarded<T> portable(n), fast(n);
    uint32_t portable_status, fast_status;
    {
        PortableScope scope;
        portable_status = call(portable.data());
    }
    fast_status = call(fast.data());
    EXPECT_EQ(portable_status, fast_status) << what;
    EXPECT_TRUE(ejtest::same_bits(portable.values(), fast.values())) << what;
    EXPECT_TRUE(portable.guards_intact() && fast.guards_intact()) << what;
}

class IsaVariantsBicubic : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (cmc_isa_best() == cmc_isa::portable)
            GTEST_SKIP() << "this CPU runs the portable variant only";
        if (cmc_isa_selected() == cmc_isa::portable)
            GTEST_SKIP() << "the portable variant is forced for this run";
    }
};

struct Shape {
    uint16_t sw, sh, dw, dh;
};

std::string describe(const Shape &e)
{
    return std::to_string(e.sw) + "x" + std::to_string(e.sh) + " -> " + std::to_string(e.dw) +
           "x" + std::to_string(e.dh);
}

// Samples of a u16 plane: random below `limit`, or (checkerboard) alternating
// 0 and limit, whose extrapolated border overshoots the most.
std::vector<uint16_t> u16_plane(size_t w, size_t h, uint32_t limit, bool checkerboard,
                                uint32_t seed)
{
    std::mt19937 gen(seed);
    std::vector<uint16_t> v(w * h);
    for (size_t y = 0; y < h; ++y)
        for (size_t x = 0; x < w; ++x)
            v[y * w + x] = checkerboard ? uint16_t(((x + y) & 1) != 0 ? limit : 0)
                                        : uint16_t(gen() % (limit + 1));
    return v;
}

// Upscales with sample ranges on both sides of the bound below which the
// coefficients are taken in separable form.
TEST_F(IsaVariantsBicubic, UpscaleSampleRanges)
{
    const Shape shapes[] = {{5, 4, 17, 13}, {23, 19, 61, 50}, {40, 3, 300, 9}, {2, 2, 9, 9},
                            {1, 6, 7, 20},  {7, 1, 30, 4}};
    struct Range {
        uint32_t limit;
        bool checkerboard;
    };
    // 4095 and 8191 stay within the bound everywhere; the checkerboards of
    // 8192 and 16383 overshoot it in the border; 65535 exceeds it at once.
    const Range ranges[] = {{4095, false}, {8191, true}, {8192, true},
                            {16383, true}, {65535, false}, {65535, true}};
    uint32_t seed = 500;
    for (const Shape &e : shapes) {
        for (const Range &r : ranges) {
            const auto src = u16_plane(e.sw, e.sh, r.limit, r.checkerboard, seed++);
            expect_same_bits<float>(size_t(e.dw) * e.dh, [&](float *dst) {
                const uint16_t *src_planes[1] = {src.data()};
                float *dst_planes[1] = {dst};
                return image_bicubic_upscale_uint16_to_float(src_planes, dst_planes, e.sw, e.sh,
                                                             e.dw, e.dh, 1);
            }, "u16 <= " + std::to_string(r.limit) + " " + describe(e));
        }
    }
}

// Both upscalers on seeded random planes of every shape.
template <size_t N>
void upscale_u8_and_u16(const Shape (&shapes)[N], uint32_t seed)
{
    for (const Shape &e : shapes) {
        const auto u8 = ejtest::random_plane<uint8_t>(size_t(e.sw) * e.sh, seed++);
        const auto u16 = ejtest::random_plane<uint16_t>(size_t(e.sw) * e.sh, seed++);
        expect_same_bits<float>(size_t(e.dw) * e.dh, [&](float *dst) {
            const uint8_t *src_planes[1] = {u8.data()};
            float *dst_planes[1] = {dst};
            return image_bicubic_upscale_uint8_to_float(src_planes, dst_planes, e.sw, e.sh, e.dw,
                                                        e.dh, 1);
        }, "u8 " + describe(e));
        expect_same_bits<float>(size_t(e.dw) * e.dh, [&](float *dst) {
            const uint16_t *src_planes[1] = {u16.data()};
            float *dst_planes[1] = {dst};
            return image_bicubic_upscale_uint16_to_float(src_planes, dst_planes, e.sw, e.sh, e.dw,
                                                         e.dh, 1);
        }, "u16 " + describe(e));
    }
}

// Planes large enough for streamed stores (odd widths leave every other row
// unaligned), more cell rows than one band, several strips.
TEST_F(IsaVariantsBicubic, UpscaleLargePlanes)
{
    const Shape shapes[] = {{300, 37, 1101, 1000}, {97, 41, 1200, 900}};
    upscale_u8_and_u16(shapes, 600);
}

// Twofold enlargements: runs of exactly two columns from the first one, or
// from the fourth one after a run of three, near-twofold ones with runs of
// three now and then, and the uniform runs of strong enlargements.
TEST_F(IsaVariantsBicubic, UpscaleRunShapes)
{
    const Shape shapes[] = {{97, 5, 193, 9},   {1920, 2, 3840, 3}, {300, 3, 601, 4},
                            {300, 3, 610, 5},  {130, 4, 255, 6},   {20, 3, 700, 4},
                            {9, 3, 1000, 3},   {64, 3, 127, 3}};
    upscale_u8_and_u16(shapes, 650);
}

// Resizes over wide sources: enlargements (one-register windows), mild and
// strong reductions (per-column tap loads, strips cut by the source span),
// float rows read in place between copied ends, non-finite samples at the
// ends and in the middle of rows, every row count up to a few.
TEST_F(IsaVariantsBicubic, ResizeWideSources)
{
    const Shape shapes[] = {{1000, 5, 2100, 7},  {1000, 6, 1999, 4}, {2000, 4, 700, 3},
                            {9000, 3, 700, 2},   {4000, 2, 600, 5},  {600, 1, 601, 2},
                            {777, 3, 2000, 11},  {520, 4, 517, 8},   {33, 70, 1030, 140}};
    uint32_t seed = 700;
    for (const Shape &e : shapes) {
        const size_t n = size_t(e.sw) * e.sh;
        auto f = ejtest::random_plane<float>(n, seed++);
        f[0] = std::numeric_limits<float>::quiet_NaN();
        f[n / 2] = std::numeric_limits<float>::infinity();
        f[n - 1] = -3.0e9f;
        const auto u16 = ejtest::random_plane<uint16_t>(n, seed++);
        expect_same_bits<uint16_t>(size_t(e.dw) * e.dh, [&](uint16_t *dst) {
            return bicubic_resize_32f_to_u16p10(f.data(), e.sh, e.sw, dst, e.dh, e.dw);
        }, "32f " + describe(e));
        for (uint16_t frac_bits : {uint16_t(0), uint16_t(10), uint16_t(33)}) {
            expect_same_bits<uint16_t>(size_t(e.dw) * e.dh, [&](uint16_t *dst) {
                return bicubic_resize_u16_to_u16(u16.data(), e.sh, e.sw, frac_bits, dst, e.dh,
                                                 e.dw);
            }, "u16 >> " + std::to_string(frac_bits) + " " + describe(e));
        }
    }
}

} // namespace
