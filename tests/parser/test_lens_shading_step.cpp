// The lens-shading step after the walk: when it leaves the grids as decoded,
// and one realistic module per colour-filter family checked against the
// tables of the exported driver mapped onto the pattern by the test itself.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "../lsc/cfa_pattern_table.h"
#include "ej_cmc_lsc.h"
#include "ej_nvm.h"
#include "kelb_builder.h"
#include "nvm_writer.h"
#include "record_samples.h"
#include "sample_module.h"

using namespace ejtest;

namespace {

// A tuning grid of 64 x 48 with 4 sets, every position of the 4 x 4 pattern
// holding a grid; the NVM blob of the sample module (17 x 13, 4 tables).
constexpr uint16_t kW = 64, kH = 48, kSets = 4;

std::vector<int8_t> all_positions()
{
    std::vector<int8_t> map;
    for (int8_t i = 0; i < 16; ++i)
        map.push_back(i);
    return map;
}

Bytes grids28()
{
    std::vector<Bytes> headers;
    for (uint32_t k = 0; k < kSets; ++k)
        headers.push_back(header28(500 + k, 1.0f + float(k), 4));
    return make_record(28, 100, pattern_payload(all_positions(), kSets, kW, kH, headers));
}

Bytes ratios33()
{
    std::vector<Bytes> headers;
    for (uint16_t k = 0; k < kSets; ++k)
        headers.push_back(header33(uint16_t(2800 + k), uint16_t(3 - k), 0.5f * float(k), 6));
    return make_record(33, 100, pattern_payload(all_positions(), kSets, kW, kH, headers));
}

Bytes rec2(uint16_t cfa) { return make_record(2, 100, ByteWriter().zeros(6).u16(cfa).take()); }

// Id 17: channel order at 10, flip mode at 12, the extension's u16 at 14.
Bytes rec17(uint16_t order, uint16_t flip, uint16_t ext, uint8_t version = 101)
{
    return make_record(17, version, ByteWriter().zeros(2).u16(order).u16(flip).u16(ext).take());
}

struct Module {
    uint16_t cfa = 1, order = 2, flip = 1, ext = 2;
    bool with2 = true, with17 = true, with33 = true;
    uint8_t version17 = 101;
    std::vector<Bytes> records() const
    {
        std::vector<Bytes> r;
        if (with2)
            r.push_back(rec2(cfa));
        if (with17)
            r.push_back(rec17(order, flip, ext, version17));
        r.push_back(grids28());
        if (with33)
            r.push_back(ratios33());
        return r;
    }
};

bool same_grids(const cmc_lens_shading4x4 *a, const cmc_lens_shading4x4 *b)
{
    if (a == nullptr || b == nullptr || a->num_sets != b->num_sets)
        return false;
    const size_t n = size_t(a->grid_width) * a->grid_height;
    for (uint32_t s = 0; s < a->num_sets; ++s) {
        if (a->sets[s].set_id != b->sets[s].set_id)
            return false;
        for (int pos = 0; pos < 16; ++pos)
            if (std::memcmp(a->sets[s].grids[pos], b->sets[s].grids[pos], n * 2) != 0)
                return false;
    }
    return true;
}

TEST(LensShadingStep, LeavesTheGridsAsDecodedWhenItCannotRun)
{
    ejnvm::NvmBlob flat; // a lens-shading grid with a zero extent
    flat.lsc.emplace();
    flat.lsc->width = 0;
    flat.lsc->height = 13;
    flat.lsc->tables.resize(4);
    {
        // The NVM library accepts it: the step runs and the driver refuses.
        Bytes bytes = ejnvm::write_nvm(flat);
        const ej_data_block block{bytes.data(), uint32_t(bytes.size())};
        ej_nvm_data *handle = nullptr;
        ASSERT_EQ(ej_nvm_parse(&block, &handle), EJ_NVM_OK);
        EXPECT_EQ(compute_upscaled_lsc_tables_polynom4th(kW, kH, handle, 1, 1), nullptr);
        ej_nvm_deinit(handle);
    }
    struct Case {
        const char *what;
        Module module;
        Bytes nvm;
    };
    Module no33, no2, no17, old17, plain;
    no33.with33 = false;
    no2.with2 = false;
    no17.with17 = false;
    old17.version17 = 100; // no extension
    const Case cases[] = {
        {"no ratio grids", no33, sample_nvm()},
        {"no id-2 record", no2, sample_nvm()},
        {"no id-17 record", no17, sample_nvm()},
        {"id-17 record without extension", old17, sample_nvm()},
        {"NVM grid with a zero extent", plain, ejnvm::write_nvm(flat)},
    };
    for (const Case &c : cases) {
        auto with_nvm = parse(make_container(c.module.records()), c.nvm);
        auto without = parse(make_container(c.module.records()));
        ASSERT_NE(with_nvm->parsed, nullptr) << c.what;
        EXPECT_TRUE(same_grids(with_nvm->parsed->lens_shading4x4, without->parsed->lens_shading4x4))
            << c.what;
    }
}

struct TablesDeleter {
    void operator()(computed_lsc_tables *t) const { deinit_computed_upscale_lsc_tables(t); }
};
using Tables = std::unique_ptr<computed_lsc_tables, TablesDeleter>;

struct NvmDeleter {
    void operator()(ej_nvm_data *h) const { ej_nvm_deinit(h); }
};

// The module's tables on the tuning grid, through the exported driver.
Tables expected_tables(uint32_t flip, uint8_t exclude_border)
{
    Bytes nvm = sample_nvm();
    const ej_data_block block{nvm.data(), uint32_t(nvm.size())};
    ej_nvm_data *raw = nullptr;
    EXPECT_EQ(ej_nvm_parse(&block, &raw), EJ_NVM_OK);
    std::unique_ptr<ej_nvm_data, NvmDeleter> handle(raw);
    return Tables(compute_upscaled_lsc_tables_polynom4th(kW, kH, raw, flip, exclude_border));
}

class LensShadingStepModule : public ::testing::TestWithParam<uint32_t> {};

TEST_P(LensShadingStepModule, RewritesTheGridsFromTheRatiosAndTheModuleTables)
{
    Module m;
    m.cfa = uint16_t(GetParam());
    for (uint16_t ext : {uint16_t(2), uint16_t(0)}) {
        m.ext = ext;
        SCOPED_TRACE(::testing::Message() << "cfa " << m.cfa << " ext " << ext);
        auto run = parse(make_container(m.records()), sample_nvm());
        auto decoded = parse(make_container(m.records()));
        const cmc_lens_shading4x4 *ls = run->parsed->lens_shading4x4;
        const cmc_lens_shading4x4 *before = decoded->parsed->lens_shading4x4;
        const cmc_lens_shading_ratio *ratio = run->parsed->lens_shading_ratio;
        ASSERT_TRUE(ls != nullptr && before != nullptr && ratio != nullptr);
        Tables tables = expected_tables(m.flip, ext == 2 ? 1 : 0);
        ASSERT_NE(tables, nullptr);
        ASSERT_EQ(tables->num_tables, 4u);

        const size_t n = size_t(kW) * kH;
        const std::vector<int> q = pattern_q(m.cfa);
        bool changed = false;
        for (uint32_t s = 0; s < kSets; ++s) {
            EXPECT_EQ(ls->sets[s].set_id, ratio->sets[s].set_id);
            EXPECT_EQ(ls->sets[s].grid_bits, ratio->sets[s].grid_bits);
            const float *table = tables->tables[ratio->sets[s].nvm_table_index - 1];
            const float *p[4] = {table, table + n, table + 2 * n, table + 3 * n};
            const float *q0 = p[kChannelOrder[m.order][0]], *q3 = p[kChannelOrder[m.order][3]];
            for (int pos = 0; pos < 16; ++pos) {
                const uint16_t *got = ls->sets[s].grids[pos];
                if (q[pos] < 0) {
                    ASSERT_EQ(std::memcmp(got, before->sets[s].grids[pos], n * 2), 0) << pos;
                    continue;
                }
                const float *plane = p[kChannelOrder[m.order][q[pos]]];
                const bool averaged = m.cfa >= 256 && (q[pos] == 0 || q[pos] == 3);
                const uint16_t *a = ratio->sets[s].grids[pos];
                for (size_t k = 0; k < n; ++k) {
                    const float gain = averaged ? (q3[k] + q0[k]) * 0.5f : plane[k];
                    const uint16_t want = uint16_t(int32_t(float(a[k]) * gain));
                    ASSERT_EQ(got[k], want) << "set " << s << " pos " << pos << " k " << k;
                    changed |= want != before->sets[s].grids[pos][k];
                }
            }
        }
        EXPECT_TRUE(changed);
    }
}

INSTANTIATE_TEST_SUITE_P(LensShadingStep, LensShadingStepModule,
                         ::testing::Values(1u, 2u, 130u, 128u, 257u, 262u));

} // namespace
