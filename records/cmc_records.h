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

/* --- Tables completed by the container parser (slots 54, 57), the id-15
 * curves (slot 23) and the others summary (slot 63). --- */

/**
 * One 72-byte entry of the id-31 form: 18 four-byte fields. An entry
 * converted from an id-3 record fills fields 0, 1, 2, 3, 6 and 7 and leaves
 * the others zero.
 */
typedef struct cmc_rec_31_entry {
    uint32_t field0;        /**< offset 0 (from id 3: s0) */
    float field1;           /**< offset 4 (from id 3: s1 / 65536) */
    float field2;           /**< offset 8 (from id 3: s2 / 256) */
    float field3;           /**< offset 12 (from id 3: s3 / 256) */
    uint32_t field4;        /**< offset 16 (zero from id 3) */
    uint32_t field5;        /**< offset 20 (zero from id 3) */
    float field6;           /**< offset 24 (from id 3: s4 / 256) */
    float field7;           /**< offset 28 (from id 3: s5 / 256) */
    uint32_t field8_17[10]; /**< offsets 32 to 71 (zero from id 3) */
} cmc_rec_31_entry;

/**
 * The id-31 form held by slot 54 (rec_31), one block: a completed id-31
 * record or one converted from an id-3 record (then version 100, entries at
 * offset 24).
 */
typedef struct cmc_rec_31 {
    kelb_record_header header; /**< size of the block, version, id 31 */
    uint32_t count;            /**< entry count */
    uint32_t reserved;         /**< offset 12, not interpreted */
    cmc_rec_31_entry *entries; /**< count entries, inside the block */
} cmc_rec_31;

/** A 32-byte entry of an id-34 kind-0 element. */
typedef struct cmc_rec_34_entry {
    float a;           /**< unsigned 16.16 in the id-19 source */
    float b;           /**< unsigned 16.16 in the id-19 source */
    uint8_t rest[20];  /**< copied unchanged */
    uint32_t reserved; /**< zero in a built record */
} cmc_rec_34_entry;

/** An 8-byte value of an id-34 element. */
typedef struct cmc_rec_34_value {
    float value;   /**< unsigned 16.16 in the id-19 and id-20 sources */
    uint32_t word; /**< copied unchanged */
} cmc_rec_34_value;

/** Element kinds and kind-1 sub-types of the id-34 form. */
enum {
    CMC_REC_34_KIND_TABLE = 0,
    CMC_REC_34_KIND_CURVE = 1,
    CMC_REC_34_CURVE_LIST = 2,
    CMC_REC_34_CURVE_FIXED = 3
};

/** A 40-byte element of the id-34 form. */
typedef struct cmc_rec_34_element {
    uint32_t kind;             /**< CMC_REC_34_KIND_TABLE or CMC_REC_34_KIND_CURVE */
    uint32_t word4;            /**< kind 0: a value; kind 1: sub-type (list or fixed) */
    uint32_t count_a;          /**< kind 0: entry count */
    uint32_t count_b;          /**< kind 0: value count; kind 1: list length (0 when fixed) */
    cmc_rec_34_entry *entries; /**< kind 0: count_a entries, or null */
    cmc_rec_34_value *values;  /**< kind 0: count_b values; list: count_b values; or null */
    uint16_t *fixed;           /**< fixed: four u16; otherwise null */
} cmc_rec_34_element;

/**
 * The id-34 form held by slot 57 (rec_34), one block: a completed id-34
 * record (count capped at 4) or one built after the walk from the id-19 and
 * id-20 records (version 100, elements at offset 32, arrays behind them).
 */
typedef struct cmc_rec_34 {
    kelb_record_header header;     /**< size of the block, version, id 34 */
    uint32_t count;                /**< element count, at most 4 */
    uint32_t reserved;             /**< offset 12, not interpreted */
    cmc_rec_34_element *elements;  /**< count elements, inside the block */
} cmc_rec_34;

/** One variable-length curve of an id-15 record. */
typedef struct rec_15_curve {
    uint8_t head[8];  /**< the curve's first 8 bytes, unchanged */
    uint16_t value;   /**< the u16 at +8 */
    uint16_t count;   /**< sample count m (the u16 at +10) */
    uint16_t *first;  /**< owned array of m u16, null when m is 0 */
    uint16_t *second; /**< owned array of m u16, null when m is 0 */
} rec_15_curve;

/** The curves of an id-15 record (slot 23). */
struct rec_15_curve_set {
    uint16_t count;       /**< curve count k */
    rec_15_curve *curves; /**< owned array of k curves, null when k is 0 */
};

/** Summary of the container's first id-722 record (slot 63). */
struct others_data {
    uint32_t value;          /**< the record's u32 at offset 8 */
    uint32_t count;          /**< the record's entry count, capped at 16 */
    uint8_t entries[16][8];  /**< the first count entries, unchanged; the rest zero */
};

#if defined(__LP64__)
EJ_CMC_STATIC_ASSERT(sizeof(rec_1_pair) == 16, rec_1_pair_size);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_rec_2) == 36, rec_2_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_2, v100_value) == 12, rec_2_v100_value);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_2, cfa_pattern) == 14, rec_2_cfa_pattern);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_2, v101_value) == 16, rec_2_v101_value);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_2, v102_fields) == 18, rec_2_v102_fields);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_2, v103_value) == 34, rec_2_v103_value);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_rec_31_entry) == 72, rec_31_entry_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_31_entry, field6) == 24, rec_31_entry_field6);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_rec_31) == 24, rec_31_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_31, entries) == 16, rec_31_entries);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_rec_34_entry) == 32, rec_34_entry_size);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_rec_34_value) == 8, rec_34_value_size);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_rec_34_element) == 40, rec_34_element_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_34_element, entries) == 16, rec_34_element_entries);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_34_element, values) == 24, rec_34_element_values);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_34_element, fixed) == 32, rec_34_element_fixed);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_rec_34) == 24, rec_34_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_rec_34, elements) == 16, rec_34_elements);
EJ_CMC_STATIC_ASSERT(sizeof(rec_15_curve) == 32, rec_15_curve_size);
EJ_CMC_STATIC_ASSERT(offsetof(rec_15_curve, first) == 16, rec_15_curve_first);
EJ_CMC_STATIC_ASSERT(sizeof(rec_15_curve_set) == 16, rec_15_curve_set_size);
EJ_CMC_STATIC_ASSERT(sizeof(others_data) == 136, others_data_size);
EJ_CMC_STATIC_ASSERT(offsetof(others_data, entries) == 8, others_data_entries);
#endif

EJ_CMC_EXTERN_C_END

#endif /* CMC_RECORDS_H */
