// Generic table records (ids 24, 25, 26, 27, 29): what each keeps or copies,
// id 24's statuses and cut entries, id 25's views, id 26's short form, id
// 27's planes (more than three, none, failed allocations) and trailer, id
// 29's size test.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "diag_recorder.h"
#include "ej_log.h"
#include "record_samples.h"
#include "slots.h"

using namespace ejtest;

namespace {

const SampleRecord &sample(const char *name)
{
    for (const SampleRecord &s : sample_structured_records()) {
        if (std::string(s.name) == name)
            return s;
    }
    throw std::runtime_error(name);
}

bool filled_with(const uint8_t *p, size_t n, uint8_t v)
{
    return std::all_of(p, p + n, [&](uint8_t b) { return b == v; });
}

TEST(ValueTable, HeadEntriesAndValues)
{
    // Without entries only the head is kept.
    Parsed empty = empty_parsed();
    const Bytes head_only = make_record(24, 100, ByteWriter().fill(6, 0x11).u16(0).take());
    ASSERT_EQ(decode(empty.get(), head_only), 0u);
    ASSERT_NE(empty->value_table, nullptr);
    EXPECT_EQ(std::memcmp(empty->value_table->head, head_only.data(), 16), 0);
    EXPECT_EQ(empty->value_table->entries, nullptr);

    const SampleRecord &s = sample("id24");
    Parsed parsed = empty_parsed();
    const Bytes record = sample_at(s, s.full);
    ASSERT_EQ(decode(parsed.get(), record), 0u);
    const cmc_value_table *t = parsed->value_table;
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(std::memcmp(t->entries[0].entry_head, record.data() + 16, 16), 0);
    EXPECT_EQ(std::memcmp(t->entries[1].entry_head, record.data() + 40, 16), 0);
    EXPECT_EQ(t->entries[0].values[1], 102u);
    EXPECT_EQ(t->entries[1].values[2], 203u);
}

TEST(ValueTable, StatusesAndCutEntriesByLength)
{
    // n = 2: the heads need 48 bytes, the first entry's values 56, all 68.
    const SampleRecord &s = sample("id24");
    for (uint32_t len = 8; len < s.full; ++len) {
        SCOPED_TRACE(::testing::Message() << "length " << len);
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        const Bytes record = sample_at(s, len);
        const uint32_t status = decode(parsed.get(), record);
        if (len < 56) {
            EXPECT_EQ(status, uint32_t(CMC_PARSE_BAD_DATA));
            EXPECT_EQ(parsed->value_table, nullptr);
            EXPECT_TRUE(diag.saw(CMC_DIAG_TOO_SHORT));
            continue;
        }
        ASSERT_EQ(status, 0u);
        const cmc_value_table *t = parsed->value_table;
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(t->entries[0].values[0], 101u);
        EXPECT_EQ(std::memcmp(t->entries[1].entry_head, record.data() + 40, 16), 0);
        EXPECT_EQ(t->entries[1].values, nullptr);
        EXPECT_TRUE(diag.saw(CMC_DIAG_PART_TOO_SHORT));
    }
}

TEST(ValueTable, EntriesAfterACutOneStayZero)
{
    // Three entries of 1, 1 and 1 values; the record ends inside the second's.
    const Bytes payload = ByteWriter().fill(6, 0).u16(3).fill(2, 0).u16(1).fill(12, 0).u32(5)
                              .fill(2, 0xab).u16(1).fill(12, 0xab).u32(6)
                              .fill(2, 0xcd).u16(1).fill(12, 0xcd).u32(7).take();
    Parsed parsed = empty_parsed();
    // The heads need 64 bytes, the first values 68, the second 72.
    ASSERT_EQ(decode(parsed.get(), make_record_sized(24, 100, payload, 68)), 0u);
    const cmc_value_table *t = parsed->value_table;
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->entries[0].values[0], 5u);
    EXPECT_EQ(t->entries[1].entry_head[0], 0xab);
    EXPECT_EQ(t->entries[1].values, nullptr);
    EXPECT_TRUE(filled_with(t->entries[2].entry_head, 16, 0));
    EXPECT_EQ(t->entries[2].values, nullptr);
}

TEST(ValueTable, AFailedRecordAlsoReleasesAnEarlierTable)
{
    const SampleRecord &s = sample("id24");
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), sample_at(s, s.full)), 0u);
    ASSERT_EQ(decode(parsed.get(), sample_at(s, 50)), uint32_t(CMC_PARSE_BAD_DATA));
    EXPECT_EQ(parsed->value_table, nullptr);
    ASSERT_EQ(decode(parsed.get(), sample_at(s, s.full)), 0u);
    {
        FailureInjection fail(2); // the entry array
        EXPECT_EQ(decode(parsed.get(), sample_at(s, s.full)), uint32_t(CMC_PARSE_NO_MEMORY));
    }
    EXPECT_EQ(parsed->value_table, nullptr);
}

TEST(BlockRecord, KeepsTheRecordWithViewsAndBlockCopies)
{
    const SampleRecord &s = sample("id25_v101");
    for (uint8_t version : {101, 100}) {
        // Heads are 24 bytes above version 100 and 20 bytes up to it.
        const uint32_t head = version > 100 ? 24 : 20;
        Parsed parsed = empty_parsed();
        const uint8_t *copy = nullptr;
        ASSERT_EQ(decode(parsed.get(), make_record(25, version, s.payload), &copy), 0u);
        EXPECT_EQ(parsed->block_record, copy);
        EXPECT_EQ(reinterpret_cast<const uint8_t *>(parsed->block_values), copy + 12);
        ASSERT_NE(parsed->block_entries, nullptr);
        for (uint32_t i = 0; i < 2; ++i) {
            const cmc_block_entry &e = parsed->block_entries[i];
            const uint32_t start = 16 + i * (head + 72);
            EXPECT_EQ(e.entry_start, copy + start);
            EXPECT_EQ(std::memcmp(e.block, copy + start + head, 36), 0);
            EXPECT_EQ(e.tail_blocks, copy + start + head + 36);
        }
        if (version > 100) {
            EXPECT_TRUE(filled_with(parsed->block_entries[1].block, 36, 0x51));
        }
    }
    // Without memory for the entries the record and its values view stay.
    Parsed parsed = empty_parsed();
    FailureInjection fail(1);
    ASSERT_EQ(decode(parsed.get(), sample_at(s, s.full)), 0u);
    EXPECT_EQ(filled_slots(parsed.get()), (std::vector<int>{46, 47}));
}

TEST(DualBlock, FullAndShortForms)
{
    const SampleRecord &s = sample("id26_v101");
    struct Case {
        uint8_t version;
        uint32_t len;
        bool full;
    };
    for (const Case &c : {Case{101, 64, true}, Case{101, 40, false}, Case{100, 64, false},
                          Case{102, 63, false}, Case{101, 16, false}}) {
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        ASSERT_EQ(decode(parsed.get(), make_record_sized(26, c.version, s.payload, c.len)), 0u);
        const cmc_dual_block *d = parsed->dual_block;
        ASSERT_NE(d, nullptr);
        EXPECT_EQ(d->header.id, 26);
        EXPECT_TRUE(filled_with(d->base_word, 8, 0x26));
        EXPECT_TRUE(filled_with(d->blocks[0].block_word, 8, c.full ? 0xb1 : 0x26));
        EXPECT_TRUE(filled_with(d->blocks[1].block_word, 8, c.full ? 0xb2 : 0x26));
        if (c.full) {
            EXPECT_EQ(d->blocks[0].factors[0], 0.5f);
            EXPECT_EQ(d->blocks[1].factors[3], 7.5f);
        } else {
            for (const cmc_factor_block &b : d->blocks) {
                for (float f : b.factors)
                    EXPECT_EQ(f, 1.0f);
            }
            EXPECT_EQ(diag.saw(CMC_DIAG_PART_TOO_SHORT), c.version > 100);
        }
    }
}

TEST(PlaneGridSet, ElementsGetHeadCopiesAndThreePlaneBuffers)
{
    const SampleRecord &s = sample("id27_v101");
    Parsed parsed = empty_parsed();
    const uint8_t *copy = nullptr;
    ASSERT_EQ(decode(parsed.get(), sample_at(s, s.full), &copy), 0u);
    const cmc_plane_grid_set *set = parsed->plane_grid_set;
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(set->record, copy);
    EXPECT_EQ(set->trailer, copy + 88);
    for (uint16_t e = 0; e < 2; ++e) {
        EXPECT_TRUE(filled_with(set->elements[e].element_head, 20, uint8_t(0x90 + e)));
        const std::vector<uint16_t> planes(set->elements[e].planes, set->elements[e].planes + 6);
        const std::vector<uint16_t> expected = {uint16_t(100 * e), uint16_t(100 * e + 1),
                                                uint16_t(100 * e + 2), uint16_t(100 * e + 3), 0, 0};
        EXPECT_EQ(planes, expected);
    }
}

TEST(PlaneGridSet, Version100HasNoTrailerAndNeedsExactlyItsElements)
{
    const SampleRecord &s = sample("id27_v101");
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), make_record_sized(27, 100, s.payload, 87)), 0u);
    EXPECT_EQ(parsed->plane_grid_set, nullptr);
    ASSERT_EQ(decode(parsed.get(), make_record_sized(27, 100, s.payload, 88)), 0u);
    ASSERT_NE(parsed->plane_grid_set, nullptr);
    EXPECT_EQ(parsed->plane_grid_set->trailer, nullptr);
    // Version 101 needs 88 + 32 rounded: 120.
    ASSERT_EQ(decode(parsed.get(), make_record_sized(27, 101, s.payload, 119)), 0u);
    EXPECT_EQ(parsed->plane_grid_set, nullptr);
}

TEST(PlaneGridSet, ElementLengthsWhoseTotalWrapsIn64BitsAreTooShort)
{
    // 65535 elements of 20 + 2 * 65281 * 34944 * 61696 bytes end at
    // 32 + 2^64 + 1245164: wrapped, the record would seem to hold them.
    for (uint8_t version : {100, 101}) {
        const uint32_t size = version == 100 ? 1245200 : 2293760;
        const Bytes payload =
            ByteWriter().fill(16, 0).u16(65535).u16(65281).u16(34944).u16(61696).take();
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        FailureInjection count(0);
        ASSERT_EQ(decode(parsed.get(), make_record_sized(27, version, payload, size)), 0u);
        EXPECT_EQ(parsed->plane_grid_set, nullptr);
        EXPECT_TRUE(diag.saw(CMC_DIAG_TOO_SHORT));
        EXPECT_EQ(cmc_alloc_count(), 0u);
    }
}

TEST(PlaneGridSet, MoreThanThreePlanesKeepTheFirstThree)
{
    // Two elements of four 1 x 1 planes: the second element starts 28 bytes on.
    ByteWriter w;
    w.fill(16, 0).u16(2).u16(4).u16(1).u16(1);
    for (uint16_t e = 0; e < 2; ++e) {
        w.fill(20, uint8_t(e + 1));
        for (uint16_t p = 0; p < 4; ++p)
            w.u16(uint16_t(10 * e + p));
    }
    Parsed parsed = empty_parsed();
    DiagRecorder diag;
    ASSERT_EQ(decode(parsed.get(), make_record(27, 100, w.take())), 0u);
    const cmc_plane_grid_set *set = parsed->plane_grid_set;
    ASSERT_NE(set, nullptr);
    EXPECT_TRUE(diag.saw(CMC_DIAG_BAD_COUNT));
    for (uint16_t e = 0; e < 2; ++e) {
        EXPECT_EQ(set->elements[e].element_head[0], e + 1);
        EXPECT_EQ(std::vector<uint16_t>(set->elements[e].planes, set->elements[e].planes + 3),
                  (std::vector<uint16_t>{uint16_t(10 * e), uint16_t(10 * e + 1), uint16_t(10 * e + 2)}));
    }
}

TEST(PlaneGridSet, PlanelessRecordsWithHugeExtentsAreKeptWithoutPlaneBuffers)
{
    // Buffers over three times the record are refused like failed
    // allocations: the record, the element array and the heads stay.
    for (uint16_t extent : {1000, 65535}) {
        const Bytes payload = ByteWriter().fill(16, 0).u16(1).u16(0).u16(extent).u16(extent)
                                  .fill(20, 3).take();
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        FailureInjection count(0);
        ASSERT_EQ(decode(parsed.get(), make_record(27, 100, payload)), 0u);
        const cmc_plane_grid_set *set = parsed->plane_grid_set;
        ASSERT_NE(set, nullptr);
        ASSERT_NE(set->elements, nullptr);
        EXPECT_EQ(set->elements[0].element_head[19], 3);
        EXPECT_EQ(set->elements[0].planes, nullptr);
        EXPECT_TRUE(diag.saw(CMC_DIAG_BAD_COUNT));
        EXPECT_EQ(cmc_alloc_count(), 3u); // structure, element array, head
    }
    // Small extents without planes give zero-filled buffers.
    const Bytes payload = ByteWriter().fill(16, 0).u16(1).u16(0).u16(2).u16(2).fill(20, 3).take();
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), make_record(27, 100, payload)), 0u);
    ASSERT_NE(parsed->plane_grid_set, nullptr);
    const uint16_t *planes = parsed->plane_grid_set->elements[0].planes;
    EXPECT_TRUE(std::all_of(planes, planes + 12, [](uint16_t v) { return v == 0; }));
}

std::vector<std::string> g_log_lines;
void capture(int, const char *line, void *) { g_log_lines.push_back(line); }

TEST(PlaneGridSet, AFailedElementAllocationLeavesANullPointerAndGoesOn)
{
    // Allocations: 1 structure, 2 elements, then head and planes per element.
    const SampleRecord &s = sample("id27_v101");
    for (uint64_t k = 3; k <= 6; ++k) {
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        g_log_lines.clear();
        ej_log_set_sink(capture, nullptr);
        {
            FailureInjection fail(k);
            ASSERT_EQ(decode(parsed.get(), sample_at(s, s.full)), 0u);
        }
        ej_log_set_sink(nullptr, nullptr);
        const cmc_plane_grid_set *set = parsed->plane_grid_set;
        ASSERT_NE(set, nullptr);
        const uint64_t element = (k - 3) / 2;
        const bool head_failed = (k - 3) % 2 == 0;
        EXPECT_EQ(set->elements[element].element_head == nullptr, head_failed) << k;
        EXPECT_EQ(set->elements[element].planes == nullptr, !head_failed) << k;
        EXPECT_NE(set->elements[1 - element].planes, nullptr);
        EXPECT_EQ(g_log_lines, std::vector<std::string>{"memcpy_s: nullptr received\n"});
        EXPECT_TRUE(diag.saw(CMC_DIAG_NO_MEMORY));
    }
}

TEST(FourPlaneGrid, PlanesShareOneBlock)
{
    const SampleRecord &s = sample("id29");
    Parsed parsed = empty_parsed();
    const Bytes record = sample_at(s, s.full);
    ASSERT_EQ(decode(parsed.get(), record), 0u);
    const cmc_four_plane_grid *g = parsed->four_plane_grid;
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(std::memcmp(g->head, record.data(), 20), 0);
    for (uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(g->planes[i], g->planes[0] + 2 * i);
        EXPECT_EQ(g->planes[i][1], 0x29000000u + 2 * i + 1);
    }
}

TEST(FourPlaneGrid, SizeTests)
{
    struct Case {
        uint16_t a, b;
        uint32_t len;
        bool kept;
    };
    // a = b = 1 still needs 56; 3 x 2 needs 20 + 96 rounded = 120; extents
    // of 16384 would need 2^32 + 24 bytes (24 if the product wrapped).
    const Case cases[] = {{1, 1, 55, false}, {1, 1, 56, true},     {3, 2, 119, false},
                          {3, 2, 120, true}, {0, 5, 200, false},   {5, 0, 200, false},
                          {16384, 16384, 56, false}};
    for (const Case &c : cases) {
        const Bytes payload = ByteWriter().u32(0).u16(c.a).u16(c.b).u32(0).take();
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        ASSERT_EQ(decode(parsed.get(), make_record_sized(29, 100, payload, c.len)), 0u);
        EXPECT_EQ(parsed->four_plane_grid != nullptr, c.kept) << c.a << "x" << c.b << " " << c.len;
        if (!c.kept) {
            EXPECT_TRUE(diag.saw(c.a == 0 || c.b == 0 ? CMC_DIAG_BAD_COUNT : CMC_DIAG_TOO_SHORT));
        }
    }
}

} // namespace
