/*
 * resample_x86_64_v3.h - the x86-64-v3 (AVX2 + FMA) loops of the nearest-
 * neighbour, bilinear and area kernels (internal).
 *
 * Each function replaces one portable loop of the kernel family named in its
 * comment, takes the arguments that loop takes once the kernel has validated
 * its own, and writes the same bits. The kernels choose with
 * cmc_isa_selected(); nothing here exists on builds without the variant.
 */
#ifndef EJ_RESAMPLE_X86_64_V3_H
#define EJ_RESAMPLE_X86_64_V3_H

#if defined(EJ_CMC_HAVE_X86_64_V3)

#include <cstddef>
#include <cstdint>

/*
 * Fixed-point bilinear walk of the 8- and 16-bit members (F = 8): positions
 * start at x_start / y_start and advance by x_step / y_step; output sample k
 * of the dense order goes to dst[k * dst_step]. Every position stays within
 * (extent - 1) << 8 of a source of src_elements samples with rows src_stride
 * samples apart (the loops read no further than that).
 */
void bilinear_walk_x86_64_v3(const uint8_t *src, size_t src_stride, size_t src_elements,
                             uint32_t x_start, uint32_t x_step, uint32_t y_start, uint32_t y_step,
                             uint8_t *dst, uint32_t dst_width, uint32_t dst_height,
                             size_t dst_step);
void bilinear_walk_x86_64_v3(const uint16_t *src, size_t src_stride, size_t src_elements,
                             uint32_t x_start, uint32_t x_step, uint32_t y_start, uint32_t y_step,
                             uint16_t *dst, uint32_t dst_width, uint32_t dst_height,
                             size_t dst_step);

/* The same walk for the 32-bit members (F = 12), dense, from position 0,
 * over a source of src_elements samples. */
void bilinear_walk_x86_64_v3(const int32_t *src, size_t src_stride, size_t src_elements,
                             uint32_t x_step, uint32_t y_step, int32_t *dst, uint32_t dst_width,
                             uint32_t dst_height);
void bilinear_walk_x86_64_v3(const uint32_t *src, size_t src_stride, size_t src_elements,
                             uint32_t x_step, uint32_t y_step, uint32_t *dst, uint32_t dst_width,
                             uint32_t dst_height);

/* The float member's loop over all outputs, with its validated scales. */
void resize_float_x86_64_v3(const float *src, uint16_t src_width, int32_t src_height,
                            float *dst, uint16_t dst_width, int32_t dst_height, float scale_x,
                            float scale_y);

/* What the area downscale has validated: the region and its ratios. */
struct area_geometry {
    size_t region_offset; /* first element of the region in a plane */
    uint32_t src_width;   /* row stride of a source plane */
    uint32_t dst_width;
    uint32_t dst_height;
    float region_width; /* region extents as floats: the clamps of the band ends */
    float region_height;
    float ratio_x;
    float ratio_y;
};

/*
 * One plane of the area downscale: the band sums of every output and their
 * conversion, float source: low 16 bits of trunc(fma(sum, inv_area, 2^-11) *
 * 1024); u16 source: low 16 bits of trunc(fma(inv_area * sum, in_scale,
 * 2^-11) * out_scale).
 */
void area_downscale_x86_64_v3(const float *src, uint16_t *dst, const area_geometry &geo,
                              float inv_area);
void area_downscale_x86_64_v3(const uint16_t *src, uint16_t *dst, const area_geometry &geo,
                              float inv_area, float in_scale, float out_scale);

#endif /* EJ_CMC_HAVE_X86_64_V3 */

#endif /* EJ_RESAMPLE_X86_64_V3_H */
