// Every allocation of a parse made to fail in turn: each failure ends in its
// documented result, and the sanitizer build proves nothing leaks.
#include <gtest/gtest.h>

#include <algorithm>

#include "allocation.h"
#include "diag_recorder.h"
#include "kelb_builder.h"
#include "sample_module.h"
#include "slots.h"

using namespace ejtest;

namespace {

struct FailureInjection {
    explicit FailureInjection(uint64_t k) { cmc_alloc_fail_at(k); }
    ~FailureInjection() { cmc_alloc_fail_at(0); }
};

} // namespace

TEST(AllocationFailure, EveryAllocationOfTheSampleParse)
{
    const Bytes container = make_container(sample_records());
    const Bytes nvm = sample_nvm();
    const std::vector<int> all = sample_filled_slots();

    uint64_t allocations;
    {
        FailureInjection none(0);
        ASSERT_NE(parse(container, nvm)->parsed, nullptr);
        allocations = cmc_alloc_count();
    }
    ASSERT_GT(allocations, 10u);

    for (uint64_t k = 1; k <= allocations; ++k) {
        DiagRecorder diag;
        FailureInjection fail(k);
        auto run = parse(container, nvm);
        if (k == 1) { // the result itself
            EXPECT_EQ(run->parsed, nullptr);
            EXPECT_TRUE(diag.saw(CMC_DIAG_CONTAINER_NO_MEMORY));
            continue;
        }
        ASSERT_NE(run->parsed, nullptr) << k;
        const std::vector<int> filled = filled_slots(run->parsed.get());
        // One record lost at most, and only the slots of its own group.
        EXPECT_LT(filled.size(), all.size()) << k;
        EXPECT_TRUE(std::includes(all.begin(), all.end(), filled.begin(), filled.end())) << k;
        EXPECT_TRUE(diag.saw(CMC_DIAG_COPY_NO_MEMORY) || diag.saw(CMC_DIAG_NO_MEMORY)) << k;
    }
}

TEST(AllocationFailure, DecoderAllocationsLeaveTheirDocumentedResult)
{
    const std::vector<Bytes> records = sample_records();
    const Bytes &name = records[0];  // id 1 with two pairs
    const Bytes &fixed = records[1]; // id 2

    Parsed parsed = empty_parsed();
    {
        // The pair array fails: the name is kept without pairs.
        FailureInjection fail(1);
        ASSERT_EQ(decode(parsed.get(), name), uint32_t(CMC_PARSE_OK));
    }
    ASSERT_NE(parsed->rec_1, nullptr);
    EXPECT_STREQ(parsed->rec_1_name, "sample-module");
    EXPECT_EQ(parsed->rec_1_pair_count, 0);
    EXPECT_EQ(parsed->rec_1_pairs, nullptr);
    {
        // The structure fails: slot 4 stays empty, the copy is released.
        FailureInjection fail(1);
        ASSERT_EQ(decode(parsed.get(), fixed), uint32_t(CMC_PARSE_OK));
    }
    EXPECT_EQ(parsed->rec_2, nullptr);
}
