// The container-parser stand-in: references of ids 31 and 34 become pointers
// when every referenced range lies inside the record; otherwise a distinct
// code comes back and the record is left exactly as it was.
#include <gtest/gtest.h>

#include <cstring>

#include "ej_kelb_parser.h"
#include "kelb_builder.h"
#include "kelb_refs_writer.h"

using namespace ejtest;

namespace {

// The record in an 8-byte aligned heap block, as the CMC parser hands it.
struct HeapRecord {
    explicit HeapRecord(const Bytes &r) : bytes(r), block(heap_copy(r)) {}
    ~HeapRecord() { std::free(block); }
    Bytes now() const { return Bytes(block, block + bytes.size()); }
    int parse() { return ej_kelb_parse_record(block); }
    uint8_t *pointer_at(uint32_t offset) const
    {
        uint8_t *p;
        std::memcpy(&p, block + offset, sizeof p);
        return p;
    }
    Bytes bytes;
    uint8_t *block;
};

Rec31Entry entry31(uint32_t seed)
{
    Rec31Entry e{};
    for (uint32_t i = 0; i < e.size(); ++i)
        e[i] = seed * 100 + i;
    return e;
}

Rec34Element table(size_t a, size_t b)
{
    Rec34Element e;
    e.word4 = 0x4444;
    for (size_t i = 0; i < a; ++i)
        e.entries.push_back({float(i) + 0.5f, 2.0f, {}});
    for (size_t i = 0; i < b; ++i)
        e.values.push_back({float(i) + 0.25f, uint32_t(i)});
    return e;
}
Rec34Element list(size_t l)
{
    Rec34Element e = table(0, l);
    e.kind = 1;
    e.word4 = 2;
    return e;
}
Rec34Element fixed()
{
    Rec34Element e;
    e.kind = 1;
    e.word4 = 3;
    e.fixed = {1, 2, 3, 4};
    return e;
}

Bytes sample_34()
{
    return make_rec_34({table(2, 1), list(3), fixed(), table(0, 0)});
}

} // namespace

TEST(KelbParser, RecordsWithoutReferencesAreCheckedForTheirHeaderOnly)
{
    EXPECT_EQ(ej_kelb_parse_record(nullptr), EJ_KELB_ERR_NULL);
    for (uint16_t id : {9, 32, 5, 63, 722}) {
        HeapRecord short_size(make_record_with_size(id, 100, {}, 7));
        EXPECT_EQ(short_size.parse(), EJ_KELB_ERR_TOO_SHORT) << id;
        HeapRecord r(make_record(id, 100, Bytes(40, 0xee)));
        EXPECT_EQ(r.parse(), EJ_KELB_OK) << id;
        EXPECT_EQ(r.now(), r.bytes) << id;
    }
}

TEST(KelbParser, Id31EntriesBecomeFollowable)
{
    HeapRecord r(make_rec_31({entry31(1), entry31(2)}));
    ASSERT_EQ(r.bytes.size(), 24u + 144u);
    ASSERT_EQ(r.parse(), EJ_KELB_OK);
    ASSERT_EQ(r.pointer_at(16), r.block + 24);
    EXPECT_EQ(get_u32(r.pointer_at(16) + 72), 200u);
    EXPECT_EQ(Bytes(r.block + 24, r.block + r.bytes.size()),
              Bytes(r.bytes.begin() + 24, r.bytes.end()));

    HeapRecord empty(make_rec_31({}));
    ASSERT_EQ(empty.parse(), EJ_KELB_OK);
    EXPECT_EQ(empty.pointer_at(16), nullptr);
}

TEST(KelbParser, Id34EveryKindOfElementBecomesFollowable)
{
    HeapRecord r(sample_34());
    ASSERT_EQ(r.parse(), EJ_KELB_OK);
    uint8_t *elements = r.pointer_at(16);
    ASSERT_EQ(elements, r.block + 32);
    // Arrays behind the 4 elements (32 + 160): 2 entries, 1 value, 3 list
    // values, then the fixed block.
    const uint8_t *b = r.block;
    EXPECT_EQ(r.pointer_at(32 + 16), b + 192);
    EXPECT_EQ(r.pointer_at(32 + 24), b + 256);
    EXPECT_EQ(r.pointer_at(32 + 32), nullptr);
    EXPECT_EQ(r.pointer_at(72 + 16), nullptr);
    EXPECT_EQ(r.pointer_at(72 + 24), b + 264);
    EXPECT_EQ(r.pointer_at(112 + 32), b + 288);
    EXPECT_EQ(get_u16(r.pointer_at(112 + 32) + 6), 4);
    for (uint32_t field : {16u, 24u, 32u})
        EXPECT_EQ(r.pointer_at(152 + field), nullptr);
    EXPECT_EQ(r.bytes.size(), 296u);
}

namespace {

struct Corruption {
    const char *name;
    Bytes record;
    int code;
};

void PrintTo(const Corruption &c, std::ostream *os)
{
    *os << c.name;
}

// A record with a u64 (or, not wide, a u32) written at offset.
Bytes patched(Bytes r, size_t offset, uint64_t v, bool wide = true)
{
    if (wide)
        put_u64(r, offset, v);
    else
        put_u32(r, offset, uint32_t(v));
    return r;
}

std::vector<Corruption> corruptions()
{
    constexpr uint32_t e0 = 32, e1 = 72, e2 = 112, e3 = 152; // elements of sample_34
    const Bytes one = make_rec_31({entry31(1)}), two = make_rec_31({entry31(1), entry31(2)});
    const Bytes s34 = sample_34();
    return {
        {"rec31_below_fixed_part", make_record_sized(31, 100, {}, 23), EJ_KELB_ERR_TOO_SHORT},
        {"rec34_below_fixed_part", make_record_sized(34, 100, {}, 16), EJ_KELB_ERR_TOO_SHORT},
        {"rec31_count_without_reference", patched(one, 16, 0), EJ_KELB_ERR_COUNT},
        {"rec31_reference_without_count", patched(one, 8, 0, false), EJ_KELB_ERR_COUNT},
        {"rec31_entries_past_end", patched(one, 8, 2, false), EJ_KELB_ERR_OUT_OF_RANGE},
        {"rec31_huge_count", patched(one, 8, 0xffffffff, false), EJ_KELB_ERR_OUT_OF_RANGE},
        {"rec31_reference_into_header", patched(two, 16, 16), EJ_KELB_ERR_OUT_OF_RANGE},
        {"rec31_reference_past_end", patched(one, 16, 1ull << 40), EJ_KELB_ERR_OUT_OF_RANGE},
        {"rec31_reference_wraps", patched(one, 16, ~uint64_t(7)), EJ_KELB_ERR_OUT_OF_RANGE},
        {"rec31_misaligned", patched(two, 16, 28), EJ_KELB_ERR_MISALIGNED},
        {"rec34_elements_past_end", patched(s34, 8, 8, false), EJ_KELB_ERR_OUT_OF_RANGE},
        {"rec34_elements_misaligned", patched(s34, 16, 36), EJ_KELB_ERR_MISALIGNED},
        {"rec34_count_without_elements", patched(s34, 16, 0), EJ_KELB_ERR_COUNT},
        {"rec34_unknown_kind", patched(s34, e1, 2, false), EJ_KELB_ERR_BAD_ELEMENT},
        {"rec34_unknown_sub_type", patched(s34, e1 + 4, 4, false), EJ_KELB_ERR_BAD_ELEMENT},
        {"rec34_fixed_without_block", patched(s34, e2 + 32, 0), EJ_KELB_ERR_BAD_ELEMENT},
        {"rec34_fixed_block_past_end", patched(s34, e2 + 32, 296), EJ_KELB_ERR_OUT_OF_RANGE},
        {"rec34_list_with_stray_entries", patched(s34, e1 + 16, 192), EJ_KELB_ERR_BAD_ELEMENT},
        {"rec34_table_with_stray_fixed", patched(s34, e3 + 32, 192), EJ_KELB_ERR_BAD_ELEMENT},
        {"rec34_fixed_with_stray_values", patched(s34, e2 + 24, 192), EJ_KELB_ERR_BAD_ELEMENT},
        {"rec34_entries_past_end", patched(s34, e0 + 8, 4, false), EJ_KELB_ERR_OUT_OF_RANGE},
        {"rec34_values_without_reference", patched(s34, e3 + 12, 1, false), EJ_KELB_ERR_COUNT},
        {"rec34_list_values_misaligned", patched(s34, e1 + 24, 260), EJ_KELB_ERR_MISALIGNED},
        // The fourth element is the last one checked: a fault there still
        // rejects the record, though the first three were sound.
        {"rec34_fault_in_last_element", patched(s34, e3, 9, false), EJ_KELB_ERR_BAD_ELEMENT},
    };
}

class KelbCorruption : public ::testing::TestWithParam<Corruption> {};

} // namespace

TEST_P(KelbCorruption, IsRejectedWithItsCodeAndNothingWritten)
{
    HeapRecord r(GetParam().record);
    EXPECT_EQ(r.parse(), GetParam().code);
    EXPECT_EQ(r.now(), r.bytes);
}

INSTANTIATE_TEST_SUITE_P(KelbParser, KelbCorruption, ::testing::ValuesIn(corruptions()),
                         [](const ::testing::TestParamInfo<Corruption> &i) { return i.param.name; });

TEST(KelbParser, RecordsTruncatedAtEveryLengthAreCompleteOrUntouched)
{
    // The size field says where the record ends; the sanitizer build proves
    // that no check reads beyond it.
    for (const Bytes &full : {sample_34(), make_rec_31({entry31(1), entry31(2)})}) {
        for (uint32_t len = 8; len <= full.size(); ++len) {
            Bytes cut(full.begin(), full.begin() + len);
            put_u32(cut, 0, len);
            HeapRecord r(cut);
            const int code = r.parse();
            if (len == full.size()) {
                EXPECT_EQ(code, EJ_KELB_OK);
            } else {
                EXPECT_TRUE(code == EJ_KELB_ERR_TOO_SHORT || code == EJ_KELB_ERR_OUT_OF_RANGE)
                    << len << " " << code;
                EXPECT_EQ(r.now(), r.bytes) << len;
            }
        }
    }
}
