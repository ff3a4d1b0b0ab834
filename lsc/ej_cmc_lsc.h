/**
 * @file ej_cmc_lsc.h
 * @brief Lens-shading table computation: small single-precision linear algebra on
 * strided matrices, upscaling of a module's NVM lens-shading tables to a
 * tuning grid, and the ratio-based correction of tuned grids. */
#ifndef EJ_CMC_LSC_H
#define EJ_CMC_LSC_H

#include <stdint.h>

#include "ej_cmc_export.h"

EJ_CMC_EXTERN_C_BEGIN

/* The NVM library's parse result (ej_nvm.h of the NVM library). */
struct ej_nvm_data;

/* Upscaled lens-shading tables. */

/**
 * A set of lens-shading tables brought onto a target grid of
 * dst_width x dst_height samples, one entry per NVM calibration table.
 * Owned by whoever receives it; released only by
 * deinit_computed_upscale_lsc_tables().
 */
typedef struct computed_lsc_tables {
    /** Number of entries of tables: the NVM data's lsc_table_count. */
    uint8_t num_tables;
    /**
     * Owning array of num_tables owning pointers. Entry t is one block of
     * 4 * dst_width * dst_height floats holding the four gain planes of NVM
     * table t: plane c (from the NVM channel table c) starts at float
     * c * dst_width * dst_height and is row-major, dst_width floats a row.
     */
    float **tables;
} computed_lsc_tables;

/**
 * Release a computed_lsc_tables: every table block, then the array, then the
 * structure.
 *
 * @param tables a result of compute_upscaled_lsc_tables_bicubic() or of the
 *        polynomial upscaling, or null (nothing is done). A partly built set
 *        (null array, null entries) is accepted. Invalid afterwards.
 */
EJ_CMC_API void deinit_computed_upscale_lsc_tables(computed_lsc_tables *tables);

/* Bicubic upscaling of lens-shading tables. */

/**
 * Bring the NVM lens-shading tables onto a dst_width x dst_height grid by
 * bicubic interpolation of the raw samples (image_bicubic_upscale_uint8_to_float
 * for frac_bits up to 8, image_bicubic_upscale_uint16_to_float above), then
 * convert every value v to the gain v / 2^(frac_bits mod 32) + 1.0 and place
 * it as flip_mode says: 0 as computed, 1 each row reversed, 2 rows in reverse
 * order, 3 both. The interpolant passes through every NVM sample; the planes
 * are not normalised.
 *
 * @param dst_width width of the target grid, at least the NVM grid width.
 * @param dst_height height of the target grid, at least the NVM grid height.
 * @param nvm the NVM library's parse result, read during the call only.
 * @param flip_mode 0 ... 3, as above.
 * @return a new set (release with deinit_computed_upscale_lsc_tables()), with
 *         num_tables = 0 when the NVM data has no table; null when nvm or its
 *         lsc_tables is null, dst_width or dst_height is 0, lsc_grid_width or
 *         lsc_grid_height is 0, flip_mode is above 3, the target is smaller
 *         than the NVM grid, a channel table is null, or an allocation
 *         failed (nothing is leaked).
 */
EJ_CMC_API computed_lsc_tables *compute_upscaled_lsc_tables_bicubic(uint16_t dst_width,
                                                                    uint16_t dst_height,
                                                                    const struct ej_nvm_data *nvm,
                                                                    uint32_t flip_mode);
/* End of the bicubic upscaling of lens-shading tables. */

EJ_CMC_EXTERN_C_END

#endif /* EJ_CMC_LSC_H */
