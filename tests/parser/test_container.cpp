// Container validation: the size field and the two checksum rules.
#include <gtest/gtest.h>

#include "diag_recorder.h"
#include "kelb_builder.h"
#include "slots.h"

using namespace ejtest;

namespace {

// The smallest container with a record: header words 0, 32, 0, 0, 0, C and
// one 8-byte record of version 100 and id 64, whose two words are 8 and V.
constexpr uint32_t kV = 100u | (64u << 16);

Bytes tiny_container(uint32_t checksum)
{
    ByteWriter w;
    w.u32(0).u32(32).u32(0).u32(0).u32(0).u32(checksum).u32(8).u32(kV);
    return w.take();
}

} // namespace

TEST(Container, TinyContainerAcceptedByEitherRuleOnly)
{
    for (uint32_t checksum : {40u + kV, 8u + kV}) {
        auto run = parse(tiny_container(checksum));
        ASSERT_NE(run->parsed, nullptr) << checksum;
        EXPECT_EQ(filled_slots(run->parsed.get()), std::vector<int>{64});
        EXPECT_EQ(run->parsed->container, &run->container_block);
    }
    for (uint32_t checksum : {0u, 39u + kV, 41u + kV, 7u + kV, 9u + kV, kV}) {
        DiagRecorder diag;
        EXPECT_EQ(parse(tiny_container(checksum))->parsed, nullptr) << checksum;
        EXPECT_TRUE(diag.saw(CMC_DIAG_CONTAINER_CHECKSUM));
    }
}

TEST(Container, RuleASumWrapsAndAHeaderOnlyContainerIsEmpty)
{
    // Header word 0 near 2^32 makes the rule-A sum wrap.
    const uint32_t big = 0xfffffff0u;
    EXPECT_NE(parse(ByteWriter().u32(big).u32(32).zeros(12).u32(big + 40u + kV).u32(8).u32(kV).take())
                  ->parsed,
              nullptr);
    auto run = parse(ByteWriter().u32(0).u32(24).zeros(12).u32(0).take());
    ASSERT_NE(run->parsed, nullptr);
    EXPECT_EQ(filled_slots(run->parsed.get()), std::vector<int>{64});
}

TEST(Container, EachRuleCoversItsOwnBytes)
{
    // Both rules accept a built container; rule A covers a record byte, rule
    // B only the records (the uninterpreted header bytes may change).
    const Bytes rec = make_record(5, 100, Bytes(8, 0x11));
    for (Checksum rule : {Checksum::RuleA, Checksum::RuleB}) {
        auto run = parse(make_container({rec}, rule));
        ASSERT_NE(run->parsed, nullptr);
        EXPECT_NE(run->parsed->rec_5, nullptr);
    }
    Bytes a = make_container({rec}, Checksum::RuleA);
    a[30] ^= 0x01;
    DiagRecorder diag;
    EXPECT_EQ(parse(a)->parsed, nullptr);
    ASSERT_EQ(diag.events().size(), 1u);
    EXPECT_EQ(diag.events()[0].reason, CMC_DIAG_CONTAINER_CHECKSUM);
    EXPECT_EQ(diag.events()[0].size, a.size());
    Bytes b = make_container({rec}, Checksum::RuleB);
    b[0] ^= 0xff;
    b[9] ^= 0xff;
    EXPECT_NE(parse(b)->parsed, nullptr);
}

TEST(Container, TrailingBytesTakeNoPartInEitherRule)
{
    for (Checksum rule : {Checksum::RuleA, Checksum::RuleB}) {
        for (size_t n = 1; n <= 3; ++n) {
            Bytes c = make_container({make_record(5, 100, Bytes(8, 1))}, rule, Bytes(n, 0x33));
            ASSERT_NE(parse(c)->parsed, nullptr) << n;
            c.back() ^= 0xff;
            auto run = parse(c);
            ASSERT_NE(run->parsed, nullptr) << n;
            EXPECT_NE(run->parsed->rec_5, nullptr);
        }
    }
}

TEST(Container, SizeFieldMustMatchTheBlock)
{
    Bytes c = make_container({make_record(5, 100, Bytes(8, 1))});
    for (uint32_t field : {uint32_t(c.size() - 1), uint32_t(c.size() + 1), 0u, 0xffffffffu}) {
        Bytes bad = c;
        for (int i = 0; i < 4; ++i)
            bad[4 + i] = uint8_t(field >> (8 * i));
        seal(bad);
        DiagRecorder diag;
        EXPECT_EQ(parse(bad)->parsed, nullptr) << field;
        EXPECT_TRUE(diag.saw(CMC_DIAG_CONTAINER_SIZE_FIELD));
    }
    // A block cut short of its size field is rejected the same way.
    Bytes cut(c.begin(), c.end() - 1);
    EXPECT_EQ(parse(cut)->parsed, nullptr);
}

TEST(Container, BlocksShorterThanAHeaderAreRejected)
{
    for (uint32_t size = 0; size < 24; ++size) {
        // Consistent size field and a zero checksum word, where they fit.
        Bytes c(size, 0);
        if (size >= 8)
            c[4] = uint8_t(size);
        DiagRecorder diag;
        EXPECT_EQ(parse(c)->parsed, nullptr) << size;
        EXPECT_TRUE(diag.saw(CMC_DIAG_CONTAINER_SIZE_FIELD) || diag.saw(CMC_DIAG_CONTAINER_NULL))
            << size;
    }
}

TEST(Container, NullDescriptorOrDataYieldsNull)
{
    DiagRecorder diag;
    EXPECT_EQ(ej_cmc_parser_init(nullptr), nullptr);
    ej_data_block no_data{nullptr, 24};
    EXPECT_EQ(ej_cmc_parser_init_v1(&no_data, nullptr), nullptr);
    EXPECT_EQ(diag.events().size(), 2u);
    EXPECT_TRUE(diag.saw(CMC_DIAG_CONTAINER_NULL));
}

TEST(Container, InitWithoutNvmMatchesInitV1)
{
    Bytes c = make_container({make_record(5, 100, Bytes(8, 7)), make_record(8, 100, {})});
    ej_data_block block{c.data(), uint32_t(c.size())};
    Parsed a(ej_cmc_parser_init(&block));
    Parsed b(ej_cmc_parser_init_v1(&block, nullptr));
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(filled_slots(a.get()), filled_slots(b.get()));
}
