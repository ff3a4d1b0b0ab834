// Lens-shading grid records: id 28 (the pattern form) and id 10 (the older
// 2 x 2 form) both become the cmc_lens_shading4x4 of slot 53, so that every
// consumer sees one shape. Id 10 also keeps its record copy in slot 13 with
// three views into it (slots 14 to 16) for consumers of the older form.
//
// Precedence does not depend on the order of the two ids in the container:
// an id-28 record always replaces the structure, an id-10 record only fills
// an empty slot 53.
#include "decoders.h"
#include "lens_shading_sets.h"

using namespace lens_shading;

namespace {

// Id 10: num_sets at 10, extents at 12 and 14, sets from 16 of an 8-byte set
// header (set_id u16, an unread u16, two Q0.16 params) and four grids.
constexpr layout_2x2 kLayout10{10, 16, 8};

void read_set_header_28(const uint8_t *set_bytes, cmc_lens_shading4x4_set &set)
{
    set.set_id = load_u32(set_bytes);
    for (uint32_t j = 0; j < 4; ++j)
        set.set_params[j] = load_f32(set_bytes + 4 + 4 * j);
}

void read_set_header_10(const uint8_t *set_bytes, cmc_lens_shading4x4_set &set)
{
    set.set_id = load_u16(set_bytes);
    set.set_params[2] = from_q0_16(load_u16(set_bytes + 4));
    set.set_params[3] = from_q0_16(load_u16(set_bytes + 6));
}

// The id-28 header a converted id-10 record gets. Its size is the one the
// older consumers expect (176 bytes per sample of a set, 32-bit wrap), not
// the length of an equivalent id-28 record.
kelb_record_header made_up_header(const cmc_lens_shading4x4 *ls)
{
    kelb_record_header h{};
    h.size = uint32_t(ls->num_sets) * uint32_t(ls->grid_width) * uint32_t(ls->grid_height) * 176u +
             32u;
    h.version = 100;
    h.reserved = 0;
    h.id = 28;
    return h;
}

void empty_raw_views(cmc_parsed_data *parsed)
{
    release_slot(parsed->lens_shading_record);
    parsed->lens_shading_first_set = nullptr;
    parsed->lens_shading_first_grid = nullptr;
    parsed->lens_shading_set_params = nullptr;
}

} // namespace

void cmc_lens_shading4x4_deinit(cmc_lens_shading4x4 *ls)
{
    release(ls);
}

uint32_t decode_lens_shading_grids(uint8_t *record, cmc_parsed_data *parsed)
{
    // The earlier structure goes whatever record produced it, even when this
    // record then fails.
    note_replacement(parsed->lens_shading4x4, record);
    cmc_lens_shading4x4_deinit(parsed->lens_shading4x4);
    parsed->lens_shading4x4 = nullptr;

    // The size test comes before any allocation: counts that announce more
    // than the record holds never reach the allocator.
    if (!holds(record, kPatternCountsEnd) || !fits_rounded(record, pattern_end(record)))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    cmc_diag_reason reason{};
    parsed->lens_shading4x4 =
        build_pattern<cmc_lens_shading4x4>(record, read_set_header_28, &reason);
    if (parsed->lens_shading4x4 == nullptr)
        return drop_record(record, reason);
    std::free(record);
    return 0;
}

uint32_t decode_lens_shading_grids_2x2(uint8_t *record, cmc_parsed_data *parsed)
{
    // The raw group goes first, even when this record then fails: an earlier
    // id-10 copy is released rather than lost with its views.
    note_replacement(parsed->lens_shading_record, record);
    empty_raw_views(parsed);

    // The sets must fit exactly (no rounding); the param pairs of a version
    // above 100 are used only when they fit too, rounded up to 8.
    if (!holds(record, kLayout10.sets_offset) || !reaches(record, sets_end_2x2(record, kLayout10)))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint32_t sets_end = uint32_t(sets_end_2x2(record, kLayout10)); // within the size
    const uint16_t num_sets = load_u16(record + 10);
    const bool versioned = record_version(record) > 100;
    const bool pairs_used = versioned && fits_rounded(record, sets_end + 4 * uint64_t(num_sets));
    if (versioned && !pairs_used)
        cmc_diag_record(record, CMC_DIAG_PART_TOO_SHORT);

    // From here on the copy belongs to slot 13.
    parsed->lens_shading_record = record;
    set_view(parsed->lens_shading_first_set, record, kLayout10.sets_offset);
    set_view(parsed->lens_shading_first_grid, record, kLayout10.sets_offset + kLayout10.set_header);
    if (pairs_used)
        set_view(parsed->lens_shading_set_params, record, sets_end);

    if (parsed->lens_shading4x4 != nullptr) {
        cmc_diag_record(record, CMC_DIAG_SUPERSEDED);
        return 0;
    }
    auto *ls = allocate<cmc_lens_shading4x4>(num_sets, load_u16(record + 12), load_u16(record + 14));
    if (ls != nullptr) {
        ls->header = made_up_header(ls);
        memcpy_s(ls->grid_map, sizeof ls->grid_map, kMap2x2, sizeof kMap2x2);
        if (!fill_2x2(ls, record, kLayout10, pairs_used ? record + sets_end : nullptr,
                      read_set_header_10)) {
            cmc_lens_shading4x4_deinit(ls);
            ls = nullptr;
        }
    }
    if (ls == nullptr)
        cmc_diag_record(record, CMC_DIAG_NO_MEMORY); // the raw views stay
    parsed->lens_shading4x4 = ls;
    return 0;
}
