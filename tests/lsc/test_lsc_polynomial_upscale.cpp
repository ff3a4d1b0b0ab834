// Polynomial upscaling of lens-shading tables: solve and evaluate against the
// test reference, an exactly representable surface, conversion and flips
// through the driver, refused inputs and every failure path.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "ej_cmc_lsc.h"
#include "failure_injection.h"
#include "lsc_fake_nvm.h"
#include "lsc_reference.h"

namespace {

namespace ref = ejtest::lscref;
using ejtest::FailureInjection;
using ejtest::LscFakeNvm;
using Plane = std::vector<float>;

struct TablesDeleter {
    void operator()(computed_lsc_tables *t) const { deinit_computed_upscale_lsc_tables(t); }
};
using Tables = std::unique_ptr<computed_lsc_tables, TablesDeleter>;

Tables compute(int dw, int dh, const LscFakeNvm &nvm, uint32_t flip, uint8_t exclude = 0)
{
    return Tables(compute_upscaled_lsc_tables_polynom4th(uint16_t(dw), uint16_t(dh), &nvm.data, flip, exclude));
}

Plane plane_of(const computed_lsc_tables &t, int table, int channel, int dw, int dh)
{
    const float *p = t.tables[table] + size_t(channel) * dw * dh;
    return Plane(p, p + size_t(dw) * dh);
}

// Decomposition and one solve of four planes on a w x h grid into dw x dh.
struct Fit {
    int w, h;
    Plane design, design_t, lu;
    uint32_t pivot[15] = {};
    Fit(int w_, int h_, int margin)
        : w(w_), h(h_), design(size_t(w) * h * 15), design_t(design.size()), lu(225)
    {
        const uint32_t s = margin ? lu_decomposition_lsc(design.data(), design_t.data(), lu.data(), pivot, w, h,
                                                         15, margin, margin)
                                  : lu_decomposition(design.data(), design_t.data(), lu.data(), pivot, w, h, 15);
        EXPECT_EQ(0u, s);
    }
    uint32_t upscale(std::vector<Plane> &src, std::vector<Plane> &dst, int dw, int dh, int margin)
    {
        float *s[4], *d[4];
        for (int k = 0; k < 4; ++k) {
            s[k] = src[size_t(k)].data();
            d[k] = dst[size_t(k)].data();
        }
        return lsc_polynomial_upscale_float(design_t.data(), lu.data(), pivot, s, d, uint16_t(w), uint16_t(h),
                                            uint16_t(dw), uint16_t(dh), 15, uint16_t(margin), uint16_t(margin),
                                            uint8_t(margin != 0));
    }
};

} // namespace

TEST(LscPolynomialUpscale, MatchesTheReferenceBitForBit)
{
    struct Case {
        int w, h, dw, dh, margin;
    };
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> gain(1.0f, 3.0f);
    // The third case evaluates on the NVM grid itself: output (i, j) is
    // P(i + 1, j + 1).
    for (const Case &c : {Case{7, 6, 9, 8, 0}, Case{9, 8, 33, 20, 2}, Case{8, 7, 8, 7, 0}, Case{17, 13, 64, 48, 2}}) {
        Fit fit(c.w, c.h, c.margin);
        std::vector<Plane> src(4, Plane(size_t(c.w) * c.h)), dst(4, Plane(size_t(c.dw) * c.dh, -1.0f));
        for (Plane &p : src)
            std::generate(p.begin(), p.end(), [&] { return gain(rng); });
        ASSERT_EQ(0u, fit.upscale(src, dst, c.dw, c.dh, c.margin));
        const auto over = c.margin ? ref::interior(c.w, c.h, c.margin, c.margin) : ref::all_samples(src[0].size());
        for (size_t k = 0; k < 4; ++k) {
            const auto coef = ref::solve(src[k], c.w, c.h, over);
            const Plane want = ref::upscale(coef, c.w, c.h, c.dw, c.dh);
            ASSERT_EQ(0, std::memcmp(want.data(), dst[k].data(), want.size() * sizeof(float)))
                << c.w << "x" << c.h << " -> " << c.dw << "x" << c.dh << " plane " << k;
            if (c.dw == c.w) {
                EXPECT_EQ(ref::evaluate(coef, 4.0f, 3.0f), dst[k][size_t(2 * c.dw + 3)]);
            }
        }
    }
}

TEST(LscPolynomialUpscale, ReproducesAFourthOrderSurface)
{
    // A positive 4th-order surface sampled on the grid and evaluated at the
    // same points comes back up to the rounding of the single-precision
    // normal equations. Their coordinates are not normalised (x^4 reaches
    // 83521 on a 17-wide grid), so that rounding grows with the grid: the
    // bounds sit just above the measured errors (1.2e-4, 1.7e-4, 2.4e-3).
    struct Case {
        int w, h;
        double bound;
    };
    for (const Case &c : {Case{5, 5, 3e-4}, Case{9, 7, 3e-4}, Case{17, 13, 4e-3}}) {
        auto surface = [&](double x, double y) {
            const double u = (x - (c.w + 1) / 2.0) / ((c.w - 1) / 2.0), v = (y - (c.h + 1) / 2.0) / ((c.h - 1) / 2.0);
            return 1.0 + 0.3 * u * u + 0.2 * v * v + 0.4 * u * u * v * v + 0.25 * u * u * u * u + 0.1 * u * v;
        };
        Fit fit(c.w, c.h, 0);
        const size_t m = size_t(c.w) * c.h;
        std::vector<Plane> src(4, Plane(m)), dst(4, Plane(m));
        for (int y = 1; y <= c.h; ++y)
            for (int x = 1; x <= c.w; ++x)
                for (Plane &p : src)
                    p[size_t((y - 1) * c.w + x - 1)] = float(surface(x, y));
        ASSERT_EQ(0u, fit.upscale(src, dst, c.w, c.h, 0));
        double worst = 0;
        for (size_t i = 0; i < m; ++i)
            worst = std::max(worst, std::fabs(double(dst[0][i]) - src[0][i]) / src[0][i]);
        EXPECT_LT(worst, c.bound) << c.w << "x" << c.h << ": largest relative error " << worst;
    }
}

TEST(LscPolynomialUpscale, FailuresReturnTwo)
{
    Fit fit(5, 5, 0);
    std::vector<Plane> src(4, Plane(25, 1.0f)), dst(4, Plane(25, 7.0f));
    float *s[4] = {src[0].data(), src[1].data(), nullptr, src[3].data()};
    float *d[4] = {dst[0].data(), dst[1].data(), dst[2].data(), dst[3].data()};
    auto call = [&](float *const *sp, uint16_t terms) {
        return lsc_polynomial_upscale_float(fit.design_t.data(), fit.lu.data(), nullptr, sp, d, 5, 5, 5, 5, terms,
                                            0, 0, 0);
    };
    // Planes before the missing one stay written.
    EXPECT_EQ(2u, call(s, 15));
    EXPECT_NE(7.0f, dst[1][0]);
    EXPECT_EQ(7.0f, dst[2][0]);
    s[2] = src[2].data();
    EXPECT_EQ(2u, call(s, 14));
    EXPECT_EQ(2u, call(nullptr, 15));
    for (uint64_t k = 1; k <= 3; ++k) {
        FailureInjection fail(k); // b, c, then the substitution vector
        EXPECT_EQ(2u, call(s, 15)) << "allocation " << k;
    }
    // A single target row or column: solved, nothing evaluated.
    std::fill(dst[0].begin(), dst[0].end(), 7.0f);
    EXPECT_EQ(0u, lsc_polynomial_upscale_float(fit.design_t.data(), fit.lu.data(), nullptr, s, d, 5, 5, 1, 5, 15,
                                               0, 0, 0));
    EXPECT_EQ(Plane(25, 7.0f), dst[0]);
    // Nothing evaluated: the destination array is never read, so it may be
    // missing altogether.
    EXPECT_EQ(0u, lsc_polynomial_upscale_float(fit.design_t.data(), fit.lu.data(), nullptr, s, nullptr, 5, 5, 5,
                                               1, 15, 0, 0, 0));
    EXPECT_EQ(2u, lsc_polynomial_upscale_float(fit.design_t.data(), fit.lu.data(), nullptr, s, nullptr, 5, 5, 5,
                                               5, 15, 0, 0, 0));
}

TEST(LscPolynomialTables, ConvertsSamplesWithTheirFractionalBits)
{
    // Gains rising linearly from 1.0 to 1.5 across the grid: the fit is exact
    // and the normalised right column is the converted sample itself.
    struct Case {
        uint8_t frac_bits;
        int step; // sample increment per column; 4 steps reach 1.5
    };
    for (const Case &c : {Case{8, 32}, Case{10, 128}, Case{40, 32}, Case{0, 0}}) {
        LscFakeNvm nvm(5, 5);
        nvm.add(c.frac_bits, [&](int, int, int col) { return col * c.step; });
        const Tables t = compute(5, 5, nvm, 0);
        ASSERT_TRUE(t) << int(c.frac_bits);
        for (int ch = 0; ch < 4; ++ch) {
            const Plane p = plane_of(*t, 0, ch, 5, 5);
            EXPECT_NEAR(1.0f, p[0], 1e-5);
            EXPECT_NEAR(c.step ? 1.5f : 1.0f, p[4], 1e-4) << int(c.frac_bits);
            EXPECT_NEAR(c.step ? 1.25f : 1.0f, p[22], 1e-4) << int(c.frac_bits);
        }
    }
}

TEST(LscPolynomialTables, DriverMatchesTheReferencePipelineBitForBit)
{
    // Conversion, fit, evaluation and normalisation of a 17 x 13 module onto
    // 64 x 48, rebuilt from the test reference; samples reaching the top of
    // the u16 range, divided by 2^10, 2^16 and 2^31.
    const int w = 17, h = 13, dw = 64, dh = 48;
    auto sample = [](int ch, int r, int c) {
        return 57 * (30 + 9 * (c - 8) * (c - 8) + 14 * (r - 6) * (r - 6) + 7 * ch + (r * c) % 11);
    };
    for (uint8_t frac_bits : {10, 16, 31}) {
        LscFakeNvm nvm(w, h);
        nvm.add(frac_bits, sample);
        for (uint8_t exclude : {0, 1}) {
            const Tables t = compute(dw, dh, nvm, 0, exclude);
            ASSERT_TRUE(t);
            const auto over = exclude ? ref::interior(w, h, 2, 2) : ref::all_samples(size_t(w) * h);
            for (int ch = 0; ch < 4; ++ch) {
                Plane z;
                for (int r = 0; r < h; ++r)
                    for (int c = 0; c < w; ++c)
                        z.push_back(float(sample(ch, r, c)) / std::ldexp(1.0f, frac_bits) + 1.0f);
                Plane want = ref::upscale(ref::solve(z, w, h, over), w, h, dw, dh);
                const float min = *std::min_element(want.begin(), want.end());
                for (float &v : want)
                    v = std::max(v / min, 1.0f);
                const Plane got = plane_of(*t, 0, ch, dw, dh);
                EXPECT_EQ(0, std::memcmp(want.data(), got.data(), want.size() * sizeof(float)))
                    << "frac_bits " << int(frac_bits) << " channel " << ch;
            }
        }
    }
}

TEST(LscPolynomialTables, ConstantTablesGiveOnes)
{
    LscFakeNvm nvm(17, 13);
    nvm.add(8, [](int, int, int) { return 128; }).add(10, [](int, int, int) { return 512; });
    for (uint8_t exclude : {0, 1}) {
        const Tables t = compute(64, 48, nvm, 0, exclude);
        ASSERT_TRUE(t);
        ASSERT_EQ(2, t->num_tables);
        for (int table = 0; table < 2; ++table)
            for (int ch = 0; ch < 4; ++ch)
                for (float v : plane_of(*t, table, ch, 64, 48))
                    ASSERT_NEAR(1.0f, v, 1e-4);
    }
}

TEST(LscPolynomialTables, FlipModesPlaceTheSamples)
{
    // The placement rule on a 3 x 2 grid, then the driver: flipping by mode
    // must give exactly the planes of the table flipped by hand.
    auto place = [](int r, int c, int w, int h, uint32_t flip) {
        return std::pair<int, int>{(flip & 2) ? h - 1 - r : r, (flip & 1) ? w - 1 - c : c};
    };
    EXPECT_EQ((std::pair<int, int>{0, 2}), place(0, 0, 3, 2, 1));
    EXPECT_EQ((std::pair<int, int>{1, 0}), place(1, 2, 3, 2, 1));

    const int w = 9, h = 7;
    auto sample = [](int ch, int r, int c) { return 40 + 3 * c * c + 2 * r * r + 5 * ch + ((r * 7 + c * 3) % 5); };
    LscFakeNvm stored(w, h);
    stored.add(8, sample);
    for (uint32_t flip = 0; flip < 4; ++flip) {
        LscFakeNvm flipped(w, h);
        flipped.add(8, [&](int ch, int r, int c) {
            const auto [sr, sc] = place(r, c, w, h, flip); // its own inverse
            return sample(ch, sr, sc);
        });
        const Tables a = compute(20, 16, stored, flip), b = compute(20, 16, flipped, 0);
        ASSERT_TRUE(a && b);
        for (int ch = 0; ch < 4; ++ch)
            EXPECT_EQ(plane_of(*b, 0, ch, 20, 16), plane_of(*a, 0, ch, 20, 16)) << "flip " << flip;
    }
}

TEST(LscPolynomialTables, RefusedInputsGiveNull)
{
    LscFakeNvm nvm(5, 5);
    nvm.add(8, [](int, int r, int c) { return 10 + r + c; });
    EXPECT_FALSE(compute(16, 12, nvm, 4));        // nothing converted: zero planes
    EXPECT_FALSE(compute(16, 12, nvm, 0, 1));     // one interior sample: singular fit
    const std::pair<int, int> extents[] = {{1, 12}, {16, 1}, {0, 12}, {16, 0}};
    for (auto [dw, dh] : extents)
        EXPECT_FALSE(compute(dw, dh, nvm, 0));
    EXPECT_EQ(nullptr, compute_upscaled_lsc_tables_polynom4th(16, 12, nullptr, 0, 0));
    LscFakeNvm empty_grid(0, 5);
    EXPECT_FALSE(compute(16, 12, empty_grid, 0));
    LscFakeNvm missing(5, 5);
    missing.data.lsc_table_count = 1;
    EXPECT_FALSE(compute(16, 12, missing, 0));
    missing.add(8, [](int, int, int) { return 1; });
    missing.tables[0].channel_tables[3] = nullptr;
    EXPECT_FALSE(compute(16, 12, missing, 0));
    // A dome fitted on the interior only and extrapolated to the corners
    // goes negative there: a non-positive minimum.
    LscFakeNvm dome(9, 9);
    dome.add(0, [](int, int r, int c) { return 199 - 20 * ((r - 4) * (r - 4) + (c - 4) * (c - 4)); });
    EXPECT_FALSE(compute(16, 12, dome, 0, 1));
}

TEST(LscPolynomialTables, NoTablesGivesAnEmptySet)
{
    LscFakeNvm nvm(6, 6);
    const Tables t = compute(16, 12, nvm, 0);
    ASSERT_TRUE(t);
    EXPECT_EQ(0, t->num_tables);
    EXPECT_NE(nullptr, t->tables);
}

TEST(LscPolynomialTables, EveryAllocationFailureReleasesEverything)
{
    LscFakeNvm nvm(9, 9);
    nvm.add(8, [](int ch, int r, int c) { return 20 + r * r + c * c + ch; }).add(10, [](int, int r, int c) {
        return 300 + 4 * r * c;
    });
    for (uint8_t exclude : {0, 1}) {
        uint64_t total = 0;
        {
            FailureInjection none(0);
            ASSERT_TRUE(compute(16, 12, nvm, 0, exclude));
            total = cmc_alloc_count();
        }
        ASSERT_GT(total, 10u);
        for (uint64_t k = 1; k <= total; ++k) {
            FailureInjection fail(k);
            EXPECT_FALSE(compute(16, 12, nvm, 0, exclude)) << "allocation " << k;
        }
    }
}
