// Companding curve records. Id 35 holds one piecewise-linear curve between a
// 32-bit ("wide") and a 16-bit ("narrow") domain and becomes two structures:
// the pipe compand curve (wide to narrow, slot 58) and the pipe decompand
// curve (narrow to wide, slot 59), each with its own copies of the points.
// Id 36 holds the sensor's decompanding points (slot 60). Everything is
// copied out; the record copy is always released.
//
// Neither format has a size test of its own; the records follow the one
// rule of decoder_support.h: they must reach the exact end of their arrays
// (20 + 12N bytes for id 35, 14 + 6N for id 36) or they are dropped.
#include "decoder_support.h"
#include "decoders.h"

namespace {

// Both: ctrl_byte at 8, ctrl_word at 9 (unaligned), the count N at 13, the
// arrays from 14.
constexpr uint32_t kCountOffset = 13;
constexpr uint32_t kArraysOffset = 14;

template <typename Curve> void copy_head(Curve *c, const uint8_t *record)
{
    memcpy_s(&c->header, sizeof c->header, record, 8);
    c->ctrl_byte = record[8];
}

void release_curve(void *curve, void *x, void *y, void *slopes)
{
    std::free(x);
    std::free(y);
    std::free(slopes);
    std::free(curve);
}

} // namespace

void cmc_pipe_compand_decompand_deinit(cmc_pipe_compand *compand, cmc_pipe_decompand *decompand)
{
    if (compand != nullptr)
        release_curve(compand, compand->x_points, compand->y_points, compand->slopes);
    if (decompand != nullptr)
        release_curve(decompand, decompand->x_points, decompand->y_points, decompand->slopes);
}

void cmc_sensor_decompand_deinit(cmc_sensor_decompand *sd)
{
    if (sd == nullptr)
        return;
    std::free(sd->x_points);
    std::free(sd->y_points);
    std::free(sd);
}

uint32_t decode_pipe_compand(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->pipe_compand != nullptr ? parsed->pipe_compand
                                                     : static_cast<void *>(parsed->pipe_decompand),
                     record);
    cmc_pipe_compand_decompand_deinit(parsed->pipe_compand, parsed->pipe_decompand);
    parsed->pipe_compand = nullptr;
    parsed->pipe_decompand = nullptr;

    if (!reaches(record, kCountOffset + 1))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint64_t n = record[kCountOffset];
    if (!reaches(record, 20 + 12 * n))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint8_t *wide_points = record + kArraysOffset;
    const uint8_t *narrow_points = wide_points + 4 * (n + 1);
    const uint8_t *narrow_slopes = narrow_points + 2 * (n + 1);
    const uint8_t *wide_slopes = narrow_slopes + 2 * n;

    auto *de = parsed->pipe_decompand = alloc_array<cmc_pipe_decompand>(1);
    auto *co = parsed->pipe_compand = de != nullptr ? alloc_array<cmc_pipe_compand>(1) : nullptr;
    bool complete = co != nullptr;
    if (complete) {
        copy_head(de, record);
        copy_head(co, record);
        de->ctrl_word = co->ctrl_word = load_u32(record + 9);
        de->num_segments = co->num_segments = uint8_t(n);
        // The allocation order is part of the format's history: a failure
        // part way leaves the same arrays behind as it always did (all are
        // released below anyway).
        complete = (de->y_points = copy_out<uint32_t>(wide_points, n + 1)) != nullptr &&
                   (co->x_points = copy_out<uint32_t>(wide_points, n + 1)) != nullptr &&
                   (de->x_points = copy_out<uint16_t>(narrow_points, n + 1)) != nullptr &&
                   (co->y_points = copy_out<uint16_t>(narrow_points, n + 1)) != nullptr &&
                   (co->slopes = copy_out<uint16_t>(narrow_slopes, n)) != nullptr &&
                   (de->slopes = copy_out<uint32_t>(wide_slopes, n)) != nullptr;
    }
    if (!complete) {
        cmc_pipe_compand_decompand_deinit(parsed->pipe_compand, parsed->pipe_decompand);
        parsed->pipe_compand = nullptr;
        parsed->pipe_decompand = nullptr;
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    }
    std::free(record);
    return 0;
}

uint32_t decode_sensor_decompand(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->sensor_decompand, record);
    cmc_sensor_decompand_deinit(parsed->sensor_decompand);
    parsed->sensor_decompand = nullptr;

    if (!reaches(record, kCountOffset + 1))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint64_t n = record[kCountOffset];
    if (!reaches(record, 14 + 6 * n))
        return drop_record(record, CMC_DIAG_TOO_SHORT);

    auto *sd = alloc_array<cmc_sensor_decompand>(1);
    if (sd == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    copy_head(sd, record);
    memcpy_s(sd->ctrl_word, sizeof sd->ctrl_word, record + 9, 4);
    sd->num_points = uint8_t(n);
    sd->x_points = copy_out<uint16_t>(record + kArraysOffset, n);
    sd->y_points = sd->x_points != nullptr ? copy_out<uint32_t>(record + kArraysOffset + 2 * n, n)
                                           : nullptr;
    if (sd->y_points == nullptr) {
        cmc_sensor_decompand_deinit(sd);
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    }
    parsed->sensor_decompand = sd;
    std::free(record);
    return 0;
}
