/**
 * @file cmc_records.h
 * @brief Record dispatch and the decoded record structures.
 *
 * cmc_parse() decodes one CMC record (id below 64) into a cmc_parsed_data.
 * ej_cmc_parser_init_v1() calls it once per record; a caller may also call it
 * directly with a heap copy of a record.
 *
 * All structures here are owned by the cmc_parsed_data slot that holds them
 * and are released by ej_cmc_parser_deinit().
 *
 * This header compiles as C99 and as C++.
 */
#ifndef CMC_RECORDS_H
#define CMC_RECORDS_H

#include <stddef.h>
#include <stdint.h>

#include "ej_cmc_parser.h"

EJ_CMC_EXTERN_C_BEGIN

/* The NVM library's parse result (ej_nvm.h of the NVM library). */
struct ej_nvm_data;

/** Status codes of cmc_parse(). */
enum {
    CMC_PARSE_OK = 0,        /**< handled: the copy is owned by a slot or released */
    CMC_PARSE_NO_MEMORY = 4, /**< a decoder could not allocate its structure */
    CMC_PARSE_BAD_DATA = 8   /**< no decoder for the id, or a record it must reject */
};

/**
 * Decode one record into parsed.
 *
 * @param record heap block (malloc family) holding a whole record, header
 *        first, at least 8 bytes and as long as its size field says.
 *        Ownership passes in: on status 0 a slot keeps it or it has been
 *        released; on any other status nothing was kept and the caller
 *        releases it.
 * @param parsed the result under construction.
 * @param nvm the NVM library's handle, or null.
 * @return CMC_PARSE_OK; CMC_PARSE_BAD_DATA for an id without decoder (and
 *         for a null record or parsed, with nothing kept);
 *         CMC_PARSE_NO_MEMORY as given above; or the non-zero code of the
 *         container-parser library, passed on unchanged.
 *
 * A record too short for what it announces is dropped (its slots emptied,
 * the copy released) with status 0. When a record arrives for slots that are
 * already filled, the earlier contents are released and replaced.
 */
EJ_CMC_API uint32_t cmc_parse(void *record, cmc_parsed_data *parsed,
                              const struct ej_nvm_data *nvm);

/** One key/value pair of the id-1 record (slot 3); both point into slot 0. */
struct rec_1_pair {
    const char *key;   /**< NUL-terminated key */
    const char *value; /**< NUL-terminated value */
};

/**
 * The id-2 record in its newest (version 103) layout, 36 bytes (slot 4).
 * Fields that the record's version does not carry hold their defaults:
 * v101_value and v103_value default to v100_value, v102_fields to zero.
 */
struct cmc_rec_2 {
    uint8_t header[8];        /**< the record header as stored */
    uint8_t v100_fields[4];   /**< offset 8 */
    uint16_t v100_value;      /**< offset 12: source of the defaults */
    uint16_t cfa_pattern;     /**< offset 14: colour-filter pattern */
    uint16_t v101_value;      /**< offset 16: version 101 and later */
    uint8_t v102_fields[16];  /**< offset 18: version 102 and later */
    uint16_t v103_value;      /**< offset 34: version 103 and later */
};

#if defined(__LP64__)
EJ_CMC_STATIC_ASSERT(sizeof(rec_1_pair) == 16, rec_1_pair_size);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_rec_2) == 36, rec_2_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_2, v100_value) == 12, rec_2_v100_value);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_2, cfa_pattern) == 14, rec_2_cfa_pattern);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_2, v101_value) == 16, rec_2_v101_value);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_2, v102_fields) == 18, rec_2_v102_fields);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_2, v103_value) == 34, rec_2_v103_value);
#endif

EJ_CMC_EXTERN_C_END

#endif /* CMC_RECORDS_H */
