// ej_kelb_others_parser_init: slot 63 summarizes the container's first id-722
// record (value, count capped at 16, entries).
#include <gtest/gtest.h>

#include "diag_recorder.h"
#include "failure_injection.h"
#include "kelb_builder.h"
#include "kelb_refs_writer.h"
#include "slots.h"

using namespace ejtest;

namespace {

// Entry i holds the u64 0x7220000 + i; count_field may announce more.
Bytes others(uint32_t value, uint32_t entries, uint32_t count_field)
{
    ByteWriter w;
    w.u32(value).u32(count_field);
    for (uint32_t i = 0; i < entries; ++i)
        w.u64(0x7220000 + i);
    return make_record(722, 100, w.take());
}
Bytes others(uint32_t value, uint32_t n)
{
    return others(value, n, n);
}

// Parse a container, then summarize its others record.
std::unique_ptr<ParseRun> run_with(const std::vector<Bytes> &records)
{
    auto run = parse(make_container(records));
    if (run->parsed != nullptr)
        ej_kelb_others_parser_init(&run->container_block, run->parsed.get());
    return run;
}

void expect_summary(const others_data *o, uint32_t value, uint32_t count)
{
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(o->value, value);
    EXPECT_EQ(o->count, count);
    for (uint32_t i = 0; i < 16; ++i)
        EXPECT_EQ(get_u64(o->entries[i]), i < count ? 0x7220000u + i : 0u) << i;
}

} // namespace

TEST(OthersRecord, CountIsCappedAtSixteen)
{
    const std::pair<uint32_t, uint32_t> cases[] = {{3, 3}, {40, 16}, {0, 0}, {16, 16}, {17, 16}};
    for (const auto &[n, count] : cases) {
        SCOPED_TRACE(n);
        auto run = run_with({make_record(5, 100, Bytes(8, 5)), others(0xabc, n)});
        ASSERT_NE(run->parsed, nullptr);
        expect_summary(run->parsed->others, 0xabc, count);
    }
}

TEST(OthersRecord, OnlyTheFirstCounts)
{
    auto run = run_with({others(1, 2), others(2, 5)});
    expect_summary(run->parsed->others, 1, 2);
    // The walk never touches it: nothing else is filled.
    EXPECT_EQ(filled_slots(run->parsed.get()), (std::vector<int>{63, 64}));
}

TEST(OthersRecord, NothingFoundLeavesSlot63Empty)
{
    auto empty = run_with({});
    EXPECT_EQ(empty->parsed->others, nullptr);
    auto without = run_with({make_record(5, 100, Bytes(8, 5)), make_record(723, 100, Bytes(16, 0))});
    EXPECT_EQ(without->parsed->others, nullptr);
}

TEST(OthersRecord, TheSearchStopsWhereTheWalkWouldAndSkipsShortRecords)
{
    struct Case {
        const char *name;
        std::vector<Bytes> records;
        Bytes trailing;
        cmc_diag_reason reason;
        uint32_t offset;
    };
    const Bytes rec5 = make_record(5, 100, Bytes(8, 5));
    const Case cases[] = {
        // A record the walk would stop at, before an otherwise valid others record.
        {"size_zero", {make_record_with_size(64, 100, Bytes(8, 0), 0), others(1, 1)}, {},
         CMC_DIAG_WALK_RECORD_TOO_SMALL, 24},
        {"size_seven", {make_record_with_size(64, 100, Bytes(8, 0), 7), others(1, 1)}, {},
         CMC_DIAG_WALK_RECORD_TOO_SMALL, 24},
        {"past_end", {make_record_with_size(64, 100, Bytes(8, 0), 4096), others(1, 1)}, {},
         CMC_DIAG_WALK_RECORD_PAST_END, 24},
        // Trailing bytes too few for a header.
        {"trailing", {rec5}, Bytes(5, 0), CMC_DIAG_WALK_RECORD_PAST_END, 40},
        // An others record too short for its entries is not summarized.
        {"two_of_three", {others(1, 2, 3)}, {}, CMC_DIAG_TOO_SHORT, 24},
        {"no_count", {make_record_sized(722, 100, {}, 15)}, {}, CMC_DIAG_TOO_SHORT, 24},
        {"fifteen_of_forty", {others(1, 15, 40)}, {}, CMC_DIAG_TOO_SHORT, 24},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        auto run = parse(make_container(c.records, Checksum::RuleA, c.trailing));
        ASSERT_NE(run->parsed, nullptr);
        DiagRecorder diag;
        ej_kelb_others_parser_init(&run->container_block, run->parsed.get());
        EXPECT_EQ(run->parsed->others, nullptr);
        ASSERT_EQ(diag.events().size(), 1u);
        EXPECT_EQ(diag.events()[0].reason, c.reason);
        EXPECT_EQ(diag.events()[0].offset, c.offset);
        if (c.reason == CMC_DIAG_TOO_SHORT) {
            EXPECT_EQ(diag.events()[0].id, 722);
        }
    }
}

TEST(OthersRecord, TheSearchStaysInsideTheDescriptor)
{
    // A size field larger than the block: only the block's bytes are read
    // (the sanitizer build would flag more).
    Bytes c = make_container({make_record(5, 100, Bytes(8, 5))});
    std::vector<uint8_t> heap(c.begin(), c.end());
    put_u32(heap, 4, 4096);
    ej_data_block block{heap.data(), uint32_t(heap.size())};
    Parsed parsed = empty_parsed();
    ej_kelb_others_parser_init(&block, parsed.get());
    EXPECT_EQ(parsed->others, nullptr);
    // A descriptor shorter than a container header: nothing is read.
    block.size = 20;
    ej_kelb_others_parser_init(&block, parsed.get());
    EXPECT_EQ(parsed->others, nullptr);
}

TEST(OthersRecord, ASecondCallReplacesTheEarlierBlock)
{
    auto first = run_with({others(1, 1)});
    ASSERT_NE(first->parsed->others, nullptr);
    auto second = parse(make_container({others(2, 4)}));
    ASSERT_NE(second->parsed, nullptr);
    ej_kelb_others_parser_init(&second->container_block, first->parsed.get());
    expect_summary(first->parsed->others, 2, 4);
    // A container without one empties the slot (the sanitizers see the release).
    auto none = parse(make_container({}));
    ej_kelb_others_parser_init(&none->container_block, first->parsed.get());
    EXPECT_EQ(first->parsed->others, nullptr);
}

TEST(OthersRecord, NullArgumentsAndAFailedAllocationDoNothing)
{
    auto run = parse(make_container({others(1, 1)}));
    ASSERT_NE(run->parsed, nullptr);
    ej_kelb_others_parser_init(nullptr, run->parsed.get());
    ej_kelb_others_parser_init(&run->container_block, nullptr);
    ej_data_block no_data{nullptr, 64};
    ej_kelb_others_parser_init(&no_data, run->parsed.get());
    EXPECT_EQ(run->parsed->others, nullptr);

    DiagRecorder diag;
    {
        FailureInjection fail(1);
        ej_kelb_others_parser_init(&run->container_block, run->parsed.get());
    }
    EXPECT_EQ(run->parsed->others, nullptr);
    ASSERT_EQ(diag.events().size(), 1u);
    EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_NO_MEMORY);
    EXPECT_EQ(diag.events()[0].offset, 24u);
}
