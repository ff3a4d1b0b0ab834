// Wide field-of-view geometric distortion record (id 22): maps, lookup units
// (version 101) and elements (version 102), the one plane block, the
// documented results of each allocation failure, and the records whose
// counts run past them or are negative.
#include <gtest/gtest.h>

#include <cstring>

#include "diag_recorder.h"
#include "record_samples.h"
#include "slots.h"

using namespace ejtest;

namespace {

struct Wfov {
    int16_t w = 2, h = 1;
    uint16_t maps = 1;
    int32_t units = 0;
    int32_t elements = 0;
    std::vector<uint32_t> values; // num_values of each element written
    bool tail = true;
};

Bytes wfov(const Wfov &c)
{
    ByteWriter p;
    p.u32(0x0a0b0c0d).u16(uint16_t(c.w)).u16(uint16_t(c.h)).u32(0x01020304).u16(c.maps);
    const int64_t w = int64_t(c.w) * c.h;
    for (uint16_t k = 0; k < c.maps; ++k)
        p.u16(k).fill(size_t(8 * std::max<int64_t>(w, 0)), uint8_t(k + 1));
    p.u32(77).i32(c.units).fill(size_t(1040 * std::max(c.units, 0)), 0x5a).fill(1024, 0x6b);
    p.u32(1).u32(2).u32(3).u32(4);
    p.f32(9.5f).i32(c.elements);
    for (uint32_t n : c.values) {
        p.f32(1.0f).f32(2.0f).u32(3).u32(n);
        for (uint32_t v = 0; v < n; ++v)
            p.u32(100 + v);
    }
    if (c.tail)
        p.fill(24 * c.values.size(), 0x7c);
    return p.take();
}

// The first len bytes of the version-102 layout, as a record of that version.
Bytes wfov_record(uint8_t version, const Wfov &c, uint32_t len = 0)
{
    const Bytes payload = wfov(c);
    return make_record_sized(22, version, payload, len != 0 ? len : uint32_t(8 + payload.size()));
}

const SampleRecord &sample22()
{
    return sample_structured_records()[5];
}

bool all_zero(const void *p, size_t n)
{
    const auto *b = static_cast<const uint8_t *>(p);
    return std::all_of(b, b + n, [](uint8_t v) { return v == 0; });
}

TEST(WfovDistortion, Version102CopiesEveryPart)
{
    ASSERT_STREQ(sample22().name, "id22_v102");
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), sample_at(sample22(), sample22().full)), 0u);
    const cmc_geometric_distortion2_wfov *gd = parsed->geometric_distortion2_wfov;
    ASSERT_NE(gd, nullptr);
    const uint8_t word_a[4] = {0xa4, 0xa3, 0xa2, 0xa1};
    EXPECT_EQ(std::memcmp(gd->word_a, word_a, 4), 0);
    EXPECT_EQ(gd->map_width, 2);
    EXPECT_EQ(gd->map_height, 1);
    EXPECT_EQ(gd->num_maps, 2);
    for (uint32_t k = 0; k < 2; ++k) {
        EXPECT_EQ(gd->maps[k].map_id, 0x70 + k);
        EXPECT_EQ(gd->maps[k].plane_a, gd->maps[0].plane_a + 4 * k); // one block
        EXPECT_EQ(gd->maps[k].plane_b, gd->maps[k].plane_a + 2);
        for (uint32_t i = 0; i < 2; ++i) {
            EXPECT_EQ(gd->maps[k].plane_a[i], 0x1000 * (k + 1) + i);
            EXPECT_EQ(gd->maps[k].plane_b[i], 0x1000 * (k + 1) + 2 + i);
        }
    }
    EXPECT_EQ(gd->ext_value, 0xe0e0e0e0u);
    EXPECT_EQ(gd->num_units, 1);
    ASSERT_NE(gd->units, nullptr);
    EXPECT_EQ(gd->units[0], 0x55);
    EXPECT_EQ(gd->units[1039], 0x55);
    EXPECT_EQ(gd->unit.unit_table[1023], 0x66);
    EXPECT_EQ(gd->unit.unit_values[3], 4u);
    EXPECT_EQ(gd->ext2_value, 2.5f);
    ASSERT_EQ(gd->num_elements, 2);
    EXPECT_EQ(gd->elements[0].elem_b, 2.0f);
    EXPECT_EQ(gd->elements[0].elem_c, 7u);
    ASSERT_EQ(gd->elements[0].num_values, 2u);
    EXPECT_EQ(gd->elements[0].values[1], 12u);
    EXPECT_EQ(gd->elements[1].elem_a, 3.0f);
    ASSERT_EQ(gd->elements[1].num_values, 1u);
    EXPECT_EQ(gd->elements[1].values[0], 13u);
    ASSERT_NE(gd->element_tail, nullptr);
    EXPECT_EQ(gd->element_tail[47], 0x77);
}

TEST(WfovDistortion, Version100WithoutMapsHoldsOnlyTheFirstFields)
{
    Wfov c;
    c.maps = 0;
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), wfov_record(100, c, 22)), 0u);
    const cmc_geometric_distortion2_wfov *gd = parsed->geometric_distortion2_wfov;
    ASSERT_NE(gd, nullptr);
    EXPECT_EQ(gd->num_maps, 0);
    EXPECT_EQ(gd->maps, nullptr);
    EXPECT_EQ(gd->units, nullptr);
    EXPECT_EQ(gd->ext_value, 0u);
    EXPECT_TRUE(all_zero(&gd->unit, sizeof gd->unit));
    DiagRecorder diag;
    ASSERT_EQ(decode(parsed.get(), wfov_record(100, c, 21)), 0u);
    EXPECT_EQ(parsed->geometric_distortion2_wfov, nullptr);
    EXPECT_TRUE(diag.saw(CMC_DIAG_TOO_SHORT));
}

TEST(WfovDistortion, Version101AlwaysCarriesTheInlineUnit)
{
    for (int32_t units : {0, -5, 2}) {
        Wfov c;
        c.units = units;
        // 22 + 18 (one map) + 8 + units + 1040.
        const uint32_t len = 22 + 18 + 8 + 1040 * uint32_t(std::max(units, 0)) + 1040;
        Parsed parsed = empty_parsed();
        ASSERT_EQ(decode(parsed.get(), wfov_record(101, c, len - 1)), 0u);
        EXPECT_EQ(parsed->geometric_distortion2_wfov, nullptr) << units;
        ASSERT_EQ(decode(parsed.get(), wfov_record(101, c, len)), 0u);
        const cmc_geometric_distortion2_wfov *gd = parsed->geometric_distortion2_wfov;
        ASSERT_NE(gd, nullptr) << units;
        EXPECT_EQ(gd->num_units, units);
        EXPECT_EQ(gd->units == nullptr, units <= 0);
        EXPECT_EQ(gd->unit.unit_table[0], 0x6b);
        EXPECT_EQ(gd->unit.unit_values[0], 1u);
        EXPECT_EQ(gd->elements, nullptr);
    }
}

TEST(WfovDistortion, Version102WithoutElementsHasEmptyArrays)
{
    Wfov c;
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), wfov_record(102, c)), 0u);
    const cmc_geometric_distortion2_wfov *gd = parsed->geometric_distortion2_wfov;
    ASSERT_NE(gd, nullptr);
    EXPECT_EQ(gd->num_elements, 0);
    EXPECT_NE(gd->elements, nullptr);
    EXPECT_NE(gd->element_tail, nullptr);
    EXPECT_EQ(gd->ext2_value, 9.5f);
}

TEST(WfovDistortion, UnusableElementListsDropTheElementsOnly)
{
    // An element without values ends the list (nothing after it is read,
    // ext2_value goes too), even under 2^31 - 1 announced elements, which are
    // not allocated first (48 GiB). A negative count cannot be allocated: the
    // record ends at the count, ext2_value stays. One byte less cuts the last
    // field read and drops the record.
    struct Case {
        const char *what;
        int32_t elements;
        std::vector<uint32_t> values;
        float ext2_value;
    };
    const Case cases[] = {{"second of three without values", 3, {2, 0}, 0.0f},
                          {"huge count, first without values", 0x7fffffff, {0}, 0.0f},
                          {"negative count", -1, {}, 9.5f}};
    for (const Case &k : cases) {
        SCOPED_TRACE(k.what);
        Wfov c;
        c.elements = k.elements;
        c.values = k.values;
        c.tail = false;
        const Bytes full = wfov_record(102, c);
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        ASSERT_EQ(decode(parsed.get(), full), 0u);
        const cmc_geometric_distortion2_wfov *gd = parsed->geometric_distortion2_wfov;
        ASSERT_NE(gd, nullptr);
        EXPECT_EQ(gd->num_elements, k.elements);
        EXPECT_EQ(gd->elements, nullptr);
        EXPECT_EQ(gd->element_tail, nullptr);
        EXPECT_EQ(gd->ext2_value, k.ext2_value);
        EXPECT_NE(gd->maps, nullptr);
        EXPECT_EQ(gd->unit.unit_values[3], 4u);
        EXPECT_TRUE(diag.saw(CMC_DIAG_BAD_COUNT));
        ASSERT_EQ(decode(parsed.get(), wfov_record(102, c, uint32_t(full.size() - 1))), 0u);
        EXPECT_EQ(parsed->geometric_distortion2_wfov, nullptr);
    }
}

TEST(WfovDistortion, NegativeExtentsAreDroppedBeforeAllocating)
{
    struct Case {
        int16_t w, h;
        uint16_t maps;
        int32_t elements;
        bool kept;
    };
    const Case cases[] = {{-2, 1, 1, 0, false}, {3, -1, 2, 0, false}, {-2, -1, 1, 0, true},
                          {-7, 1, 0, 0, true}};
    for (const Case &k : cases) {
        Wfov c;
        c.w = k.w;
        c.h = k.h;
        c.maps = k.maps;
        c.elements = k.elements;
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        FailureInjection count(0);
        ASSERT_EQ(decode(parsed.get(), wfov_record(102, c)), 0u);
        EXPECT_EQ(parsed->geometric_distortion2_wfov != nullptr, k.kept) << k.w << " " << k.maps;
        if (!k.kept) {
            EXPECT_TRUE(diag.saw(CMC_DIAG_BAD_COUNT));
            EXPECT_EQ(cmc_alloc_count(), 0u);
        }
    }
}

TEST(WfovDistortion, EachAllocationFailureLeavesItsDocumentedResult)
{
    // Allocations: 1 structure, 2 map array, 3 plane block, 4 units,
    // 5 element array, 6 and 7 values, 8 tail.
    const Bytes record = sample_at(sample22(), sample22().full);
    for (uint64_t k = 1; k <= 8; ++k) {
        SCOPED_TRACE(::testing::Message() << "allocation " << k);
        Parsed parsed = empty_parsed();
        {
            FailureInjection fail(k);
            ASSERT_EQ(decode(parsed.get(), record), 0u);
        }
        const cmc_geometric_distortion2_wfov *gd = parsed->geometric_distortion2_wfov;
        if (k <= 3) {
            EXPECT_EQ(gd, nullptr);
            continue;
        }
        ASSERT_NE(gd, nullptr);
        EXPECT_NE(gd->maps, nullptr);
        EXPECT_EQ(gd->num_units, 1);
        EXPECT_EQ(gd->units == nullptr, k == 4);
        EXPECT_EQ(all_zero(&gd->unit, sizeof gd->unit), k == 4);
        EXPECT_EQ(gd->elements, nullptr);
        EXPECT_EQ(gd->element_tail, nullptr);
        EXPECT_EQ(gd->num_elements, k == 4 ? 0 : 2);
        EXPECT_EQ(gd->ext2_value, k == 5 ? 2.5f : 0.0f);
    }
}

TEST(WfovDistortion, FreeReleasesOnlyTheVersion102Part)
{
    cmc_geometric_distortion2_wfov_free(nullptr);
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), sample_at(sample22(), sample22().full)), 0u);
    cmc_geometric_distortion2_wfov *gd = parsed->geometric_distortion2_wfov;
    cmc_geometric_distortion2_wfov_free(gd);
    EXPECT_EQ(gd->elements, nullptr);
    EXPECT_EQ(gd->element_tail, nullptr);
    EXPECT_EQ(gd->ext2_value, 0.0f);
    EXPECT_EQ(gd->num_elements, 2);
    EXPECT_NE(gd->maps, nullptr);
    EXPECT_NE(gd->units, nullptr);
    cmc_geometric_distortion2_wfov_free(gd); // twice is harmless
    // The parse result releases the rest.
}

} // namespace
