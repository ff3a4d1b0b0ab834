/*
 * bicubic_internal.h - pieces shared by the bicubic kernels (internal).
 *
 * Every bicubic kernel interpolates from a padded copy of its source plane:
 * (W + 3) x (H + 3) floats, row stride W + 3, source sample S[y][x] at
 * B[y + 1][x + 1], one border column/row before the data and two after, each
 * border value a linear extrapolation 2 * near - far of the data, each corner
 * the mean of its horizontal and vertical extrapolation. With that border
 * every 4 x 4 neighbourhood starting one sample before a source sample lies
 * inside the buffer.
 */
#ifndef EJ_BICUBIC_INTERNAL_H
#define EJ_BICUBIC_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include "bicubic_math.h"

/* Largest source extent: the padded extent W + 3 must stay a 16-bit value. */
constexpr uint32_t kBicubicMaxSourceExtent = 65532;

/* Floats in the padded buffer of a width x height source. */
inline size_t bicubic_buffer_floats(uint16_t width, uint16_t height)
{
    return (static_cast<size_t>(width) + 3) * (static_cast<size_t>(height) + 3);
}

/*
 * Builds the padded buffer from a u16 plane in unsigned fixed point with
 * frac_bits fractional bits: each sample is converted to float and
 * multiplied by 1 / 2^(frac_bits mod 32) (the low five bits of frac_bits, so
 * a negative count wraps as it would as a shift count). buffer holds
 * bicubic_buffer_floats(width, height) floats. A zero extent writes nothing.
 */
void create_buffer_for_bicubic_uint16(const uint16_t *src, float *buffer, uint16_t width,
                                      uint16_t height, int32_t frac_bits);

/*
 * Only the parts of that buffer its border is extrapolated from and the
 * border rows: data rows 1, 2, H - 1 and H (with their border columns) and
 * rows 0, H + 1 and H + 2, every value as the full build writes it. The other
 * rows are left unwritten; a kernel using this reads them from the source
 * instead (the same values: the conversion is exact and depends on the sample
 * alone).
 */
void create_buffer_edges_for_bicubic_uint16(const uint16_t *src, float *buffer, uint16_t width,
                                            uint16_t height, int32_t frac_bits);
void create_buffer_edges_for_bicubic_float(const float *src, float *buffer, uint16_t width,
                                           uint16_t height);

/* The same buffer from a u8 plane, samples converted to float unscaled. */
void create_buffer_for_bicubic_uint8(const uint8_t *src, float *buffer, uint16_t width,
                                     uint16_t height);

/* The same buffer from a float plane, samples copied unchanged. */
void create_buffer_for_bicubic_float(const float *src, float *buffer, uint16_t width,
                                     uint16_t height);

/*
 * The 16 coefficients a00, a01, ..., a33 (first index the power of the
 * vertical fraction, second that of the horizontal one) of the bicubic patch
 * of the cell whose 4 x 4 neighbourhood starts at p, rows a buffer stride
 * apart; p[stride + 1] is the cell's own source sample.
 */
void bicubic_cell_coefficients(const float *p, size_t stride, float *a);

/*
 * Interpolates the 4 x 4 neighbourhood p (row-major, p[5] the sample at the
 * cell's origin) at fractions fy, fx: a Catmull-Rom cubic along each of the
 * four rows at fx, then one down the results at fy. Returns the value times
 * 1024 truncated toward zero; a value outside the int32 range, or NaN, gives
 * INT32_MIN.
 */
inline int32_t bicubicInterpolate_32f_to_u16p10(const float *p, float fy, float fx)
{
    const float half_x = fx * 0.5f;
    const float half_y = fy * 0.5f;
    const float q0 = catmull_rom(p[0], p[1], p[2], p[3], fx, half_x);
    const float q1 = catmull_rom(p[4], p[5], p[6], p[7], fx, half_x);
    const float q2 = catmull_rom(p[8], p[9], p[10], p[11], fx, half_x);
    const float q3 = catmull_rom(p[12], p[13], p[14], p[15], fx, half_x);
    const float scaled = catmull_rom(q0, q1, q2, q3, fy, half_y) * 1024.0f;
    // Both bounds are exact floats; NaN fails both comparisons.
    if (scaled >= -2147483648.0f && scaled < 2147483648.0f)
        return static_cast<int32_t>(scaled);
    return INT32_MIN;
}

#if defined(EJ_CMC_HAVE_X86_64_V3)
/*
 * x86-64-v3 variants of the two sample loops (bicubic_x86_64_v3.cpp); same
 * arguments and the same bits as the portable loops they replace. The callers
 * choose between them with cmc_isa_selected().
 */
/*
 * The cell walk; eight_bit says the buffer was built from 8-bit samples
 * (which bounds its values, see bicubic_upscale_x86_64_v3.cpp).
 */
void bicubic_cell_walk_x86_64_v3(const float *buffer, float *dst, uint32_t src_width,
                                 uint32_t src_height, uint32_t dst_width, uint32_t dst_height,
                                 float scale_x, float scale_y, bool eight_bit);

/*
 * The source plane of a resize, read in place of the buffer's data rows:
 * float samples as they are, or u16 samples times `scale` (exact).
 */
struct bicubic_resize_source {
    const float *f32;     // the float plane, or null
    const uint16_t *u16;  // the u16 plane, or null
    float scale;          // 1 / 2^(frac_bits mod 32) for u16 samples
};

/*
 * The resize's sample loop over a buffer of which only the edges are built
 * (create_buffer_edges_for_bicubic_*): data rows come from `src`.
 */
void bicubic_resample_u16p10_x86_64_v3(const bicubic_resize_source &src, const float *buffer,
                                       uint16_t src_height, uint16_t src_width, uint16_t *dst,
                                       uint16_t dst_height, uint16_t dst_width);
#endif

#endif /* EJ_BICUBIC_INTERNAL_H */
