// The record walk: where it stops, and what it does with NVM data of any
// shape. Order, foreign ids and repeated ids: records/test_dispatch.cpp.
#include <gtest/gtest.h>

#include "diag_recorder.h"
#include "kelb_builder.h"
#include "nvm_writer.h"
#include "slots.h"

using namespace ejtest;

namespace {

Bytes rec5() { return make_record(5, 100, Bytes(8, 1)); }

TEST(Walk, StopsAtTheFirstUnwalkableRecord)
{
    struct Case {
        const char *what;
        std::vector<Bytes> records;
        Bytes trailing;
        cmc_diag_reason reason;
        uint32_t size; // in the event: the bad size field or the leftover length
    };
    std::vector<Case> cases;
    // A bad record padded to 8 bytes so that its header is readable, then a
    // valid id-7 record the walk must not reach.
    const Bytes rec7 = make_record(7, 100, Bytes(8, 0x77));
    for (uint32_t bad : {0u, 1u, 7u})
        cases.push_back({"smaller than a header", {rec5(), make_record_with_size(7, 100, {}, bad), rec7},
                         {}, CMC_DIAG_WALK_RECORD_TOO_SMALL, bad});
    for (uint32_t bad : {17u, 100u, 0xfffffff8u, 0xffffffffu})
        cases.push_back({"past the end", {rec5(), make_record_with_size(7, 100, Bytes(8, 0), bad)}, {},
                         CMC_DIAG_WALK_RECORD_PAST_END, bad});
    cases.push_back({"foreign id past the end", {rec5(), make_record_with_size(900, 100, Bytes(8, 0), 64)},
                     {}, CMC_DIAG_WALK_RECORD_PAST_END, 64});
    for (uint32_t n = 1; n <= 7; ++n)
        cases.push_back({"leftover shorter than a header", {rec5()}, Bytes(n, 0xee),
                         CMC_DIAG_WALK_RECORD_PAST_END, n});
    for (const Case &c : cases) {
        SCOPED_TRACE(::testing::Message() << c.what << ", size " << c.size);
        DiagRecorder diag;
        auto run = parse(make_container(c.records, Checksum::RuleA, c.trailing));
        ASSERT_NE(run->parsed, nullptr);
        EXPECT_NE(run->parsed->rec_5, nullptr);
        EXPECT_EQ(run->parsed->rec_7, nullptr) << "the walk must stop, not skip";
        ASSERT_EQ(diag.events().size(), 1u);
        EXPECT_EQ(diag.events()[0].reason, c.reason);
        EXPECT_EQ(diag.events()[0].offset, 24u + 16u);
        EXPECT_EQ(diag.events()[0].size, c.size);
    }
}

TEST(Walk, NvmDataOfAnyShapeLeavesTheParseStanding)
{
    ejnvm::NvmBlob blob;
    blob.map = ejnvm::MapSection{};
    const Bytes good = ejnvm::write_nvm(blob);
    Bytes container = make_container({rec5()});
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

} // namespace
