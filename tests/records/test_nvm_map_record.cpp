// The map record (id 30): the record's own table by version, the map
// computed from the NVM map calibration (interior mean, band, blend, flips),
// every truncation length and allocation failure, and the release paths.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <cstring>
#include <vector>

#include "diag_recorder.h"
#include "ej_nvm.h"
#include "failure_injection.h"
#include "kelb_builder.h"
#include "nvm_writer.h"

using namespace ejtest;

namespace {

struct MapRecord {
    uint8_t version = 101;
    uint16_t items = 2;
    uint16_t w = 3, h = 3;
    uint16_t aux_w = 2, aux_h = 1;
    float blend = 0.25f;       // written from version 102 on
    std::vector<int32_t> table; // w * h values (u16 below version 101)

    uint32_t table_end() const
    {
        return 30 + 6u * items + (version >= 102 ? 4 : 0) + (version >= 101 ? 4u : 2u) * w * h;
    }
    // The table is checked at 4 bytes a value for every version.
    uint32_t full() const
    {
        const uint32_t checked = 30 + 6u * items + (version >= 102 ? 4 : 0) + 4u * w * h;
        return (std::max(checked, table_end() + 4u * aux_w * aux_h) + 7) & ~7u;
    }
    Bytes payload() const
    {
        ByteWriter b;
        b.fill(8, 0x11).u16(items).fill(4, 0x22).u16(w).u16(h).u16(aux_w).u16(aux_h);
        for (uint32_t i = 0; i < 6u * items; ++i)
            b.u8(uint8_t(0x40 + i));
        if (version >= 102)
            b.f32(blend);
        for (uint32_t i = 0; i < uint32_t(w) * h; ++i) {
            const int32_t v = i < table.size() ? table[i] : int32_t(1000 + i);
            if (version >= 101)
                b.i32(v);
            else
                b.u16(uint16_t(v));
        }
        for (uint32_t i = 0; i < 4u * aux_w * aux_h; ++i)
            b.u8(uint8_t(0xa0 + i));
        return b.take();
    }
    Bytes at(uint32_t len) const { return make_record_sized(30, version, payload(), len); }
    Bytes record() const { return at(full()); }
};

// An NVM result built by hand, with a map calibration only.
struct FakeNvm {
    ej_nvm_data data{};
    nvm_map_calibration cal{};
    std::vector<int32_t> values;

    FakeNvm(uint8_t w, uint8_t h, std::vector<int32_t> v, uint8_t shift = 0) : values(std::move(v))
    {
        cal.cal_map_width = w;
        cal.cal_map_height = h;
        cal.cal_map_shift = shift;
        cal.cal_map_values = values.empty() ? nullptr : values.data();
        data.map_calibration_present = 1;
        data.map_calibration = &cal;
    }
};

uint32_t decode30(cmc_parsed_data *parsed, const Bytes &record, const ej_nvm_data *nvm)
{
    uint8_t *copy = heap_copy(record);
    const uint32_t status = cmc_parse(copy, parsed, nvm);
    if (status != 0)
        std::free(copy);
    return status;
}

uint16_t head_u16(const cmc_nvm_map_table *t, int offset) { return get_u16(t->head + offset); }

std::vector<int32_t> map_of(const cmc_nvm_map_table *t)
{
    const size_t n = size_t(head_u16(t, CMC_NVM_MAP_HEAD_TABLE_WIDTH)) *
                     head_u16(t, CMC_NVM_MAP_HEAD_TABLE_HEIGHT);
    return std::vector<int32_t>(t->map, t->map + n);
}

// The blended map written out independently, output placed by flip mode.
std::vector<int32_t> reference_map(int w, int h, const std::vector<int32_t> &v, int shift,
                                   float f, int32_t centre, int flip)
{
    int64_t sum = 0;
    for (int r = 2; r <= h - 3; ++r)
        for (int c = 3; c <= w - 4; ++c)
            sum += v[r * w + c];
    const float mean = float(int32_t(sum)) / float((w - 6) * (h - 4));
    const float band_a = std::trunc(0.5f * mean), band_b = std::trunc(1.5f * mean);
    const float lo = std::min(band_a, band_b), hi = std::max(band_a, band_b);
    const float inv = 1.0f / float(1u << shift);
    const float d = (flip == 1 || flip == 3) ? -1.0f : 1.0f;
    const float base = (1.0f - f) * float(centre);
    std::vector<int32_t> out(size_t(w) * h);
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c) {
            int32_t s = 0, count = 0;
            for (int y = std::max(0, r - 3); y <= std::min(h - 1, r + 3); ++y)
                for (int x = std::max(0, c - 3); x <= std::min(w - 1, c + 3); ++x)
                    if (float(v[y * w + x]) > lo && float(v[y * w + x]) < hi) {
                        s += v[y * w + x];
                        ++count;
                    }
            const float x = count ? float(s) * f * inv * d / float(count) + base
                                  : (mean * f * inv) * d + base;
            const int rr = (flip & 2) ? h - 1 - r : r, cc = (flip & 1) ? w - 1 - c : c;
            out[size_t(rr) * w + cc] = int32_t(std::trunc(x + 0.5f));
        }
    return out;
}

TEST(NvmMapRecord, ShortRecordsAndNoItemsKeepTheHeadOnly)
{
    MapRecord m;
    const Bytes full = m.record();
    std::vector<Bytes> cases;
    for (uint32_t len = 8; len <= 31; ++len)
        cases.push_back(m.at(len));
    MapRecord none = m;
    none.items = 0;
    cases.push_back(none.record());
    for (const Bytes &rec : cases) {
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        ASSERT_EQ(decode30(parsed.get(), rec, nullptr), 0u);
        EXPECT_TRUE(diag.saw(rec.size() < 32 ? CMC_DIAG_TOO_SHORT : CMC_DIAG_BAD_COUNT));
        const cmc_nvm_map_table *t = parsed->nvm_map_table;
        ASSERT_NE(t, nullptr);
        const size_t kept = std::min<size_t>(rec.size(), 30);
        EXPECT_EQ(std::memcmp(t->head, rec.data(), kept), 0) << rec.size();
        for (size_t i = kept; i < 30; ++i)
            EXPECT_EQ(t->head[i], 0u) << rec.size();
        EXPECT_EQ(t->items, nullptr);
        EXPECT_EQ(t->map, nullptr);
        EXPECT_EQ(t->aux, nullptr);
    }
}

TEST(NvmMapRecord, RecordTableByVersionWithoutCalibrationValues)
{
    for (uint8_t version : {100, 101, 102}) {
        MapRecord m;
        m.version = version;
        m.table = {-1, 2, 65535, 4, 70000, 6, 7, 8, 9};
        const std::vector<int32_t> want =
            version >= 101 ? m.table : std::vector<int32_t>{65535, 2, 65535, 4, 70000 - 65536, 6, 7, 8, 9};
        // Without NVM data, with NVM data not flagged present, and with a
        // calibration of the same size but no values.
        FakeNvm absent(3, 3, {});
        absent.data.map_calibration_present = 0;
        FakeNvm no_values(3, 3, {});
        for (ej_nvm_data *nvm : {static_cast<ej_nvm_data *>(nullptr), &absent.data, &no_values.data}) {
            Parsed parsed = empty_parsed();
            ASSERT_EQ(decode30(parsed.get(), m.record(), nvm), 0u);
            const cmc_nvm_map_table *t = parsed->nvm_map_table;
            ASSERT_NE(t->aux, nullptr);
            EXPECT_EQ(map_of(t), want) << int(version);
            const Bytes rec = m.record();
            EXPECT_EQ(std::memcmp(t->head, rec.data(), 30), 0);
            EXPECT_EQ(std::memcmp(t->items, rec.data() + 30, 12), 0);
            EXPECT_EQ(std::memcmp(t->aux, rec.data() + m.table_end(), 8), 0);
        }
    }
}

TEST(NvmMapRecord, CalibrationWithoutValuesTakesWhatFitsAtItsOwnSize)
{
    MapRecord m; // 3 x 3 values 1000 ... 1008
    struct Case {
        uint8_t w, h;
        std::vector<int32_t> want;
    };
    const Case cases[] = {{2, 2, {1000, 1001, 1002, 1003}},
                          {4, 3, {1000, 1001, 1002, 1003, 1004, 1005, 1006, 1007, 1008, 0, 0, 0}},
                          {0, 5, {}}};
    for (const Case &c : cases) {
        FakeNvm nvm(c.w, c.h, {});
        Parsed parsed = empty_parsed();
        ASSERT_EQ(decode30(parsed.get(), m.record(), &nvm.data), 0u);
        const cmc_nvm_map_table *t = parsed->nvm_map_table;
        EXPECT_EQ(head_u16(t, CMC_NVM_MAP_HEAD_TABLE_WIDTH), c.w);
        EXPECT_EQ(head_u16(t, CMC_NVM_MAP_HEAD_TABLE_HEIGHT), c.h);
        EXPECT_EQ(map_of(t), c.want);
        EXPECT_NE(t->aux, nullptr);
    }
}

TEST(NvmMapRecord, SevenByFiveCalibrationHasTheSingleInteriorValueAsMean)
{
    // V[2][3] = 2000 is the interior: band (1000, 3000); every other value
    // (5000) lies outside it and every 7 x 7 neighbourhood holds V[2][3].
    std::vector<int32_t> v(35, 5000);
    v[2 * 7 + 3] = 2000;
    FakeNvm nvm(7, 5, v);
    MapRecord m;
    m.table = {0, 0, 0, 0, 1000, 0, 0, 0, 0}; // centre (1, 1) = 1000
    for (int flip : {0, 1}) {
        Parsed parsed = empty_parsed();
        if (flip != 0) {
            ASSERT_EQ(decode(parsed.get(), make_record(17, 101, ByteWriter().zeros(4).u16(1).u16(2).take())), 0u);
        }
        ASSERT_EQ(decode30(parsed.get(), m.record(), &nvm.data), 0u);
        const cmc_nvm_map_table *t = parsed->nvm_map_table;
        EXPECT_EQ(head_u16(t, CMC_NVM_MAP_HEAD_TABLE_WIDTH), 7u);
        EXPECT_EQ(head_u16(t, CMC_NVM_MAP_HEAD_TABLE_HEIGHT), 5u);
        // 2000 x 0.6 + 0.4 x 1000 = 1600; mirrored: -1200 + 400 -> -799.
        EXPECT_EQ(map_of(t), std::vector<int32_t>(35, flip ? -799 : 1600)) << flip;
        EXPECT_NE(t->aux, nullptr);
    }
}

TEST(NvmMapRecord, BandAndBlendAgreeWithTheReferenceForEveryFlipMode)
{
    // 13 x 9 map around 2000 with in-band variation, outliers on both sides
    // and a corner whose neighbourhood holds nothing inside the band.
    const int w = 13, h = 9;
    std::vector<int32_t> v(size_t(w) * h);
    for (int i = 0; i < w * h; ++i)
        v[size_t(i)] = 1700 + (i * 37) % 600;
    v[0 * w + 12] = 90000; // outside the interior, so the mean stays near 2400
    v[8 * w + 5] = -4000;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            v[size_t(r) * w + c] = r == 0 ? 50 : 9000;
    const int32_t centre = -1234;
    for (uint8_t version : {101, 102}) {
        for (int flip = 0; flip <= 4; ++flip) { // 4: not a flip mode, not mirrored
            SCOPED_TRACE(::testing::Message() << "version " << int(version) << " flip " << flip);
            FakeNvm nvm(w, h, v, 2);
            MapRecord m;
            m.version = version;
            m.w = 4;
            m.h = 2;
            m.blend = 0.3f;
            m.table = {1, 2, 3, 4, 5, 6, centre, 8}; // centre (1, 2)
            Parsed parsed = empty_parsed();
            ASSERT_EQ(decode(parsed.get(), make_record(17, 101, ByteWriter().zeros(4).u16(uint16_t(flip)).u16(2).take())), 0u);
            ASSERT_EQ(decode30(parsed.get(), m.record(), &nvm.data), 0u);
            const float f = version >= 102 ? 0.3f : 0.6f;
            const std::vector<int32_t> want = reference_map(w, h, v, 2, f, centre, flip < 4 ? flip : 0);
            EXPECT_EQ(map_of(parsed->nvm_map_table), want);
        }
    }
    // The corner: nothing in the band, so the interior mean stands in.
    FakeNvm nvm(w, h, v, 2);
    MapRecord m;
    m.w = 4;
    m.h = 2;
    m.table = {1, 2, 3, 4, 5, 6, centre, 8};
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode30(parsed.get(), m.record(), &nvm.data), 0u);
    int64_t sum = 0;
    for (int r = 2; r <= h - 3; ++r)
        for (int c = 3; c <= w - 4; ++c)
            sum += v[size_t(r) * w + c];
    const float mean = float(sum) / 35.0f;
    EXPECT_EQ(parsed->nvm_map_table->map[0],
              int32_t(std::trunc(mean * 0.6f * 0.25f + (1.0f - 0.6f) * float(centre) + 0.5f)));
}

TEST(NvmMapRecord, ZeroCentreNoInteriorEmptyTableAndOldVersionsGiveAZeroMap)
{
    struct Case {
        const char *what;
        uint8_t version;
        uint8_t w, h;
        uint16_t table_w, table_h;
        int32_t centre;
    };
    const Case cases[] = {
        {"centre 0", 101, 9, 7, 3, 3, 0},
        {"no interior (W = 6)", 101, 6, 9, 3, 3, 500},
        {"no interior (H = 4)", 102, 9, 4, 3, 3, 500},
        {"empty record table", 101, 9, 7, 0, 3, 500},
        {"version 100", 100, 9, 7, 3, 3, 500},
    };
    for (const Case &c : cases) {
        FakeNvm nvm(c.w, c.h, std::vector<int32_t>(size_t(c.w) * c.h, 777));
        MapRecord m;
        m.version = c.version;
        m.w = c.table_w;
        m.h = c.table_h;
        m.table = std::vector<int32_t>(9, c.centre);
        Parsed parsed = empty_parsed();
        ASSERT_EQ(decode30(parsed.get(), m.record(), &nvm.data), 0u);
        const cmc_nvm_map_table *t = parsed->nvm_map_table;
        EXPECT_EQ(head_u16(t, CMC_NVM_MAP_HEAD_TABLE_WIDTH), c.w) << c.what;
        EXPECT_EQ(head_u16(t, CMC_NVM_MAP_HEAD_TABLE_HEIGHT), c.h) << c.what;
        EXPECT_EQ(map_of(t), std::vector<int32_t>(size_t(c.w) * c.h, 0)) << c.what;
        EXPECT_NE(t->aux, nullptr) << c.what;
    }
}

TEST(NvmMapRecord, EveryTruncationLengthStopsAtTheRightField)
{
    // Thresholds: items at 30 + 6k, the table at 4 bytes a value for every
    // version (plus the blend factor from 102 on), aux after the table.
    FakeNvm with_values(7, 5, std::vector<int32_t>(35, 2000));
    FakeNvm without_values(2, 2, {});
    for (uint8_t version : {100, 101, 102}) {
        MapRecord m;
        m.version = version;
        m.aux_w = 3;
        m.aux_h = 2;
        const uint32_t factor = version >= 102 ? 4 : 0;
        const uint32_t items_need = (30 + 12 + 7) & ~7u;
        const uint32_t map_need = (30 + 12 + factor + 36 + 7) & ~7u;
        const uint32_t aux_need = (m.table_end() + 24 + 7) & ~7u;
        for (ej_nvm_data *nvm : {static_cast<ej_nvm_data *>(nullptr), &with_values.data, &without_values.data}) {
            for (uint32_t len = 8; len <= m.full() + 8; ++len) {
                Parsed parsed = empty_parsed();
                ASSERT_EQ(decode30(parsed.get(), m.at(len), nvm), 0u);
                const cmc_nvm_map_table *t = parsed->nvm_map_table;
                ASSERT_NE(t, nullptr);
                EXPECT_EQ(t->items != nullptr, len >= items_need) << int(version) << " " << len;
                EXPECT_EQ(t->map != nullptr, len >= map_need) << int(version) << " " << len;
                EXPECT_EQ(t->aux != nullptr, len >= std::max(map_need, aux_need)) << int(version) << " " << len;
            }
        }
    }
}

TEST(NvmMapRecord, AllocationFailuresKeepWhatWasFilled)
{
    FakeNvm nvm(7, 5, std::vector<int32_t>(35, 2000));
    MapRecord m;
    for (ej_nvm_data *handle : {static_cast<ej_nvm_data *>(nullptr), &nvm.data}) {
        for (uint64_t k = 1; k <= 5; ++k) {
            Parsed parsed = empty_parsed();
            {
                FailureInjection fail(k); // 1 structure, 2 items, 3 map, 4 aux
                ASSERT_EQ(decode30(parsed.get(), m.record(), handle), 0u);
            }
            const cmc_nvm_map_table *t = parsed->nvm_map_table;
            if (k == 1) {
                EXPECT_EQ(t, nullptr);
                continue;
            }
            ASSERT_NE(t, nullptr);
            EXPECT_EQ(t->items != nullptr, k > 2) << k;
            EXPECT_EQ(t->map != nullptr, k > 3) << k;
            EXPECT_EQ(t->aux != nullptr, k > 4) << k;
            // The calibration's size reaches head only once map exists.
            const bool resized = handle != nullptr && k > 3;
            EXPECT_EQ(head_u16(t, CMC_NVM_MAP_HEAD_TABLE_WIDTH), resized ? 7u : 3u) << k;
            EXPECT_EQ(head_u16(t, CMC_NVM_MAP_HEAD_TABLE_HEIGHT), resized ? 5u : 3u) << k;
        }
    }
}

TEST(NvmMapRecord, ALaterRecordReplacesTheStructureAndTheParseReadsTheNvmBlob)
{
    ejnvm::NvmBlob blob;
    blob.map = ejnvm::MapSection{7, 5, 0, true, std::vector<int32_t>(35, 2000)};
    MapRecord first, second;
    first.table = {0, 0, 0, 0, 5, 0, 0, 0, 0};
    second.table = {0, 0, 0, 0, 1000, 0, 0, 0, 0};
    auto run = parse(make_container({first.record(), second.record()}), ejnvm::write_nvm(blob));
    ASSERT_NE(run->parsed, nullptr);
    const cmc_nvm_map_table *t = run->parsed->nvm_map_table;
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(map_of(t), std::vector<int32_t>(35, 1600));
    // Without NVM data the record's own table is kept.
    auto plain = parse(make_container({second.record()}));
    EXPECT_EQ(map_of(plain->parsed->nvm_map_table), second.table);
}

} // namespace
