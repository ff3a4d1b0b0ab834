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
 * Exceptions: an id-10 or id-11 record never replaces a filled lens-shading
 * structure (slot 53, slot 56), and id 24 reports a record too short (8) or
 * an allocation failure (4) through the status, with slot 44 left empty.
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

/* ------------------------------------------------------------------------
 * Lens-shading grids (slot 53, from ids 28 and 10) and lens-shading ratio
 * grids (slot 56, from ids 33 and 11).
 *
 * A set holds up to 16 grids, one per position of a 4 x 4 colour-filter
 * pattern (index = row * 4 + column). grid_map[i] names the grid of a set
 * that covers position i, or is negative when the position has none; every
 * position with a grid owns a private copy of grid_width * grid_height u16
 * samples, even when several positions name the same grid.
 * ------------------------------------------------------------------------ */

typedef struct cmc_lens_shading4x4_set {
    uint32_t set_id;
    float set_params[4];
    uint16_t grid_bits;       /**< 16 minus the stored value (12 for id 10) */
    uint16_t *grids[16];      /**< owned, indexed like grid_map; null where it is negative */
} cmc_lens_shading4x4_set;

struct cmc_lens_shading4x4 {
    kelb_record_header header; /**< id 28: as stored; id 10: made up (see the decoder) */
    int8_t grid_map[16];
    uint16_t num_sets;
    uint16_t grid_width;
    uint16_t grid_height;
    cmc_lens_shading4x4_set *sets; /**< owned, num_sets elements */
};

typedef struct cmc_lens_shading_ratio_set {
    uint32_t set_id;
    float set_params[4];
    uint16_t grid_bits;
    uint16_t *grids[16];      /**< owned, indexed like grid_map */
    uint16_t nvm_table_index; /**< 1-based number of the NVM table this set multiplies */
} cmc_lens_shading_ratio_set;

struct cmc_lens_shading_ratio {
    kelb_record_header header; /**< the record's own header (id 33 or 11) */
    int8_t grid_map[16];
    uint16_t num_sets;
    uint16_t grid_width;
    uint16_t grid_height;
    cmc_lens_shading_ratio_set *sets; /**< owned, num_sets elements */
};

/**
 * Release a lens-shading grid structure: for each of its num_sets sets the
 * 16 grids (each pointer cleared), then the set array, then the structure.
 * Accepts null (does nothing) and a partly built structure whose set array
 * is still zero-filled or null.
 */
EJ_CMC_API void cmc_lens_shading4x4_deinit(cmc_lens_shading4x4 *ls);

/** As cmc_lens_shading4x4_deinit(), for the ratio structure. */
EJ_CMC_API void cmc_lens_shading_ratio_deinit(cmc_lens_shading_ratio *ratio);

/* ------------------------------------------------------------------------
 * Wide field-of-view geometric distortion (slot 42, id 22).
 * ------------------------------------------------------------------------ */

/** A lookup unit: a 1024-byte table and four 32-bit values (1040 bytes). */
typedef struct cmc_gd2_wfov_unit {
    uint8_t unit_table[1024];
    uint32_t unit_values[4];
} cmc_gd2_wfov_unit;

/**
 * One two-plane map of W = map_width * map_height 32-bit values per plane.
 * The planes of all maps share one block owned through plane_a of map 0;
 * every other plane pointer is a view into it.
 */
typedef struct cmc_gd2_wfov_map {
    uint16_t map_id;
    uint32_t *plane_a;
    uint32_t *plane_b;
} cmc_gd2_wfov_map;

typedef struct cmc_gd2_wfov_element {
    float elem_a;
    float elem_b;
    uint32_t elem_c;
    uint32_t num_values;
    uint32_t *values; /**< owned, num_values values */
} cmc_gd2_wfov_element;

struct cmc_geometric_distortion2_wfov {
    uint8_t word_a[4];   /**< record bytes 8..21, in this order, */
    int16_t map_width;   /**< ... */
    int16_t map_height;  /**< ... */
    uint8_t word_b[4];   /**< ... */
    uint16_t num_maps;   /**< ... */
    uint32_t ext_value;  /**< version 101 on; else 0 */
    int32_t num_units;   /**< version 101 on; else 0 */
    cmc_gd2_wfov_unit unit; /**< the inline unit (version 101 on; else zero) */
    cmc_gd2_wfov_map *maps; /**< owned, num_maps maps; null when num_maps is 0 */
    uint8_t *units;         /**< owned copy of num_units * 1040 bytes, or null */
    float ext2_value;       /**< version 102 on */
    int32_t num_elements;   /**< version 102 on */
    cmc_gd2_wfov_element *elements; /**< owned, num_elements elements, or null */
    uint8_t *element_tail;          /**< owned copy of num_elements * 24 bytes, or null */
};

/**
 * Release only the version-102 part of a distortion structure: the values of
 * each of its num_elements elements (none when num_elements is 0 or less),
 * the element array and element_tail (each pointer cleared), and set
 * ext2_value to 0. The maps, the units and the structure itself stay; they
 * are released by ej_cmc_parser_deinit(). Accepts null (does nothing).
 */
EJ_CMC_API void cmc_geometric_distortion2_wfov_free(cmc_geometric_distortion2_wfov *gd);

/* ------------------------------------------------------------------------
 * Companding curves (slots 58 and 59 from id 35, slot 60 from id 36).
 * "Wide" values are 32-bit, "narrow" values 16-bit. A curve of N segments
 * has N + 1 points.
 * ------------------------------------------------------------------------ */

/** Wide to narrow. */
struct cmc_pipe_compand {
    kelb_record_header header;
    uint8_t ctrl_byte;
    uint32_t ctrl_word;
    uint8_t num_segments; /**< N */
    uint32_t *x_points;   /**< owned, N + 1 wide points */
    uint16_t *y_points;   /**< owned, N + 1 narrow points */
    uint16_t *slopes;     /**< owned, N narrow slopes */
};

/** Narrow to wide; its point arrays are separate copies of the compand's. */
struct cmc_pipe_decompand {
    kelb_record_header header;
    uint8_t ctrl_byte;
    uint32_t ctrl_word;
    uint8_t num_segments; /**< N */
    uint16_t *x_points;   /**< owned, N + 1 narrow points */
    uint32_t *y_points;   /**< owned, N + 1 wide points */
    uint32_t *slopes;     /**< owned, N wide slopes */
};

/**
 * The sensor's decompanding points. ctrl_word holds the record's four bytes
 * as stored: whether they form one value or two is the consumer's to decide.
 */
struct cmc_sensor_decompand {
    kelb_record_header header;
    uint8_t ctrl_byte;
    uint8_t ctrl_word[4];
    uint8_t num_points; /**< N */
    uint16_t *x_points; /**< owned, N narrow points */
    uint32_t *y_points; /**< owned, N wide points */
};

/**
 * Release a compand/decompand pair: for each argument that is not null, its
 * x_points, y_points and slopes, then the structure; the compand first.
 * Either argument may be null; partly built structures are accepted.
 */
EJ_CMC_API void cmc_pipe_compand_decompand_deinit(cmc_pipe_compand *compand,
                                                  cmc_pipe_decompand *decompand);

/** Release x_points, y_points, then the structure. Accepts null. */
EJ_CMC_API void cmc_sensor_decompand_deinit(cmc_sensor_decompand *sd);

/* ------------------------------------------------------------------------
 * Cbd record (slot 62, id 38): two parallel arrays of 32-bit values, copied
 * as stored (integer or float is the consumer's to decide).
 * ------------------------------------------------------------------------ */

struct cmc_cbd {
    kelb_record_header header;
    uint8_t cbd_byte;
    uint8_t num_entries;     /**< N */
    uint32_t *first_values;  /**< owned, N values */
    uint32_t *second_values; /**< owned, N values */
};

/** Release first_values, second_values, then the structure. Accepts null. */
EJ_CMC_API void cmc_cbd_deinit(cmc_cbd *cbd);

/* ------------------------------------------------------------------------
 * Generic tables (slots 44, 46 to 50 and 52; ids 24, 25, 26, 27 and 29).
 * The library does not interpret their values. They have no release routine
 * of their own: ej_cmc_parser_deinit() releases them.
 * ------------------------------------------------------------------------ */

/** One id-24 entry: its 16-byte head (count c at offset 2) and c values. */
typedef struct cmc_value_table_entry {
    uint8_t entry_head[16];
    uint32_t *values; /**< owned, c values; null when they were not copied */
} cmc_value_table_entry;

/** Id 24 (slot 44). head holds the record's first 16 bytes: n is its u16 at 14. */
struct cmc_value_table {
    uint8_t head[16];
    cmc_value_table_entry *entries; /**< owned, n entries; null when n is 0 */
};

/** One id-25 entry (slot 48); the views point into block_record (slot 46). */
struct cmc_block_entry {
    const uint8_t *entry_start; /**< view: the entry's first byte */
    uint8_t block[36];          /**< copy of the entry's 36-byte block */
    const uint8_t *tail_blocks; /**< view: the first of the entry's 36-byte tail blocks */
};

typedef struct cmc_factor_block {
    uint8_t block_word[8];
    float factors[4];
} cmc_factor_block;

/** Id 26 (slot 49), laid out like the record's first 64 bytes. */
struct cmc_dual_block {
    kelb_record_header header;
    uint8_t base_word[8];
    cmc_factor_block blocks[2];
};

/** One id-27 element. */
typedef struct cmc_plane_grid_element {
    uint8_t *element_head; /**< owned 20-byte copy, or null */
    uint16_t *planes;      /**< owned, 3 planes of a * b samples, or null */
} cmc_plane_grid_element;

/** Id 27 (slot 50). n is the u16 at offset 24 of the record. */
struct cmc_plane_grid_set {
    uint8_t *record;                  /**< owned: the kept record copy */
    cmc_plane_grid_element *elements; /**< owned, n elements; null when n is 0 */
    const uint8_t *trailer;           /**< view of the n * 16-byte trailer (version 101 on), or null */
};

/** Id 29 (slot 52). */
struct cmc_four_plane_grid {
    uint8_t head[20];     /**< the record's first 20 bytes (a at 12, b at 14) */
    uint32_t *planes[4];  /**< a * b values each, in one block owned through planes[0] */
};

#if defined(__LP64__)
EJ_CMC_STATIC_ASSERT(sizeof(cmc_lens_shading4x4_set) == 152, ls_set_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_lens_shading4x4_set, grid_bits) == 20, ls_set_grid_bits);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_lens_shading4x4_set, grids) == 24, ls_set_grids);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_lens_shading4x4) == 40, ls_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_lens_shading4x4, grid_map) == 8, ls_grid_map);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_lens_shading4x4, num_sets) == 24, ls_num_sets);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_lens_shading4x4, grid_height) == 28, ls_grid_height);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_lens_shading4x4, sets) == 32, ls_sets);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_lens_shading_ratio_set) == 160, ratio_set_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_lens_shading_ratio_set, grids) == 24, ratio_set_grids);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_lens_shading_ratio_set, nvm_table_index) == 152, ratio_set_index);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_lens_shading_ratio) == 40, ratio_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_lens_shading_ratio, sets) == 32, ratio_sets);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_gd2_wfov_unit) == 1040, gd_unit_size);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_gd2_wfov_map) == 24, gd_map_size);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_gd2_wfov_element) == 24, gd_element_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_geometric_distortion2_wfov, num_maps) == 12, gd_num_maps);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_geometric_distortion2_wfov, ext_value) == 16, gd_ext_value);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_geometric_distortion2_wfov, unit) == 24, gd_unit);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_geometric_distortion2_wfov, maps) == 1064, gd_maps);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_geometric_distortion2_wfov, ext2_value) == 1080, gd_ext2);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_geometric_distortion2_wfov, elements) == 1088, gd_elements);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_geometric_distortion2_wfov) == 1104, gd_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_pipe_compand, ctrl_word) == 12, compand_ctrl_word);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_pipe_compand, x_points) == 24, compand_x_points);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_pipe_compand) == 48, compand_size);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_pipe_decompand) == 48, decompand_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_sensor_decompand, num_points) == 13, sensor_num_points);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_sensor_decompand) == 32, sensor_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_cbd, first_values) == 16, cbd_first_values);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_cbd) == 32, cbd_size);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_value_table_entry) == 24, value_entry_size);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_value_table) == 24, value_table_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_block_entry, tail_blocks) == 48, block_entry_tail);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_block_entry) == 56, block_entry_size);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_dual_block) == 64, dual_block_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_dual_block, blocks) == 16, dual_block_blocks);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_plane_grid_element) == 16, plane_element_size);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_plane_grid_set) == 24, plane_grid_set_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_four_plane_grid, planes) == 24, four_plane_planes);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_four_plane_grid) == 56, four_plane_size);
#endif

EJ_CMC_EXTERN_C_END

#endif /* CMC_RECORDS_H */
