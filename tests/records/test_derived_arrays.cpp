// Tables with derived arrays: id 13 (value copy and four parameters), id 14
// (table view sized by start, end and step), id 15 (four table views and an
// all-or-nothing curve set).
#include <gtest/gtest.h>

#include <array>

#include "derived_array_records.h"
#include "diag_recorder.h"
#include "failure_injection.h"
#include "ej_log.h"
#include "kelb_builder.h"
#include "slots.h"

using namespace ejtest;

namespace {

// Counts the lines the library logs while in scope: these decoders log none.
struct LogCounter {
    LogCounter() { ej_log_set_sink(&LogCounter::count, this); }
    ~LogCounter() { ej_log_set_sink(nullptr, nullptr); }
    static void count(int, const char *, void *user) { ++static_cast<LogCounter *>(user)->lines; }
    int lines = 0;
};

using Params = std::array<uint16_t, 4>;
const Params kDefaults = {0, 1, 250, 1000};

Params params(const cmc_parsed_data *p)
{
    return {p->rec_13_params[0], p->rec_13_params[1], p->rec_13_params[2], p->rec_13_params[3]};
}

const std::vector<Curve> kCurves = {{7, {1, 2, 3}, {4, 5, 6}}, {8, {}, {}}, {9, {10}, {20}}};

const std::vector<int> kRec15Tables = {22, 25, 26, 27, 28};
const std::vector<int> kRec15All = {22, 23, 25, 26, 27, 28};

} // namespace

TEST(Rec13, WorkedExamples)
{
    struct Case {
        uint8_t version;
        uint32_t size;
        Params expected;
        bool part_missing;
    };
    const Case cases[] = {
        {100, 80, kDefaults, false},
        {101, 80, {5, 1, 250, 1000}, false},
        {102, 88, {5, 6, 7, 8}, false},
        {102, 80, {5, 1, 250, 1000}, true},
        {103, 88, {5, 6, 7, 8}, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(::testing::Message() << int(c.version) << " size " << c.size);
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        const uint8_t *copy = nullptr;
        ASSERT_EQ(decode(parsed.get(), rec_13(c.version, c.size), &copy), 0u);
        EXPECT_EQ(parsed->rec_13, copy);
        ASSERT_NE(parsed->rec_13_values, nullptr);
        EXPECT_EQ(parsed->rec_13_values[0], 11);
        EXPECT_EQ(parsed->rec_13_values[2], 13);
        EXPECT_EQ(params(parsed.get()), c.expected);
        EXPECT_EQ(diag.saw(CMC_DIAG_PART_TOO_SHORT), c.part_missing);
    }
}

TEST(Rec13, EveryLengthGivesTheWholeGroupOrDefaults)
{
    for (uint8_t version : {100, 101, 102}) {
        for (uint32_t len = 8; len <= 96; ++len) {
            SCOPED_TRACE(::testing::Message() << int(version) << " length " << len);
            Parsed parsed = empty_parsed();
            parsed->rec_13_params[1] = 77; // overwritten in every case
            DiagRecorder diag;
            ASSERT_EQ(decode(parsed.get(), rec_13(version, len)), 0u);
            if (len < 80) { // 72 + 2·3 rounded up
                EXPECT_TRUE(filled_slots(parsed.get()) == std::vector<int>{19});
                EXPECT_EQ(params(parsed.get()), kDefaults);
                ASSERT_EQ(diag.events().size(), 1u);
                EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_TOO_SHORT);
                continue;
            }
            EXPECT_NE(parsed->rec_13, nullptr);
            EXPECT_NE(parsed->rec_13_values, nullptr);
            const Params p = params(parsed.get());
            EXPECT_EQ(p[0], version >= 101 ? 5 : 0);
            EXPECT_EQ(p[1], version >= 102 && len >= 88 ? 6 : 1);
        }
    }
}

TEST(Rec13, WithoutValuesOrWithoutMemory)
{
    Parsed parsed = empty_parsed();
    // n = 0: kept without a value array.
    ASSERT_EQ(decode(parsed.get(), make_record_sized(13, 100, {}, 72)), 0u);
    EXPECT_NE(parsed->rec_13, nullptr);
    EXPECT_EQ(parsed->rec_13_values, nullptr);
    // The value array fails: the record and its parameters are kept.
    DiagRecorder diag;
    {
        FailureInjection fail(1);
        ASSERT_EQ(decode(parsed.get(), rec_13(102, 88)), 0u);
    }
    EXPECT_NE(parsed->rec_13, nullptr);
    EXPECT_EQ(parsed->rec_13_values, nullptr);
    EXPECT_EQ(params(parsed.get()), (Params{5, 6, 7, 8}));
    EXPECT_TRUE(diag.saw(CMC_DIAG_REPLACED_EARLIER));
    EXPECT_TRUE(diag.saw(CMC_DIAG_NO_MEMORY));
    // A later short record empties the group and restores the defaults.
    ASSERT_EQ(decode(parsed.get(), rec_13(102, 72)), 0u);
    EXPECT_EQ(filled_slots(parsed.get()), std::vector<int>{19});
    EXPECT_EQ(params(parsed.get()), kDefaults);
}

TEST(Rec14, SizeFollowsFromStartEndAndStep)
{
    struct Case {
        uint16_t start, end, step;
        uint32_t needed; // 0: rejected whatever its size
    };
    const Case cases[] = {
        {0, 10, 5, 40}, {0, 10, 3, 48}, {7, 7, 1, 24}, {2, 3, 1, 32},
        {0, 65535, 65535, 32}, {0, 10, 0, 0}, {10, 0, 1, 0}, {5, 4, 1, 0},
    };
    for (const Case &c : cases) {
        for (uint32_t len = 8; len <= 64; ++len) {
            SCOPED_TRACE(::testing::Message() << c.start << ".." << c.end << "/" << c.step
                                              << " length " << len);
            Parsed parsed = empty_parsed();
            DiagRecorder diag;
            const uint8_t *copy = nullptr;
            ASSERT_EQ(decode(parsed.get(), rec_14(c.start, c.end, c.step, len), &copy), 0u);
            if (c.needed != 0 && len >= c.needed) {
                EXPECT_EQ(parsed->rec_14, copy);
                EXPECT_EQ(parsed->rec_14_table, copy + 14);
                EXPECT_TRUE(diag.events().empty());
                continue;
            }
            EXPECT_TRUE(filled_slots(parsed.get()).empty());
            ASSERT_EQ(diag.events().size(), 1u);
            EXPECT_EQ(diag.events()[0].reason,
                      len < 14 ? CMC_DIAG_TOO_SHORT
                               : (c.needed == 0 ? CMC_DIAG_BAD_FIELD : CMC_DIAG_TOO_SHORT));
        }
    }
}

TEST(Rec15, TablesAndCurves)
{
    Parsed parsed = empty_parsed();
    const uint8_t *copy = nullptr;
    DiagRecorder diag;
    ASSERT_EQ(decode(parsed.get(), rec_15(2, 1, kCurves), &copy), 0u);
    EXPECT_TRUE(diag.events().empty());
    EXPECT_EQ(filled_slots(parsed.get()), kRec15All);
    EXPECT_EQ(parsed->rec_15, copy);
    EXPECT_EQ(parsed->rec_15_table_a, copy + 12);
    EXPECT_EQ(parsed->rec_15_table_b, copy + 28);
    EXPECT_EQ(parsed->rec_15_table_c, copy + 44);
    EXPECT_EQ(parsed->rec_15_table_d, copy + 60);
    EXPECT_EQ(parsed->rec_15_table_d[0], 0x30);
    const rec_15_curve_set *set = parsed->rec_15_curves;
    ASSERT_EQ(set->count, 3);
    for (size_t i = 0; i < kCurves.size(); ++i) {
        const rec_15_curve &c = set->curves[i];
        EXPECT_EQ(c.head[0], 0xc0);
        EXPECT_EQ(c.value, kCurves[i].value);
        ASSERT_EQ(c.count, kCurves[i].first.size());
        EXPECT_EQ(c.first == nullptr, c.count == 0);
        for (size_t j = 0; j < c.count; ++j) {
            EXPECT_EQ(c.first[j], kCurves[i].first[j]);
            EXPECT_EQ(c.second[j], kCurves[i].second[j]);
        }
    }
}

TEST(Rec15, EveryLengthKeepsTablesAndAllOrNoneOfTheCurves)
{
    // Without curves 40 bytes hold everything; with them the tables need
    // 16 + 24 + 8 = 48, and the second curve running past the end takes the
    // first one with it.
    const std::pair<Bytes, uint32_t> records[] = {{rec_15(1, 0, {}), 40}, {rec_15(1, 1, kCurves), 48}};
    ASSERT_EQ(records[0].first.size(), 40u);
    for (const auto &[full, tables_min] : records) {
        const Bytes payload(full.begin() + 8, full.end());
        for (uint32_t len = 8; len <= full.size(); ++len) {
            SCOPED_TRACE(::testing::Message() << "length " << len << " of " << full.size());
            Parsed parsed = empty_parsed();
            DiagRecorder diag;
            ASSERT_EQ(decode(parsed.get(), make_record_sized(15, 100, payload, len)), 0u);
            const std::vector<int> filled = filled_slots(parsed.get());
            if (len < tables_min) {
                EXPECT_TRUE(filled.empty());
                EXPECT_TRUE(diag.saw(CMC_DIAG_TOO_SHORT));
            } else if (len < full.size()) {
                EXPECT_EQ(filled, kRec15Tables);
                EXPECT_TRUE(diag.saw(CMC_DIAG_PART_TOO_SHORT));
            } else {
                EXPECT_EQ(filled, kRec15All);
                EXPECT_TRUE(diag.events().empty());
            }
        }
    }
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), records[0].first), 0u);
    EXPECT_EQ(parsed->rec_15_curves->count, 0);
    EXPECT_EQ(parsed->rec_15_curves->curves, nullptr);
}

TEST(Rec15, EveryAllocationFailureReleasesTheWholeSet)
{
    // Set, curve array, then two arrays per curve with samples: 6 in all.
    const Bytes record = rec_15(1, 1, kCurves);
    for (uint64_t k = 1; k <= 6; ++k) {
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        LogCounter log;
        {
            FailureInjection fail(k);
            ASSERT_EQ(decode(parsed.get(), record), 0u);
        }
        EXPECT_EQ(filled_slots(parsed.get()), kRec15Tables) << k;
        EXPECT_TRUE(diag.saw(CMC_DIAG_NO_MEMORY)) << k;
        EXPECT_EQ(log.lines, 0) << k;
    }
}

TEST(Rec15, ALaterRecordReleasesTheEarlierSet)
{
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), rec_15(1, 1, kCurves)), 0u);
    DiagRecorder diag;
    ASSERT_EQ(decode(parsed.get(), rec_15(0, 0, {{3, {4}, {5}}})), 0u);
    EXPECT_TRUE(diag.saw(CMC_DIAG_REPLACED_EARLIER));
    EXPECT_EQ(parsed->rec_15_curves->count, 1);
    EXPECT_EQ(parsed->rec_15_table_a, parsed->rec_15 + 12);
    EXPECT_EQ(parsed->rec_15_table_d, parsed->rec_15 + 12);
    // A short one empties the group.
    ASSERT_EQ(decode(parsed.get(), make_record_sized(15, 100, {}, 8)), 0u);
    EXPECT_TRUE(filled_slots(parsed.get()).empty());
}

TEST(DerivedArrays, AFullParseFillsAndReleasesEveryGroup)
{
    LogCounter log;
    auto run = parse(make_container({rec_13(102, 88), rec_14(0, 10, 5, 40), rec_15(2, 1, kCurves)}));
    ASSERT_NE(run->parsed, nullptr);
    const std::vector<int> expected = {17, 18, 19, 20, 21, 22, 23, 25, 26, 27, 28, 64};
    EXPECT_EQ(filled_slots(run->parsed.get()), expected);
    EXPECT_EQ(log.lines, 0);
    run->parsed.reset(); // the sanitizer build checks every curve array is released once
}
