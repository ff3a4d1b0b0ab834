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

#endif /* CMC_DECODERS_H */
