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

} // namespace
