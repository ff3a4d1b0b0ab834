// Lens-shading ratio records: id 33 (the pattern form) and id 11 (the older
// 2 x 2 form) both become the cmc_lens_shading_ratio of slot 56. Every value
// is copied out, so the record copy is always released.
//
// An id-33 record always replaces the structure; an id-11 record only fills
// an empty slot (the first ratio record of the older form wins, and it never
// replaces one of id 33).
#include "decoders.h"
#include "lens_shading_sets.h"

using namespace lens_shading;

namespace {

// Id 11: num_sets at 8, extents at 10 and 12, sets from 14 of a 10-byte set
// header (nvm_table_index, set_id, an unread u16, two Q0.16 params) and four
// grids.
constexpr layout_2x2 kLayout11{8, 14, 10};

// The id-33 set stores the 0-based NVM table number: the index is 1-based
// (16-bit wrap-around for a stored 65535).
void read_set_header_33(const uint8_t *set_bytes, cmc_lens_shading_ratio_set &set)
{
    set.set_id = load_u16(set_bytes);
    set.nvm_table_index = uint16_t(load_u16(set_bytes + 2) + 1);
    for (uint32_t j = 0; j < 4; ++j)
        set.set_params[j] = load_f32(set_bytes + 4 + 4 * j);
}

// The id-11 set stores the index already 1-based, before set_id.
void read_set_header_11(const uint8_t *set_bytes, cmc_lens_shading_ratio_set &set)
{
    set.nvm_table_index = load_u16(set_bytes);
    set.set_id = load_u16(set_bytes + 2);
    set.set_params[2] = from_q0_16(load_u16(set_bytes + 6));
    set.set_params[3] = from_q0_16(load_u16(set_bytes + 8));
}

} // namespace

void cmc_lens_shading_ratio_deinit(cmc_lens_shading_ratio *ratio)
{
    release(ratio);
}

uint32_t decode_lens_shading_ratio(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->lens_shading_ratio, record);
    cmc_lens_shading_ratio_deinit(parsed->lens_shading_ratio);
    parsed->lens_shading_ratio = nullptr;

    if (!holds(record, kPatternCountsEnd) || !fits_rounded(record, pattern_end(record)))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    cmc_diag_reason reason{};
    parsed->lens_shading_ratio =
        build_pattern<cmc_lens_shading_ratio>(record, read_set_header_33, &reason);
    if (parsed->lens_shading_ratio == nullptr)
        return drop_record(record, reason);
    std::free(record);
    return 0;
}

uint32_t decode_lens_shading_ratio_2x2(uint8_t *record, cmc_parsed_data *parsed)
{
    if (parsed->lens_shading_ratio != nullptr)
        return drop_record(record, CMC_DIAG_SUPERSEDED);

    // Unlike id 10, a version above 100 whose param pairs do not fit is
    // rejected, not decoded without them.
    if (!holds(record, kLayout11.sets_offset))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint64_t sets_end = sets_end_2x2(record, kLayout11);
    const uint16_t num_sets = load_u16(record + 8);
    const bool versioned = record_version(record) > 100;
    if (!fits_rounded(record, sets_end) ||
        (versioned && !fits_rounded(record, sets_end + 4 * uint64_t(num_sets))))
        return drop_record(record, CMC_DIAG_TOO_SHORT);

    auto *ratio = allocate<cmc_lens_shading_ratio>(num_sets, load_u16(record + 10),
                                                   load_u16(record + 12));
    if (ratio == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    memcpy_s(&ratio->header, sizeof ratio->header, record, 8);
    memcpy_s(ratio->grid_map, sizeof ratio->grid_map, kMap2x2, sizeof kMap2x2);
    if (!fill_2x2(ratio, record, kLayout11, versioned ? record + sets_end : nullptr,
                  read_set_header_11)) {
        cmc_lens_shading_ratio_deinit(ratio);
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    }
    parsed->lens_shading_ratio = ratio;
    std::free(record);
    return 0;
}
