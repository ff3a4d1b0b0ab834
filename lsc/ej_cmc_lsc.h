/**
 * @file ej_cmc_lsc.h
 * @brief Lens-shading table computation: small single-precision linear algebra
 * on strided matrices, upscaling of a module's NVM lens-shading tables to a
 * tuning grid, and the ratio-based correction of tuned grids. */
#ifndef EJ_CMC_LSC_H
#define EJ_CMC_LSC_H

#include <stdint.h>

#include "ej_cmc_export.h"

EJ_CMC_EXTERN_C_BEGIN

/* The NVM library's parse result (ej_nvm.h of the NVM library). */
struct ej_nvm_data;
/* Decoded lens-shading structures (cmc_records.h). */
struct cmc_lens_shading4x4;
struct cmc_lens_shading_ratio;

/**
 * @name Linear algebra on strided single-precision matrices
 *
 * A matrix view is five arguments, always in this order: base pointer, row
 * stride in bytes, column stride in bytes, width (columns), height (rows).
 * Element (r, c) lies at base + r * row_stride + c * col_stride bytes, so the
 * same block read with its two strides exchanged is its transpose. A
 * destination view has no extent of its own: it follows from the operation.
 * Strides are trusted: the kernels do not check that a view lies inside its
 * buffer. Every dot product is accumulated from 0.0 in ascending index order,
 * one fused multiply-add per step. Statuses: 0 success, 2 a step of the fit
 * failed or a required matrix is missing, 4 an allocation failed, 32 the
 * inner dimensions of a product disagree. No kernel keeps state; calls on
 * different data may run in parallel.
 *
 * The _lsc variants sum only over the interior of a width x height sample
 * grid (row-major, x fastest): margin_x columns are left out at the left and
 * right edge and margin_y rows at the top and bottom. With iw = width - 2 *
 * margin_x and ih = height - 2 * margin_y (signed 32-bit), interior sample k
 * = 0 ... iw * ih - 1 is grid sample (margin_y + k / iw) * width + margin_x +
 * k % iw. The interior is empty when iw or ih is not positive.
 */
/** @{ */

/**
 * Transpose: destination element (c, r) receives source element (r, c).
 *
 * @param src source base. @param src_row_stride source row stride in bytes.
 * @param src_col_stride source column stride in bytes.
 * @param src_width source columns. @param src_height source rows; with either
 *        extent not positive, or src or dst null, nothing is written.
 * @param dst destination base (src_height columns, src_width rows).
 * @param dst_row_stride destination row stride in bytes.
 * @param dst_col_stride destination column stride in bytes.
 * @return always 0.
 */
EJ_CMC_API uint32_t transpose_m(const float *src, int32_t src_row_stride, int32_t src_col_stride,
                                int32_t src_width, int32_t src_height, float *dst,
                                int32_t dst_row_stride, int32_t dst_col_stride);

/**
 * Matrix product dst = a * b, rows of a as the outer loop.
 *
 * @param a base of a. @param a_row_stride row stride of a in bytes.
 * @param a_col_stride column stride of a in bytes.
 * @param a_width columns of a. @param a_height rows of a.
 * @param b base of b. @param b_row_stride row stride of b in bytes.
 * @param b_col_stride column stride of b in bytes.
 * @param b_width columns of b. @param b_height rows of b.
 * @param dst destination base (b_width columns, a_height rows).
 * @param dst_row_stride destination row stride in bytes.
 * @param dst_col_stride destination column stride in bytes.
 * @return 0; 32 when a_width differs from b_height (nothing written, even
 *         when an outer extent is 0), or when dst, or a or b with a_width
 *         above 0, is null (nothing written). An outer extent below 1 writes
 *         nothing and returns 0.
 */
EJ_CMC_API uint32_t mul_mm(const float *a, int32_t a_row_stride, int32_t a_col_stride,
                           int32_t a_width, int32_t a_height, const float *b, int32_t b_row_stride,
                           int32_t b_col_stride, int32_t b_width, int32_t b_height, float *dst,
                           int32_t dst_row_stride, int32_t dst_col_stride);

/**
 * Matrix product dst = a * b whose inner sum runs only over the interior
 * samples of a width x height grid (see the group description); the
 * dimension test is on the full extents. With an empty interior every
 * destination element is 0.0.
 *
 * @param a base of a. @param a_row_stride row stride of a in bytes.
 * @param a_col_stride column stride of a in bytes.
 * @param a_width columns of a. @param a_height rows of a.
 * @param b base of b. @param b_row_stride row stride of b in bytes.
 * @param b_col_stride column stride of b in bytes.
 * @param b_width columns of b. @param b_height rows of b.
 * @param dst destination base. @param dst_row_stride destination row stride.
 * @param dst_col_stride destination column stride.
 * @param height grid rows. @param width grid columns.
 * @param margin_y rows left out at the top and at the bottom.
 * @param margin_x columns left out at the left and at the right.
 * @return 0; 32 when a_width differs from b_height, when dst (or a or b
 *         with a non-empty interior) is null, or when the interior reaches
 *         past a_width (its last sample index is a_width or more); nothing
 *         is written then. An outer extent below 1 writes nothing.
 */
EJ_CMC_API uint32_t mul_mm_lsc(const float *a, int32_t a_row_stride, int32_t a_col_stride,
                               int32_t a_width, int32_t a_height, const float *b,
                               int32_t b_row_stride, int32_t b_col_stride, int32_t b_width,
                               int32_t b_height, float *dst, int32_t dst_row_stride,
                               int32_t dst_col_stride, uint16_t height, uint16_t width,
                               uint16_t margin_y, uint16_t margin_x);

/**
 * Matrix-vector product y = a * x.
 *
 * @param a base of a. @param a_row_stride row stride of a in bytes.
 * @param a_col_stride column stride of a in bytes.
 * @param a_width columns of a. @param a_height rows of a.
 * @param x source vector. @param x_stride its stride in bytes.
 * @param x_len its length; must equal a_width.
 * @param y destination vector (a_height elements). @param y_stride its stride.
 * @return 0; 32 when a_width differs from x_len, or when y (or a or x
 *         with a_width above 0) is null; nothing is written then. a_height
 *         below 1 writes nothing and returns 0.
 */
EJ_CMC_API uint32_t mul_mv(const float *a, int32_t a_row_stride, int32_t a_col_stride,
                           int32_t a_width, int32_t a_height, const float *x, int32_t x_stride,
                           int32_t x_len, float *y, int32_t y_stride);

/**
 * Matrix-vector product y = a * x summed only over the interior samples of a
 * width x height grid (see the group description).
 *
 * @param a base of a. @param a_row_stride row stride of a in bytes.
 * @param a_col_stride column stride of a in bytes.
 * @param a_width columns of a. @param a_height rows of a.
 * @param x source vector. @param x_stride its stride in bytes.
 * @param x_len its length; must equal a_width.
 * @param y destination vector. @param y_stride its stride in bytes.
 * @param height grid rows. @param width grid columns.
 * @param margin_y rows left out at the top and at the bottom.
 * @param margin_x columns left out at the left and at the right.
 * @return 0; 32 when a_width differs from x_len, when y (or a or x with a
 *         non-empty interior) is null, or when the interior reaches past
 *         x_len; nothing is written then.
 */
EJ_CMC_API uint32_t mul_mv_lsc(const float *a, int32_t a_row_stride, int32_t a_col_stride,
                               int32_t a_width, int32_t a_height, const float *x, int32_t x_stride,
                               int32_t x_len, float *y, int32_t y_stride, uint16_t height,
                               uint16_t width, uint16_t margin_y, uint16_t margin_x);

/**
 * LU decomposition (Doolittle, no row exchanges) of an n x n matrix into one
 * matrix holding L below the diagonal (unit diagonal, not stored) and U on
 * and above it. A zero pivot is not detected: infinities and NaN propagate
 * into the factors and 0 is returned all the same.
 *
 * @param src dense block of n * n floats, or null (a zero matrix); its
 *        strides say how the block is read as a matrix ((4n, 4) row-major,
 *        (4, 4n) its transpose) and address the working copy the same way,
 *        so they must be non-negative multiples of 4 that keep every element
 *        inside the n * n block.
 * @param src_row_stride row stride in bytes. @param src_col_stride column
 *        stride in bytes.
 * @param pivot receives the identity permutation 0 ... n - 1 (n elements).
 * @param dst destination of the factors. @param dst_row_stride its row
 *        stride in bytes. @param dst_col_stride its column stride in bytes.
 * @param size n; below 1 nothing is allocated or written and 0 is returned.
 * @return 0; 4 when the n * n working copy cannot be allocated; 32 when
 *         pivot or dst is null or the source strides leave the block
 *         (nothing written).
 */
EJ_CMC_API uint32_t lu_decomposition_m(const float *src, int32_t src_row_stride,
                                       int32_t src_col_stride, uint32_t *pivot, float *dst,
                                       int32_t dst_row_stride, int32_t dst_col_stride,
                                       int32_t size);

/**
 * Build the design matrix of a 15-term 4th-order polynomial fit on a width x
 * height grid (1-based coordinates; columns 1, x, y, x^2, xy, y^2, x^3, x^2y,
 * xy^2, y^3, x^4, x^3y, x^2y^2, xy^3, y^4), its transpose, and the LU
 * decomposition of the normal matrix design_t * design.
 *
 * @param design m x num_terms floats (m = width * height), written.
 * @param design_t num_terms x m floats, written.
 * @param lu num_terms x num_terms floats, receives the factors.
 * @param pivot num_terms elements, receives the identity permutation.
 * @param width grid columns. @param height grid rows.
 * @param num_terms columns of the design matrix, at least 15 (columns 15
 *        and above are not written).
 * @return 0; 2 when num_terms is below 15 or width * height is above
 *         536870911 (the transpose's row stride of 4 * m bytes must fit 32
 *         bits; nothing allocated or written), when design is null with a
 *         non-empty grid, or when a step fails (a null design_t with a
 *         non-empty grid, an allocation failure inside the decomposition);
 *         4 when the num_terms^2 scratch cannot be allocated. A grid too
 *         small for the fit is not reported: the factors hold NaN or
 *         infinities.
 */
EJ_CMC_API uint32_t lu_decomposition(float *design, float *design_t, float *lu, uint32_t *pivot,
                                     uint16_t width, uint16_t height, uint16_t num_terms);

/**
 * As lu_decomposition(), but only the interior samples of the grid enter the
 * normal matrix; the design matrix and its transpose are still filled for the
 * whole grid.
 *
 * @param design m x num_terms floats, written.
 * @param design_t num_terms x m floats, written.
 * @param lu num_terms x num_terms floats, receives the factors.
 * @param pivot num_terms elements, receives the identity permutation.
 * @param width grid columns. @param height grid rows.
 * @param num_terms columns of the design matrix, at least 15.
 * @param margin_y rows left out at the top and at the bottom.
 * @param margin_x columns left out at the left and at the right.
 * @return 0, 2 or 4 as lu_decomposition().
 */
EJ_CMC_API uint32_t lu_decomposition_lsc(float *design, float *design_t, float *lu, uint32_t *pivot,
                                         uint16_t width, uint16_t height, uint16_t num_terms,
                                         uint16_t margin_y, uint16_t margin_x);
/** @} */

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
 * @param tables a result of compute_upscaled_lsc_tables_polynom4th() or
 *        compute_upscaled_lsc_tables_bicubic(), or null (nothing is done). A
 *        partly built set (null array, null entries) is accepted. Invalid
 *        afterwards.
 */
EJ_CMC_API void deinit_computed_upscale_lsc_tables(computed_lsc_tables *tables);

/* Polynomial upscaling of lens-shading tables. */

/**
 * Bring the NVM lens-shading tables onto a dst_width x dst_height grid: each
 * channel table is converted to gains v / 2^(frac_bits mod 32) + 1.0, placed
 * as flip_mode says (0 as stored, 1 each row reversed, 2 rows in reverse
 * order, 3 both), fitted by least squares with a 15-term 4th-order
 * polynomial, evaluated on the corner-aligned target grid and normalised so
 * that the smallest gain of each plane is 1.0. The normal matrix and its
 * factors are built once per call.
 *
 * @param dst_width width of the target grid, at least 2.
 * @param dst_height height of the target grid, at least 2.
 * @param nvm the NVM library's parse result, read during the call only.
 * @param flip_mode 0 ... 3 as above; any other value leaves the working
 *        tables zero, so the call fails at the normalisation.
 * @param exclude_border non-zero: a border of 2 samples on every side is
 *        left out of the fit (the polynomial is still evaluated everywhere).
 * @return a new set (release with deinit_computed_upscale_lsc_tables()), or
 *         null when dst_width or dst_height is below 2 (a single row or
 *         column cannot be evaluated), nvm is null, the NVM grid has a zero
 *         extent, lsc_table_count is above 0 with lsc_tables or one of a
 *         table's channel tables null, an allocation or a step of the fit
 *         fails, or a plane's minimum is not above 0 (zero, negative, or NaN,
 *         a NaN anywhere in the plane counting as a NaN minimum; for
 *         instance after a singular fit). There is no partial result;
 *         nothing is leaked.
 */
EJ_CMC_API computed_lsc_tables *
compute_upscaled_lsc_tables_polynom4th(uint16_t dst_width, uint16_t dst_height,
                                       const struct ej_nvm_data *nvm, uint32_t flip_mode,
                                       uint8_t exclude_border);

/**
 * Solve the fit for four planes and evaluate it: per plane k, b = design_t *
 * src_planes[k] (over the interior only when use_margins is set), forward
 * and back substitution with lu, then P(x, y) at x = 1 + i * sx, y = 1 + j *
 * sy with sx = (src_width - 1) / (dst_width - 1), sy likewise.
 *
 * @param design_t the transpose written by lu_decomposition() or
 *        lu_decomposition_lsc() for the same grid and num_terms.
 * @param lu the factors written by the same call.
 * @param pivot accepted and not read (the factors need no permutation).
 * @param src_planes four planes of src_width * src_height floats.
 * @param dst_planes four planes of dst_width * dst_height floats, written;
 *        neither the array nor its planes are read when nothing is
 *        evaluated (either may then be null).
 * @param src_width source grid columns. @param src_height source grid rows.
 * @param dst_width target columns. @param dst_height target rows; when
 *        either is 0 or 1 nothing is evaluated (the coefficients are still
 *        solved).
 * @param num_terms number of polynomial terms (15).
 * @param margin_y rows left out of the fit at the top and bottom.
 * @param margin_x columns left out at the left and right.
 * @param use_margins non-zero: fit the interior only.
 * @return 0, or 2 on an allocation failure, a null source or (when
 *         evaluating) destination plane (planes of earlier channels stay
 *         written), a failed product, null lu or src_planes, null
 *         dst_planes when evaluating, num_terms below 15, or
 *         src_width * src_height above 536870911.
 */
EJ_CMC_API uint32_t lsc_polynomial_upscale_float(const float *design_t, const float *lu,
                                                 const uint32_t *pivot, float *const *src_planes,
                                                 float *const *dst_planes, uint16_t src_width,
                                                 uint16_t src_height, uint16_t dst_width,
                                                 uint16_t dst_height, uint16_t num_terms,
                                                 uint16_t margin_y, uint16_t margin_x,
                                                 uint8_t use_margins);
/* End of the polynomial upscaling of lens-shading tables. */

/* Bicubic upscaling of lens-shading tables. */

/**
 * Bring the NVM lens-shading tables onto a dst_width x dst_height grid by
 * bicubic interpolation of the raw samples
 * (image_bicubic_upscale_uint8_to_float for frac_bits up to 8,
 * image_bicubic_upscale_uint16_to_float above), then convert every value v to
 * the gain v / 2^(frac_bits mod 32) + 1.0 and place it as flip_mode says: 0 as
 * computed, 1 each row reversed, 2 rows in reverse order, 3 both. The
 * interpolant passes through every NVM sample; the planes are not normalised.
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

/* Ratio-based correction of the lens-shading grids. */

/**
 * Rewrite the lens-shading grids from the ratio grids and the module's
 * computed NVM gains: for every set i, the NVM table ratio->sets[i]
 * .nvm_table_index (1-based) is taken, its four planes are ordered by
 * channel_order, mapped to the positions of the colour-filter pattern, and
 * every sample of a covered position becomes the low 16 bits of
 * trunc(float(ratio sample) * gain) (no saturation: products of 65536 or more
 * wrap around). The set header (set_id, set_params, grid_bits) is copied from
 * the ratio set. Positions without a grid, plane or ratio grid are skipped,
 * and so are all positions of a set whose computed table entry is null.
 * The truncation is well defined for every product: it equals the signed
 * 32-bit one wherever that one exists and continues the wrap-around beyond
 * (through 64 bits); an infinite or NaN product, and any product of 2^63 or
 * more in magnitude, gives 0.
 *
 * @param lens_shading the grids to rewrite (grid_width * grid_height samples).
 * @param ratio the ratio grids, read only; same num_sets, and grids of at
 *        least grid_width * grid_height samples of lens_shading.
 * @param computed planes for the grid of lens_shading (trusted to hold 4 *
 *        grid_width * grid_height floats per table). For cfa_pattern 256
 *        ... 263 the two planes feeding the eight Q0/Q3 positions of each
 *        referenced table are replaced by their average.
 * @param cfa_pattern colour-filter pattern code: 0 ... 3 (2 x 2), 128 ... 131
 *        (4 x 2, each plane covering two columns) or 256 ... 263 (4 x 4).
 * @param channel_order order of the NVM planes, 0 ... 3.
 * @return 0 (also when both num_sets are 0); 32 for a null argument (nothing
 *         changed); 8 when the num_sets differ, channel_order or cfa_pattern
 *         is unsupported, the ratio grids hold fewer samples than the
 *         lens-shading grids or a non-empty structure has no set array
 *         (nothing changed in these cases), or a set's nvm_table_index is 0
 *         or beyond num_tables (the sets before it stay corrected).
 */
EJ_CMC_API uint32_t ratio_based_sample_to_sample_correction(
    struct cmc_lens_shading4x4 *lens_shading, const struct cmc_lens_shading_ratio *ratio,
    computed_lsc_tables *computed, uint32_t cfa_pattern, uint32_t channel_order);

EJ_CMC_EXTERN_C_END

#endif /* EJ_CMC_LSC_H */
