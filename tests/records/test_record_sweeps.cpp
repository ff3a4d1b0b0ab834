// Every record decoded into a structure of its own (lens-shading grids and
// ratios, distortion, curves, cbd, generic tables), put through the same
// checks: every length from a bare header to past the complete record, every
// allocation made to fail, repeated ids (release through a whole parse: the
// sample module in parser/test_deinit.cpp). The sanitizer build turns any
// read past a record copy (each copy is exactly as long as its size field) or
// any leak into a failure.
#include <gtest/gtest.h>

#include <algorithm>

#include "allocation.h"
#include "diag_recorder.h"
#include "record_samples.h"
#include "slots.h"

using namespace ejtest;

namespace {

std::vector<int> slots_at(const SampleRecord &s, uint32_t len)
{
    std::vector<int> filled;
    for (const FilledSlot &f : s.slots) {
        if (len >= f.min_len)
            filled.push_back(f.slot);
    }
    std::sort(filled.begin(), filled.end());
    return filled;
}

class StructuredRecord : public ::testing::TestWithParam<SampleRecord> {};

TEST_P(StructuredRecord, EveryLengthDecodesWholeOrDropsCleanly)
{
    const SampleRecord &s = GetParam();
    for (uint32_t len = 8; len <= s.full + 8; ++len) {
        SCOPED_TRACE(::testing::Message() << "length " << len);
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        const uint32_t status = decode(parsed.get(), sample_at(s, len));
        if (len < s.min_len) {
            EXPECT_EQ(status, s.short_status);
            EXPECT_TRUE(filled_slots(parsed.get()).empty());
            EXPECT_TRUE(diag.saw(CMC_DIAG_TOO_SHORT));
            for (const cmc_diag_event &e : diag.events()) {
                EXPECT_EQ(e.id, s.id);
                EXPECT_EQ(e.size, len);
            }
        } else {
            EXPECT_EQ(status, 0u);
            EXPECT_EQ(filled_slots(parsed.get()), slots_at(s, len));
            EXPECT_FALSE(diag.saw(CMC_DIAG_TOO_SHORT));
        }
        // The complete record is silent, or reports just its one note.
        if (len == s.full) {
            ASSERT_EQ(diag.events().size(), s.full_note == 0 ? 0u : 1u);
            if (s.full_note != 0) {
                EXPECT_EQ(diag.events()[0].reason, s.full_note);
            }
        }
    }
}

TEST_P(StructuredRecord, EveryAllocationFailureEndsCleanly)
{
    const SampleRecord &s = GetParam();
    const Bytes record = sample_at(s, s.full);
    uint64_t allocations;
    {
        Parsed parsed = empty_parsed();
        FailureInjection none(0);
        ASSERT_EQ(decode(parsed.get(), record), 0u);
        allocations = cmc_alloc_count();
    }
    ASSERT_GT(allocations, 0u);
    const std::vector<int> all = slots_at(s, s.full);
    for (uint64_t k = 1; k <= allocations; ++k) {
        SCOPED_TRACE(::testing::Message() << "allocation " << k);
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        uint32_t status;
        {
            FailureInjection fail(k);
            status = decode(parsed.get(), record);
        }
        if (s.id == 24) {
            EXPECT_EQ(status, uint32_t(CMC_PARSE_NO_MEMORY));
            EXPECT_TRUE(filled_slots(parsed.get()).empty());
        } else {
            EXPECT_EQ(status, 0u);
        }
        const std::vector<int> filled = filled_slots(parsed.get());
        EXPECT_TRUE(std::includes(all.begin(), all.end(), filled.begin(), filled.end()));
        EXPECT_TRUE(diag.saw(CMC_DIAG_NO_MEMORY));
    }
}

TEST_P(StructuredRecord, RepeatedIdsReplaceOrYieldWithoutLeaks)
{
    const SampleRecord &s = GetParam();
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), sample_at(s, s.full)), 0u);
    DiagRecorder diag;
    ASSERT_EQ(decode(parsed.get(), sample_at(s, s.full)), 0u);
    EXPECT_EQ(filled_slots(parsed.get()), slots_at(s, s.full));
    // Ids 10 and 11 never replace a filled structure; id 10 still replaces
    // its own raw copy.
    if (s.id == 11) {
        EXPECT_TRUE(diag.saw(CMC_DIAG_SUPERSEDED));
        return;
    }
    EXPECT_TRUE(diag.saw(CMC_DIAG_REPLACED_EARLIER));
    if (s.id == 10)
        return;
    // A bare header of the same id then leaves the group empty.
    EXPECT_EQ(decode(parsed.get(), sample_at(s, 8)), s.short_status);
    EXPECT_TRUE(filled_slots(parsed.get()).empty());
}

INSTANTIATE_TEST_SUITE_P(Records, StructuredRecord,
                         ::testing::ValuesIn(sample_structured_records()),
                         [](const ::testing::TestParamInfo<SampleRecord> &i) {
                             return std::string(i.param.name);
                         });

} // namespace
