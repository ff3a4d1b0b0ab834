// Tables with a derived array (ids 13 and 14): the record is kept and users
// get, beside it, a heap copy of the id-13 values with four small parameters,
// or a view of the id-14 table whose length follows from start, end and step.
#include <cstring>

#include "decoder_support.h"
#include "decoders.h"
#include "memcpy_s.h"

namespace {

// Id 13: u16 count n at 70, n u16 values from 72, then parameter 0 (version
// 101 and later) and parameters 1 to 3 (version 102 and later).
constexpr uint32_t kRec13Count = 70;
constexpr uint32_t kRec13Values = 72;
constexpr uint16_t kRec13Defaults[4] = {0, 1, 250, 1000};

void reset_rec_13(cmc_parsed_data *parsed)
{
    release_slot(parsed->rec_13_values);
    release_slot(parsed->rec_13);
    std::memcpy(parsed->rec_13_params, kRec13Defaults, sizeof kRec13Defaults);
}

// Id 14: start at 8, end at 10, step at 12, then m + 1 8-byte rows from 14
// with m = (end - start) / step.
constexpr uint32_t kRec14Start = 8;
constexpr uint32_t kRec14End = 10;
constexpr uint32_t kRec14Step = 12;
constexpr uint32_t kRec14Table = 14;

} // namespace

uint32_t decode_rec_13(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->rec_13, record);
    reset_rec_13(parsed);

    if (!holds(record, kRec13Values))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint32_t n = load_u16(record + kRec13Count);
    const uint32_t values_end = kRec13Values + 2 * n;
    if (!holds(record, required_size(values_end)))
        return drop_record(record, CMC_DIAG_TOO_SHORT);

    // A record without values gets no array: slot 18 stays empty.
    if (n != 0) {
        auto *values = static_cast<uint16_t *>(cmc_malloc(2 * size_t(n)));
        if (values != nullptr)
            memcpy_s(values, 2 * size_t(n), record + kRec13Values, 2 * size_t(n));
        else
            cmc_diag_record(record, CMC_DIAG_NO_MEMORY); // the record is kept without it
        parsed->rec_13_values = values;
    }

    const uint8_t version = record_version(record);
    if (version >= 101) {
        if (holds(record, required_size(values_end + 2)))
            parsed->rec_13_params[0] = load_u16(record + values_end);
        else
            cmc_diag_record(record, CMC_DIAG_PART_TOO_SHORT); // parameter 0 stays 0
    }
    if (version >= 102) {
        if (holds(record, required_size(values_end + 8)))
            memcpy_s(&parsed->rec_13_params[1], 3 * sizeof(uint16_t), record + values_end + 2,
                     3 * sizeof(uint16_t));
        else
            cmc_diag_record(record, CMC_DIAG_PART_TOO_SHORT); // 1, 250, 1000 stay
    }
    parsed->rec_13 = record;
    return 0;
}

uint32_t decode_rec_14(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->rec_14, record);
    release_slot(parsed->rec_14);
    parsed->rec_14_table = nullptr;

    if (!holds(record, kRec14Table))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint16_t start = load_u16(record + kRec14Start);
    const uint16_t end = load_u16(record + kRec14End);
    const uint16_t step = load_u16(record + kRec14Step);
    // End below start would wrap the row count around in 32 bits and leave
    // the table unbounded by the size rule; such a record is rejected.
    if (step == 0 || end < start)
        return drop_record(record, CMC_DIAG_BAD_FIELD);
    const uint32_t m = (uint32_t(end) - start) / step;
    // 14 + 8·(m + 1) rounded up to 8, that is 24 + 8·m.
    if (!holds(record, required_size(kRec14Table + 8 * (m + 1))))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    parsed->rec_14 = record;
    set_view(parsed->rec_14_table, record, kRec14Table);
    return 0;
}
