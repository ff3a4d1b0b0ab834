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
    std::vector<std::vector<uint16_t>> samples; // per channel table, stored as its width says

    FakeNvm(int w, int h)
    {
        data.lsc_grid_width = static_cast<uint8_t>(w);
        data.lsc_grid_height = static_cast<uint8_t>(h);
        samples.reserve(64);
    }
    // Adds a table whose channel c holds sample(c, k) at index k.
    template <typename F>
    FakeNvm &add(uint8_t frac_bits, F sample)
    {
        nvm_lsc_table t{};
        t.frac_bits = frac_bits;
        const size_t n = static_cast<size_t>(data.lsc_grid_width) * data.lsc_grid_height;
        for (int c = 0; c < 4; ++c) {
            samples.emplace_back(n);
            auto *narrow = reinterpret_cast<uint8_t *>(samples.back().data());
            for (size_t k = 0; k < n; ++k) {
                if (frac_bits > 8)
                    samples.back()[k] = static_cast<uint16_t>(sample(c, k));
                else
                    narrow[k] = static_cast<uint8_t>(sample(c, k));
            }
            t.channel_tables[c] = samples.back().data();
        }
        tables.push_back(t);
        data.lsc_tables = tables.data();
        data.lsc_table_count = static_cast<uint8_t>(tables.size());
        return *this;
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

int ones(int, size_t)
{
    return 1;
}

} // namespace

TEST(LscBicubic, PlanesAreTheInterpolatedSamplesConvertedAndFlipped)
{
    // Each plane is the bicubic interpolation of the raw samples (the test's
    // own reference of it), then v / 2^frac_bits + 1, placed with bit 0 of the
    // flip reversing each row and bit 1 the order of the rows. An equal grid
    // keeps the samples; tables of frac_bits up to 8 hold 8-bit samples.
    std::mt19937 rng(8);
    const struct {
        int gw, gh, dw, dh;
    } grids[] = {{3, 2, 3, 2}, {5, 4, 17, 11}};
    for (const auto &g : grids) {
        FakeNvm nvm(g.gw, g.gh);
        nvm.add(10, [&](int, size_t) { return 700 + static_cast<int>(rng() % 600); });
        const auto u8 = [&](int, size_t) { return static_cast<int>(rng() % 256); };
        nvm.add(7, u8).add(4, u8).add(8, u8);
        for (uint32_t flip = 0; flip <= 3; ++flip) {
            SCOPED_TRACE(testing::Message() << g.gw << "x" << g.gh << " flip " << flip);
            Tables out = compute(g.dw, g.dh, nvm, flip);
            ASSERT_NE(out, nullptr);
            ASSERT_EQ(out->num_tables, 4);
            for (int t = 0; t < 4; ++t) {
                const float d = std::ldexp(1.0f, nvm.tables[t].frac_bits);
                for (int c = 0; c < 4; ++c) {
                    std::vector<float> raw(static_cast<size_t>(g.gw) * g.gh);
                    std::vector<float> plane(static_cast<size_t>(g.dw) * g.dh);
                    for (size_t k = 0; k < raw.size(); ++k)
                        raw[k] = static_cast<float>(nvm.sample(t, c, k));
                    bicubic_ref::upscale(raw, g.gw, g.gh, plane, g.dw, g.dh);
                    if (g.dw == g.gw && g.dh == g.gh) {
                        ASSERT_EQ(plane, raw);
                    }
                    for (int k = 0; k < g.dw * g.dh; ++k) {
                        const int row = flip & 2 ? g.dh - 1 - k / g.dw : k / g.dw;
                        const int col = flip & 1 ? g.dw - 1 - k % g.dw : k % g.dw;
                        const float got = out->tables[t][(c * g.dh + row) * g.dw + col];
                        ASSERT_EQ(got, plane[k] / d + 1.0f)
                            << "table " << t << " channel " << c << " sample " << k;
                    }
                }
            }
        }
    }
}

TEST(LscBicubic, NoTablesGivesAnEmptySet)
{
    FakeNvm nvm(3, 3);
    nvm.add(8, ones).data.lsc_table_count = 0;
    Tables out = compute(2, 2, nvm, 0); // smaller than the grid: no upscaler runs
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(out->num_tables, 0);
    EXPECT_NE(out->tables, nullptr);
}

TEST(LscBicubic, RefusedInputsGiveNull)
{
    FakeNvm nvm(3, 3);
    nvm.add(8, ones);
    EXPECT_EQ(compute_upscaled_lsc_tables_bicubic(4, 4, nullptr, 0), nullptr);
    EXPECT_EQ(compute(0, 4, nvm, 0), nullptr);
    EXPECT_EQ(compute(4, 0, nvm, 0), nullptr);
    EXPECT_EQ(compute(4, 4, nvm, 4), nullptr);          // no placement for flip 4
    EXPECT_EQ(compute(2, 4, nvm, 0), nullptr);          // narrower than the grid
    EXPECT_EQ(compute(4, 2, nvm, 0), nullptr);          // lower than the grid
    EXPECT_EQ(compute(4, 4, FakeNvm(0, 3).add(8, ones), 0), nullptr);
    EXPECT_EQ(compute(4, 4, FakeNvm(3, 0).add(8, ones), 0), nullptr);
    FakeNvm missing = nvm;
    missing.data.lsc_tables = nullptr;
    EXPECT_EQ(compute(4, 4, missing, 0), nullptr);
    // A null channel table in a later table discards the earlier ones.
    FakeNvm holes(3, 3);
    holes.add(8, ones).add(8, ones).tables[1].channel_tables[2] = nullptr;
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
