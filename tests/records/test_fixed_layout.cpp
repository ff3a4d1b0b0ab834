// The id-2 record: copied by version into a 36-byte structure (slot 4), the
// fields an older version lacks filled from the u16 at offset 12.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "diag_recorder.h"
#include "kelb_builder.h"
#include "slots.h"

using namespace ejtest;

namespace {

using Struct = std::array<uint8_t, 36>;

// Every byte from offset 8 on is distinct: byte i holds 0x30 + i.
Bytes rec2(uint8_t version, uint32_t total)
{
    ByteWriter w;
    for (uint32_t i = 8; i < total; ++i)
        w.u8(uint8_t(0x30 + i));
    return make_record_sized(2, version, w.take(), total);
}

Bytes with_u16(Bytes r, size_t offset, uint16_t v)
{
    r[offset] = uint8_t(v);
    r[offset + 1] = uint8_t(v >> 8);
    return r;
}

Struct rec_2_bytes(const cmc_parsed_data *parsed)
{
    Struct s{};
    EXPECT_NE(parsed->rec_2, nullptr);
    if (parsed->rec_2 != nullptr)
        std::memcpy(s.data(), parsed->rec_2, s.size());
    return s;
}

uint16_t u16_at(const Struct &s, size_t offset)
{
    return get_u16(s.data() + offset);
}

TEST(FixedLayout, WorkedExamples)
{
    struct Case {
        uint8_t version;
        uint32_t size;
        uint16_t at12, at16, at34; // expected in the structure
        uint32_t copied;           // leading record bytes found in the structure
    };
    // Records carry 7 at offset 12, 9 at 16 and 5 at 34 where they are long
    // enough; 0 copied means a zero structure.
    const Case cases[] = {
        {100, 16, 7, 7, 7, 16}, {100, 15, 0, 0, 0, 0},  {100, 48, 7, 7, 7, 16},
        {101, 24, 7, 9, 7, 18}, {101, 23, 0, 0, 0, 0},  {101, 16, 0, 0, 0, 0},
        {102, 40, 7, 9, 7, 34}, {102, 39, 0, 0, 0, 0},  {103, 40, 7, 9, 5, 36},
        {103, 39, 0, 0, 0, 0},  {200, 48, 7, 9, 5, 36}, {99, 16, 0, 0, 0, 0},
        {99, 40, 0, 0, 0, 0},   {0, 64, 0, 0, 0, 0},    {99, 8, 0, 0, 0, 0},
    };
    for (const Case &c : cases) {
        Bytes record = rec2(c.version, c.size);
        if (c.size >= 14)
            record = with_u16(record, 12, 7);
        if (c.size >= 18)
            record = with_u16(record, 16, 9);
        if (c.size >= 36)
            record = with_u16(record, 34, 5);
        Parsed parsed = empty_parsed();
        ASSERT_EQ(decode(parsed.get(), record), 0u);
        const Struct s = rec_2_bytes(parsed.get());
        SCOPED_TRACE(::testing::Message() << "version " << int(c.version) << " size " << c.size);
        EXPECT_EQ(u16_at(s, 12), c.at12);
        EXPECT_EQ(u16_at(s, 16), c.at16);
        EXPECT_EQ(u16_at(s, 34), c.at34);
        if (c.copied != 0) {
            // The header as stored: size, version, the spare byte, id 2.
            EXPECT_EQ(get_u32(s.data()), c.size);
            EXPECT_EQ(s[4], c.version);
            EXPECT_EQ(get_u16(s.data() + 6), 2);
            EXPECT_EQ(s[18], c.copied > 18 ? record[18] : 0);
            EXPECT_EQ(s[33], c.copied > 18 ? record[33] : 0);
        }
        EXPECT_EQ(filled_slots(parsed.get()), std::vector<int>{4});
    }
}

TEST(FixedLayout, EveryVersionAndLength)
{
    for (int version : {0, 1, 99, 100, 101, 102, 103, 104, 255}) {
        const uint32_t need = version < 100 ? 0 : version == 100 ? 16 : version == 101 ? 24 : 40;
        const uint32_t copied = version == 100 ? 16 : version == 101 ? 18 : version == 102 ? 34 : 36;
        for (uint32_t len = 8; len <= 56; ++len) {
            const Bytes record = rec2(uint8_t(version), len);
            Struct want{};
            cmc_diag_reason reason = CMC_DIAG_UNSUPPORTED_VERSION;
            if (version >= 100) {
                reason = CMC_DIAG_TOO_SHORT;
                if (len >= need) {
                    std::memcpy(want.data(), record.data(), copied);
                    if (version == 100)
                        std::memcpy(want.data() + 16, record.data() + 12, 2);
                    if (version <= 102)
                        std::memcpy(want.data() + 34, record.data() + 12, 2);
                }
            }
            Parsed parsed = empty_parsed();
            DiagRecorder diag;
            SCOPED_TRACE(::testing::Message() << "version " << version << " length " << len);
            ASSERT_EQ(decode(parsed.get(), record), 0u);
            EXPECT_EQ(rec_2_bytes(parsed.get()), want);
            EXPECT_EQ(filled_slots(parsed.get()), std::vector<int>{4});
            if (version >= 100 && len >= need) {
                EXPECT_TRUE(diag.events().empty());
            } else {
                ASSERT_EQ(diag.events().size(), 1u);
                EXPECT_EQ(diag.events()[0].reason, reason);
                EXPECT_EQ(diag.events()[0].version, uint8_t(version));
                EXPECT_EQ(diag.events()[0].size, len);
            }
        }
    }
}

TEST(FixedLayout, LaterRecordReplacesTheEarlierStructure)
{
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), with_u16(rec2(103, 40), 12, 1)), 0u);
    DiagRecorder diag;
    ASSERT_EQ(decode(parsed.get(), with_u16(rec2(100, 16), 12, 2)), 0u);
    Struct s = rec_2_bytes(parsed.get());
    EXPECT_EQ(u16_at(s, 12), 2);
    EXPECT_EQ(u16_at(s, 34), 2);
    EXPECT_EQ(s[18], 0); // nothing of the version-103 record survives
    ASSERT_EQ(diag.events().size(), 1u);
    EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_REPLACED_EARLIER);

    // An unusable record still replaces it, with a zero structure.
    diag.clear();
    ASSERT_EQ(decode(parsed.get(), rec2(99, 40)), 0u);
    EXPECT_EQ(rec_2_bytes(parsed.get()), Struct{});
    EXPECT_TRUE(diag.saw(CMC_DIAG_UNSUPPORTED_VERSION));
    diag.clear();
    ASSERT_EQ(decode(parsed.get(), rec2(103, 40)), 0u);
    ASSERT_EQ(decode(parsed.get(), rec2(102, 39)), 0u);
    EXPECT_EQ(rec_2_bytes(parsed.get()), Struct{});
    EXPECT_TRUE(diag.saw(CMC_DIAG_TOO_SHORT));
}

} // namespace
