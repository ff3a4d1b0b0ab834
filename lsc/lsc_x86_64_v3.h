/*
 * lsc_x86_64_v3.h - x86-64-v3 (AVX2 + FMA) loops of the linear-algebra
 * kernels and of the polynomial fit: transpose, products, LU elimination,
 * solves, evaluation, sample conversion and normalisation (internal).
 *
 * Each replaces the portable loop of the function named in its comment once
 * that function has validated its arguments, and writes the same bits: every
 * dot product still starts at 0.0 and takes its fused multiply-adds in
 * ascending index order; the lanes of a vector are independent outputs.
 */
#ifndef EJ_LSC_X86_64_V3_H
#define EJ_LSC_X86_64_V3_H

#if defined(EJ_CMC_HAVE_X86_64_V3)

#include <cstddef>
#include <cstdint>

/*
 * The indices a dot product runs over: all of 0 .. count - 1, or (interior
 * set) the interior of a width-wide sample grid, rows first_row ..
 * first_row + ih - 1, columns first_col .. first_col + iw - 1, row by row.
 */
struct lsc_dot_span {
    bool interior;
    int64_t count;
    int64_t width, first_row, first_col, iw, ih;
};

/* Whether a stride (in bytes) can step eight lanes with 32-bit offsets. */
bool lsc_lane_stride_fits(int32_t stride);

/*
 * transpose_m for row-major views (column strides 4 on both sides) that do
 * not overlap: dst(c, r) = src(r, c).
 */
void lsc_transpose_x86_64_v3(const float *src, int32_t src_row_stride, int32_t src_width,
                             int32_t src_height, float *dst, int32_t dst_row_stride);

/* mul_mv / mul_mv_lsc: y(i) = sum over the span of a(i, s) * x(s). */
void lsc_mul_mv_x86_64_v3(const float *a, int32_t a_row_stride, int32_t a_col_stride,
                          int32_t a_height, const float *x, int32_t x_stride, float *y,
                          int32_t y_stride, const lsc_dot_span &span);

/* mul_mm / mul_mm_lsc: dst(i, j) = sum over the span of a(i, s) * b(s, j). */
void lsc_mul_mm_x86_64_v3(const float *a, int32_t a_row_stride, int32_t a_col_stride,
                          int32_t a_height, const float *b, int32_t b_row_stride,
                          int32_t b_col_stride, int32_t b_width, float *dst,
                          int32_t dst_row_stride, int32_t dst_col_stride,
                          const lsc_dot_span &span);

/*
 * The four planes of one lsc_polynomial_upscale_float call solved together
 * (lsc_four_planes_x86_64_v3.cpp). Each plane's numbers are those of the
 * per-plane sequence: the lanes of a vector are different planes, rows or
 * samples, never parts of one sum.
 *
 * lsc_rhs4: b[i][k] = sum over the span of design_t(i, s) * z[k][s] for the
 * 15 rows i of the dense transpose (row stride m floats) and the four planes
 * k, each sum from 0.0 by fused multiply-add in ascending s, as mul_mv and
 * mul_mv_lsc take it.
 */
void lsc_rhs4_x86_64_v3(const float *design_t, int64_t m, const float *const *z, float (*b)[4],
                        const lsc_dot_span &span);

/*
 * Forward and back substitution of the four right-hand sides b[i][k] with
 * the dense 15 x 15 LU factors, as lsc_substitute_x86_64_v3 takes each;
 * coefficient t of plane k goes to c[k * 15 + t].
 */
void lsc_substitute4_x86_64_v3(const float *lu, const float (*b)[4], float *c);

/*
 * The evaluation pass of lsc_polynomial_upscale_float for `planes` planes
 * (1 to 4): P(x, y) with the 15 coefficients c[k * c_stride ...] of plane k
 * at x = fma(i, sx, 1), y = fma(j, sy, 1) for every output, into dst[k].
 */
void lsc_evaluate_planes_x86_64_v3(const float *c, size_t c_stride, int planes,
                                   float *const *dst, uint16_t src_width, uint16_t src_height,
                                   uint16_t dst_width, uint16_t dst_height);

/*
 * One row of w samples (u16 when wide, else u8) of an NVM channel table to
 * gains float(v) * reciprocal + 1.0, into out[c] or, reversed, out[w - 1 - c].
 */
void lsc_convert_row_x86_64_v3(const void *samples, bool wide, float *out, size_t w,
                               float reciprocal, bool reversed);

/*
 * The normalisation of one computed plane: false when a value is NaN or the
 * smallest value is not above 0 (the plane is then left as it was);
 * otherwise every value v becomes v / min, raised to 1.0 when not above it.
 */
bool lsc_normalise_x86_64_v3(float *plane, size_t count);

/*
 * The elimination of lu_decomposition_m on its dense working copy `work`
 * (addressed with the source strides), writing L and U to dst as the
 * portable loop does: a(i, j) = fma(-L(i, k), U(k, j), a(i, j)) in the same
 * k, i, j order, with the hardware fused multiply-add.
 */
void lsc_lu_eliminate_x86_64_v3(float *work, int32_t work_row_stride, int32_t work_col_stride,
                                uint32_t *pivot, float *dst, int32_t dst_row_stride,
                                int32_t dst_col_stride, int64_t n);

/*
 * The forward (unit lower factor) and back substitution of one solve with the
 * dense n x n LU factors: t = L^-1 b, then c = U^-1 t, each sum from 0.0 by
 * fused multiply-add in ascending j, as the portable solve takes them.
 */
void lsc_substitute_x86_64_v3(const float *lu, const float *b, float *t, float *c, size_t n);

#endif /* EJ_CMC_HAVE_X86_64_V3 */

#endif /* EJ_LSC_X86_64_V3_H */
