// Completion of slot 57 after the walk: a container without an id-34 record
// gets the id-34 form built from its id-19 and id-20 records, as one block
// whose every pointer points into it.
#include <gtest/gtest.h>

#include "diag_recorder.h"
#include "failure_injection.h"
#include "kelb_builder.h"
#include "kelb_refs_writer.h"
#include "slots.h"

using namespace ejtest;

namespace {

// Id 19: value 0x1919 at 8, A entries (16.16 u32 pairs, 20 bytes i + 1),
// B values (16.16 u32, word).
Bytes rec_19(uint16_t a, uint16_t b)
{
    ByteWriter w;
    w.u16(0x1919).u16(0).u16(a).u16(b);
    for (uint16_t i = 0; i < a; ++i)
        w.u32(98304 + i).u32(65536 * (i + 2)).fill(20, uint8_t(i + 1));
    for (uint16_t i = 0; i < b; ++i)
        w.u32(32768 * (i + 1)).u32(0xb0 + i);
    const size_t length = 8 + w.size();
    w.pad_to(((length + 7) & ~size_t(7)) - 8);
    return make_record(19, 100, w.take());
}

// Id 20: 0x2008 at 8, 0x2010 at 10, 0x12 at 12, 0x13 at 13; from version 102
// list type and L values (16.16 u32 0x18000·(i+1), word 0xc0 + i).
Bytes rec_20(uint8_t version, uint16_t type, uint16_t l, uint32_t values_written)
{
    ByteWriter w;
    w.u16(0x2008).u16(0x2010).u8(0x12).u8(0x13).u16(type).u16(l).zeros(2);
    for (uint32_t i = 0; i < values_written; ++i)
        w.u32(0x18000 * (i + 1)).u32(0xc0 + i);
    const size_t length = 8 + w.size();
    w.pad_to(((length + 7) & ~size_t(7)) - 8);
    return make_record(20, version, w.take());
}

const cmc_rec_34 *form34(const cmc_parsed_data *p)
{
    return reinterpret_cast<const cmc_rec_34 *>(p->rec_34);
}

// Every pointer of the built block points inside it.
void expect_inside(const cmc_rec_34 *r, const void *p, size_t bytes)
{
    const auto *b = reinterpret_cast<const uint8_t *>(r);
    const auto *q = static_cast<const uint8_t *>(p);
    EXPECT_TRUE(q >= b + 32 && q + bytes <= b + r->header.size);
}

} // namespace

TEST(Rec34Completion, BothRecordsGiveTwoElements)
{
    const uint32_t a = 2, b = 1, l = 3;
    auto run = parse(make_container({rec_19(a, b), rec_20(102, 1, l, l)}));
    ASSERT_NE(run->parsed, nullptr);
    const cmc_rec_34 *r = form34(run->parsed.get());
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->header.size, 120 + 32 * a + 8 * b + 8 * l);
    EXPECT_EQ(r->header.version, 100);
    EXPECT_EQ(r->header.id, 34);
    EXPECT_EQ(r->count, 2u);
    ASSERT_EQ(reinterpret_cast<const uint8_t *>(r->elements), run->parsed->rec_34 + 32);

    const cmc_rec_34_element &t = r->elements[0];
    EXPECT_EQ(t.kind, uint32_t(CMC_REC_34_KIND_TABLE));
    EXPECT_EQ(t.word4, 0x1919u);
    EXPECT_EQ(t.count_a, a);
    EXPECT_EQ(t.count_b, b);
    EXPECT_EQ(t.fixed, nullptr);
    // Arrays behind the two elements: entries at 112, values at 176, list at 184.
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(t.entries), run->parsed->rec_34 + 112);
    EXPECT_EQ(t.entries[0].a, 1.5f); // 98304 / 65536
    EXPECT_EQ(t.entries[0].b, 2.0f);
    EXPECT_EQ(t.entries[1].a, float(98305.0 / 65536.0));
    EXPECT_EQ(t.entries[1].rest[19], 2);
    EXPECT_EQ(t.entries[1].reserved, 0u);
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(t.values), run->parsed->rec_34 + 176);
    EXPECT_EQ(t.values[0].value, 0.5f);
    EXPECT_EQ(t.values[0].word, 0xb0u);

    const cmc_rec_34_element &c = r->elements[1];
    EXPECT_EQ(c.kind, uint32_t(CMC_REC_34_KIND_CURVE));
    EXPECT_EQ(c.word4, uint32_t(CMC_REC_34_CURVE_LIST));
    EXPECT_EQ(c.count_a, 0u);
    EXPECT_EQ(c.count_b, l);
    EXPECT_EQ(c.entries, nullptr);
    EXPECT_EQ(c.fixed, nullptr);
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(c.values), run->parsed->rec_34 + 184);
    for (uint32_t i = 0; i < l; ++i) {
        EXPECT_EQ(c.values[i].value, 1.5f * float(i + 1));
        EXPECT_EQ(c.values[i].word, 0xc0 + i);
    }
    expect_inside(r, c.values, 8 * l);
}

TEST(Rec34Completion, OneRecordGivesOneElement)
{
    struct Case {
        const char *name;
        std::vector<Bytes> records;
        uint32_t size;
        uint32_t kind, word4, count_b;
        bool fixed;
    };
    const Case cases[] = {
        {"id19_only", {rec_19(1, 2)}, 72 + 32 + 16, 0, 0x1919, 2, false},
        {"id19_empty", {rec_19(0, 0)}, 72, 0, 0x1919, 0, false},
        {"id20_v100_fixed", {rec_20(100, 1, 2, 2)}, 80, 1, 3, 0, true},
        {"id20_v101_fixed", {rec_20(101, 1, 2, 2)}, 80, 1, 3, 0, true},
        // List type other than 1: a fixed element; L still counts in the size.
        {"id20_type2_fixed", {rec_20(102, 2, 2, 2)}, 80 + 16, 1, 3, 0, true},
        {"id20_list", {rec_20(102, 1, 2, 2)}, 80 + 16, 1, 2, 2, false},
        {"id20_list_empty", {rec_20(102, 1, 0, 0)}, 80, 1, 2, 0, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        DiagRecorder diag;
        auto run = parse(make_container(c.records));
        ASSERT_NE(run->parsed, nullptr);
        const cmc_rec_34 *r = form34(run->parsed.get());
        ASSERT_NE(r, nullptr);
        EXPECT_TRUE(diag.events().empty());
        EXPECT_EQ(r->header.size, c.size);
        ASSERT_EQ(r->count, 1u);
        const cmc_rec_34_element &e = r->elements[0];
        EXPECT_EQ(e.kind, c.kind);
        EXPECT_EQ(e.word4, c.word4);
        EXPECT_EQ(e.count_b, c.count_b);
        EXPECT_EQ(e.values != nullptr, c.count_b != 0);
        if (e.values != nullptr)
            expect_inside(r, e.values, 8 * e.count_b);
        ASSERT_EQ(e.fixed != nullptr, c.fixed);
        if (c.fixed) {
            expect_inside(r, e.fixed, 8);
            // Version 100 reads 8 at offset 13 (the id-20 decoder sets it).
            const uint16_t last = c.records[0][4] <= 100 ? 8 : 0x13;
            EXPECT_EQ(e.fixed[0], 0x2008);
            EXPECT_EQ(e.fixed[1], 0x2010);
            EXPECT_EQ(e.fixed[2], 0x12);
            EXPECT_EQ(e.fixed[3], last);
        }
    }
}

TEST(Rec34Completion, AListWhoseValuesCannotBeReadHasNone)
{
    // L = 2 announced, but the record ends before its values: slot 41 empty.
    DiagRecorder diag;
    auto run = parse(make_container({rec_20(102, 1, 2, 0)}));
    ASSERT_NE(run->parsed, nullptr);
    ASSERT_NE(run->parsed->rec_20_list_header, nullptr);
    ASSERT_EQ(run->parsed->rec_20_list, nullptr);
    const cmc_rec_34 *r = form34(run->parsed.get());
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->header.size, 80u + 16u);
    EXPECT_EQ(r->elements[0].word4, uint32_t(CMC_REC_34_CURVE_LIST));
    EXPECT_EQ(r->elements[0].count_b, 0u);
    EXPECT_EQ(r->elements[0].values, nullptr);
    // One event from the id-20 decoder, one for the built record.
    ASSERT_EQ(diag.events().size(), 2u);
    EXPECT_EQ(diag.events()[1].reason, CMC_DIAG_PART_TOO_SHORT);
    EXPECT_EQ(diag.events()[1].id, 34);
    EXPECT_EQ(diag.events()[1].offset, CMC_DIAG_NO_OFFSET);
}

TEST(Rec34Completion, NothingIsBuiltWithAnId34RecordOrWithoutSources)
{
    auto own = parse(make_container({rec_19(1, 1), make_rec_34({}), rec_20(102, 1, 1, 1)}));
    ASSERT_NE(own->parsed, nullptr);
    ASSERT_NE(own->parsed->rec_34, nullptr);
    EXPECT_EQ(form34(own->parsed.get())->count, 0u);
    EXPECT_EQ(form34(own->parsed.get())->header.size, 32u);

    auto none = parse(make_container({make_record(5, 100, Bytes(8, 5))}));
    ASSERT_NE(none->parsed, nullptr);
    EXPECT_EQ(none->parsed->rec_34, nullptr);
    // A dropped id-19 record is no source either.
    auto dropped = parse(make_container({make_record_sized(19, 100, ByteWriter().zeros(4).u16(1).take(), 24)}));
    ASSERT_NE(dropped->parsed, nullptr);
    EXPECT_EQ(dropped->parsed->rec_34, nullptr);
}

TEST(Rec34Completion, AFailedAllocationLeavesSlot57EmptyAndTheResultWhole)
{
    const Bytes container = make_container({rec_19(1, 1), rec_20(102, 1, 1, 1)});
    uint64_t allocations;
    {
        FailureInjection none(0);
        ASSERT_NE(parse(container)->parsed, nullptr);
        allocations = cmc_alloc_count();
    }
    DiagRecorder diag;
    FailureInjection last(allocations); // the built block is the last allocation
    auto run = parse(container);
    ASSERT_NE(run->parsed, nullptr);
    EXPECT_EQ(filled_slots(run->parsed.get()), (std::vector<int>{36, 37, 38, 39, 40, 41, 64}));
    ASSERT_EQ(diag.events().size(), 1u);
    EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_NO_MEMORY);
    EXPECT_EQ(diag.events()[0].id, 34);
    EXPECT_EQ(diag.events()[0].size, 120u + 32 + 8 + 8);
}
