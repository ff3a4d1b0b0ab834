/*
 * decoders.h - the record decoders behind cmc_parse (internal).
 *
 * Each takes the heap copy of one record (ownership passes in), the result
 * under construction and, where it needs it, the NVM handle, and returns the
 * status cmc_parse passes on.
 */
#ifndef CMC_DECODERS_H
#define CMC_DECODERS_H

#include <cstdint>

#include "cmc_records.h"

/* Name record (id 1) and fixed-layout record (id 2). */
uint32_t decode_name_record(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_fixed_layout_record(uint8_t *record, cmc_parsed_data *parsed);

/* Records kept whole: plain ones (5, 7, 8, 21, 23, 37) and those with views
 * into their parts (6, 16, 17, 18, 19, 20). */
uint32_t decode_plain_record(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_rec_6(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_rec_16(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_rec_17(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_rec_18(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_rec_19(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_rec_20(uint8_t *record, cmc_parsed_data *parsed);

/* Records completed in place by the container-parser library (9, 31, 32,
 * 34), and the legacy id-3 table converted to the id-31 form. */
uint32_t decode_kelb_completed(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_legacy_table(uint8_t *record, cmc_parsed_data *parsed);

/* Tables with derived arrays: id 13 (value copy and parameters), id 14
 * (table view), id 15 (table views and curve set). */
uint32_t decode_rec_13(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_rec_14(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_rec_15(uint8_t *record, cmc_parsed_data *parsed);
/* Releases each curve's second and first array, the curve array, then the
 * set; accepts null and a partly built set. */
void rec_15_curve_set_free(rec_15_curve_set *set);
/* Lens-shading grids: id 28 (pattern form) and id 10 (2 x 2 form). */
uint32_t decode_lens_shading_grids(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_lens_shading_grids_2x2(uint8_t *record, cmc_parsed_data *parsed);
/* Lens-shading ratio grids: id 33 (pattern form) and id 11 (2 x 2 form). */
uint32_t decode_lens_shading_ratio(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_lens_shading_ratio_2x2(uint8_t *record, cmc_parsed_data *parsed);
/* Wide field-of-view geometric distortion (id 22). */
uint32_t decode_geometric_distortion_wfov(uint8_t *record, cmc_parsed_data *parsed);
/* Companding curves: id 35 (pipe compand and decompand), id 36 (sensor). */
uint32_t decode_pipe_compand(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_sensor_decompand(uint8_t *record, cmc_parsed_data *parsed);
/* Cbd record (id 38). */
uint32_t decode_cbd(uint8_t *record, cmc_parsed_data *parsed);
/* Generic tables: ids 24, 25, 26, 27 and 29. Id 24 returns 8 or 4 on failure. */
uint32_t decode_value_table(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_block_record(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_dual_block(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_plane_grid_set(uint8_t *record, cmc_parsed_data *parsed);
uint32_t decode_four_plane_grid(uint8_t *record, cmc_parsed_data *parsed);
/* Map record (id 30), blended with the NVM map calibration when the NVM data
 * holds one; reads the flip mode of the id-17 record. */
uint32_t decode_nvm_map_record(uint8_t *record, cmc_parsed_data *parsed,
                               const struct ej_nvm_data *nvm);

#endif /* CMC_DECODERS_H */
