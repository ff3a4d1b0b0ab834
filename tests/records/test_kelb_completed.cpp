// Records completed by the container parser (ids 9, 31, 32, 34) and the
// legacy id-3 table converted to the id-31 form.
#include <gtest/gtest.h>

#include <cstring>

#include "diag_recorder.h"
#include "failure_injection.h"
#include "ej_kelb_parser.h"
#include "kelb_builder.h"
#include "kelb_refs_writer.h"
#include "slots.h"

using namespace ejtest;

namespace {

Rec31Entry entry31(uint32_t seed)
{
    Rec31Entry e{};
    e[0] = seed;
    return e;
}

Rec34Element list_element(uint32_t values)
{
    Rec34Element e;
    e.kind = 1;
    e.word4 = 2;
    for (uint32_t i = 0; i < values; ++i)
        e.values.push_back({float(i), i});
    return e;
}

// Legacy id-3 entry: s0, s1 (u32), s2..s5 (u16).
struct Legacy {
    uint32_t s0, s1;
    uint16_t s2, s3, s4, s5;
};
Bytes rec_3(const std::vector<Legacy> &entries, uint32_t count_field)
{
    ByteWriter w;
    w.u32(count_field);
    for (const Legacy &e : entries)
        w.u32(e.s0).u32(e.s1).u16(e.s2).u16(e.s3).u16(e.s4).u16(e.s5);
    w.zeros(4); // 12 + 16·n rounded up to 8
    return make_record(3, 100, w.take());
}
Bytes rec_3(const std::vector<Legacy> &entries)
{
    return rec_3(entries, uint32_t(entries.size()));
}

const cmc_rec_31 *form31(const cmc_parsed_data *p)
{
    return reinterpret_cast<const cmc_rec_31 *>(p->rec_31);
}

// Keeps the earlier contents of every slot for comparison.
Bytes snapshot(const cmc_parsed_data *p)
{
    const auto *b = reinterpret_cast<const uint8_t *>(p);
    return Bytes(b, b + sizeof *p);
}

struct KeptId {
    uint16_t id;
    uint8_t *cmc_parsed_data::*slot;
    Bytes (*record)();
};
const KeptId kKept[] = {
    {9, &cmc_parsed_data::rec_9, [] { return make_record(9, 100, Bytes(24, 9)); }},
    {31, &cmc_parsed_data::rec_31, [] { return make_rec_31({entry31(1), entry31(2)}); }},
    {32, &cmc_parsed_data::rec_32, [] { return make_record(32, 101, Bytes(8, 32)); }},
    {34, &cmc_parsed_data::rec_34, [] { return make_rec_34({list_element(2)}); }},
};

} // namespace

TEST(KelbCompleted, EachIdKeepsItsCompletedCopyAndALaterOneReplacesIt)
{
    for (const KeptId &k : kKept) {
        SCOPED_TRACE(k.id);
        Parsed parsed = empty_parsed();
        const uint8_t *first = nullptr;
        ASSERT_EQ(decode(parsed.get(), k.record(), &first), 0u);
        EXPECT_EQ(parsed.get()->*k.slot, first);
        DiagRecorder diag;
        const uint8_t *second = nullptr;
        ASSERT_EQ(decode(parsed.get(), k.record(), &second), 0u);
        EXPECT_EQ(parsed.get()->*k.slot, second); // the first is released (sanitizers)
        ASSERT_EQ(diag.events().size(), 1u);
        EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_REPLACED_EARLIER);
        EXPECT_EQ(filled_slots(parsed.get()).size(), 1u);
    }
    // Id-31 entries are followed in place.
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), make_rec_31({entry31(7), entry31(8), entry31(9)})), 0u);
    const cmc_rec_31 *r = form31(parsed.get());
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->count, 3u);
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(r->entries), parsed->rec_31 + 24);
    EXPECT_EQ(r->entries[2].field0, 9u);
}

TEST(KelbCompleted, Id34KeepsAtMostFourElements)
{
    for (uint32_t n : {0u, 1u, 4u, 5u, 7u}) {
        Parsed parsed = empty_parsed();
        std::vector<Rec34Element> elements;
        for (uint32_t i = 0; i < n; ++i)
            elements.push_back(list_element(i));
        ASSERT_EQ(decode(parsed.get(), make_rec_34(elements)), 0u) << n;
        const auto *r = reinterpret_cast<const cmc_rec_34 *>(parsed->rec_34);
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(r->count, std::min(n, 4u)) << n;
        for (uint32_t i = 0; i < r->count; ++i) {
            EXPECT_EQ(r->elements[i].count_b, i);
            if (i != 0) {
                EXPECT_EQ(r->elements[i].values[i - 1].word, i - 1);
            }
        }
    }
}

TEST(KelbCompleted, ARejectionPassesTheCodeOnAndLeavesTheSlot)
{
    struct Rejected {
        Bytes record;
        uint32_t code;
    };
    Bytes misaligned = make_rec_31({entry31(1), entry31(2)});
    put_u64(misaligned, 16, 28);
    Bytes bad_element = make_rec_34({list_element(1)});
    put_u32(bad_element, 32, 5);
    Bytes uncounted = make_rec_34({list_element(1)});
    put_u32(uncounted, 32 + 12, 0);
    const Rejected rejected[] = {
        {make_record_with_size(9, 100, {}, 7), EJ_KELB_ERR_TOO_SHORT},
        {make_record_with_size(32, 100, {}, 3), EJ_KELB_ERR_TOO_SHORT},
        {make_record_sized(31, 100, {}, 16), EJ_KELB_ERR_TOO_SHORT},
        {misaligned, EJ_KELB_ERR_MISALIGNED},
        {bad_element, EJ_KELB_ERR_BAD_ELEMENT},
        {uncounted, EJ_KELB_ERR_COUNT},
    };
    Parsed parsed = empty_parsed();
    for (const KeptId &k : kKept)
        ASSERT_EQ(decode(parsed.get(), k.record()), 0u);
    const Bytes before = snapshot(parsed.get());
    for (const Rejected &r : rejected) {
        DiagRecorder diag;
        EXPECT_EQ(decode(parsed.get(), r.record), r.code); // the copy goes back to the caller
        EXPECT_EQ(snapshot(parsed.get()), before);
        ASSERT_EQ(diag.events().size(), 1u);
        EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_PARSER_REJECTED);
        EXPECT_EQ(diag.events()[0].id, get_u16(r.record.data() + 6));
    }
    // Through the walk: the record is skipped and the walk goes on.
    auto run = parse(make_container({misaligned, make_record(5, 100, Bytes(8, 5))}));
    ASSERT_NE(run->parsed, nullptr);
    EXPECT_EQ(filled_slots(run->parsed.get()), (std::vector<int>{7, 64}));
}

TEST(LegacyTable, EntriesConvertFromFixedPoint)
{
    // s1 = 65536 is 1.0 in 16.16; s2 = 384 is 1.5 in 8.8.
    const Legacy worked{0xdeadbeef, 65536, 384, 256, 1, 65535};
    const Legacy extremes{0, 0xffffffff, 0, 0xffff, 0x8000, 3};
    Parsed parsed = empty_parsed();
    DiagRecorder diag;
    ASSERT_EQ(decode(parsed.get(), rec_3({worked, extremes})), 0u);
    EXPECT_TRUE(diag.events().empty());
    const cmc_rec_31 *r = form31(parsed.get());
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->header.size, 24u + 2 * 72u);
    EXPECT_EQ(r->header.version, 100);
    EXPECT_EQ(r->header.reserved, 0);
    EXPECT_EQ(r->header.id, 31);
    EXPECT_EQ(r->count, 2u);
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(r->entries), parsed->rec_31 + 24);
    const cmc_rec_31_entry &a = r->entries[0];
    EXPECT_EQ(a.field0, 0xdeadbeefu);
    EXPECT_EQ(a.field1, 1.0f);
    EXPECT_EQ(a.field2, 1.5f);
    EXPECT_EQ(a.field3, 1.0f);
    EXPECT_EQ(a.field6, 1.0f / 256);
    EXPECT_EQ(a.field7, 65535.0f / 256);
    // 0xffffffff / 65536 = 65535.99998..., whose nearest float is 65536.
    const cmc_rec_31_entry &b = r->entries[1];
    EXPECT_EQ(b.field1, 65536.0f);
    EXPECT_EQ(b.field3, 255.99609375f);
    EXPECT_EQ(b.field6, 128.0f);
    // Fields 4, 5 and 8 to 17 stay zero.
    EXPECT_EQ(a.field4 | a.field5 | b.field4 | b.field5, 0u);
    for (uint32_t v : b.field8_17)
        EXPECT_EQ(v, 0u);
}

TEST(LegacyTable, Q16ConversionIsTheNearestFloatOfTheQuotient)
{
    // Independent reference: the quotient is exact in double, then rounded once.
    std::vector<Legacy> entries;
    uint32_t x = 12345;
    for (int i = 0; i < 64; ++i) {
        x = x * 1103515245u + 12345u;
        entries.push_back({0, x | (i % 2 ? 0x80000000u : 0u), 0, 0, 0, 0});
    }
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), rec_3(entries)), 0u);
    for (size_t i = 0; i < entries.size(); ++i)
        EXPECT_EQ(form31(parsed.get())->entries[i].field1, float(double(entries[i].s1) / 65536.0)) << i;
}

TEST(LegacyTable, SizeRuleAtEveryLength)
{
    // n = 0 needs 16 bytes and gives a 24-byte block; n = 2 needs 48.
    for (uint32_t n : {0u, 2u}) {
        const Bytes full = rec_3(std::vector<Legacy>(n, Legacy{1, 65536, 256, 0, 0, 0}));
        ASSERT_EQ(full.size(), 16 + 16 * n);
        for (uint32_t len = 8; len <= full.size() + 8; ++len) {
            SCOPED_TRACE(::testing::Message() << "n " << n << " length " << len);
            Parsed parsed = empty_parsed();
            DiagRecorder diag;
            ASSERT_EQ(decode(parsed.get(), make_record_sized(3, 100, Bytes(full.begin() + 8, full.end()), len)), 0u);
            if (len < 16 + 16 * n) {
                EXPECT_EQ(parsed->rec_31, nullptr);
                ASSERT_EQ(diag.events().size(), 1u);
                EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_TOO_SHORT);
            } else {
                ASSERT_NE(parsed->rec_31, nullptr);
                EXPECT_EQ(form31(parsed.get())->header.size, 24 + 72 * n);
                EXPECT_TRUE(diag.events().empty());
            }
        }
    }
    // A count that would wrap 16 + 16·n around in 32 bits is too short.
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), rec_3({}, 0x10000000u)), 0u);
    EXPECT_EQ(parsed->rec_31, nullptr);
}

TEST(LegacyTable, AnId31TableTakesPrecedenceInEitherOrder)
{
    const Bytes legacy = rec_3({{5, 0, 0, 0, 0, 0}});
    const Bytes native = make_rec_31({entry31(42)});
    for (bool legacy_first : {true, false}) {
        SCOPED_TRACE(legacy_first);
        DiagRecorder diag;
        auto run = parse(make_container(legacy_first ? std::vector<Bytes>{legacy, native}
                                                     : std::vector<Bytes>{native, legacy}));
        ASSERT_NE(run->parsed, nullptr);
        const cmc_rec_31 *r = form31(run->parsed.get());
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(r->entries[0].field0, 42u);
        ASSERT_EQ(diag.events().size(), 1u);
        EXPECT_EQ(diag.events()[0].reason,
                  legacy_first ? CMC_DIAG_REPLACED_EARLIER : CMC_DIAG_SUPERSEDED);
        EXPECT_EQ(diag.events()[0].id, legacy_first ? 31 : 3);
    }
    // A second legacy record leaves the first conversion in place.
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), legacy), 0u);
    const uint8_t *converted = parsed->rec_31;
    ASSERT_EQ(decode(parsed.get(), rec_3({{6, 0, 0, 0, 0, 0}})), 0u);
    EXPECT_EQ(parsed->rec_31, converted);
}

TEST(LegacyTable, AFailedAllocationLeavesTheSlotEmpty)
{
    Parsed parsed = empty_parsed();
    DiagRecorder diag;
    {
        FailureInjection fail(1);
        ASSERT_EQ(decode(parsed.get(), rec_3({{5, 0, 0, 0, 0, 0}})), 0u);
    }
    EXPECT_EQ(parsed->rec_31, nullptr);
    ASSERT_EQ(diag.events().size(), 1u);
    EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_NO_MEMORY);
}

TEST(KelbCompleted, RecordsTruncatedAtEveryLengthAreKeptWholeOrRejected)
{
    Rec34Element table;
    table.entries.resize(2);
    table.values.resize(1);
    Rec34Element fixed;
    fixed.kind = 1;
    fixed.word4 = 3;
    for (const KeptId &k : kKept) {
        const Bytes full = k.id == 34 ? make_rec_34({table, list_element(2), fixed}) : k.record();
        for (uint32_t len = 8; len <= full.size(); ++len) {
            SCOPED_TRACE(::testing::Message() << "id " << k.id << " length " << len);
            Bytes cut(full.begin(), full.begin() + len);
            put_u32(cut, 0, len);
            Parsed parsed = empty_parsed();
            const uint8_t *copy = nullptr;
            const uint32_t status = decode(parsed.get(), cut, &copy);
            const bool references = k.id == 31 || k.id == 34;
            if (!references || len == full.size()) {
                EXPECT_EQ(status, 0u);
                EXPECT_EQ(parsed.get()->*k.slot, copy);
            } else {
                EXPECT_NE(status, 0u);
                EXPECT_TRUE(filled_slots(parsed.get()).empty());
            }
        }
    }
}
