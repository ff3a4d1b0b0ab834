// Curve-set record (id 15): four tables kept in place (views into the kept
// copy) and, behind them, k variable-length curves copied into a heap
// curve set. The curve set is all or nothing: when a curve does not fit or an
// allocation fails, everything built of the set is released and slot 23
// stays empty, while the record and its tables stay.
#include <cstddef>

#include "decoder_support.h"
#include "decoders.h"
#include "memcpy_s.h"

namespace {

// Counts A at 8 and B at 10; tables a, b, c of A and d of B 8-byte rows
// from 12; then the u16 curve count k and the curves.
constexpr uint32_t kCountA = 8;
constexpr uint32_t kCountB = 10;
constexpr uint32_t kTables = 12;
constexpr uint32_t kRow = 8;
// A curve: 8 bytes, a u16 at +8, the sample count m at +10, then m u16 (the
// first array) and m u16 (the second).
constexpr uint32_t kCurveHead = 8;
constexpr uint32_t kCurveFixed = 12;
constexpr uint32_t kCurveCount = 10;

void empty_group(cmc_parsed_data *parsed)
{
    rec_15_curve_set_free(parsed->rec_15_curves);
    parsed->rec_15_curves = nullptr;
    release_slot(parsed->rec_15);
    parsed->rec_15_table_a = nullptr;
    parsed->rec_15_table_b = nullptr;
    parsed->rec_15_table_c = nullptr;
    parsed->rec_15_table_d = nullptr;
}

// Size rule of the curve part, with the offsets in 64 bits: 16-bit counts of
// curves and samples could carry a 32-bit offset past the largest size field.
bool curve_part_fits(const uint8_t *record, uint64_t end)
{
    return record_size(record) >= ((end + 7) & ~uint64_t(7));
}

// Copies the curve starting at *off into curve, advancing *off.
bool read_curve(const uint8_t *record, uint64_t *off, rec_15_curve *curve, cmc_diag_reason *why)
{
    if (!curve_part_fits(record, *off + kCurveFixed)) {
        *why = CMC_DIAG_PART_TOO_SHORT;
        return false;
    }
    const uint8_t *at = record + *off;
    memcpy_s(curve->head, sizeof curve->head, at, kCurveHead);
    // The u16 at +8 and m, as they stand, into the two adjacent fields.
    static_assert(offsetof(rec_15_curve, count) == offsetof(rec_15_curve, value) + 2, "adjacent");
    memcpy_s(reinterpret_cast<uint8_t *>(curve) + offsetof(rec_15_curve, value), 4,
             at + kCurveHead, 4);
    const uint32_t m = load_u16(at + kCurveCount);
    *off += kCurveFixed;
    if (m != 0) { // a curve without samples gets no arrays
        curve->first = static_cast<uint16_t *>(cmc_calloc(m, sizeof(uint16_t)));
        curve->second = static_cast<uint16_t *>(cmc_calloc(m, sizeof(uint16_t)));
        if (curve->first == nullptr || curve->second == nullptr) {
            *why = CMC_DIAG_NO_MEMORY;
            return false;
        }
    }
    if (!curve_part_fits(record, *off + 4 * uint64_t(m))) {
        *why = CMC_DIAG_PART_TOO_SHORT;
        return false;
    }
    if (m != 0) {
        memcpy_s(curve->first, 2 * size_t(m), record + *off, 2 * size_t(m));
        *off += 2 * m;
        memcpy_s(curve->second, 2 * size_t(m), record + *off, 2 * size_t(m));
        *off += 2 * m;
    }
    return true;
}

// The curve set behind the tables, or null (reason in *why).
rec_15_curve_set *read_curve_set(const uint8_t *record, uint32_t curves_at, cmc_diag_reason *why)
{
    auto *set = static_cast<rec_15_curve_set *>(cmc_calloc(1, sizeof(rec_15_curve_set)));
    if (set == nullptr) {
        *why = CMC_DIAG_NO_MEMORY;
        return nullptr;
    }
    memcpy_s(&set->count, sizeof set->count, record + curves_at, sizeof set->count);
    // A set without curves gets no curve array.
    if (set->count != 0) {
        set->curves = static_cast<rec_15_curve *>(cmc_calloc(set->count, sizeof(rec_15_curve)));
        if (set->curves == nullptr) {
            *why = CMC_DIAG_NO_MEMORY;
            rec_15_curve_set_free(set);
            return nullptr;
        }
    }
    uint64_t off = curves_at + sizeof(uint16_t);
    for (uint32_t i = 0; i < set->count; ++i) {
        if (!read_curve(record, &off, &set->curves[i], why)) {
            rec_15_curve_set_free(set);
            return nullptr;
        }
    }
    return set;
}

} // namespace

void rec_15_curve_set_free(rec_15_curve_set *set)
{
    if (set == nullptr)
        return;
    if (set->curves != nullptr) {
        for (uint32_t i = 0; i < set->count; ++i) {
            release_slot(set->curves[i].second);
            release_slot(set->curves[i].first);
        }
    }
    release_slot(set->curves);
    std::free(set);
}

uint32_t decode_rec_15(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->rec_15, record);
    empty_group(parsed);

    if (!holds(record, kTables))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint32_t a = load_u16(record + kCountA);
    const uint32_t b = load_u16(record + kCountB);
    const uint32_t table_d = kTables + 3 * kRow * a;
    const uint32_t curves_at = table_d + kRow * b; // the curve count k
    // The end of table d rounded up (16 + 24·A + 8·B) also covers k.
    if (!holds(record, required_size(curves_at)))
        return drop_record(record, CMC_DIAG_TOO_SHORT);

    parsed->rec_15 = record;
    set_view(parsed->rec_15_table_a, record, kTables);
    set_view(parsed->rec_15_table_b, record, kTables + kRow * a);
    set_view(parsed->rec_15_table_c, record, kTables + 2 * kRow * a);
    set_view(parsed->rec_15_table_d, record, table_d);

    cmc_diag_reason why = CMC_DIAG_NO_MEMORY;
    parsed->rec_15_curves = read_curve_set(record, curves_at, &why);
    if (parsed->rec_15_curves == nullptr)
        cmc_diag_record(record, why);
    return 0;
}
