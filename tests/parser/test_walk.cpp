// The record walk: order, skipping foreign ids, and where it stops.
#include <gtest/gtest.h>

#include "diag_recorder.h"
#include "kelb_builder.h"
#include "nvm_writer.h"
#include "slots.h"

using namespace ejtest;

namespace {

Bytes rec5(uint8_t fill)
{
    return make_record(5, 100, Bytes(8, fill));
}

Bytes rec7()
{
    return make_record(7, 100, Bytes(8, 0x77));
}

} // namespace

TEST(Walk, ForeignIdsAreSteppedOverBySize)
{
    DiagRecorder diag;
    auto run = parse(make_container({make_record(64, 100, Bytes(13, 1)), rec5(1),
                                     make_record(722, 100, Bytes(40, 2)),
                                     make_record(0xffff, 100, {}), rec7()}));
    ASSERT_NE(run->parsed, nullptr);
    EXPECT_NE(run->parsed->rec_5, nullptr);
    EXPECT_NE(run->parsed->rec_7, nullptr);
    EXPECT_TRUE(diag.events().empty());
}

TEST(Walk, Id63ReachesDispatchAndHasNoDecoder)
{
    DiagRecorder diag;
    auto run = parse(make_container({make_record(63, 100, Bytes(8, 0))}));
    ASSERT_NE(run->parsed, nullptr);
    ASSERT_EQ(diag.events().size(), 1u);
    EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_NO_DECODER);
    EXPECT_EQ(diag.events()[0].id, 63);
    EXPECT_EQ(diag.events()[0].offset, 24u);
}

TEST(Walk, LaterRecordOfAnIdReplacesTheEarlierOne)
{
    auto run = parse(make_container({rec5(1), rec5(2)}));
    ASSERT_NE(run->parsed, nullptr);
    ASSERT_NE(run->parsed->rec_5, nullptr);
    EXPECT_EQ(run->parsed->rec_5[8], 2);
}

TEST(Walk, KeptRecordsAreCopiesIndependentOfTheContainer)
{
    auto run = parse(make_container({rec5(9)}));
    ASSERT_NE(run->parsed, nullptr);
    const uint8_t *kept = run->parsed->rec_5;
    EXPECT_TRUE(kept < run->container.data() || kept >= run->container.data() + run->container.size());
    std::fill(run->container.begin(), run->container.end(), 0);
    EXPECT_EQ(get_u32(kept), 16u);
    EXPECT_EQ(kept[15], 9);
}

TEST(Walk, StopsAtARecordSmallerThanItsHeader)
{
    for (uint32_t bad_size : {0u, 1u, 7u}) {
        DiagRecorder diag;
        // The bad record is padded to 8 bytes so that its header is readable.
        auto run = parse(make_container(
            {rec5(1), make_record_with_size(7, 100, {}, bad_size), rec7()}));
        ASSERT_NE(run->parsed, nullptr) << bad_size;
        EXPECT_NE(run->parsed->rec_5, nullptr);
        EXPECT_EQ(run->parsed->rec_7, nullptr) << "the walk must stop, not skip";
        ASSERT_EQ(diag.events().size(), 1u);
        EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_WALK_RECORD_TOO_SMALL);
        EXPECT_EQ(diag.events()[0].offset, 24u + 16u);
        EXPECT_EQ(diag.events()[0].size, bad_size);
    }
}

TEST(Walk, StopsAtARecordRunningPastTheEnd)
{
    for (uint32_t bad_size : {17u, 100u, 0xfffffff8u, 0xffffffffu}) {
        DiagRecorder diag;
        auto run = parse(make_container({rec5(1), make_record_with_size(7, 100, Bytes(8, 0), bad_size)}));
        ASSERT_NE(run->parsed, nullptr) << bad_size;
        EXPECT_NE(run->parsed->rec_5, nullptr);
        EXPECT_EQ(run->parsed->rec_7, nullptr);
        ASSERT_EQ(diag.events().size(), 1u);
        EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_WALK_RECORD_PAST_END);
        EXPECT_EQ(diag.events()[0].id, 7);
    }
}

TEST(Walk, ForeignRecordRunningPastTheEndStopsTheWalkToo)
{
    DiagRecorder diag;
    auto run = parse(make_container({make_record_with_size(900, 100, Bytes(8, 0), 64)}));
    ASSERT_NE(run->parsed, nullptr);
    EXPECT_TRUE(diag.saw(CMC_DIAG_WALK_RECORD_PAST_END));
}

TEST(Walk, LeftoverBytesShorterThanAHeaderEndTheWalk)
{
    for (size_t n = 1; n <= 7; ++n) {
        DiagRecorder diag;
        auto run = parse(make_container({rec5(1)}, Checksum::RuleA, Bytes(n, 0xee)));
        ASSERT_NE(run->parsed, nullptr);
        EXPECT_NE(run->parsed->rec_5, nullptr);
        ASSERT_EQ(diag.events().size(), 1u) << n;
        EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_WALK_RECORD_PAST_END);
        EXPECT_EQ(diag.events()[0].offset, 40u);
        EXPECT_EQ(diag.events()[0].size, n);
    }
}

TEST(Walk, DecodersSeeTheRecordsInContainerOrder)
{
    // Offsets in the events follow the records.
    DiagRecorder diag;
    auto run = parse(make_container({make_record(4, 100, {}), make_record(12, 100, Bytes(4, 0)),
                                     make_record(0, 100, {})}));
    ASSERT_NE(run->parsed, nullptr);
    ASSERT_EQ(diag.events().size(), 3u);
    EXPECT_EQ(diag.events()[0].offset, 24u);
    EXPECT_EQ(diag.events()[1].offset, 32u);
    EXPECT_EQ(diag.events()[2].offset, 44u);
    EXPECT_EQ(filled_slots(run->parsed.get()), std::vector<int>{64});
}

TEST(Walk, NvmDataOfAnyShapeLeavesTheParseStanding)
{
    ejnvm::NvmBlob blob;
    blob.map = ejnvm::MapSection{};
    const Bytes good = ejnvm::write_nvm(blob);
    Bytes container = make_container({rec5(3)});
    for (const Bytes &nvm : {good, Bytes{1, 2, 3}, Bytes(good.begin(), good.end() - 1)}) {
        auto run = parse(container, nvm);
        ASSERT_NE(run->parsed, nullptr);
        EXPECT_NE(run->parsed->rec_5, nullptr);
    }
    ej_data_block empty_nvm{container.data(), 0};
    ej_data_block block{container.data(), uint32_t(container.size())};
    Parsed parsed(ej_cmc_parser_init_v1(&block, &empty_nvm));
    EXPECT_NE(parsed, nullptr);
}
