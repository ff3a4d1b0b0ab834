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
#include "isa_compare.h"

namespace {

using ejtest::describe;
using ejtest::expect_same_bits;
using ejtest::Extents;
using ejtest::Guarded;
using ejtest::random_plane;

class IsaVariantsBicubic : public ejtest::IsaVariantsTest {};

using Shape = ejtest::Extents;

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
                            {777, 3, 2000, 11},  {520, 4, 517, 8},   {33, 70, 1030, 140},
                            {650, 4, 641, 6},    {3100, 3, 1290, 5}, {7000, 3, 1283, 4},
                            {3840, 7, 1280, 3},  {2000, 3, 1281, 9}};
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

// Source extents from 1 upwards and destinations around and well beyond them.
std::vector<Extents> upscale_extents()
{
    std::vector<Extents> out;
    std::mt19937 gen(91);
    for (uint16_t s : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31}) {
        for (int k = 0; k < 4; ++k) {
            const uint16_t sw = s, sh = uint16_t(1 + gen() % 12);
            out.push_back({sw, sh, uint16_t(sw + gen() % (3 * sw + 20)),
                           uint16_t(sh + gen() % (2 * sh + 9))});
        }
    }
    out.push_back({17, 13, 64, 48});
    out.push_back({64, 48, 397, 231});
    out.push_back({9, 9, 9, 9});
    out.push_back({3, 3, 1000, 5});
    out.push_back({5, 2, 40, 300}); // more rows per cell than one block of fractions
    return out;
}

TEST_F(IsaVariantsBicubic, UpscaleRandomExtents)
{
    uint32_t seed = 1;
    for (const Extents &e : upscale_extents()) {
        const size_t n_src = size_t(e.sw) * e.sh, n_dst = size_t(e.dw) * e.dh;
        const auto u8 = random_plane<uint8_t>(n_src, seed++);
        const auto u16 = random_plane<uint16_t>(n_src, seed++);
        expect_same_bits<float>(n_dst, [&](float *dst) {
            const uint8_t *src_planes[1] = {u8.data()};
            float *dst_planes[1] = {dst};
            return image_bicubic_upscale_uint8_to_float(src_planes, dst_planes, e.sw, e.sh, e.dw,
                                                        e.dh, 1);
        }, "u8 " + describe(e));
        expect_same_bits<float>(n_dst, [&](float *dst) {
            const uint16_t *src_planes[1] = {u16.data()};
            float *dst_planes[1] = {dst};
            return image_bicubic_upscale_uint16_to_float(src_planes, dst_planes, e.sw, e.sh, e.dw,
                                                         e.dh, 1);
        }, "u16 " + describe(e));
    }
}

// Resize in both directions, float sources with ordinary, huge and
// non-finite values (wrapped and out-of-range conversions included).
TEST_F(IsaVariantsBicubic, ResizeRandomExtents)
{
    std::mt19937 gen(7);
    uint32_t seed = 100;
    for (int round = 0; round < 60; ++round) {
        const uint16_t sw = uint16_t(1 + gen() % 40), sh = uint16_t(1 + gen() % 30);
        uint16_t dw = uint16_t(gen() % 90), dh = uint16_t(gen() % 70);
        if (dw == 1)
            dw = 2;
        if (dh == 1)
            dh = 0;
        std::vector<float> f = random_plane<float>(size_t(sw) * sh, seed++);
        if (round % 3 == 0) {
            f[gen() % f.size()] = 3.0e9f;
            f[gen() % f.size()] = std::numeric_limits<float>::quiet_NaN();
            f[gen() % f.size()] = -std::numeric_limits<float>::infinity();
        }
        const auto u16 = random_plane<uint16_t>(size_t(sw) * sh, seed++);
        const Extents e = {sw, sh, dw, dh};
        const uint16_t frac_bits = uint16_t(gen() % 17);
        expect_same_bits<uint16_t>(size_t(dw) * dh, [&](uint16_t *dst) {
            return bicubic_resize_32f_to_u16p10(f.data(), sh, sw, dst, dh, dw);
        }, "32f " + describe(e));
        expect_same_bits<uint16_t>(size_t(dw) * dh, [&](uint16_t *dst) {
            return bicubic_resize_u16_to_u16(u16.data(), sh, sw, frac_bits, dst, dh, dw);
        }, "u16 " + describe(e));
    }
    // Camera-like extents, up and down, across strip boundaries.
    const Extents big[] = {{64, 48, 1100, 37}, {700, 9, 513, 5}, {1030, 4, 517, 3}};
    for (const Extents &e : big) {
        const auto f = random_plane<float>(size_t(e.sw) * e.sh, seed++);
        expect_same_bits<uint16_t>(size_t(e.dw) * e.dh, [&](uint16_t *dst) {
            return bicubic_resize_32f_to_u16p10(f.data(), e.sh, e.sw, dst, e.dh, e.dw);
        }, "32f " + describe(e));
    }
}

} // namespace
