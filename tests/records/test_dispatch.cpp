// Dispatch of cmc_parse on the record id, and what the walk hands to it:
// ids without a decoder, ids of 64 and above, container order, repeated ids
// and the offsets carried by drop events.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "diag_recorder.h"
#include "kelb_builder.h"
#include "slots.h"

using namespace ejtest;

namespace {

const std::set<int> kDecoded = {1, 2, 5, 6, 7, 8, 16, 17, 18, 19, 20, 21, 23, 37,
                                3, 9, 13, 14, 15, 31, 32, 34,
                                // tables, grids, distortion, curves and cbd
                                10, 11, 22, 24, 25, 26, 27, 28, 29, 33, 35, 36, 38,
                                // the map record
                                30};

std::vector<int> ids_without_decoder()
{
    std::vector<int> ids;
    for (int id = 0; id < 64; ++id)
        if (kDecoded.count(id) == 0)
            ids.push_back(id);
    return ids;
}

// A record id-independent enough to look like something to any decoder:
// counts of 1 everywhere, a name, plenty of room.
Bytes busy_record(uint16_t id, uint32_t total)
{
    ByteWriter w;
    for (int i = 0; i < 8; ++i)
        w.u16(1);
    w.cstr("name").u16(0);
    return make_record_sized(id, 101, w.take(), total);
}

class DispatchNoDecoder : public ::testing::TestWithParam<int> {};

TEST_P(DispatchNoDecoder, ReturnsBadDataAndLeavesEverySlotAlone)
{
    const uint16_t id = uint16_t(GetParam());
    Parsed parsed = empty_parsed();
    // Earlier results that must survive untouched.
    ASSERT_EQ(decode(parsed.get(), make_record_sized(5, 100, {}, 16)), 0u);
    ASSERT_EQ(decode(parsed.get(), make_record(1, 100, ByteWriter().zeros(16).cstr("ab").take())), 0u);
    cmc_parsed_data before;
    std::memcpy(&before, parsed.get(), sizeof before);

    for (uint32_t total : {8u, 16u, 64u, 200u}) {
        DiagRecorder diag;
        EXPECT_EQ(decode(parsed.get(), busy_record(id, total)), uint32_t(CMC_PARSE_BAD_DATA))
            << "id " << id << " size " << total;
        EXPECT_EQ(std::memcmp(&before, parsed.get(), sizeof before), 0) << "id " << id;
        ASSERT_EQ(diag.events().size(), 1u);
        const cmc_diag_event &e = diag.events()[0];
        EXPECT_EQ(e.reason, CMC_DIAG_NO_DECODER);
        EXPECT_EQ(e.id, id);
        EXPECT_EQ(e.size, total);
        EXPECT_EQ(e.version, 101);
        EXPECT_EQ(e.offset, CMC_DIAG_NO_OFFSET);
    }
}

INSTANTIATE_TEST_SUITE_P(Dispatch, DispatchNoDecoder, ::testing::ValuesIn(ids_without_decoder()),
                         [](const ::testing::TestParamInfo<int> &i) {
                             return "id" + std::to_string(i.param);
                         });

TEST(DispatchWalk, IdsFrom64UpNeverReachTheDecodersButId63Does)
{
    // Ids 69 and 0x4005 would be valid id-5 records if read modulo anything;
    // the odd sizes show that the walk steps over foreign records by size.
    std::vector<Bytes> records;
    const std::pair<uint16_t, uint32_t> foreign[] = {{64, 21}, {69, 16}, {722, 48}, {0x4005, 16}, {65535, 8}};
    for (const auto &[id, size] : foreign)
        records.push_back(make_record_sized(id, 100, {}, size));
    records.push_back(make_record_sized(63, 100, {}, 24)); // at 24 + 109 = 133
    DiagRecorder diag;
    auto run = parse(make_container(records));
    ASSERT_NE(run->parsed, nullptr);
    EXPECT_EQ(filled_slots(run->parsed.get()), std::vector<int>{64});
    ASSERT_EQ(diag.events().size(), 1u);
    EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_NO_DECODER);
    EXPECT_EQ(diag.events()[0].id, 63);
    EXPECT_EQ(diag.events()[0].offset, 133u);
    EXPECT_EQ(diag.events()[0].size, 24u);
}

TEST(DispatchWalk, LaterRecordOfAnIdReplacesTheEarlierOne)
{
    const Bytes first = make_record_sized(5, 100, Bytes(8, 0x11), 16);
    const Bytes second = make_record_sized(5, 100, Bytes(16, 0x22), 24);
    DiagRecorder diag;
    auto run = parse(make_container({first, make_record_sized(64, 100, {}, 8), second}));
    ASSERT_NE(run->parsed, nullptr);
    const uint8_t *kept = run->parsed->rec_5;
    ASSERT_NE(kept, nullptr);
    // A copy of the second record, not a pointer into the container.
    EXPECT_EQ(Bytes(kept, kept + 24), second);
    const uint8_t *c = run->container.data();
    EXPECT_FALSE(kept >= c && kept < c + run->container.size());
    ASSERT_EQ(diag.events().size(), 1u);
    EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_REPLACED_EARLIER);
    EXPECT_EQ(diag.events()[0].offset, 24u + 16u + 8u);
    EXPECT_EQ(diag.events()[0].size, 24u);
}

TEST(DispatchWalk, EventsCarryEachRecordsOffsetInContainerOrder)
{
    // Offsets: 24 id 64 (skipped), 40 id 4, 56 id 5 of 15 bytes (dropped),
    // 71 id 23 of 24 bytes (kept), 95 id 12, 111 id 23 again (replaces).
    DiagRecorder diag;
    auto run = parse(make_container({make_record_sized(64, 100, {}, 16),
                                     make_record_sized(4, 100, {}, 16),
                                     make_record_sized(5, 100, {}, 15),
                                     make_record_sized(23, 100, {}, 24),
                                     make_record_sized(12, 100, {}, 16),
                                     make_record_sized(23, 102, {}, 32)}));
    ASSERT_NE(run->parsed, nullptr);
    struct Expected {
        uint32_t offset;
        uint16_t id;
        cmc_diag_reason reason;
    };
    const Expected expected[] = {{40, 4, CMC_DIAG_NO_DECODER},
                                 {56, 5, CMC_DIAG_TOO_SHORT},
                                 {95, 12, CMC_DIAG_NO_DECODER},
                                 {111, 23, CMC_DIAG_REPLACED_EARLIER}};
    ASSERT_EQ(diag.events().size(), std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(diag.events()[i].offset, expected[i].offset) << i;
        EXPECT_EQ(diag.events()[i].id, expected[i].id) << i;
        EXPECT_EQ(diag.events()[i].reason, expected[i].reason) << i;
    }
    ASSERT_NE(run->parsed->rec_23, nullptr);
    EXPECT_EQ(run->parsed->rec_23[4], 102);
    EXPECT_EQ(filled_slots(run->parsed.get()), (std::vector<int>{43, 64}));

    // After the walk, a direct call is not attributed to any container offset.
    diag.clear();
    Parsed direct = empty_parsed();
    EXPECT_EQ(decode(direct.get(), make_record_sized(4, 100, {}, 16)), uint32_t(CMC_PARSE_BAD_DATA));
    ASSERT_EQ(diag.events().size(), 1u);
    EXPECT_EQ(diag.events()[0].offset, CMC_DIAG_NO_OFFSET);
}

} // namespace
