/**
 * @file ej_cmc_resample.h
 * @brief Resampling kernels over dense 2-D arrays of 8-, 16- and 32-bit integers and
 * floats. Every kernel runs on the caller's thread, allocates nothing it keeps
 * and returns a 32-bit status: 0 on success, 4 when scratch memory could not
 * be allocated, 32 for a null argument or extents out of range (nothing is
 * written then). */
#ifndef EJ_CMC_RESAMPLE_H
#define EJ_CMC_RESAMPLE_H

#include <stdint.h>

#include "ej_cmc_export.h"

EJ_CMC_EXTERN_C_BEGIN

/* Bicubic kernels. */

/* Nearest-neighbour, bilinear and area-averaging kernels. */

/* --- Nearest-neighbour scaling. None of these kernels allocates; each returns
 * 0 on success or 32 for rejected arguments, in which case nothing is written.
 * Source indices never leave 0 ... extent - 1: where the stepping rule would
 * pass the last sample (large enlargements, single-precision rounding of the
 * last position), the last sample is used. */

/* Copies pixels of `channels` interleaved 32-bit values, picked by 16.16
 * fixed-point stepping: step = (src_extent << 16) / dst_extent + 1 and output
 * k reads source index (k * step) >> 16. Both planes are dense: pixel (x, y)
 * starts at element (y * width + x) * channels.
 * 32 when `src` or `dst` is null, `src_width`, `src_height` or `dst_height` is
 * 0, or a source extent is 65536 or more (its 16.16 position would not fit in
 * 32 bits). `dst_width` = 0 or `channels` = 0 writes nothing and returns 0. */
EJ_CMC_API uint32_t image_nearest_neighbor_scale_interleaved_int32(
    const int32_t *src, uint32_t src_width, uint32_t src_height, uint32_t channels,
    int32_t *dst, uint32_t dst_width, uint32_t dst_height);

/* One 32-bit sample per pixel, 16.16 stepping as above (signed arithmetic).
 * 32 unless both pointers are non-null and all four extents are above 0, and
 * unless both source extents are below 32768. */
EJ_CMC_API uint32_t image_nearest_neighbor_scale_uint32(
    const uint32_t *src, int32_t src_width, int32_t src_height,
    uint32_t *dst, int32_t dst_width, int32_t dst_height);

/* Float-ratio picking: ratio = src_extent / dst_extent (single precision),
 * output k (1-based) reads ceil(k * ratio) - 1, where a product within 0.0001
 * above an integer counts as that integer. Works in either direction.
 * 32 when any extent is below 2; pointers are not checked. */
EJ_CMC_API uint32_t image_upscale_nearest_neighbor_uint16(
    const uint16_t *src, uint16_t *dst, uint16_t src_width, uint16_t src_height,
    uint16_t dst_width, uint16_t dst_height);

/* Float-ratio picking as above, where only an exactly integral product counts
 * as integral. With `use_max` = 0 each output copies its picked sample. With
 * `use_max` != 0 each output is the maximum of 0 and the source samples after
 * the previous output's picked row and column up to its own picked row and
 * column (the first output row and column start after source row and column
 * 0, so those never enter a maximum); an output whose picked row (column)
 * does not advance is 0.
 * 32 when any extent is below 2; pointers are not checked. */
EJ_CMC_API uint32_t image_downscale_nearest_neighbor_int32(
    const int32_t *src, int32_t *dst, uint16_t src_width, uint16_t src_height,
    uint16_t dst_width, uint16_t dst_height, uint8_t use_max);

/* --- Bilinear 2-D array resize, corner-aligned (the first and last outputs
 * of an axis aim at the first and last source samples). Arrays are dense and
 * row-major. The integer members step in fixed point with F fractional bits
 * (F = 8 for 8- and 16-bit samples, 12 for 32-bit samples):
 * step = ((src_extent - 1) << F) / (dst_extent - 1); a position p uses the
 * pair ((p - 1) >> F, that + 1) with upper weight p - (lower << F) (p = 0:
 * pair (0, 1), upper weight 0), and the weighted sum is rounded half up.
 * None of them allocates. Status 0, or 32 with nothing written when an extent
 * is below 2 or a source extent is above 2^24 (F = 8) or 2^20 (F = 12), where
 * the fixed-point position would not fit in 32 bits. No pointer is checked
 * except `dst` of the _v1 members. */

EJ_CMC_API uint32_t resize_2d_array_uint8(const uint8_t *src, int32_t src_width,
                                          int32_t src_height, uint8_t *dst,
                                          int32_t dst_width, int32_t dst_height);

/* Output k of the dense order (k = oy * dst_width + ox) goes to
 * dst[k * dst_step]; the elements in between are left untouched, so one
 * channel of an interleaved array can be filled. Also 32 for `dst_step` < 1
 * or a null `dst`. */
EJ_CMC_API uint32_t resize_2d_array_uint8_v1(const uint8_t *src, int32_t src_width,
                                             int32_t src_height, uint8_t *dst,
                                             int32_t dst_width, int32_t dst_height,
                                             int32_t dst_step);

EJ_CMC_API uint32_t resize_2d_array_uint16(const uint16_t *src, int32_t src_width,
                                           int32_t src_height, uint16_t *dst,
                                           int32_t dst_width, int32_t dst_height);

/* As resize_2d_array_uint8_v1, for 16-bit samples. */
EJ_CMC_API uint32_t resize_2d_array_uint16_v1(const uint16_t *src, int32_t src_width,
                                              int32_t src_height, uint16_t *dst,
                                              int32_t dst_width, int32_t dst_height,
                                              int32_t dst_step);

/* 64-bit signed sums; the result is floor((sum + 2^23) / 2^24). */
EJ_CMC_API uint32_t resize_2d_array_int32(const int32_t *src, int32_t src_width,
                                          int32_t src_height, int32_t *dst,
                                          int32_t dst_width, int32_t dst_height);

/* 64-bit unsigned sums; samples keep their full 32-bit range. */
EJ_CMC_API uint32_t resize_2d_array_uint32(const uint32_t *src, int32_t src_width,
                                           int32_t src_height, uint32_t *dst,
                                           int32_t dst_width, int32_t dst_height);

/* Float member: positions i * (src - 1) / (dst - 1) computed per index in
 * single precision, the upper neighbour clamped to the last sample, result
 * not rounded. 32 when an extent is below 2. */
EJ_CMC_API uint32_t resize_2d_array_float(const float *src, uint16_t src_width,
                                          int32_t src_height, float *dst,
                                          uint16_t dst_width, int32_t dst_height);

/* A pair of signed 32-bit values, `x` first. */
typedef struct resize_crop_pair {
    int32_t x;
    int32_t y;
} resize_crop_pair;

/* Bilinear resize (F = 8) of the rectangle left by cutting
 * `crop_top_left.x` columns on the left, `crop_top_left.y` rows at the top,
 * `crop_bottom_right.x` columns on the right and `crop_bottom_right.y` rows
 * at the bottom of the source (row stride `src_width`) into a dense
 * `dst_width` x `dst_height` array. 32 with nothing written when a margin is
 * negative, the margins of an axis leave fewer than 2 samples (including
 * margins whose sum reaches the source extent), a destination extent is below
 * 2, or a source extent is above 2^24. */
EJ_CMC_API uint32_t crop_resize_2d_array_uint16(const uint16_t *src, uint32_t src_width,
                                                uint32_t src_height,
                                                resize_crop_pair crop_top_left,
                                                resize_crop_pair crop_bottom_right,
                                                uint16_t *dst, uint32_t dst_width,
                                                uint32_t dst_height);

/* --- Area-averaging downscale. Each output is the mean of the source area
 * its footprint covers; a source sample cut by a footprint boundary counts in
 * both neighbours with its covered fractions. `roi` is null (whole plane) or
 * four values: first column, first row, width, height, the same for every
 * plane. Plane sets are arrays of `num_planes` dense planes; the plane
 * pointers inside are not checked. Nothing is allocated.
 * Status 0, or 32 with nothing written when: a destination extent is not
 * below the source extent; a destination extent is below 3; a plane array is
 * null; the region leaves the source; the region is narrower or lower than
 * the destination; or the region's ratio product is not above 0.0001.
 * Results are truncated toward zero to a signed 32-bit value whose low 16 bits
 * are stored (values beyond the 32-bit range and NaN store 0). */

/* Float planes to unsigned 16-bit with 10 fractional bits, rounded to nearest
 * (halves up) for non-negative means. */
EJ_CMC_API uint32_t image_downscale_32f_to_u16p10(const float *const *src_planes,
                                                  uint16_t *const *dst_planes,
                                                  uint16_t src_width, uint16_t src_height,
                                                  uint16_t dst_width, uint16_t dst_height,
                                                  uint16_t num_planes, const uint16_t *roi);

/* Unsigned 16-bit planes with `in_frac_bits` fractional bits to unsigned
 * 16-bit planes with `out_frac_bits` fractional bits (both taken modulo 32);
 * 2^-11 is added before the scaling to the output. */
EJ_CMC_API uint32_t image_downscale_u16_to_u16(const uint16_t *const *src_planes,
                                               uint16_t *const *dst_planes,
                                               uint16_t src_width, uint16_t src_height,
                                               int32_t in_frac_bits, uint16_t dst_width,
                                               uint16_t dst_height, int32_t out_frac_bits,
                                               uint16_t num_planes, const uint16_t *roi);

EJ_CMC_EXTERN_C_END

#endif /* EJ_CMC_RESAMPLE_H */
