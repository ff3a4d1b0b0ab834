// Companding curves (ids 35, 36) and the cbd record (id 38): the arrays each
// structure gets, the exact length each record needs, zero counts, the
// allocation order of the id-35 pair, and replacement by a later record.
#include <gtest/gtest.h>

#include <cstring>

#include "diag_recorder.h"
#include "record_samples.h"
#include "slots.h"

using namespace ejtest;

namespace {

const SampleRecord &sample(uint16_t id)
{
    for (const SampleRecord &s : sample_structured_records()) {
        if (s.id == id)
            return s;
    }
    throw std::runtime_error("no sample");
}

template <typename T> std::vector<T> values(const T *p, size_t n)
{
    return std::vector<T>(p, p + n);
}

TEST(CompandCurves, Id35GivesBothDirectionsWithSeparateCopies)
{
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), sample_at(sample(35), 44)), 0u);
    const cmc_pipe_compand *co = parsed->pipe_compand;
    const cmc_pipe_decompand *de = parsed->pipe_decompand;
    ASSERT_NE(co, nullptr);
    ASSERT_NE(de, nullptr);
    for (const kelb_record_header *h : {&co->header, &de->header}) {
        EXPECT_EQ(h->size, 44u);
        EXPECT_EQ(h->id, 35);
    }
    EXPECT_EQ(co->ctrl_byte, 0x35);
    EXPECT_EQ(co->ctrl_word, 0x01020304u); // read at offset 9
    EXPECT_EQ(de->ctrl_word, 0x01020304u);
    EXPECT_EQ(co->num_segments, 2);
    EXPECT_EQ(values(co->x_points, 3), (std::vector<uint32_t>{0, 1000, 65535}));
    EXPECT_EQ(values(co->y_points, 3), (std::vector<uint16_t>{0, 100, 4095}));
    EXPECT_EQ(values(co->slopes, 2), (std::vector<uint16_t>{25, 30}));
    EXPECT_EQ(values(de->x_points, 3), (std::vector<uint16_t>{0, 100, 4095}));
    EXPECT_EQ(values(de->y_points, 3), (std::vector<uint32_t>{0, 1000, 65535}));
    EXPECT_EQ(values(de->slopes, 2), (std::vector<uint32_t>{40, 50}));
    EXPECT_NE(static_cast<const void *>(co->x_points), static_cast<const void *>(de->y_points));
    EXPECT_NE(static_cast<const void *>(co->y_points), static_cast<const void *>(de->x_points));
}

TEST(CompandCurves, ZeroSegmentsNeedExactly20Bytes)
{
    const Bytes payload = ByteWriter().u8(1).u32(2).u8(0).u32(123).u16(45).take();
    Parsed parsed = empty_parsed();
    DiagRecorder diag;
    ASSERT_EQ(decode(parsed.get(), make_record_sized(35, 100, payload, 19)), 0u);
    EXPECT_TRUE(filled_slots(parsed.get()).empty());
    EXPECT_TRUE(diag.saw(CMC_DIAG_TOO_SHORT));
    ASSERT_EQ(decode(parsed.get(), make_record_sized(35, 100, payload, 20)), 0u);
    ASSERT_NE(parsed->pipe_compand, nullptr);
    EXPECT_EQ(parsed->pipe_compand->x_points[0], 123u);
    EXPECT_EQ(parsed->pipe_decompand->x_points[0], 45);
    EXPECT_NE(parsed->pipe_compand->slopes, nullptr); // zero-length arrays
    EXPECT_NE(parsed->pipe_decompand->slopes, nullptr);
}

TEST(CompandCurves, AnyAllocationFailureEmptiesBothSlots)
{
    // 1 decompand, 2 compand, then their six arrays: a failure anywhere
    // empties both slots, and what was built is released (the sanitizer
    // build checks that).
    const Bytes record = sample_at(sample(35), 44);
    for (uint64_t k = 1; k <= 8; ++k) {
        Parsed parsed = empty_parsed();
        FailureInjection fail(k);
        ASSERT_EQ(decode(parsed.get(), record), 0u);
        EXPECT_EQ(parsed->pipe_compand, nullptr) << k;
        EXPECT_EQ(parsed->pipe_decompand, nullptr) << k;
        EXPECT_EQ(cmc_alloc_count(), k) << k; // nothing is allocated after a failure
    }
}

TEST(CompandCurves, Id36NeedsExactly14Plus6N)
{
    // 26 accepted, 25 rejected: the record sweeps.
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), sample_at(sample(36), 26)), 0u);
    const cmc_sensor_decompand *sd = parsed->sensor_decompand;
    ASSERT_NE(sd, nullptr);
    const uint8_t ctrl[4] = {0x0d, 0x0c, 0x0b, 0x0a};
    EXPECT_EQ(std::memcmp(sd->ctrl_word, ctrl, 4), 0);
    EXPECT_EQ(sd->num_points, 2);
    EXPECT_EQ(values(sd->x_points, 2), (std::vector<uint16_t>{10, 20}));
    EXPECT_EQ(values(sd->y_points, 2), (std::vector<uint32_t>{1000, 2000}));
    // N = 0: 14 bytes and zero-length arrays.
    ASSERT_EQ(decode(parsed.get(), make_record(36, 100, ByteWriter().u8(0).u32(0).u8(0).take())), 0u);
    ASSERT_NE(parsed->sensor_decompand, nullptr);
    EXPECT_EQ(parsed->sensor_decompand->num_points, 0);
    EXPECT_NE(parsed->sensor_decompand->x_points, nullptr);
}

TEST(Cbd, CopiesBothArraysAndNeedsExactly10Plus8N)
{
    // 26 accepted, 25 rejected: the record sweeps.
    Parsed parsed = empty_parsed();
    ASSERT_EQ(decode(parsed.get(), sample_at(sample(38), 26)), 0u);
    const cmc_cbd *cbd = parsed->cbd;
    ASSERT_NE(cbd, nullptr);
    EXPECT_EQ(cbd->header.id, 38);
    EXPECT_EQ(cbd->cbd_byte, 0x38);
    EXPECT_EQ(cbd->num_entries, 2);
    EXPECT_EQ(values(cbd->first_values, 2), (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(values(cbd->second_values, 2), (std::vector<uint32_t>{3, 4}));
    ASSERT_EQ(decode(parsed.get(), make_record(38, 100, {7, 0})), 0u);
    ASSERT_NE(parsed->cbd, nullptr);
    EXPECT_EQ(parsed->cbd->cbd_byte, 7);
    EXPECT_NE(parsed->cbd->first_values, nullptr);
    EXPECT_NE(parsed->cbd->second_values, nullptr);
}

TEST(CurveRelease, RoutinesAcceptNullAndPartlyBuiltStructures)
{
    cmc_pipe_compand_decompand_deinit(nullptr, nullptr);
    cmc_sensor_decompand_deinit(nullptr);
    cmc_cbd_deinit(nullptr);
    auto *co = static_cast<cmc_pipe_compand *>(calloc(1, sizeof(cmc_pipe_compand)));
    co->x_points = static_cast<uint32_t *>(malloc(8));
    cmc_pipe_compand_decompand_deinit(co, nullptr);
    auto *de = static_cast<cmc_pipe_decompand *>(calloc(1, sizeof(cmc_pipe_decompand)));
    de->slopes = static_cast<uint32_t *>(malloc(8));
    cmc_pipe_compand_decompand_deinit(nullptr, de);
    auto *cbd = static_cast<cmc_cbd *>(calloc(1, sizeof(cmc_cbd)));
    cbd->first_values = static_cast<uint32_t *>(malloc(4));
    cmc_cbd_deinit(cbd);
}

} // namespace
