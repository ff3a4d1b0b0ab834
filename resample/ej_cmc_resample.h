/* Resampling kernels over dense 2-D arrays of 8-, 16- and 32-bit integers and
 * floats. Every kernel runs on the caller's thread, allocates nothing it keeps
 * and returns a 32-bit status: 0 on success, 4 when scratch memory could not
 * be allocated, 32 for a null argument or extents out of range (nothing is
 * written then). */
#ifndef EJ_CMC_RESAMPLE_H
#define EJ_CMC_RESAMPLE_H

#include <stdint.h>

#include "ej_cmc_export.h"

EJ_CMC_EXTERN_C_BEGIN

/* Bicubic kernels.
 *
 * Separable cubic convolution with a = -0.5 (Catmull-Rom), corner-aligned:
 * the first and last output samples of an axis fall exactly on the first and
 * last source samples. The source border is extended by linear extrapolation.
 * Planes are dense and row-major (row stride = width in elements). Source
 * extents above 65532 are refused with 32. Results are bit-exact to the
 * library's single-precision definition (fused multiply-adds where the
 * definition fuses, nowhere else). */

/**
 * Upscale num_planes 8-bit planes into float planes by bicubic interpolation.
 *
 * @param src_planes num_planes pointers to src_width x src_height planes.
 * @param dst_planes num_planes pointers to dst_width x dst_height planes,
 *        written by the call (owned by the caller).
 * @param num_planes may be 0 (the call then only allocates and frees).
 * @return 0; 4 when scratch memory could not be allocated (no plane written);
 *         32 when dst_width < src_width or dst_height < src_height, a source
 *         extent is above 65532, or a plane array or one of its first
 *         num_planes entries is null (nothing allocated or written).
 *
 * Values are clamped to [-255, 65535] (NaN becomes -255). A destination
 * extent of 1 takes the single source sample of that axis. A source extent
 * of 1 is extended as a constant, so only its data column (row) contributes.
 * A source extent of 0 writes nothing and returns 0.
 */
EJ_CMC_API uint32_t image_bicubic_upscale_uint8_to_float(const uint8_t *const *src_planes,
                                                         float *const *dst_planes,
                                                         uint16_t src_width, uint16_t src_height,
                                                         uint16_t dst_width, uint16_t dst_height,
                                                         uint16_t num_planes);

/** As image_bicubic_upscale_uint8_to_float(), with 16-bit source planes. */
EJ_CMC_API uint32_t image_bicubic_upscale_uint16_to_float(const uint16_t *const *src_planes,
                                                          float *const *dst_planes,
                                                          uint16_t src_width, uint16_t src_height,
                                                          uint16_t dst_width, uint16_t dst_height,
                                                          uint16_t num_planes);

/**
 * Resize one float plane, larger or smaller, to u16p10 (value x 1024) by
 * bicubic interpolation. Note the order: heights before widths.
 *
 * @param src src_width x src_height floats.
 * @param dst dst_width x dst_height values, written by the call. Each is the
 *        interpolated value x 1024 truncated toward zero, stored modulo 65536
 *        (no saturation: -1.0 is stored as 64512; NaN and values beyond the
 *        int32 range as 0, the low bits of INT32_MIN).
 * @return 0 (also for a destination extent of 0: nothing written); 4 when
 *         the padded buffer could not be allocated; 32 when dst_height or
 *         dst_width is 1, src_height or src_width is 0 or above 65532, or
 *         src is null, or dst is null with a non-empty destination
 *         (nothing allocated or written).
 */
EJ_CMC_API uint32_t bicubic_resize_32f_to_u16p10(const float *src, uint16_t src_height,
                                                 uint16_t src_width, uint16_t *dst,
                                                 uint16_t dst_height, uint16_t dst_width);

/**
 * As bicubic_resize_32f_to_u16p10(), from an unsigned 16-bit plane with
 * frac_bits fractional bits: samples are divided by 2^(frac_bits mod 32)
 * before interpolation, so the output always has 10 fractional bits (with
 * frac_bits = 10 a u16p10 plane is resized into a u16p10 plane).
 */
EJ_CMC_API uint32_t bicubic_resize_u16_to_u16(const uint16_t *src, uint16_t src_height,
                                              uint16_t src_width, uint16_t frac_bits,
                                              uint16_t *dst, uint16_t dst_height,
                                              uint16_t dst_width);
/* End of the bicubic kernels. */

/* Nearest-neighbour, bilinear and area-averaging kernels. */

EJ_CMC_EXTERN_C_END

#endif /* EJ_CMC_RESAMPLE_H */
