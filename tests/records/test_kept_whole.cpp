// Records kept whole (ids 5, 6, 7, 8, 16, 17, 18, 19, 20, 21, 23, 37): the
// size each needs, the slot that takes the copy and the views into it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "diag_recorder.h"
#include "kelb_builder.h"
#include "slots.h"

using namespace ejtest;

namespace {

struct View {
    int slot;
    uint32_t offset;      // from the start of the kept copy
    uint32_t min_len = 0; // shorter records are kept without this view
};

struct KeptCase {
    const char *name;
    uint16_t id;
    uint8_t version;
    Bytes payload;     // from offset 8
    uint32_t full;     // length of the complete record
    int slot;          // slot that takes the copy
    uint32_t keep_min; // shortest record that is kept
    std::vector<View> views;
};

// Test names and failure messages show the case's name (the default printer
// would dump the structure's bytes, padding included).
void PrintTo(const KeptCase &c, std::ostream *os)
{
    *os << c.name;
}

Bytes counts6(uint8_t a, uint8_t b, uint8_t c, uint8_t d)
{
    return ByteWriter().zeros(4).u8(a).u8(b).u8(c).u8(d).fill(40, 0x66).take();
}
Bytes count_at(size_t payload_offset, uint16_t n)
{
    return ByteWriter().fill(payload_offset, 0x77).u16(n).fill(200, 0x78).take();
}
Bytes counts19(uint16_t a, uint16_t b)
{
    return ByteWriter().fill(4, 0x19).u16(a).u16(b).fill(80, 0x91).take();
}
Bytes rec20(uint16_t list_len)
{
    // 8: u16, 10: u16, 12: u8, 13: u8 (0x55), 14: list type, 16: L, 20: list.
    return ByteWriter().u16(0x1234).u16(0x5678).u8(9).u8(0x55).u16(2).u16(list_len).zeros(2)
        .fill(8 * list_len, 0xa5).take();
}

const std::vector<KeptCase> &cases()
{
    static const std::vector<KeptCase> all = {
        {"id5", 5, 100, Bytes(8, 0x05), 16, 7, 16, {}},
        {"id7", 7, 100, Bytes(8, 0x07), 16, 10, 16, {}},
        {"id8", 8, 100, {}, 8, 11, 8, {}},
        {"id8_long", 8, 101, Bytes(12, 0x08), 20, 11, 8, {}},
        {"id21", 21, 100, Bytes(8, 0x21), 16, 45, 16, {}},
        {"id23", 23, 100, Bytes(16, 0x23), 24, 43, 24, {}},
        {"id37", 37, 100, Bytes(8, 0x37), 16, 61, 16, {}},
        // 16 + 2·1 = 18, rounded up to 24.
        {"id6_1000", 6, 100, counts6(1, 0, 0, 0), 24, 8, 24, {{9, 16}}},
        {"id6_1234", 6, 100, counts6(1, 2, 3, 4), 40, 8, 40, {{9, 16}}},
        {"id6_none", 6, 100, counts6(0, 0, 0, 0), 16, 8, 16, {{9, 16}}},
        // 14 + 4·n rounded up.
        {"id16_n1", 16, 100, count_at(4, 1), 24, 29, 24, {{30, 14}}},
        {"id16_n3", 16, 100, count_at(4, 3), 32, 29, 32, {{30, 14}}},
        {"id16_n0", 16, 100, count_at(4, 0), 16, 29, 16, {{30, 14}}},
        {"id17_v100", 17, 100, Bytes(16, 0x17), 24, 31, 16, {}},
        {"id17_v101", 17, 101, Bytes(16, 0x17), 24, 31, 16, {{32, 14}}},
        // 10 + 84·n rounded up; the tail from version 101 sits behind the entries.
        {"id18_v100_n1", 18, 100, count_at(0, 1), 96, 33, 96, {{34, 10}}},
        {"id18_v101_n1", 18, 101, count_at(0, 1), 104, 33, 96, {{34, 10}, {35, 94}}},
        {"id18_v101_n2", 18, 101, count_at(0, 2), 184, 33, 184, {{34, 10}, {35, 178}}},
        {"id18_v101_n0", 18, 101, count_at(0, 0), 16, 33, 16, {{34, 10}, {35, 10}}},
        // 16 + 28·A + 8·B rounded up.
        {"id19_a1b1", 19, 100, counts19(1, 1), 56, 36, 56, {{37, 16}, {38, 44}}},
        {"id19_a2b0", 19, 100, counts19(2, 0), 72, 36, 72, {{37, 16}, {38, 72}}},
        {"id19_a0b3", 19, 100, counts19(0, 3), 40, 36, 40, {{37, 16}, {38, 16}}},
        {"id20_v100", 20, 100, rec20(2), 40, 39, 16, {}},
        {"id20_v101", 20, 101, rec20(2), 40, 39, 16, {}},
        // The list header needs 20 bytes, a list of L values 24 + 8·L.
        {"id20_v102_l2", 20, 102, rec20(2), 40, 39, 16, {{40, 14, 20}, {41, 20, 40}}},
        {"id20_v103_l0", 20, 103, rec20(0), 24, 39, 16, {{40, 14, 20}, {41, 20, 24}}},
        {"id20_v102_l3", 20, 102, rec20(3), 48, 39, 16, {{40, 14, 20}, {41, 20, 48}}},
    };
    return all;
}

std::vector<int> group_of(const KeptCase &c)
{
    std::vector<int> g{c.slot};
    for (const View &v : c.views)
        g.push_back(v.slot);
    return g;
}

const void *slot_ptr(const cmc_parsed_data *p, int slot)
{
    const void *v;
    std::memcpy(&v, reinterpret_cast<const uint8_t *>(p) + 8 * slot, sizeof v);
    return v;
}

Bytes build(const KeptCase &c, uint32_t len, uint8_t marker = 0)
{
    Bytes r = make_record_sized(c.id, c.version, c.payload, len);
    r[5] = marker;
    return r;
}

// cmc_parse on a heap copy; returns the copy's address (for comparison only).
const uint8_t *feed(cmc_parsed_data *parsed, const Bytes &record)
{
    const uint8_t *copy = nullptr;
    EXPECT_EQ(decode(parsed, record, &copy), uint32_t(CMC_PARSE_OK));
    return copy;
}

// The group after a record of length len was decoded into an otherwise empty
// result: complete with views at their offsets, or empty.
void expect_group(const cmc_parsed_data *parsed, const KeptCase &c, const Bytes &record,
                  const uint8_t *copy, const DiagRecorder &diag)
{
    const uint32_t len = uint32_t(record.size());
    SCOPED_TRACE(::testing::Message() << c.name << " length " << len);
    if (len < c.keep_min) {
        EXPECT_TRUE(filled_slots(parsed).empty());
        ASSERT_EQ(diag.events().size(), 1u);
        EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_TOO_SHORT);
        EXPECT_EQ(diag.events()[0].id, c.id);
        EXPECT_EQ(diag.events()[0].size, len);
        return;
    }
    const auto *kept = static_cast<const uint8_t *>(slot_ptr(parsed, c.slot));
    ASSERT_EQ(kept, copy);
    std::vector<int> expected_filled{c.slot};
    bool part_missing = false;
    for (const View &v : c.views) {
        if (len >= v.min_len) {
            EXPECT_EQ(slot_ptr(parsed, v.slot), kept + v.offset) << slot_name(v.slot);
            expected_filled.push_back(v.slot);
        } else {
            EXPECT_EQ(slot_ptr(parsed, v.slot), nullptr) << slot_name(v.slot);
            part_missing = true;
        }
    }
    std::sort(expected_filled.begin(), expected_filled.end());
    EXPECT_EQ(filled_slots(parsed), expected_filled);
    if (part_missing) {
        ASSERT_EQ(diag.events().size(), 1u);
        EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_PART_TOO_SHORT);
    } else {
        EXPECT_TRUE(diag.events().empty());
    }
    Bytes want = record;
    if (c.id == 20 && c.version <= 100)
        want[13] = 8;
    EXPECT_EQ(Bytes(kept, kept + len), want);
}

class KeptWholeRecord : public ::testing::TestWithParam<KeptCase> {};

TEST_P(KeptWholeRecord, EveryLengthKeepsTheWholeGroupOrNothing)
{
    const KeptCase &c = GetParam();
    // From a bare header to one 8-byte block beyond the complete record.
    for (uint32_t len = 8; len <= c.full + 8; ++len) {
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        const Bytes record = build(c, len);
        const uint8_t *copy = feed(parsed.get(), record);
        expect_group(parsed.get(), c, record, copy, diag);
    }
}

INSTANTIATE_TEST_SUITE_P(KeptWhole, KeptWholeRecord, ::testing::ValuesIn(cases()),
                         [](const ::testing::TestParamInfo<KeptCase> &i) { return i.param.name; });

TEST(KeptWholeMixed, LaterRecordReplacesWithoutStaleViews)
{
    // Every ordered pair of layouts of one id: the group afterwards is that of
    // the second record alone, pointing into the second copy; a short third
    // record then empties it (the earlier copies are released).
    for (const KeptCase &a : cases()) {
        for (const KeptCase &b : cases()) {
            if (a.id != b.id)
                continue;
            SCOPED_TRACE(::testing::Message() << a.name << " then " << b.name);
            Parsed parsed = empty_parsed();
            feed(parsed.get(), build(a, a.full, 1));
            DiagRecorder diag;
            const uint8_t *copy = feed(parsed.get(), build(b, b.full, 2));
            ASSERT_EQ(slot_ptr(parsed.get(), b.slot), copy);
            std::vector<int> expected = group_of(b);
            std::sort(expected.begin(), expected.end());
            EXPECT_EQ(filled_slots(parsed.get()), expected);
            for (const View &v : b.views)
                EXPECT_EQ(slot_ptr(parsed.get(), v.slot), copy + v.offset);
            ASSERT_EQ(diag.events().size(), 1u);
            EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_REPLACED_EARLIER);
            if (b.keep_min > 8) {
                diag.clear();
                feed(parsed.get(), build(b, b.keep_min - 1, 3));
                EXPECT_TRUE(diag.saw(CMC_DIAG_TOO_SHORT));
                EXPECT_TRUE(filled_slots(parsed.get()).empty());
            }
        }
    }
}

TEST(KeptWholeMixed, Id20UpToVersion100GetsEightAtOffset13)
{
    for (uint8_t version : {0, 99, 100, 101, 102}) {
        Parsed parsed = empty_parsed();
        const Bytes record = make_record(20, version, rec20(0)); // byte 13 holds 0x55
        ASSERT_EQ(record[13], 0x55);
        ASSERT_EQ(decode(parsed.get(), record), 0u);
        ASSERT_NE(parsed->rec_20, nullptr);
        EXPECT_EQ(parsed->rec_20[13], version <= 100 ? 8 : 0x55) << int(version);
    }
}

TEST(KeptWholeMixed, HugeCountsInASmallRecordAreDropped)
{
    const std::pair<uint16_t, Bytes> records[] = {{6, counts6(255, 255, 255, 255)},
                                                  {16, count_at(4, 0xffff)},
                                                  {18, count_at(0, 0xffff)},
                                                  {19, counts19(0xffff, 0xffff)},
                                                  {19, counts19(0, 0xffff)}};
    for (const auto &[id, payload] : records) {
        Parsed parsed = empty_parsed();
        ASSERT_EQ(decode(parsed.get(), make_record_sized(id, 101, payload, 64)), 0u);
        EXPECT_TRUE(filled_slots(parsed.get()).empty()) << id;
    }
    // With all counts 255 id 6 needs 16 + 2·1020 = 2056 bytes.
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), make_record_sized(6, 100, counts6(255, 255, 255, 255), 2055)), 0u);
    EXPECT_EQ(parsed->rec_6, nullptr);
    ASSERT_EQ(decode(parsed.get(), make_record_sized(6, 100, counts6(255, 255, 255, 255), 2056)), 0u);
    EXPECT_NE(parsed->rec_6, nullptr);
}

} // namespace
