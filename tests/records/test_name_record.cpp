// The id-1 record: a name at offset 24 and, from version 101, a pair count
// followed by key/value strings back to back (slots 0 to 3).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "diag_recorder.h"
#include "kelb_builder.h"
#include "slots.h"

using namespace ejtest;

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

// Offsets 8..23 are not interpreted; the name starts at 24.
Bytes name_record(uint8_t version, const std::string &name, int pair_count = -1,
                  const Pairs &pairs = {}, size_t extra_zeros = 0)
{
    ByteWriter w;
    w.fill(16, 0xee).cstr(name);
    if (pair_count >= 0) {
        w.u16(uint16_t(pair_count));
        for (const auto &[k, v] : pairs)
            w.cstr(k).cstr(v);
    }
    w.zeros(extra_zeros);
    return make_record(1, version, w.take());
}

Bytes cut(Bytes record, uint32_t len)
{
    record.resize(len);
    for (int i = 0; i < 4; ++i)
        record[i] = uint8_t(len >> (8 * i));
    return record;
}

const uint8_t *feed(cmc_parsed_data *parsed, const Bytes &record)
{
    const uint8_t *copy = nullptr;
    EXPECT_EQ(decode(parsed, record, &copy), uint32_t(CMC_PARSE_OK));
    return copy;
}

// Slots 0 to 3 empty (count 0), and nothing else filled either.
void expect_dropped(const cmc_parsed_data *parsed)
{
    EXPECT_TRUE(filled_slots(parsed).empty());
}

const Pairs kTwoPairs = {{"k1", "v1"}, {"k2", "v2"}};

TEST(NameRecord, PairsPointAtTheirStringsInsideTheKeptCopy)
{
    // name "ab" 24..26, p 27..28, k1 29, v1 32, k2 35, v2 38, end 41.
    const Bytes record = name_record(101, "ab", 2, kTwoPairs);
    ASSERT_EQ(record.size(), 41u);
    Parsed parsed = empty_parsed();
    DiagRecorder diag;
    const uint8_t *copy = feed(parsed.get(), record);
    ASSERT_EQ(parsed->rec_1, copy);
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(parsed->rec_1_name), copy + 24);
    ASSERT_EQ(parsed->rec_1_pair_count, 2);
    ASSERT_NE(parsed->rec_1_pairs, nullptr);
    const uint32_t offsets[2][2] = {{29, 32}, {35, 38}};
    for (int i = 0; i < 2; ++i) {
        const rec_1_pair &pair = parsed->rec_1_pairs[i];
        EXPECT_EQ(reinterpret_cast<const uint8_t *>(pair.key), copy + offsets[i][0]);
        EXPECT_EQ(reinterpret_cast<const uint8_t *>(pair.value), copy + offsets[i][1]);
        EXPECT_EQ(pair.key, kTwoPairs[i].first);
        EXPECT_EQ(pair.value, kTwoPairs[i].second);
    }
    EXPECT_EQ(filled_slots(parsed.get()), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_TRUE(diag.events().empty());
}

struct Truncation {
    const char *name;
    Bytes record;
    uint32_t name_end; // just past the name's terminator
    uint16_t pairs;
};

TEST(NameRecord, EveryLengthKeepsAllOrNothingAndSaysWhy)
{
    const Truncation cases[] = {
        // A two-character name needs 27 bytes: 26 are dropped.
        {"v100", name_record(100, "ab"), 27, 0},
        {"v101_p0", name_record(101, "ab", 0), 27, 0},
        {"v101_p2", name_record(101, "ab", 2, kTwoPairs), 27, 2},
        {"v102_empty_strings", name_record(102, "", 2, {{"", ""}, {"", "x"}}), 25, 2},
    };
    for (const Truncation &t : cases) {
        const uint32_t full = uint32_t(t.record.size());
        for (uint32_t len = 8; len <= full + 8; ++len) {
            Bytes record = t.record;
            record.resize(std::max<size_t>(len, record.size()), 0);
            record = cut(record, len);
            Parsed parsed = empty_parsed();
            DiagRecorder diag;
            SCOPED_TRACE(::testing::Message() << t.name << " length " << len);
            const uint8_t *copy = feed(parsed.get(), record);
            if (len < full) {
                expect_dropped(parsed.get());
                ASSERT_EQ(diag.events().size(), 1u);
                const cmc_diag_reason r = diag.events()[0].reason;
                if (len <= 24) // not even room for the name
                    EXPECT_TRUE(r == CMC_DIAG_BAD_STRING || r == CMC_DIAG_TOO_SHORT) << r;
                else if (len < t.name_end || len >= t.name_end + 2)
                    EXPECT_EQ(r, CMC_DIAG_BAD_STRING); // name, key or value unterminated
                else
                    EXPECT_EQ(r, CMC_DIAG_TOO_SHORT); // no room for the pair count
                continue;
            }
            EXPECT_TRUE(diag.events().empty());
            EXPECT_EQ(parsed->rec_1, copy);
            EXPECT_EQ(reinterpret_cast<const uint8_t *>(parsed->rec_1_name), copy + 24);
            EXPECT_EQ(parsed->rec_1_pair_count, t.pairs);
            EXPECT_EQ(parsed->rec_1_pairs == nullptr, t.pairs == 0);
        }
    }
}

TEST(NameRecord, PairCountDisagreeingWithTheStrings)
{
    // More pairs announced than present: dropped, the pair array released.
    for (int p : {3, 1000, 65535}) {
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        feed(parsed.get(), name_record(101, "ab", p, kTwoPairs));
        expect_dropped(parsed.get());
        EXPECT_TRUE(diag.saw(CMC_DIAG_BAD_STRING)) << p;
    }
    // Two zero bytes after the strings are a third pair of empty strings.
    Parsed parsed = empty_parsed();
    const uint8_t *copy = feed(parsed.get(), name_record(101, "ab", 3, kTwoPairs, 2));
    ASSERT_EQ(parsed->rec_1_pair_count, 3);
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(parsed->rec_1_pairs[2].key), copy + 41);
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(parsed->rec_1_pairs[2].value), copy + 42);
    // Fewer pairs announced than present: the rest is ignored.
    Parsed fewer = empty_parsed();
    feed(fewer.get(), name_record(101, "ab", 1, kTwoPairs));
    ASSERT_EQ(fewer->rec_1_pair_count, 1);
    EXPECT_STREQ(fewer->rec_1_pairs[0].value, "v1");
}

TEST(NameRecord, Version100AndBelowIgnoreWhatFollowsTheName)
{
    for (uint8_t version : {0, 99, 100}) {
        Parsed parsed = empty_parsed();
        feed(parsed.get(), name_record(version, "name", 2, kTwoPairs));
        EXPECT_STREQ(parsed->rec_1_name, "name");
        EXPECT_EQ(parsed->rec_1_pair_count, 0);
        EXPECT_EQ(parsed->rec_1_pairs, nullptr);
    }
}

TEST(NameRecord, LaterRecordReplacesTheEarlierOne)
{
    Parsed parsed = empty_parsed();
    feed(parsed.get(), name_record(101, "ab", 2, kTwoPairs));
    DiagRecorder diag;
    // A version-100 record leaves no pairs of the earlier one behind.
    const uint8_t *copy = feed(parsed.get(), name_record(100, "xyz"));
    EXPECT_EQ(parsed->rec_1, copy);
    EXPECT_STREQ(parsed->rec_1_name, "xyz");
    EXPECT_EQ(parsed->rec_1_pair_count, 0);
    EXPECT_EQ(parsed->rec_1_pairs, nullptr);
    ASSERT_EQ(diag.events().size(), 1u);
    EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_REPLACED_EARLIER);

    copy = feed(parsed.get(), name_record(101, "cd", 1, {{"key", "value"}}));
    ASSERT_EQ(parsed->rec_1_pair_count, 1);
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(parsed->rec_1_pairs[0].key), copy + 29);

    diag.clear();
    feed(parsed.get(), cut(name_record(101, "ab", 2, kTwoPairs), 40));
    expect_dropped(parsed.get());
    EXPECT_TRUE(diag.saw(CMC_DIAG_BAD_STRING));
}

} // namespace
