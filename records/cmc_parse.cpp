// Record dispatch: one decoder per CMC record id.
#include "cmc_records.h"

#include "byte_io.h"
#include "cmc_diag.h"
#include "decoders.h"

uint32_t cmc_parse(void *record, cmc_parsed_data *parsed, const struct ej_nvm_data *nvm)
{
    if (record == nullptr || parsed == nullptr)
        return CMC_PARSE_BAD_DATA;
    uint8_t *rec = static_cast<uint8_t *>(record);

    switch (record_id(rec)) {
    case 1: return decode_name_record(rec, parsed);
    case 2: return decode_fixed_layout_record(rec, parsed);
    case 5:
    case 7:
    case 8:
    case 21:
    case 23:
    case 37: return decode_plain_record(rec, parsed);
    case 6: return decode_rec_6(rec, parsed);
    case 16: return decode_rec_16(rec, parsed);
    case 17: return decode_rec_17(rec, parsed);
    case 18: return decode_rec_18(rec, parsed);
    case 19: return decode_rec_19(rec, parsed);
    case 20: return decode_rec_20(rec, parsed);
    case 3: return decode_legacy_table(rec, parsed);
    case 9:
    case 31:
    case 32:
    case 34: return decode_kelb_completed(rec, parsed);
    case 13: return decode_rec_13(rec, parsed);
    case 14: return decode_rec_14(rec, parsed);
    case 15: return decode_rec_15(rec, parsed);
    case 10: return decode_lens_shading_grids_2x2(rec, parsed);
    case 28: return decode_lens_shading_grids(rec, parsed);
    case 11: return decode_lens_shading_ratio_2x2(rec, parsed);
    case 33: return decode_lens_shading_ratio(rec, parsed);
    case 22: return decode_geometric_distortion_wfov(rec, parsed);
    case 24: return decode_value_table(rec, parsed);
    case 25: return decode_block_record(rec, parsed);
    case 26: return decode_dual_block(rec, parsed);
    case 27: return decode_plane_grid_set(rec, parsed);
    case 29: return decode_four_plane_grid(rec, parsed);
    case 30: return decode_nvm_map_record(rec, parsed, nvm); // the only reader of nvm
    case 35: return decode_pipe_compand(rec, parsed);
    case 36: return decode_sensor_decompand(rec, parsed);
    case 38: return decode_cbd(rec, parsed);
    default:
        // Ids 0, 4, 12 and 39 and above have no decoder; the others listed
        // in the record header's documentation get theirs as they are added.
        // The caller keeps and releases the copy.
        cmc_diag_record(rec, CMC_DIAG_NO_DECODER);
        return CMC_PARSE_BAD_DATA;
    }
}
