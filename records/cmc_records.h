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

/**
 * One set of lens-shading grids, an element of cmc_lens_shading4x4::sets
 * (152 bytes on LP64).
 *
 * In an id-28 record a set is 22 + G * S bytes: a 22-byte set header, then
 * G grids of S = 2 * grid_width * grid_height bytes, G being the largest
 * non-negative grid_map entry plus one. The sets follow one another without
 * padding. In an id-10 record a set is an 8-byte header and four grids.
 *
 * When ej_cmc_parser_init_v1() is given NVM data and the container also
 * carries ratio grids (slot 56), the ratio-based correction rewrites the
 * sets in place before the parse returns: set_id, set_params and grid_bits
 * are copied from the ratio set of the same index, and the samples of the
 * positions covered by the sensor's colour-filter pattern become the ratio
 * samples times the module's NVM gains. A correction that stops early (for
 * instance on an unusable nvm_table_index) leaves the later sets as decoded.
 */
typedef struct cmc_lens_shading4x4_set {
    uint32_t set_id;          /**< identifier of the set, not interpreted by the library.
                                   Id 28: the u32 at offset 0 of the set; id 10: the u16 at
                                   offset 0 of the set, widened with zeros */
    float set_params[4];      /**< four parameters, not interpreted by the library.
                                   Id 28: the four f32 at offset 4 of the set, as stored.
                                   Id 10: [0] and [1] are the set's Q8.8 pair (two u16 after
                                   all sets, 4 bytes per set) divided by 256, present only when
                                   the version is above 100 and the record holds the pairs
                                   (rounded up to 8), else 0.0; [2] and [3] are the Q0.16 u16
                                   at offsets 4 and 6 of the set divided by 65536 */
    uint16_t grid_bits;       /**< fixed-point format of the set's samples: id 28, 16 minus
                                   the u16 at offset 20 of the set (16-bit wrap-around, so a
                                   stored 4 gives 12 and a stored 0 gives 16); id 10, always 12 */
    uint16_t *grids[16];      /**< owned, indexed like grid_map: grids[i] is a private copy of
                                   grid grid_map[i] of the set (grid_width * grid_height u16
                                   samples, copied as stored), or null where
                                   grid_map[i] is negative. Id 10: positions 0, 1, 4 and 5 hold
                                   the set's four grids in record order, the others are null */
} cmc_lens_shading4x4_set;

/**
 * The lens-shading grids of the module (slot 53, lens_shading4x4), in the
 * id-28 form whichever record they come from: an id-10 record (older 2 x 2
 * form) is converted to it. An id-28 record always replaces the structure;
 * an id-10 record fills the slot only when it is empty. Released by
 * ej_cmc_parser_deinit() through cmc_lens_shading4x4_deinit().
 *
 * grid_width and grid_height are the size onto which the module's NVM
 * lens-shading tables are upscaled; the grids may be rewritten during the
 * parse (see cmc_lens_shading4x4_set). Read-only for the caller afterwards.
 */
struct cmc_lens_shading4x4 {
    kelb_record_header header; /**< id 28: the record's own header, as stored. Id 10: made up,
                                    with version 100, reserved byte 0, record id 28 and size
                                    num_sets * grid_width * grid_height * 176 + 32 (unsigned
                                    32-bit, wraps around; it is not the length an equivalent
                                    id-28 record would have) */
    int8_t grid_map[16];       /**< grid number (within a set) covering each position of the
                                    4 x 4 pattern, row-major (index = row * 4 + column);
                                    negative where the position has no grid. Id 28: record
                                    offsets 8 to 23, as stored. Id 10: 0, 1, -1, -1, 2, 3, then
                                    ten times -1, so that positions (0,0), (0,1), (1,0), (1,1)
                                    map to grids 0 to 3 */
    uint16_t num_sets;         /**< number of elements of sets (id 28: record offset 24;
                                    id 10: offset 10); may be 0 */
    uint16_t grid_width;       /**< samples per grid in the first dimension (id 28: record
                                    offset 28; id 10: offset 12) */
    uint16_t grid_height;      /**< samples per grid in the second dimension (id 28: record
                                    offset 30; id 10: offset 14) */
    cmc_lens_shading4x4_set *sets; /**< owned, num_sets sets in record order; not null in a
                                        structure held by slot 53 (a valid block even when
                                        num_sets is 0) */
};

/**
 * One set of lens-shading ratio grids, an element of
 * cmc_lens_shading_ratio::sets (160 bytes on LP64). Same shape as
 * cmc_lens_shading4x4_set, plus the number of the NVM table it multiplies.
 *
 * The id-33 set header is 22 bytes: u16 set_id, u16 0-based NVM table
 * number, four f32 parameters, u16 stored grid bits. The id-11 set header
 * is 10 bytes: u16 1-based NVM table index, u16 set_id, an unread u16, two
 * Q0.16 parameters (note the order of set_id and the table number, the
 * reverse of id 33). The ratio-based correction reads these sets and
 * never changes them.
 */
typedef struct cmc_lens_shading_ratio_set {
    uint32_t set_id;          /**< identifier of the set, not interpreted by the library:
                                   the u16 at offset 0 of an id-33 set or at offset 2 of an
                                   id-11 set, widened with zeros. Copied into the lens-shading
                                   set of the same index by the ratio-based correction */
    float set_params[4];      /**< four parameters, not interpreted by the library.
                                   Id 33: the four f32 at offset 4 of the set, as stored.
                                   Id 11: [0] and [1] are the set's Q8.8 pair (two u16 after
                                   all sets, 4 bytes per set) divided by 256 when the version
                                   is above 100, else 0.0; [2] and [3] are the Q0.16 u16 at
                                   offsets 6 and 8 of the set divided by 65536 */
    uint16_t grid_bits;       /**< fixed-point format of the ratio samples, kept by the
                                   corrected lens-shading samples: id 33, 16 minus the u16 at
                                   offset 20 of the set (16-bit wrap-around); id 11, always 12 */
    uint16_t *grids[16];      /**< owned, indexed like grid_map: private copies of
                                   grid_width * grid_height u16 ratio samples as stored, or
                                   null where grid_map[i] is negative. Id 11: positions 0, 1,
                                   4 and 5 hold the set's four grids in record order */
    uint16_t nvm_table_index; /**< 1-based number of the module's NVM lens-shading table that
                                   this set multiplies. Id 33: the stored 0-based u16 at offset
                                   2 of the set plus 1 (a stored 65535 wraps to 0). Id 11: the
                                   u16 at offset 0 of the set, as stored (already 1-based).
                                   The correction rejects 0 and values above the number of
                                   NVM tables */
} cmc_lens_shading_ratio_set;

/**
 * The lens-shading ratio grids (slot 56, lens_shading_ratio): per set, the
 * ratios that the module's upscaled NVM table is multiplied with to give the
 * lens-shading grids of cmc_lens_shading4x4. Layout as cmc_lens_shading4x4.
 * An id-33 record always replaces the structure; an id-11 record fills the
 * slot only when it is empty (the first wins, and never over an id-33
 * structure). The record copy is always released: every value is copied
 * out. Released by ej_cmc_parser_deinit() through
 * cmc_lens_shading_ratio_deinit().
 */
struct cmc_lens_shading_ratio {
    kelb_record_header header; /**< the record's own header (size, version, id 33 or 11), as
                                    stored */
    int8_t grid_map[16];       /**< as cmc_lens_shading4x4::grid_map. Id 33: record offsets
                                    8 to 23, as stored; id 11: 0, 1, -1, -1, 2, 3, then ten
                                    times -1 */
    uint16_t num_sets;         /**< number of elements of sets (id 33: record offset 24;
                                    id 11: offset 8); the correction runs only when it equals
                                    cmc_lens_shading4x4::num_sets */
    uint16_t grid_width;       /**< samples per grid in the first dimension (id 33: record
                                    offset 28; id 11: offset 10) */
    uint16_t grid_height;      /**< samples per grid in the second dimension (id 33: record
                                    offset 30; id 11: offset 12) */
    cmc_lens_shading_ratio_set *sets; /**< owned, num_sets sets in record order; not null in
                                           a structure held by slot 56 */
};

/**
 * Release a lens-shading grid structure and everything it owns.
 *
 * @param ls the structure to release, or null (nothing is done). When its
 *        sets pointer is not null, the 16 grids of each of its num_sets sets
 *        are released (each pointer cleared), then the set array; then, in
 *        every case, the structure itself. A partly built structure is
 *        accepted: a null set array, or one whose sets are still zero-filled
 *        (null grids). ls is invalid afterwards. A structure still held by
 *        slot 53 of a cmc_parsed_data must be cleared from the slot first,
 *        else ej_cmc_parser_deinit() releases it again.
 *
 * Thread safety: needs exclusive use of the structure (and of the
 * cmc_parsed_data that held it); different structures may be released
 * concurrently.
 */
EJ_CMC_API void cmc_lens_shading4x4_deinit(cmc_lens_shading4x4 *ls);

/**
 * Release a lens-shading ratio structure and everything it owns; the same
 * steps as cmc_lens_shading4x4_deinit().
 *
 * @param ratio the structure to release, or null (nothing is done). When its
 *        sets pointer is not null, the 16 grids of each of its num_sets sets
 *        are released (each pointer cleared), then the set array; then, in
 *        every case, the structure itself. A partly built structure (null or
 *        zero-filled sets) is accepted. ratio is invalid afterwards. A
 *        structure still held by slot 56 must be cleared from the slot
 *        first, else ej_cmc_parser_deinit() releases it again.
 *
 * Thread safety: as cmc_lens_shading4x4_deinit().
 */
EJ_CMC_API void cmc_lens_shading_ratio_deinit(cmc_lens_shading_ratio *ratio);

/* ------------------------------------------------------------------------
 * Wide field-of-view geometric distortion (slot 42, id 22). The library
 * copies the record's maps, lookup units (version 101 on) and elements
 * (version 102 on) out of it and releases the copy; it does not interpret
 * the values. A record that does not hold what its counts announce is
 * dropped whole (slot 42 empty).
 * ------------------------------------------------------------------------ */

/**
 * A lookup unit: a 1024-byte table and four 32-bit values (1040 bytes), as
 * stored in the record. Not interpreted by the library.
 */
typedef struct cmc_gd2_wfov_unit {
    uint8_t unit_table[1024]; /**< the unit's first 1024 bytes, as stored */
    uint32_t unit_values[4];  /**< the four 32-bit values after the table (unit offsets 1024
                                   to 1039), as stored */
} cmc_gd2_wfov_unit;

/**
 * One two-plane map of W = map_width * map_height 32-bit values per plane.
 * The planes of all maps share one block owned through plane_a of map 0;
 * every other plane pointer is a view into it.
 *
 * In the record a map is a u16 map_id followed by 8 * W bytes: the first
 * plane, then the second. In the shared block, map k's plane_a starts at
 * byte k * 8 * W and its plane_b 4 * W bytes later.
 */
typedef struct cmc_gd2_wfov_map {
    uint16_t map_id;   /**< identifier of the map (its first u16), not interpreted */
    uint32_t *plane_a; /**< W values of the first plane, as stored. Map 0's pointer owns the
                            block of all planes (released by ej_cmc_parser_deinit()); the
                            others are views into it */
    uint32_t *plane_b; /**< W values of the second plane, as stored: a view into the block,
                            plane_a + W */
} cmc_gd2_wfov_map;

/**
 * One element of the version-102 part: a 16-byte head (elem_a, elem_b,
 * elem_c, num_values) followed in the record by num_values 32-bit values.
 * Not interpreted by the library.
 */
typedef struct cmc_gd2_wfov_element {
    float elem_a;        /**< f32 at element offset 0, as stored */
    float elem_b;        /**< f32 at element offset 4, as stored */
    uint32_t elem_c;     /**< u32 at element offset 8, as stored */
    uint32_t num_values; /**< u32 at element offset 12: number of values; never 0 in a kept
                              element (an element without values drops the whole
                              version-102 part) */
    uint32_t *values; /**< owned, num_values values copied from element offset 16 */
} cmc_gd2_wfov_element;

/**
 * The wide field-of-view distortion data (slot 42, geometric_distortion2_wfov),
 * 1104 bytes on LP64. Released by ej_cmc_parser_deinit(): the plane block
 * (through plane_a of map 0), the elements with their values, element_tail,
 * the map array, the unit array, then the structure.
 *
 * The record's parts follow one another without padding: bytes 8 to 21,
 * the maps from offset 22, then (version 101 on) ext_value, num_units, the
 * unit array and the inline unit, then (version 102 on) ext2_value,
 * num_elements, the elements and the element tail. Fields of a part that
 * the record's version does not carry are zero or null.
 */
struct cmc_geometric_distortion2_wfov {
    uint8_t word_a[4];   /**< record offsets 8 to 11, as stored, not interpreted */
    int16_t map_width;   /**< record offset 12, signed: values per map row */
    int16_t map_height;  /**< record offset 14, signed: rows per map; W = map_width *
                              map_height values per plane (a negative W with maps
                              present drops the record) */
    uint8_t word_b[4];   /**< record offsets 16 to 19, as stored, not interpreted */
    uint16_t num_maps;   /**< record offset 20: number of elements of maps */
    uint32_t ext_value;  /**< the u32 right after the maps, as stored (version 101 on); else 0 */
    int32_t num_units;   /**< number of 1040-byte units in units, the i32 after ext_value
                              (version 101 on; 0 or less means none); else 0. Kept even when
                              the unit array could not be allocated (units null) */
    cmc_gd2_wfov_unit unit; /**< the inline unit: the 1040 bytes after the unit array (version
                                 101 on, present even when num_units is 0); zero below
                                 version 101, or when the unit array could not be allocated */
    cmc_gd2_wfov_map *maps; /**< owned, num_maps maps in record order; null when num_maps is 0 */
    uint8_t *units;         /**< owned copy of the num_units * 1040 bytes of the unit array
                                 (num_units cmc_gd2_wfov_unit, as stored); null when
                                 num_units is 0 or less, below version 101, or when the
                                 allocation failed */
    float ext2_value;       /**< the f32 after the inline unit, as stored (version 102 on);
                                 0 below version 102, and set to 0 when the version-102 part
                                 was dropped after its element array was allocated (by
                                 cmc_geometric_distortion2_wfov_free()); kept when the
                                 element array itself could not be allocated */
    int32_t num_elements;   /**< the i32 after ext2_value: number of elements (version 102
                                 on); else 0. Keeps its value when the version-102 part was
                                 dropped: test elements for null before using it */
    cmc_gd2_wfov_element *elements; /**< owned, num_elements elements in record order; null
                                         below version 102, when the array could not be
                                         allocated, or when the part was dropped (an element
                                         with no values, or a failed allocation of values or
                                         of element_tail) */
    uint8_t *element_tail;          /**< owned copy of the num_elements * 24 raw bytes after
                                         the last element, not interpreted; null whenever
                                         elements is null */
};

/**
 * Release only the version-102 part of a distortion structure.
 *
 * @param gd the structure, or null (nothing is done). When its elements
 *        pointer is not null, the values of each of its num_elements
 *        elements are released (none when num_elements is 0 or less) and
 *        each cleared, then the element array (pointer cleared); then, in
 *        every case, element_tail is released and cleared, and ext2_value
 *        set to 0. num_elements keeps its value. The maps, the units and the
 *        structure itself stay, and gd stays valid: ej_cmc_parser_deinit()
 *        releases the rest. A partly built part is accepted (null elements,
 *        null values, null element_tail).
 *
 * Thread safety: needs exclusive use of the structure (and of the
 * cmc_parsed_data holding it); no reader may use it during the call.
 */
EJ_CMC_API void cmc_geometric_distortion2_wfov_free(cmc_geometric_distortion2_wfov *gd);

/* ------------------------------------------------------------------------
 * Companding curves (slots 58 and 59 from id 35, slot 60 from id 36).
 * "Wide" values are 32-bit, "narrow" values 16-bit. A curve of N segments
 * has N + 1 points. Every array is copied out of the record (whose copy is
 * released); the values are taken as stored, not interpreted. A record
 * shorter than its arrays (20 + 12N bytes for id 35, 14 + 6N for id 36) is
 * dropped and its slots stay empty.
 * ------------------------------------------------------------------------ */

/**
 * The pipe compand curve (slot 58, pipe_compand), wide to narrow, from an
 * id-35 record. Stored together with its cmc_pipe_decompand: both or
 * neither. Every array pointer is non-null in a stored structure (a valid
 * block even for zero values).
 */
struct cmc_pipe_compand {
    kelb_record_header header; /**< copy of the record's 8-byte header (size, version, id 35) */
    uint8_t ctrl_byte;         /**< record offset 8, as stored, not interpreted */
    uint32_t ctrl_word;        /**< the 4 bytes at record offset 9 (unaligned there), read as
                                    one little-endian u32, not interpreted */
    uint8_t num_segments; /**< N, record offset 13: number of segments (0 to 255) */
    uint32_t *x_points;   /**< owned, N + 1 wide points (the u32 from record offset 14) */
    uint16_t *y_points;   /**< owned, N + 1 narrow points (the u16 from offset 14 + 4(N + 1)) */
    uint16_t *slopes;     /**< owned, N narrow per-segment slopes of the compand direction
                               (the u16 from offset 14 + 6(N + 1)); no values when N is 0 */
};

/**
 * The pipe decompand curve (slot 59, pipe_decompand), narrow to wide, from
 * the same id-35 record as cmc_pipe_compand; its point arrays are separate
 * copies of the compand's, with the roles of x and y swapped.
 */
struct cmc_pipe_decompand {
    kelb_record_header header; /**< copy of the record's 8-byte header (size, version, id 35) */
    uint8_t ctrl_byte;         /**< record offset 8, as stored, not interpreted */
    uint32_t ctrl_word;        /**< the 4 bytes at record offset 9, read as one little-endian
                                    u32 (equal to cmc_pipe_compand::ctrl_word) */
    uint8_t num_segments; /**< N, record offset 13 */
    uint16_t *x_points;   /**< owned, N + 1 narrow points (the compand's y_points) */
    uint32_t *y_points;   /**< owned, N + 1 wide points (the compand's x_points) */
    uint32_t *slopes;     /**< owned, N wide per-segment slopes of the decompand direction
                               (the u32 from record offset 14 + 6(N + 1) + 2N); no values
                               when N is 0 */
};

/**
 * The sensor's decompanding points (slot 60, sensor_decompand), from an
 * id-36 record. ctrl_word holds the record's four bytes as stored: whether
 * they form one value or two is the consumer's to decide. Both point arrays
 * are non-null in a stored structure.
 */
struct cmc_sensor_decompand {
    kelb_record_header header; /**< copy of the record's 8-byte header (size, version, id 36) */
    uint8_t ctrl_byte;         /**< record offset 8, as stored, not interpreted */
    uint8_t ctrl_word[4];      /**< record offsets 9 to 12, byte for byte as stored
                                    (little-endian in the record) */
    uint8_t num_points; /**< N, record offset 13: number of points (0 to 255) */
    uint16_t *x_points; /**< owned, N narrow points (the u16 from record offset 14) */
    uint32_t *y_points; /**< owned, N wide points (the u32 from record offset 14 + 2N) */
};

/**
 * Release a compand/decompand pair and the arrays they own.
 *
 * @param compand the compand structure, or null. Unless null, its x_points,
 *        y_points and slopes are released in this order (null arrays are
 *        skipped, so a partly built structure is accepted), then the
 *        structure. Released before decompand.
 * @param decompand the decompand structure, or null; released the same way,
 *        after compand.
 *
 * Either argument may be null; both are invalid afterwards. Structures
 * still held by slots 58 and 59 must be cleared from them first, else
 * ej_cmc_parser_deinit() releases them again. Thread safety: needs exclusive
 * use of both structures.
 */
EJ_CMC_API void cmc_pipe_compand_decompand_deinit(cmc_pipe_compand *compand,
                                                  cmc_pipe_decompand *decompand);

/**
 * Release a sensor decompanding structure and the arrays it owns.
 *
 * @param sd the structure, or null (nothing is done). Releases x_points,
 *        then y_points (null arrays are skipped, so a partly built structure
 *        is accepted), then the structure; sd is invalid afterwards. A
 *        structure still held by slot 60 must be cleared from it first, else
 *        ej_cmc_parser_deinit() releases it again.
 *
 * Thread safety: needs exclusive use of the structure.
 */
EJ_CMC_API void cmc_sensor_decompand_deinit(cmc_sensor_decompand *sd);

/* ------------------------------------------------------------------------
 * Cbd record (slot 62, id 38): two parallel arrays of 32-bit values, copied
 * as stored (integer or float is the consumer's to decide). A record
 * shorter than 10 + 8N bytes is dropped (slot 62 empty).
 * ------------------------------------------------------------------------ */

/**
 * The cbd record (slot 62, cbd), 32 bytes on LP64. The record copy is
 * released; both arrays are non-null in a stored structure.
 */
struct cmc_cbd {
    kelb_record_header header; /**< copy of the record's 8-byte header (size, version, id 38) */
    uint8_t cbd_byte;          /**< record offset 8, as stored, not interpreted */
    uint8_t num_entries;     /**< N, record offset 9: length of each array (0 to 255) */
    uint32_t *first_values;  /**< owned, N values from record offset 10, as stored */
    uint32_t *second_values; /**< owned, N values from record offset 10 + 4N, as stored;
                                  second_values[i] pairs with first_values[i] */
};

/**
 * Release a cbd structure and its arrays.
 *
 * @param cbd the structure, or null (nothing is done). Releases
 *        first_values, then second_values (null arrays are skipped, so a
 *        partly built structure is accepted), then the structure; cbd is
 *        invalid afterwards. A structure still held by slot 62 must be
 *        cleared from it first, else ej_cmc_parser_deinit() releases it
 *        again.
 *
 * Thread safety: needs exclusive use of the structure.
 */
EJ_CMC_API void cmc_cbd_deinit(cmc_cbd *cbd);

/* ------------------------------------------------------------------------
 * Generic tables (slots 44, 46 to 50 and 52; ids 24, 25, 26, 27 and 29).
 * The library does not interpret their values. They have no release routine
 * of their own: ej_cmc_parser_deinit() releases them.
 * ------------------------------------------------------------------------ */

/** One id-24 entry: its 16-byte head (count c at offset 2) and c values. */
typedef struct cmc_value_table_entry {
    uint8_t entry_head[16]; /**< the entry's 16-byte head, as stored; c is its little-endian
                                 u16 at offset 2. Zero for entries after a short one (see
                                 values) */
    uint32_t *values; /**< owned, c values; null when they were not copied */
} cmc_value_table_entry;

/**
 * Id 24 (slot 44). head holds the record's first 16 bytes: n is its u16 at 14.
 * When the values of a later entry run past the record, the walk stops:
 * the entries before it are whole, that entry has its head and null values,
 * the ones after it are zero (null values). A record too short for its n
 * entry heads or for the values of its first entry makes cmc_parse() return
 * CMC_PARSE_BAD_DATA with slot 44 empty (CMC_PARSE_NO_MEMORY when an
 * allocation fails).
 */
struct cmc_value_table {
    uint8_t head[16]; /**< the record's first 16 bytes, as stored: the record header (offsets
                           0 to 7), 6 bytes not interpreted (8 to 13), then n, the number of
                           entries, as a little-endian u16 at offset 14 */
    cmc_value_table_entry *entries; /**< owned, n entries; null when n is 0 */
};

/** One id-25 entry (slot 48); the views point into block_record (slot 46). */
struct cmc_block_entry {
    const uint8_t *entry_start; /**< view: the entry's first byte */
    uint8_t block[36];          /**< copy of the entry's 36-byte block */
    const uint8_t *tail_blocks; /**< view: the first of the entry's 36-byte tail blocks */
};

/** One of the two factor blocks of an id-26 record (24 bytes). */
typedef struct cmc_factor_block {
    uint8_t block_word[8]; /**< the block's first 8 bytes, as stored; in the short form a copy
                                of cmc_dual_block::base_word */
    float factors[4];      /**< four f32 factors, as stored; 1.0 each in the short form */
} cmc_factor_block;

/**
 * Id 26 (slot 49), laid out like the record's first 64 bytes. The full form
 * (version above 100 and a record of at least 64 bytes) is a plain copy of
 * those bytes; the short form (version 100 or less, or fewer than 64 bytes)
 * gives each block base_word and four factors of 1.0. A record of 15 bytes
 * or fewer leaves slot 49 empty. No owned pointers.
 */
struct cmc_dual_block {
    kelb_record_header header; /**< the record's header (size, version, id 26), as stored */
    uint8_t base_word[8];      /**< record offsets 8 to 15, as stored */
    cmc_factor_block blocks[2]; /**< record offsets 16 to 39 and 40 to 63 in the full form */
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

/* ------------------------------------------------------------------------
 * Map record (slot 51, id 30): 6-byte items, a map of signed 32-bit values
 * and an auxiliary block. With NVM data that holds a map calibration, the map
 * is computed at the calibration's own grid size: per sample, an
 * outlier-filtered 7 x 7 average of the calibration blended with the centre
 * value of the record's table, mirrored as the id-17 record's flip mode says
 * (flip mode 0 when no id-17 record precedes the id-30 record). Released by
 * ej_cmc_parser_deinit(): items, map, aux, then the structure.
 * ------------------------------------------------------------------------ */

/** Byte offsets of the little-endian fields of cmc_nvm_map_table::head. */
enum {
    CMC_NVM_MAP_HEAD_NUM_ITEMS = 16,    /**< u16: number of 6-byte items */
    CMC_NVM_MAP_HEAD_TABLE_WIDTH = 22,  /**< u16: values per row of map */
    CMC_NVM_MAP_HEAD_TABLE_HEIGHT = 24, /**< u16: rows of map */
    CMC_NVM_MAP_HEAD_AUX_WIDTH = 26,    /**< u16: aux is 4 * aux_width * aux_height bytes */
    CMC_NVM_MAP_HEAD_AUX_HEIGHT = 28    /**< u16 */
};

/**
 * The map record (slot 51, nvm_map_table), 56 bytes on LP64. The record's
 * first 30 bytes are kept as bytes, in record layout, so that the structure
 * has no packed members: read the fields at the CMC_NVM_MAP_HEAD_ offsets
 * (little-endian, any alignment). A field that is null was not reached: the
 * decoder fills head, items, map and aux in this order and stops at the first
 * check or allocation that fails.
 */
struct cmc_nvm_map_table {
    /** The record's first 30 bytes: the 8-byte record header (size, version,
     *  id 30), 8 bytes not interpreted, num_items, 4 bytes not interpreted,
     *  table_width, table_height, aux_width, aux_height. A record shorter
     *  than 30 bytes leaves the bytes past its end zero. table_width and
     *  table_height describe map: with NVM map calibration data they hold
     *  the calibration's width and height. */
    uint8_t head[30];
    uint8_t *items; /**< owned, 6 * num_items bytes as stored, or null */
    int32_t *map;   /**< owned, table_width * table_height values (head's, see above),
                         row-major, or null */
    uint8_t *aux;   /**< owned, 4 * aux_width * aux_height bytes as stored, or null */
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
EJ_CMC_STATIC_ASSERT(offsetof(cmc_nvm_map_table, items) == 32, nvm_map_items);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_nvm_map_table, map) == 40, nvm_map_map);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_nvm_map_table, aux) == 48, nvm_map_aux);
EJ_CMC_STATIC_ASSERT(sizeof(cmc_nvm_map_table) == 56, nvm_map_size);
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
