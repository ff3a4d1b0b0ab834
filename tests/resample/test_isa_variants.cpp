// The x86-64-v3 loops against the portable ones, bit for bit: every kernel
// with a vectorised variant runs on seeded random planes over many extents,
// once with the portable variant forced and once as dispatched, and the two
// destinations (guard zones included) must be identical.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "ej_cmc_resample.h"
#include "guarded.h"
#include "isa_dispatch.h"

namespace {

using ejtest::Guarded;
using ejtest::random_plane;

// Forces the portable variant on this thread while in scope.
struct PortableScope {
    PortableScope() { cmc_isa_force_portable(true); }
    ~PortableScope() { cmc_isa_force_portable(false); }
};

// Runs call(dst) on a guarded destination of n elements on both variants;
// expects equal statuses and equal bytes, guard zones included.
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
    const std::vector<T> a = portable.values(), b = fast.values();
    EXPECT_TRUE(ejtest::same_bits(a, b)) << what;
    EXPECT_TRUE(portable.guards_intact() && fast.guards_intact()) << what;
}

class IsaVariants : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (cmc_isa_best() == cmc_isa::portable)
            GTEST_SKIP() << "this CPU runs the portable variant only";
        if (cmc_isa_selected() == cmc_isa::portable)
            GTEST_SKIP() << "the portable variant is forced for this run";
    }
};

// Source extents from 1 upwards and destinations around and well beyond them.
struct Extents {
    uint16_t sw, sh, dw, dh;
};

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

std::string describe(const Extents &e)
{
    return std::to_string(e.sw) + "x" + std::to_string(e.sh) + " -> " + std::to_string(e.dw) +
           "x" + std::to_string(e.dh);
}

TEST_F(IsaVariants, BicubicUpscaleToFloat)
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
TEST_F(IsaVariants, BicubicResizeToU16p10)
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
void compare_bilinear(Resize resize, const char *name)
{
    uint32_t seed = 300;
    for (const Extents &e : bilinear_extents()) {
        const auto src = random_plane<T>(size_t(e.sw) * e.sh, seed++);
        for (int32_t step : {1, 3}) {
            expect_same_bits<T>(size_t(e.dw) * e.dh * size_t(step), [&](T *dst) {
                return resize(src.data(), e, dst, step);
            }, std::string(name) + " step " + std::to_string(step) + " " + describe(e));
        }
    }
}

TEST_F(IsaVariants, BilinearResize)
{
    compare_bilinear<uint8_t>([](const uint8_t *src, const Extents &e, uint8_t *dst, int32_t step) {
        return step == 1 ? resize_2d_array_uint8(src, e.sw, e.sh, dst, e.dw, e.dh)
                         : resize_2d_array_uint8_v1(src, e.sw, e.sh, dst, e.dw, e.dh, step);
    }, "uint8");
    compare_bilinear<uint16_t>([](const uint16_t *src, const Extents &e, uint16_t *dst, int32_t step) {
        return step == 1 ? resize_2d_array_uint16(src, e.sw, e.sh, dst, e.dw, e.dh)
                         : resize_2d_array_uint16_v1(src, e.sw, e.sh, dst, e.dw, e.dh, step);
    }, "uint16");
    // The crop: margins from the step argument (1: none; 3: 1 left, 2 right, 1 top).
    compare_bilinear<uint16_t>([](const uint16_t *src, const Extents &e, uint16_t *dst, int32_t step) {
        const resize_crop_pair tl = {step == 1 ? 0 : 1, step == 1 ? 0 : 1};
        const resize_crop_pair br = {step == 1 ? 0 : 2, 0};
        return crop_resize_2d_array_uint16(src, e.sw, e.sh, tl, br, dst, e.dw, e.dh);
    }, "crop uint16");
    compare_bilinear<int32_t>([](const int32_t *src, const Extents &e, int32_t *dst, int32_t step) {
        return resize_2d_array_int32(src, e.sw, e.sh, dst, e.dw + step - 1, e.dh);
    }, "int32");
    compare_bilinear<uint32_t>([](const uint32_t *src, const Extents &e, uint32_t *dst, int32_t step) {
        return resize_2d_array_uint32(src, e.sw, e.sh, dst, e.dw + step - 1, e.dh);
    }, "uint32");
    compare_bilinear<float>([](const float *src, const Extents &e, float *dst, int32_t step) {
        return resize_2d_array_float(src, e.sw, e.sh, dst, uint16_t(e.dw + step - 1), e.dh);
    }, "float");
}

} // namespace
