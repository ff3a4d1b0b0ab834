// Ratio-based correction of the lens-shading grids: worked products, the
// channel-order and colour-filter pattern tables, the Q0/Q3 averaging and
// every refusal with what it leaves behind.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "cmc_records.h"
#include "cfa_pattern_table.h"
#include "ej_cmc_lsc.h"

using ejtest::kChannelOrder;
using ejtest::pattern_q;

namespace {

constexpr uint16_t kMarker = 0xabcd; // lens-shading samples before the call

// Hand-built structures: every position of every set has a grid of its own.
struct Grids {
    size_t n;
    std::vector<std::vector<uint16_t>> ls_grids, ratio_grids; // [set * 16 + pos]
    std::vector<cmc_lens_shading4x4_set> ls_sets;
    std::vector<cmc_lens_shading_ratio_set> ratio_sets;
    std::vector<std::vector<float>> tables; // 4 planes each
    std::vector<float *> table_ptrs;
    cmc_lens_shading4x4 ls{};
    cmc_lens_shading_ratio ratio{};
    computed_lsc_tables computed{};

    Grids(uint16_t w, uint16_t h, uint16_t sets, uint8_t num_tables, uint16_t ratio_sample = 1000)
        : n(size_t(w) * h), ls_grids(sets * 16u, std::vector<uint16_t>(n, kMarker)),
          ratio_grids(sets * 16u, std::vector<uint16_t>(n, ratio_sample)), ls_sets(sets),
          ratio_sets(sets), tables(num_tables)
    {
        for (uint32_t s = 0; s < sets; ++s) {
            ls_sets[s].set_id = 900 + s;
            ls_sets[s].grid_bits = 10;
            ratio_sets[s] = cmc_lens_shading_ratio_set{};
            ratio_sets[s].set_id = 100 + s;
            for (int p = 0; p < 4; ++p)
                ratio_sets[s].set_params[p] = float(s) + 0.25f * float(p);
            ratio_sets[s].grid_bits = 12;
            ratio_sets[s].nvm_table_index = uint16_t(1 + s % (num_tables ? num_tables : 1));
            for (int pos = 0; pos < 16; ++pos) {
                ls_sets[s].grids[pos] = ls_grids[s * 16 + pos].data();
                ratio_sets[s].grids[pos] = ratio_grids[s * 16 + pos].data();
            }
        }
        // Plane c of every table: a constant gain of 2^c (1, 2, 4, 8), so
        // that every plane and every Q0/Q3 average gives a distinct product.
        for (auto &t : tables) {
            t.resize(4 * n);
            for (size_t c = 0; c < 4; ++c)
                for (size_t k = 0; k < n; ++k)
                    t[c * n + k] = float(1u << c);
            table_ptrs.push_back(t.data());
        }
        ls.num_sets = ratio.num_sets = sets;
        ls.grid_width = ratio.grid_width = w;
        ls.grid_height = ratio.grid_height = h;
        ls.sets = ls_sets.data();
        ratio.sets = ratio_sets.data();
        computed.num_tables = num_tables;
        computed.tables = table_ptrs.empty() ? nullptr : table_ptrs.data();
    }
    uint32_t run(uint32_t cfa, uint32_t order)
    {
        return ratio_based_sample_to_sample_correction(&ls, &ratio, &computed, cfa, order);
    }
    uint16_t sample(uint32_t set, uint32_t pos, size_t k = 0) const
    {
        return ls_grids[set * 16 + pos][k];
    }
    bool untouched(uint32_t set) const
    {
        for (int pos = 0; pos < 16; ++pos)
            for (uint16_t v : ls_grids[set * 16 + pos])
                if (v != kMarker)
                    return false;
        return ls_sets[set].set_id == 900 + set && ls_sets[set].grid_bits == 10;
    }
};

std::vector<uint32_t> all_codes()
{
    std::vector<uint32_t> codes;
    for (uint32_t first : {0u, 128u, 256u})
        for (uint32_t k = 0; k < (first == 256 ? 8u : 4u); ++k)
            codes.push_back(first + k);
    return codes;
}

TEST(RatioCorrection, EveryPatternCodeAndChannelOrderFeedsTheTabledPlanes)
{
    for (uint32_t cfa : all_codes()) {
        for (uint32_t order = 0; order < 4; ++order) {
            SCOPED_TRACE(::testing::Message() << "cfa " << cfa << " order " << order);
            Grids s(3, 2, 2, 1);
            ASSERT_EQ(s.run(cfa, order), 0u);
            const std::vector<int> q = pattern_q(cfa);
            const bool averaged = cfa >= 256;
            const float g0 = float(1 << kChannelOrder[order][0]), g3 = float(1 << kChannelOrder[order][3]);
            for (uint32_t set = 0; set < 2; ++set) {
                for (int pos = 0; pos < 16; ++pos) {
                    uint16_t want = kMarker;
                    if (q[pos] >= 0) {
                        float gain = float(1 << kChannelOrder[order][q[pos]]);
                        if (averaged && (q[pos] == 0 || q[pos] == 3))
                            gain = (g0 + g3) * 0.5f;
                        want = uint16_t(1000 * gain);
                    }
                    for (size_t k = 0; k < s.n; ++k)
                        ASSERT_EQ(s.sample(set, pos, k), want) << "set " << set << " pos " << pos;
                }
            }
        }
    }
}

TEST(RatioCorrection, WorkedPositionMappings)
{
    // cfa 2 with order 2: P0 ... P3 at (0,0), (0,1), (1,0), (1,1); cfa 0 with
    // order 3: P3, P2, P1, P0. Plane c has gain 2^c.
    struct Case {
        uint32_t cfa, order;
        int planes[4];
    };
    for (const Case &c : {Case{2, 2, {0, 1, 2, 3}}, Case{0, 3, {3, 2, 1, 0}}}) {
        Grids s(2, 2, 1, 1);
        ASSERT_EQ(s.run(c.cfa, c.order), 0u);
        const int pos[4] = {0, 1, 4, 5};
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(s.sample(0, pos[i]), 1000u << c.planes[i]) << c.cfa << " " << i;
    }
}

TEST(RatioCorrection, ProductsAreTruncatedAndWrapToSixteenBits)
{
    const float inf = std::numeric_limits<float>::infinity();
    struct Case {
        uint16_t ratio;
        float gain;
        uint16_t want;
    };
    const Case cases[] = {
        {4096, 1.25f, 5120},
        {60000, 1.5f, 24464},        // 90000 - 65536
        {1, 1.9999f, 1},             // truncation, not rounding
        {1000, -1.5f, 64036},        // -1500 wraps as well
        {60000, 50000.0f, 24064},    // 3e9, past the 32-bit range: 3e9 mod 2^16
        {65535, 1e30f, 0},           // a multiple of 2^16 far beyond 2^63
        {1, inf, 0},
        {1, -inf, 0},
        {1, std::nanf(""), 0},
        {0, 3.0f, 0},
    };
    for (const Case &c : cases) {
        Grids s(1, 1, 1, 1, c.ratio);
        for (float &g : s.tables[0])
            g = c.gain;
        ASSERT_EQ(s.run(0, 0), 0u);
        EXPECT_EQ(s.sample(0, 0), c.want) << c.ratio << " x " << c.gain;
    }
}

TEST(RatioCorrection, CopiesTheSetHeaderAndAveragesQ0Q3OncePerTable)
{
    // Two sets on the same table: the second averaging leaves equal planes
    // as they are, so both sets see the same gains.
    Grids s(4, 3, 2, 1);
    s.ratio_sets[1].nvm_table_index = 1;
    for (size_t k = 0; k < s.n; ++k)
        s.tables[0][k] = 1.0f + float(k); // P0 varies per sample
    ASSERT_EQ(s.run(256, 3), 0u); // order 3: Q0 = P0, Q3 = P3 (gain 8)
    const std::vector<float> &t = s.tables[0];
    for (size_t k = 0; k < s.n; ++k) {
        EXPECT_EQ(t[k], t[3 * s.n + k]) << k;
        EXPECT_EQ(t[k], (8.0f + 1.0f + float(k)) * 0.5f) << k;
        EXPECT_EQ(t[s.n + k], 2.0f);
        EXPECT_EQ(t[2 * s.n + k], 4.0f);
    }
    for (uint32_t set = 0; set < 2; ++set) {
        EXPECT_EQ(s.ls_sets[set].set_id, 100 + set);
        EXPECT_EQ(s.ls_sets[set].grid_bits, 12);
        for (int p = 0; p < 4; ++p)
            EXPECT_EQ(s.ls_sets[set].set_params[p], float(set) + 0.25f * float(p));
        for (int pos : {5, 7, 13, 15}) // (1,1), (1,3), (3,1), (3,3)
            EXPECT_EQ(s.sample(set, pos), kMarker);
        EXPECT_EQ(s.sample(set, 4, 2), uint16_t(1000 * t[2])); // Q0 at (1,0)
    }
}

TEST(RatioCorrection, MissingGridsPlanesAndTablesAreSkipped)
{
    Grids s(2, 2, 2, 2);
    s.ls_sets[0].grids[0] = nullptr;    // no destination
    s.ratio_sets[0].grids[1] = nullptr; // no ratio grid
    s.table_ptrs[1] = nullptr;          // set 1 names a table that is missing
    ASSERT_EQ(s.run(3, 3), 0u);
    EXPECT_EQ(s.sample(0, 0), kMarker);
    EXPECT_EQ(s.sample(0, 1), kMarker);
    EXPECT_EQ(s.sample(0, 4), 4000u); // cfa 3, order 3: (1,0) holds P2
    EXPECT_EQ(s.ls_sets[1].set_id, 101u); // the header is copied all the same
    for (int pos : {0, 1, 4, 5})
        EXPECT_EQ(s.sample(1, pos), kMarker);
}

TEST(RatioCorrection, RefusalsAndWhatTheyLeave)
{
    {
        Grids s(2, 2, 1, 1);
        EXPECT_EQ(ratio_based_sample_to_sample_correction(nullptr, &s.ratio, &s.computed, 0, 0), 32u);
        EXPECT_EQ(ratio_based_sample_to_sample_correction(&s.ls, nullptr, &s.computed, 0, 0), 32u);
        EXPECT_EQ(ratio_based_sample_to_sample_correction(&s.ls, &s.ratio, nullptr, 0, 0), 32u);
        EXPECT_TRUE(s.untouched(0));
    }
    struct Case {
        const char *what;
        uint32_t cfa, order;
        void (*edit)(Grids &);
    };
    const Case nothing_changed[] = {
        {"pattern 4", 4, 0, nullptr},
        {"pattern 132", 132, 0, nullptr},
        {"pattern 127", 127, 0, nullptr},
        {"pattern 264", 264, 0, nullptr},
        {"pattern 255", 255, 0, nullptr},
        {"channel order 4", 0, 4, nullptr},
        {"set counts differ", 0, 0, [](Grids &s) { s.ratio.num_sets = 1; }},
        {"ratio grids too small", 0, 0, [](Grids &s) { s.ratio.grid_height = 1; }},
        {"no set array", 0, 0, [](Grids &s) { s.ratio.sets = nullptr; }},
        {"index 0 in the first set", 0, 0, [](Grids &s) { s.ratio_sets[0].nvm_table_index = 0; }},
    };
    for (const Case &c : nothing_changed) {
        Grids s(3, 2, 2, 2);
        if (c.edit != nullptr)
            c.edit(s);
        EXPECT_EQ(s.run(c.cfa, c.order), 8u) << c.what;
        EXPECT_TRUE(s.untouched(0) && s.untouched(1)) << c.what;
    }
    // A bad index in the middle: the sets before it stay corrected.
    for (uint16_t bad : {uint16_t(0), uint16_t(3), uint16_t(65535)}) {
        Grids s(3, 2, 3, 2);
        s.ratio_sets[1].nvm_table_index = bad;
        EXPECT_EQ(s.run(1, 1), 8u);
        EXPECT_FALSE(s.untouched(0));
        EXPECT_TRUE(s.untouched(1) && s.untouched(2)) << bad;
    }
}

TEST(RatioCorrection, NoSetsReturnsZeroWithoutReadingTables)
{
    cmc_lens_shading4x4 ls{};
    cmc_lens_shading_ratio ratio{};
    computed_lsc_tables computed{}; // no tables at all
    EXPECT_EQ(ratio_based_sample_to_sample_correction(&ls, &ratio, &computed, 999, 99), 0u);
}

} // namespace
