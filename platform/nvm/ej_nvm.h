/*
 * ej_nvm.h - the camera stack's NVM library (libej_nvm-vantor.so.0).
 *
 * This project ships a stand-in of that library so that the parser can be
 * built and tested on its own; a camera stack's real library replaces it.
 * ej_nvm_data has the in-memory layout that the parser reads (LP64 offsets
 * pinned below). The stand-in reads its own small binary format, described in
 * docs/nvm-format.md.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef EJ_NVM_H
#define EJ_NVM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef EJ_DATA_BLOCK_DEFINED
#define EJ_DATA_BLOCK_DEFINED
/** Caller-owned descriptor of a byte block (a container or NVM data). */
typedef struct ej_data_block {
    uint8_t *data; /**< first byte of the block */
    uint32_t size; /**< block length in bytes */
} ej_data_block;
#endif

/** One lens-shading calibration table of the module: four channel tables. */
typedef struct nvm_lsc_table {
    /** Fractional bits of the samples. 8 or less: u8 samples; above 8: u16. */
    uint8_t frac_bits;
    uint8_t reserved[7];
    /** Channel tables 0..3, each lsc_grid_width x lsc_grid_height samples,
     *  row-major, in host byte order, of the width frac_bits selects; null
     *  when the grid has no samples (a zero extent). */
    void *channel_tables[4];
} nvm_lsc_table;

/** The module's map calibration. */
typedef struct nvm_map_calibration {
    uint8_t reserved[16];
    uint8_t cal_map_width;  /**< W, values per row */
    uint8_t cal_map_height; /**< H, rows */
    uint8_t cal_map_shift;  /**< scale shift of the values */
    uint8_t reserved2[5];
    int32_t *cal_map_values; /**< W x H values, row-major, or null (no values;
                                  also when W x H is 0) */
} nvm_map_calibration;

/** The parsed NVM calibration. Owned by the NVM library. */
typedef struct ej_nvm_data {
    uint16_t format_version;   /**< version of the blob it was parsed from */
    uint8_t reserved0[38];
    uint8_t lsc_table_count;   /**< number of elements of lsc_tables */
    uint8_t reserved1[23];
    uint8_t lsc_grid_width;    /**< samples per row of every channel table */
    uint8_t lsc_grid_height;   /**< rows of every channel table */
    uint8_t reserved2[6];
    nvm_lsc_table *lsc_tables; /**< lsc_table_count tables, or null when 0 */
    uint8_t reserved3[32];
    uint8_t map_calibration_present; /**< non-zero when map_calibration is set */
    uint8_t reserved4[7];
    nvm_map_calibration *map_calibration; /**< or null */
} ej_nvm_data;

/** Result codes of ej_nvm_parse(). */
enum {
    EJ_NVM_OK = 0,
    EJ_NVM_ERR_ARGUMENT = 1,    /**< null block, null data or null handle address */
    EJ_NVM_ERR_TRUNCATED = 2,   /**< the blob ends inside a header or section */
    EJ_NVM_ERR_MAGIC = 3,       /**< the blob does not start with "EJNV" */
    EJ_NVM_ERR_VERSION = 4,     /**< unsupported format version */
    EJ_NVM_ERR_SIZE = 5,        /**< the size field differs from the block size */
    EJ_NVM_ERR_FORMAT = 6,      /**< unknown flag bits or non-zero reserved bytes */
    EJ_NVM_ERR_NO_MEMORY = 7,   /**< an allocation failed */
    EJ_NVM_ERR_TRAILING = 8     /**< bytes left over after the last section */
};

/**
 * Parse an NVM blob.
 * @param nvm the blob; read only during the call.
 * @param handle receives a new ej_nvm_data on success, null on any failure.
 * @return EJ_NVM_OK or one of the EJ_NVM_ERR_ codes.
 */
int ej_nvm_parse(const ej_data_block *nvm, ej_nvm_data **handle);

/** Release a handle from ej_nvm_parse(); null does nothing. */
void ej_nvm_deinit(ej_nvm_data *handle);

/** Allocation function of the stand-in: calloc's arguments and contract. */
typedef void *(*ej_nvm_calloc_fn)(size_t count, size_t size);

/**
 * Stand-in only, for tests: on the calling thread, ej_nvm_parse() allocates
 * with fn instead of calloc (null restores calloc); results are still
 * released with free(). Lets a test count and fail the stand-in's
 * allocations together with the parser's own. The real library has no such
 * call and the parser never makes it.
 */
void ej_nvm_set_calloc(ej_nvm_calloc_fn fn);

#if defined(__LP64__)
#if defined(__cplusplus)
#define EJ_NVM_STATIC_ASSERT(cond, name) static_assert(cond, #name)
#else
#define EJ_NVM_STATIC_ASSERT(cond, name) typedef char ej_nvm_assert_##name[(cond) ? 1 : -1]
#endif
EJ_NVM_STATIC_ASSERT(offsetof(ej_nvm_data, lsc_table_count) == 40, lsc_table_count);
EJ_NVM_STATIC_ASSERT(offsetof(ej_nvm_data, lsc_grid_width) == 64, lsc_grid_width);
EJ_NVM_STATIC_ASSERT(offsetof(ej_nvm_data, lsc_grid_height) == 65, lsc_grid_height);
EJ_NVM_STATIC_ASSERT(offsetof(ej_nvm_data, lsc_tables) == 72, lsc_tables);
EJ_NVM_STATIC_ASSERT(offsetof(ej_nvm_data, map_calibration_present) == 112, map_present);
EJ_NVM_STATIC_ASSERT(offsetof(ej_nvm_data, map_calibration) == 120, map_calibration);
EJ_NVM_STATIC_ASSERT(sizeof(ej_nvm_data) == 128, nvm_data_size);
EJ_NVM_STATIC_ASSERT(sizeof(nvm_lsc_table) == 40, lsc_table_size);
EJ_NVM_STATIC_ASSERT(offsetof(nvm_lsc_table, channel_tables) == 8, channel_tables);
EJ_NVM_STATIC_ASSERT(offsetof(nvm_map_calibration, cal_map_width) == 16, cal_map_width);
EJ_NVM_STATIC_ASSERT(offsetof(nvm_map_calibration, cal_map_height) == 17, cal_map_height);
EJ_NVM_STATIC_ASSERT(offsetof(nvm_map_calibration, cal_map_shift) == 18, cal_map_shift);
EJ_NVM_STATIC_ASSERT(offsetof(nvm_map_calibration, cal_map_values) == 24, cal_map_values);
#endif

#ifdef __cplusplus
}
#endif

#endif /* EJ_NVM_H */
