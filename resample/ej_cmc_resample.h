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
 * @param src_width source width, 0 ... 65532.
 * @param src_height source height, 0 ... 65532.
 * @param dst_width destination width, at least src_width.
 * @param dst_height destination height, at least src_height.
 * @param num_planes may be 0 (the call then only allocates and frees).
 * @return 0; 4 when scratch memory could not be allocated (no plane written);
 *         32 when dst_width < src_width or dst_height < src_height, a source
 *         extent is above 65532, or (num_planes above 0) a plane array or
 *         one of its first num_planes entries is null (nothing allocated or
 *         written).
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

/**
 * As image_bicubic_upscale_uint8_to_float(), with 16-bit source planes.
 *
 * @param src_planes num_planes pointers to src_width x src_height planes.
 * @param dst_planes num_planes pointers to dst_width x dst_height planes.
 * @param src_width source width, 0 ... 65532.
 * @param src_height source height, 0 ... 65532.
 * @param dst_width destination width, at least src_width.
 * @param dst_height destination height, at least src_height.
 * @param num_planes number of planes, may be 0.
 * @return as image_bicubic_upscale_uint8_to_float().
 */
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
 * @param src_height source height, 1 ... 65532.
 * @param src_width source width, 1 ... 65532.
 * @param dst_height destination height, 0 or at least 2.
 * @param dst_width destination width, 0 or at least 2.
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
 *
 * @param src src_width x src_height samples.
 * @param src_height source height, 1 ... 65532.
 * @param src_width source width, 1 ... 65532.
 * @param frac_bits fractional bits of the source samples (modulo 32).
 * @param dst dst_width x dst_height u16p10 values, written by the call.
 * @param dst_height destination height, 0 or at least 2.
 * @param dst_width destination width, 0 or at least 2.
 * @return as bicubic_resize_32f_to_u16p10().
 */
EJ_CMC_API uint32_t bicubic_resize_u16_to_u16(const uint16_t *src, uint16_t src_height,
                                              uint16_t src_width, uint16_t frac_bits,
                                              uint16_t *dst, uint16_t dst_height,
                                              uint16_t dst_width);
/* End of the bicubic kernels. */

/* Nearest-neighbour, bilinear and area-averaging kernels. */

/**
 * @name Nearest-neighbour scaling
 * None of these kernels allocates; each returns 0 on success or 32 for
 * rejected arguments, in which case nothing is written. Source indices never
 * leave 0 ... extent - 1: where the stepping rule would pass the last sample
 * (large enlargements, single-precision rounding of the last position), the
 * last sample is used. Thread safety: reentrant; the caller's arrays must not
 * overlap.
 */
/** @{ */

/**
 * Nearest-neighbour scaling of interleaved 32-bit pixels by 16.16 fixed-point
 * stepping: step = (src_extent << 16) / dst_extent + 1 and output k reads
 * source index (k * step) >> 16 (unsigned arithmetic).
 *
 * @param src source, dense: pixel (x, y) starts at element
 *        (y * src_width + x) * channels.
 * @param src_width source width in pixels, 1 ... 65535.
 * @param src_height source height in pixels, 1 ... 65535.
 * @param channels values per pixel; 0 writes nothing.
 * @param dst destination, dense like the source, dst_width * dst_height *
 *        channels values, owned by the caller.
 * @param dst_width destination width; 0 writes nothing.
 * @param dst_height destination height, at least 1.
 * @return 0; 32 when src or dst is null, src_width, src_height or dst_height
 *         is 0, or a source extent is 65536 or more (its 16.16 position would
 *         not fit in 32 bits).
 */
EJ_CMC_API uint32_t image_nearest_neighbor_scale_interleaved_int32(
    const int32_t *src, uint32_t src_width, uint32_t src_height, uint32_t channels,
    int32_t *dst, uint32_t dst_width, uint32_t dst_height);

/**
 * Nearest-neighbour scaling of one 32-bit sample per pixel, 16.16 stepping as
 * in image_nearest_neighbor_scale_interleaved_int32() in signed arithmetic.
 *
 * @param src dense source, src_width * src_height samples.
 * @param src_width source width, 1 ... 32767.
 * @param src_height source height, 1 ... 32767.
 * @param dst dense destination, dst_width * dst_height samples.
 * @param dst_width destination width, at least 1.
 * @param dst_height destination height, at least 1.
 * @return 0; 32 when a pointer is null, an extent is below 1 or a source
 *         extent is 32768 or more.
 */
EJ_CMC_API uint32_t image_nearest_neighbor_scale_uint32(
    const uint32_t *src, int32_t src_width, int32_t src_height,
    uint32_t *dst, int32_t dst_width, int32_t dst_height);

/**
 * Nearest-neighbour scaling by a float ratio, in either direction:
 * ratio = src_extent / dst_extent (single precision) and output k (1-based)
 * reads source index ceil(k * ratio) - 1, where a product within 0.0001 above
 * an integer counts as that integer.
 *
 * @param src dense source, src_width * src_height samples (not checked).
 * @param dst dense destination, dst_width * dst_height samples (not checked).
 * @param src_width source width, at least 2.
 * @param src_height source height, at least 2.
 * @param dst_width destination width, at least 2.
 * @param dst_height destination height, at least 2.
 * @return 0; 32 when an extent is below 2.
 */
EJ_CMC_API uint32_t image_upscale_nearest_neighbor_uint16(
    const uint16_t *src, uint16_t *dst, uint16_t src_width, uint16_t src_height,
    uint16_t dst_width, uint16_t dst_height);

/**
 * Nearest-neighbour downscale by a float ratio, picking as
 * image_upscale_nearest_neighbor_uint16() except that only an exactly
 * integral product counts as integral, optionally taking block maxima.
 *
 * With use_max != 0 each output is the maximum of 0 and the source samples
 * after the previous output's picked row and column up to its own picked row
 * and column. The first output row and column start after source row and
 * column 0, so those never enter a maximum; an output whose picked row
 * (column) does not advance is 0.
 *
 * @param src dense source, src_width * src_height samples (not checked).
 * @param dst dense destination, dst_width * dst_height samples (not checked).
 * @param src_width source width, at least 2.
 * @param src_height source height, at least 2.
 * @param dst_width destination width, at least 2.
 * @param dst_height destination height, at least 2.
 * @param use_max 0: copy the picked sample; otherwise the block maximum.
 * @return 0; 32 when an extent is below 2.
 */
EJ_CMC_API uint32_t image_downscale_nearest_neighbor_int32(
    const int32_t *src, int32_t *dst, uint16_t src_width, uint16_t src_height,
    uint16_t dst_width, uint16_t dst_height, uint8_t use_max);

/** @} */

/**
 * @name Bilinear 2-D array resize
 * Corner-aligned: the first and last outputs of an axis aim at the first and
 * last source samples. Arrays are dense and row-major. The integer members
 * step in fixed point with F fractional bits (F = 8 for 8- and 16-bit
 * samples, 12 for 32-bit samples): step = ((src_extent - 1) << F) /
 * (dst_extent - 1); a position p uses the pair ((p - 1) >> F, that + 1) with
 * upper weight p - (lower << F) (p = 0: pair (0, 1), upper weight 0), and the
 * weighted sum is rounded half up. None of them allocates; all are reentrant.
 *
 * Every member returns 0, or 32 with nothing written when an extent is below
 * 2 or a source extent is above 2^24 (F = 8) or 2^20 (F = 12), where the
 * fixed-point position would not fit in 32 bits. No pointer is checked except
 * dst of the _v1 members.
 *
 * Common arguments: src is the dense source of src_width * src_height
 * samples; dst the destination of dst_width * dst_height samples, owned by
 * the caller.
 */
/** @{ */

/**
 * Bilinear resize of 8-bit samples (F = 8).
 * @param src source samples.
 * @param src_width source width, 2 ... 2^24.
 * @param src_height source height, 2 ... 2^24.
 * @param dst destination samples.
 * @param dst_width destination width, at least 2.
 * @param dst_height destination height, at least 2.
 * @return 0 or 32.
 */
EJ_CMC_API uint32_t resize_2d_array_uint8(const uint8_t *src, int32_t src_width,
                                          int32_t src_height, uint8_t *dst,
                                          int32_t dst_width, int32_t dst_height);

/**
 * Bilinear resize of 8-bit samples into a strided destination: output k of
 * the dense order (k = oy * dst_width + ox) goes to dst[k * dst_step]; the
 * elements in between are left untouched, so one channel of an interleaved
 * array can be filled.
 * @param src source samples.
 * @param src_width source width, 2 ... 2^24.
 * @param src_height source height, 2 ... 2^24.
 * @param dst destination, (dst_width * dst_height - 1) * dst_step + 1 samples.
 * @param dst_width destination width, at least 2.
 * @param dst_height destination height, at least 2.
 * @param dst_step distance in samples between consecutive outputs, at least 1.
 * @return 0; 32 also for dst_step < 1 or a null dst.
 */
EJ_CMC_API uint32_t resize_2d_array_uint8_v1(const uint8_t *src, int32_t src_width,
                                             int32_t src_height, uint8_t *dst,
                                             int32_t dst_width, int32_t dst_height,
                                             int32_t dst_step);

/**
 * Bilinear resize of 16-bit samples (F = 8).
 * @param src source samples.
 * @param src_width source width, 2 ... 2^24.
 * @param src_height source height, 2 ... 2^24.
 * @param dst destination samples.
 * @param dst_width destination width, at least 2.
 * @param dst_height destination height, at least 2.
 * @return 0 or 32.
 */
EJ_CMC_API uint32_t resize_2d_array_uint16(const uint16_t *src, int32_t src_width,
                                           int32_t src_height, uint16_t *dst,
                                           int32_t dst_width, int32_t dst_height);

/**
 * As resize_2d_array_uint8_v1(), for 16-bit samples.
 * @param src source samples.
 * @param src_width source width, 2 ... 2^24.
 * @param src_height source height, 2 ... 2^24.
 * @param dst destination, (dst_width * dst_height - 1) * dst_step + 1 samples.
 * @param dst_width destination width, at least 2.
 * @param dst_height destination height, at least 2.
 * @param dst_step distance in samples between consecutive outputs, at least 1.
 * @return 0; 32 also for dst_step < 1 or a null dst.
 */
EJ_CMC_API uint32_t resize_2d_array_uint16_v1(const uint16_t *src, int32_t src_width,
                                              int32_t src_height, uint16_t *dst,
                                              int32_t dst_width, int32_t dst_height,
                                              int32_t dst_step);

/**
 * Bilinear resize of signed 32-bit samples (F = 12) with 64-bit signed sums;
 * the result is floor((sum + 2^23) / 2^24).
 * @param src source samples.
 * @param src_width source width, 2 ... 2^20.
 * @param src_height source height, 2 ... 2^20.
 * @param dst destination samples.
 * @param dst_width destination width, at least 2.
 * @param dst_height destination height, at least 2.
 * @return 0 or 32.
 */
EJ_CMC_API uint32_t resize_2d_array_int32(const int32_t *src, int32_t src_width,
                                          int32_t src_height, int32_t *dst,
                                          int32_t dst_width, int32_t dst_height);

/**
 * Bilinear resize of unsigned 32-bit samples (F = 12) with 64-bit unsigned
 * sums; samples keep their full 32-bit range.
 * @param src source samples.
 * @param src_width source width, 2 ... 2^20.
 * @param src_height source height, 2 ... 2^20.
 * @param dst destination samples.
 * @param dst_width destination width, at least 2.
 * @param dst_height destination height, at least 2.
 * @return 0 or 32.
 */
EJ_CMC_API uint32_t resize_2d_array_uint32(const uint32_t *src, int32_t src_width,
                                           int32_t src_height, uint32_t *dst,
                                           int32_t dst_width, int32_t dst_height);

/**
 * Bilinear resize of floats: positions i * (src - 1) / (dst - 1) computed per
 * index in single precision, the upper neighbour clamped to the last sample,
 * the result not rounded. The truncated position is a 16-bit index: on a
 * source of more than 65536 rows it wraps, with a fraction above 1.
 * @param src source samples.
 * @param src_width source width, at least 2.
 * @param src_height source height, at least 2.
 * @param dst destination samples.
 * @param dst_width destination width, at least 2.
 * @param dst_height destination height, at least 2.
 * @return 0; 32 when an extent is below 2.
 */
EJ_CMC_API uint32_t resize_2d_array_float(const float *src, uint16_t src_width,
                                          int32_t src_height, float *dst,
                                          uint16_t dst_width, int32_t dst_height);

/** A pair of signed 32-bit values: a crop margin per axis. */
typedef struct resize_crop_pair {
    int32_t x; /**< horizontal value (columns) */
    int32_t y; /**< vertical value (rows) */
} resize_crop_pair;

/**
 * Bilinear resize (F = 8) of the rectangle left by cutting margins off the
 * source into a dense destination. Positions address the source absolutely,
 * so no intermediate copy is made.
 * @param src source samples, row stride src_width.
 * @param src_width source width, at most 2^24.
 * @param src_height source height, at most 2^24.
 * @param crop_top_left columns cut on the left (x) and rows cut at the top (y).
 * @param crop_bottom_right columns cut on the right (x) and rows cut at the
 *        bottom (y).
 * @param dst destination, dst_width * dst_height samples.
 * @param dst_width destination width, at least 2.
 * @param dst_height destination height, at least 2.
 * @return 0; 32 with nothing written when a margin is negative, the margins of
 *         an axis leave fewer than 2 samples (including margins whose sum
 *         reaches the source extent), a destination extent is below 2, or a
 *         source extent is above 2^24.
 */
EJ_CMC_API uint32_t crop_resize_2d_array_uint16(const uint16_t *src, uint32_t src_width,
                                                uint32_t src_height,
                                                resize_crop_pair crop_top_left,
                                                resize_crop_pair crop_bottom_right,
                                                uint16_t *dst, uint32_t dst_width,
                                                uint32_t dst_height);

/** @} */

/**
 * @name Area-averaging downscale
 * Each output is the mean of the source area its footprint covers; a source
 * sample cut by a footprint boundary counts in both neighbours with its
 * covered fractions. Plane sets are arrays of num_planes dense planes; the
 * plane pointers inside are not checked. Nothing is allocated; both kernels
 * are reentrant.
 *
 * Status 0, or 32 with nothing written when: a destination extent is not
 * below the source extent; a destination extent is below 3; a plane array is
 * null; the region leaves the source; the region is narrower or lower than
 * the destination; or the region's ratio product is not above 0.0001.
 * Results are truncated toward zero to a signed 32-bit value whose low 16
 * bits are stored (values beyond the 32-bit range and NaN store 0).
 */
/** @{ */

/**
 * Area-averaging downscale of float planes to unsigned 16-bit with 10
 * fractional bits, rounded to nearest (halves up) for non-negative means.
 * @param src_planes num_planes source planes of src_width * src_height floats.
 * @param dst_planes num_planes destination planes of dst_width * dst_height
 *        values, owned by the caller.
 * @param src_width source width.
 * @param src_height source height.
 * @param dst_width destination width, 3 ... region width.
 * @param dst_height destination height, 3 ... region height.
 * @param num_planes number of planes; 0 writes nothing.
 * @param roi null (whole plane) or four values: first column, first row,
 *        width, height of the source region, the same for every plane.
 * @return 0 or 32.
 */
EJ_CMC_API uint32_t image_downscale_32f_to_u16p10(const float *const *src_planes,
                                                  uint16_t *const *dst_planes,
                                                  uint16_t src_width, uint16_t src_height,
                                                  uint16_t dst_width, uint16_t dst_height,
                                                  uint16_t num_planes, const uint16_t *roi);

/** @} */

/**
 * Area-averaging downscale of unsigned 16-bit fixed-point planes; 2^-11 is
 * added before the scaling to the output.
 * @param src_planes num_planes source planes of src_width * src_height values.
 * @param dst_planes num_planes destination planes of dst_width * dst_height
 *        values, owned by the caller.
 * @param src_width source width.
 * @param src_height source height.
 * @param in_frac_bits fractional bits of the source values (modulo 32).
 * @param dst_width destination width, 3 ... region width.
 * @param dst_height destination height, 3 ... region height.
 * @param out_frac_bits fractional bits of the results (modulo 32).
 * @param num_planes number of planes; 0 writes nothing.
 * @param roi null (whole plane) or four values: first column, first row,
 *        width, height of the source region, the same for every plane.
 * @return 0 or 32.
 */
EJ_CMC_API uint32_t image_downscale_u16_to_u16(const uint16_t *const *src_planes,
                                               uint16_t *const *dst_planes,
                                               uint16_t src_width, uint16_t src_height,
                                               int32_t in_frac_bits, uint16_t dst_width,
                                               uint16_t dst_height, int32_t out_frac_bits,
                                               uint16_t num_planes, const uint16_t *roi);

EJ_CMC_EXTERN_C_END

#endif /* EJ_CMC_RESAMPLE_H */
