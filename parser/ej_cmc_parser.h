/**
 * @file ej_cmc_parser.h
 * @brief Parse entry points and the parse result.
 *
 * A camera stack hands a tuning container (the kelb format: a 24-byte header
 * followed by a chain of records) and, optionally, the module's NVM data to
 * ej_cmc_parser_init_v1(). The result is one cmc_parsed_data: a fixed table of
 * 65 pointer-wide fields ("slots"), each pointing at a decoded record or into
 * one. The caller owns the result and releases it with ej_cmc_parser_deinit().
 *
 * Thread safety: the library keeps no global state and takes no locks.
 * Concurrent parses of different containers are independent. A returned
 * cmc_parsed_data may be read from several threads; ej_kelb_others_parser_init()
 * and ej_cmc_parser_deinit() need exclusive use of it.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef EJ_CMC_PARSER_H
#define EJ_CMC_PARSER_H

#include <stddef.h>
#include <stdint.h>

#include "ej_cmc_export.h"

EJ_CMC_EXTERN_C_BEGIN

#ifndef EJ_DATA_BLOCK_DEFINED
#define EJ_DATA_BLOCK_DEFINED
/** Caller-owned descriptor of a byte block (a container or NVM data). */
typedef struct ej_data_block {
    uint8_t *data; /**< first byte of the block */
    uint32_t size; /**< block length in bytes */
} ej_data_block;
#endif

/**
 * The first 24 bytes of a container, little-endian. Word 1 is the total
 * container size including this header; the word at offset 20 is the checksum.
 * The other bytes are covered by the checksum and not interpreted.
 */
typedef struct kelb_container_header {
    uint32_t word0;       /**< not interpreted (covered by the checksum) */
    uint32_t size;        /**< total container size in bytes, header included */
    uint8_t reserved[12]; /**< not interpreted (covered by the checksum) */
    uint32_t checksum;    /**< checksum word */
} kelb_container_header;

/** The first 8 bytes of every record, little-endian. */
typedef struct kelb_record_header {
    uint32_t size;    /**< record size in bytes, header included */
    uint8_t version;  /**< 100 base layout; 101..103 add trailing fields */
    uint8_t reserved; /**< not interpreted */
    uint16_t id;      /**< record id; ids below 64 are decoded here */
} kelb_record_header;

/* Decoded structures, defined and documented in cmc_records.h. */
/** @cond FORWARD_DECLARATIONS */
typedef struct rec_1_pair rec_1_pair;
typedef struct cmc_rec_2 cmc_rec_2;
typedef struct rec_15_curve_set rec_15_curve_set;
typedef struct cmc_geometric_distortion2_wfov cmc_geometric_distortion2_wfov;
typedef struct cmc_value_table cmc_value_table;
typedef struct cmc_block_entry cmc_block_entry;
typedef struct cmc_dual_block cmc_dual_block;
typedef struct cmc_plane_grid_set cmc_plane_grid_set;
typedef struct cmc_nvm_map_table cmc_nvm_map_table;
typedef struct cmc_four_plane_grid cmc_four_plane_grid;
typedef struct cmc_lens_shading4x4 cmc_lens_shading4x4;
typedef struct cmc_lens_shading_ratio cmc_lens_shading_ratio;
typedef struct cmc_pipe_compand cmc_pipe_compand;
typedef struct cmc_pipe_decompand cmc_pipe_decompand;
typedef struct cmc_sensor_decompand cmc_sensor_decompand;
typedef struct cmc_cbd cmc_cbd;
typedef struct others_data others_data;
/** @endcond */

/**
 * The parse result. Field N is "slot N". Every field is one pointer wide,
 * except rec_1_pair_count (a u16) and rec_13_params (four u16), each of which
 * occupies the room of one pointer on LP64.
 *
 * "Kept copy": the heap copy of a record that the walk made, owned by the slot.
 * "View": a pointer into another slot's kept copy; never released by itself
 * and valid exactly as long as that slot holds the same copy.
 * Kept copies and views are raw little-endian record bytes (uint8_t) unless
 * the view is aligned and of a single element type.
 */
typedef struct cmc_parsed_data {
    uint8_t *rec_1;                   /**< 0: kept id-1 record */
    const char *rec_1_name;           /**< 1: view, NUL-terminated name */
    uint16_t rec_1_pair_count;        /**< 2: number of key/value pairs */
    rec_1_pair *rec_1_pairs;          /**< 3: owned array of rec_1_pair_count pairs */
    cmc_rec_2 *rec_2;                 /**< 4: owned 36-byte structure from id 2 */
    void *reserved_5;                 /**< 5: never filled */
    void *reserved_6;                 /**< 6: never filled */
    uint8_t *rec_5;                   /**< 7: kept id-5 record */
    uint8_t *rec_6;                   /**< 8: kept id-6 record */
    uint16_t *rec_6_values;           /**< 9: view, offset 16 of rec_6 */
    uint8_t *rec_7;                   /**< 10: kept id-7 record */
    uint8_t *rec_8;                   /**< 11: kept id-8 record */
    uint8_t *rec_9;                   /**< 12: kept id-9 record, completed in place */
    uint8_t *lens_shading_record;     /**< 13: kept id-10 record */
    uint8_t *lens_shading_first_set;  /**< 14: view into slot 13 */
    uint8_t *lens_shading_first_grid; /**< 15: view into slot 13 */
    uint8_t *lens_shading_set_params; /**< 16: view into slot 13 */
    uint8_t *rec_13;                  /**< 17: kept id-13 record */
    uint16_t *rec_13_values;          /**< 18: owned copy of the id-13 values */
    uint16_t rec_13_params[4];        /**< 19: defaults 0, 1, 250, 1000 */
    uint8_t *rec_14;                  /**< 20: kept id-14 record */
    uint8_t *rec_14_table;            /**< 21: view into slot 20 */
    uint8_t *rec_15;                  /**< 22: kept id-15 record */
    rec_15_curve_set *rec_15_curves;  /**< 23: owned curve set */
    void *reserved_24;                /**< 24: always empty */
    uint8_t *rec_15_table_a;          /**< 25: view into slot 22 */
    uint8_t *rec_15_table_b;          /**< 26: view into slot 22 */
    uint8_t *rec_15_table_c;          /**< 27: view into slot 22 */
    uint8_t *rec_15_table_d;          /**< 28: view into slot 22 */
    uint8_t *rec_16;                  /**< 29: kept id-16 record */
    uint8_t *rec_16_values;           /**< 30: view, offset 14 of rec_16 */
    uint8_t *rec_17;                  /**< 31: kept id-17 record */
    uint8_t *rec_17_ext;              /**< 32: view, offset 14 of rec_17 (version > 100) */
    uint8_t *rec_18;                  /**< 33: kept id-18 record */
    uint8_t *rec_18_entries;          /**< 34: view, offset 10 of rec_18 */
    uint8_t *rec_18_tail;             /**< 35: view behind the entries (version > 100) */
    uint8_t *rec_19;                  /**< 36: kept id-19 record */
    uint8_t *rec_19_entries;          /**< 37: view, offset 16 of rec_19 */
    uint8_t *rec_19_values;           /**< 38: view behind the entries */
    uint8_t *rec_20;                  /**< 39: kept id-20 record */
    uint8_t *rec_20_list_header;      /**< 40: view, offset 14 of rec_20 */
    uint8_t *rec_20_list;             /**< 41: view, offset 20 of rec_20 */
    cmc_geometric_distortion2_wfov *geometric_distortion2_wfov; /**< 42: owned, id 22 */
    uint8_t *rec_23;                  /**< 43: kept id-23 record */
    cmc_value_table *value_table;     /**< 44: owned, id 24 */
    uint8_t *rec_21;                  /**< 45: kept id-21 record */
    uint8_t *block_record;            /**< 46: kept id-25 record */
    uint32_t *block_values;           /**< 47: view, offset 12 of block_record */
    cmc_block_entry *block_entries;   /**< 48: owned, id 25 */
    cmc_dual_block *dual_block;       /**< 49: owned, id 26 */
    cmc_plane_grid_set *plane_grid_set; /**< 50: owned, id 27 */
    cmc_nvm_map_table *nvm_map_table; /**< 51: owned, id 30 */
    cmc_four_plane_grid *four_plane_grid; /**< 52: owned, id 29 */
    cmc_lens_shading4x4 *lens_shading4x4; /**< 53: owned, ids 10 and 28 */
    uint8_t *rec_31;                  /**< 54: id-31 form (id 31, or built from id 3) */
    uint8_t *rec_32;                  /**< 55: kept id-32 record, completed in place */
    cmc_lens_shading_ratio *lens_shading_ratio; /**< 56: owned, ids 11 and 33 */
    uint8_t *rec_34;                  /**< 57: id-34 form (id 34, or built after the walk) */
    cmc_pipe_compand *pipe_compand;   /**< 58: owned, id 35 */
    cmc_pipe_decompand *pipe_decompand; /**< 59: owned, id 35 */
    cmc_sensor_decompand *sensor_decompand; /**< 60: owned, id 36 */
    uint8_t *rec_37;                  /**< 61: kept id-37 record */
    cmc_cbd *cbd;                     /**< 62: owned, id 38 */
    others_data *others;              /**< 63: owned, id 722 via ej_kelb_others_parser_init */
    const ej_data_block *container;   /**< 64: the caller's descriptor, not owned */
} cmc_parsed_data;

/**
 * Parse a tuning container, optionally with the module's NVM data.
 *
 * @param container the container; must stay valid during the call. Its size
 *        field (offset 4) must equal container->size and its checksum must
 *        hold (sum of every u32 word except the checksum word, or the sum of
 *        the record words only).
 * @param nvm NVM data, or null. Handed to the NVM library and released again
 *        before the call returns.
 * @return a new cmc_parsed_data owned by the caller (release it with
 *         ej_cmc_parser_deinit), or null when the container is null, its size
 *         field or checksum is wrong, or the result cannot be allocated.
 *         Slot 64 keeps the container pointer itself; the library does not
 *         read it after the call.
 */
EJ_CMC_API cmc_parsed_data *ej_cmc_parser_init_v1(const ej_data_block *container,
                                                  const ej_data_block *nvm);

/**
 * Parse a tuning container without NVM data: ej_cmc_parser_init_v1(container, NULL).
 *
 * @param container the container, as for ej_cmc_parser_init_v1().
 * @return the parse result owned by the caller, or null, as for
 *         ej_cmc_parser_init_v1().
 */
EJ_CMC_API cmc_parsed_data *ej_cmc_parser_init(const ej_data_block *container);

/**
 * Release everything a parse result owns, then the result itself.
 *
 * @param parsed a result of ej_cmc_parser_init_v1() or ej_cmc_parser_init(),
 *        or null (nothing is done). The container descriptor of slot 64
 *        belongs to the caller and is not touched. Needs exclusive use of
 *        parsed; it is invalid afterwards.
 */
EJ_CMC_API void ej_cmc_parser_deinit(cmc_parsed_data *parsed);

/**
 * Summarize the container's first others record (id 722) into slot 63
 * (others): its u32 value at offset 8, its entry count (u32 at 12) capped at
 * 16, and that many 8-byte entries from offset 16. The record is read in
 * place; the container is not validated again.
 *
 * @param container the descriptor given to ej_cmc_parser_init_v1 (read only,
 *        not kept). The search covers the header's size field, but never
 *        more than container->size bytes, and stops at a record whose size
 *        is below 8 or that runs past that end.
 * @param parsed the result of that call. A block already in slot 63 (from
 *        an earlier call) is released first, so slot 63 always summarizes
 *        the container of the latest call.
 * Slot 63 stays empty when the container holds no complete id-722 record
 * (one at least 16 + 8 * count bytes long, count capped at 16) or the
 * summary cannot be allocated. Null arguments, or a container with null
 * data, do nothing. The block is released by ej_cmc_parser_deinit.
 */
EJ_CMC_API void ej_kelb_others_parser_init(const ej_data_block *container,
                                           cmc_parsed_data *parsed);

/* Layout pins on LP64: slot N sits at byte 8*N. */
#if defined(__LP64__)
#if defined(__cplusplus)
#define EJ_CMC_STATIC_ASSERT(cond, name) static_assert(cond, #name)
#else
#define EJ_CMC_STATIC_ASSERT(cond, name) typedef char ej_cmc_assert_##name[(cond) ? 1 : -1]
#endif
EJ_CMC_STATIC_ASSERT(sizeof(ej_data_block) == 16, data_block_size);
EJ_CMC_STATIC_ASSERT(sizeof(kelb_container_header) == 24, container_header_size);
EJ_CMC_STATIC_ASSERT(offsetof(kelb_container_header, checksum) == 20, container_checksum);
EJ_CMC_STATIC_ASSERT(sizeof(kelb_record_header) == 8, record_header_size);
EJ_CMC_STATIC_ASSERT(offsetof(kelb_record_header, id) == 6, record_header_id);
/* Every slot's offset is pinned in the library's own build as well. */
EJ_CMC_STATIC_ASSERT(sizeof(cmc_parsed_data) == 65 * 8, parsed_data_size);
EJ_CMC_STATIC_ASSERT(offsetof(cmc_parsed_data, container) == 64 * 8, slot_64);
#endif

EJ_CMC_EXTERN_C_END

#endif /* EJ_CMC_PARSER_H */
