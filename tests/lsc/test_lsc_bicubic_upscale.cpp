// Bicubic upscaling of NVM lens-shading tables: conversion to gains, flips,
// refused inputs, release paths and agreement with the test reference of the
// bicubic interpolation.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "../resample/bicubic_reference.h"
#include "allocation.h"
#include "failure_injection.h"
#include "ej_cmc_lsc.h"
#include "ej_nvm.h"

namespace {

using ejtest::FailureInjection;

struct TablesDeleter {
    void operator()(computed_lsc_tables *t) const { deinit_computed_upscale_lsc_tables(t); }
};
using Tables = std::unique_ptr<computed_lsc_tables, TablesDeleter>;

// An NVM result built by hand: tables of u8 or u16 samples as frac_bits says.
struct FakeNvm {
    ej_nvm_data data{};
    std::vector<nvm_lsc_table> tables;
    std::vector<std::vector<uint16_t>> wide;  // samples of u16 channel tables
    std::vector<std::vector<uint8_t>> narrow; // samples of u8 channel tables

    FakeNvm(int w, int h) : tables(0)
    {
        data.lsc_grid_width = static_cast<uint8_t>(w);
        data.lsc_grid_height = static_cast<uint8_t>(h);
        wide.reserve(64);
        narrow.reserve(64);
    }
    // Adds a table whose channel c holds sample(c, k) at index k.
    template <typename F>
    void add(uint8_t frac_bits, F sample)
    {
        nvm_lsc_table t{};
        t.frac_bits = frac_bits;
        const size_t n = static_cast<size_t>(data.lsc_grid_width) * data.lsc_grid_height;
        for (int c = 0; c < 4; ++c) {
            if (frac_bits > 8) {
                wide.emplace_back(n);
                for (size_t k = 0; k < n; ++k)
                    wide.back()[k] = static_cast<uint16_t>(sample(c, k));
                t.channel_tables[c] = wide.back().data();
            } else {
                narrow.emplace_back(n);
                for (size_t k = 0; k < n; ++k)
                    narrow.back()[k] = static_cast<uint8_t>(sample(c, k));
                t.channel_tables[c] = narrow.back().data();
            }
        }
        tables.push_back(t);
        data.lsc_tables = tables.data();
        data.lsc_table_count = static_cast<uint8_t>(tables.size());
    }
    int sample(int t, int c, size_t k) const
    {
        const void *p = tables[t].channel_tables[c];
        return tables[t].frac_bits > 8 ? static_cast<const uint16_t *>(p)[k]
                                       : static_cast<const uint8_t *>(p)[k];
    }
};

Tables compute(int dw, int dh, const FakeNvm &nvm, uint32_t flip)
{
    return Tables(compute_upscaled_lsc_tables_bicubic(dw, dh, &nvm.data, flip));
}

} // namespace

TEST(LscBicubic, EqualGridReproducesGainsInEveryFlip)
{
    FakeNvm nvm(3, 2);
    nvm.add(8, [](int c, size_t k) { return 10 * c + 7 * static_cast<int>(k); });
    nvm.add(10, [](int c, size_t k) { return 1000 * c + 333 * static_cast<int>(k); });
    nvm.add(4, [](int c, size_t k) { return 200 - c - static_cast<int>(k); });
    for (uint32_t flip = 0; flip <= 3; ++flip) {
        Tables out = compute(3, 2, nvm, flip);
        ASSERT_NE(out, nullptr);
        ASSERT_EQ(out->num_tables, 3);
        for (int t = 0; t < 3; ++t) {
            const float d = std::ldexp(1.0f, nvm.tables[t].frac_bits);
            for (int c = 0; c < 4; ++c) {
                for (int r = 0; r < 2; ++r) {
                    for (int i = 0; i < 3; ++i) {
                        const int orow = flip & 2 ? 1 - r : r;
                        const int ocol = flip & 1 ? 2 - i : i;
                        const float got = out->tables[t][c * 6 + orow * 3 + ocol];
                        EXPECT_EQ(got, nvm.sample(t, c, r * 3 + i) / d + 1.0f)
                            << "flip " << flip << " table " << t << " channel " << c;
                    }
                }
            }
        }
    }
}

TEST(LscBicubic, ConstantTableIsNotNormalised)
{
    FakeNvm nvm(4, 3);
    nvm.add(8, [](int, size_t) { return 64; });
    Tables out = compute(9, 7, nvm, 0);
    ASSERT_NE(out, nullptr);
    for (int k = 0; k < 4 * 9 * 7; ++k)
        ASSERT_EQ(out->tables[0][k], 1.25f) << k;
}

TEST(LscBicubic, FlipBothOnTwoByTwo)
{
    FakeNvm nvm(2, 2);
    nvm.add(0, [](int, size_t k) { return static_cast<int>(k); }); // gains 1, 2, 3, 4
    Tables out = compute(2, 2, nvm, 3);
    ASSERT_NE(out, nullptr);
    const float expected[4] = {4.0f, 3.0f, 2.0f, 1.0f};
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(out->tables[0][k], expected[k]);
}

TEST(LscBicubic, UpscaledPlanesAreTheInterpolatedSamplesConverted)
{
    // Planes are the bicubic interpolation of the raw samples (the test's own
    // reference of it), then v / 2^frac_bits + 1, here with rows reversed.
    std::mt19937 rng(8);
    FakeNvm nvm(5, 4);
    nvm.add(10, [&](int, size_t) { return 700 + static_cast<int>(rng() % 600); });
    nvm.add(7, [&](int, size_t) { return static_cast<int>(rng() % 256); });
    const int dw = 17, dh = 11;
    Tables out = compute(dw, dh, nvm, 1);
    ASSERT_NE(out, nullptr);
    for (int t = 0; t < 2; ++t) {
        const float d = std::ldexp(1.0f, nvm.tables[t].frac_bits);
        for (int c = 0; c < 4; ++c) {
            std::vector<float> raw(5 * 4), plane(static_cast<size_t>(dw) * dh);
            for (size_t k = 0; k < raw.size(); ++k)
                raw[k] = static_cast<float>(nvm.sample(t, c, k));
            bicubic_ref::upscale(raw, 5, 4, plane, dw, dh);
            for (int r = 0; r < dh; ++r)
                for (int i = 0; i < dw; ++i)
                    ASSERT_EQ(out->tables[t][c * dw * dh + r * dw + (dw - 1 - i)],
                              plane[r * dw + i] / d + 1.0f);
        }
    }
}

TEST(LscBicubic, NoTablesGivesAnEmptySet)
{
    FakeNvm nvm(3, 3);
    nvm.add(8, [](int, size_t) { return 1; });
    nvm.data.lsc_table_count = 0;
    Tables out = compute(2, 2, nvm, 0); // smaller than the grid: no upscaler runs
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(out->num_tables, 0);
    EXPECT_NE(out->tables, nullptr);
}

TEST(LscBicubic, RefusedInputsGiveNull)
{
    FakeNvm nvm(3, 3);
    nvm.add(8, [](int, size_t) { return 1; });
    EXPECT_EQ(compute_upscaled_lsc_tables_bicubic(4, 4, nullptr, 0), nullptr);
    EXPECT_EQ(compute(0, 4, nvm, 0), nullptr);
    EXPECT_EQ(compute(4, 0, nvm, 0), nullptr);
    EXPECT_EQ(compute(4, 4, nvm, 4), nullptr);          // no placement for flip 4
    EXPECT_EQ(compute(2, 4, nvm, 0), nullptr);          // narrower than the grid
    EXPECT_EQ(compute(4, 2, nvm, 0), nullptr);          // lower than the grid
    FakeNvm empty_grid(0, 3);
    empty_grid.add(8, [](int, size_t) { return 1; });
    EXPECT_EQ(compute(4, 4, empty_grid, 0), nullptr);
    FakeNvm empty_rows(3, 0);
    empty_rows.add(8, [](int, size_t) { return 1; });
    EXPECT_EQ(compute(4, 4, empty_rows, 0), nullptr);
    FakeNvm missing = nvm;
    missing.data.lsc_tables = nullptr;
    EXPECT_EQ(compute(4, 4, missing, 0), nullptr);
    // A null channel table in a later table discards the earlier ones.
    FakeNvm holes(3, 3);
    holes.add(8, [](int, size_t) { return 1; });
    holes.add(8, [](int, size_t) { return 1; });
    holes.tables[1].channel_tables[2] = nullptr;
    EXPECT_EQ(compute(4, 4, holes, 0), nullptr);
}

TEST(LscBicubic, EveryAllocationFailureReleasesEverything)
{
    FakeNvm nvm(3, 3);
    nvm.add(12, [](int c, size_t k) { return 4096 + c * 10 + static_cast<int>(k); });
    nvm.add(6, [](int c, size_t k) { return c + static_cast<int>(k); });
    uint64_t allocations;
    {
        FailureInjection none(0);
        ASSERT_NE(compute(5, 4, nvm, 2), nullptr);
        allocations = cmc_alloc_count();
    }
    // Working planes, result, array, then per table a block and the kernel's two.
    ASSERT_EQ(allocations, 3u + 2u * 3u);
    for (uint64_t k = 1; k <= allocations; ++k) {
        FailureInjection fail(k);
        EXPECT_EQ(compute(5, 4, nvm, 2), nullptr) << k;
    }
}

TEST(LscBicubic, ReleaseAcceptsNullAndPartialSets)
{
    deinit_computed_upscale_lsc_tables(nullptr);
    auto *partial = static_cast<computed_lsc_tables *>(cmc_calloc(1, sizeof(computed_lsc_tables)));
    ASSERT_NE(partial, nullptr);
    partial->num_tables = 3; // array never allocated
    deinit_computed_upscale_lsc_tables(partial);
    partial = static_cast<computed_lsc_tables *>(cmc_calloc(1, sizeof(computed_lsc_tables)));
    ASSERT_NE(partial, nullptr);
    partial->tables = static_cast<float **>(cmc_calloc(3, sizeof(float *)));
    partial->num_tables = 3;
    partial->tables[0] = static_cast<float *>(cmc_malloc(16));
    deinit_computed_upscale_lsc_tables(partial); // entries 1 and 2 still null
}
