// Area-averaging downscale of plane sets (or a region of them) to unsigned
// 16-bit fixed point.
//
// On each axis output k (1-based) covers the region coordinates e(k - 1) to
// e(k), e(k) = min(float(k) * ratio, region extent), ratio = region extent /
// destination extent in single precision. Its band runs from the sample where
// the previous band ended (weight 1 minus the previous end's fraction) to the
// sample holding e(k) (weight its fraction, when non-zero); samples in
// between weigh 1. A sample cut by a boundary therefore counts in both
// neighbours with complementary weights, and the clamp makes the last band
// end exactly at the region's edge.
//
// These weights equal the covered fractions only when every band spans more
// than one sample boundary, i.e. the region is at least as wide and as high
// as the destination; narrower or lower regions are rejected.
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "area_bands.h"
#include "ej_cmc_resample.h"
#include "isa_dispatch.h"
#include "resample_x86_64_v3.h"

namespace {

constexpr uint32_t kStatusRejected = 32;

// The part of a call shared by both kernels, once validated.
struct downscale_geometry {
    uint32_t src_width;
    uint32_t dst_width;
    uint32_t dst_height;
    size_t region_offset;  // first element of the region in a plane
    float region_width;    // region extents as floats, the clamps of e(k)
    float region_height;
    float ratio_x;
    float ratio_y;
    float inv_area;
};

// Checks the arguments in their documented order; fills geo on success.
uint32_t validate(const void *src_planes, const void *dst_planes, uint16_t src_width,
                  uint16_t src_height, uint16_t dst_width, uint16_t dst_height,
                  const uint16_t *roi, downscale_geometry *geo)
{
    if (dst_width >= src_width || dst_height >= src_height)
        return kStatusRejected;
    if (dst_width < 3 || dst_height < 3)
        return kStatusRejected;
    if (src_planes == nullptr || dst_planes == nullptr)
        return kStatusRejected;

    uint32_t x = 0, y = 0, width = src_width, height = src_height;
    if (roi != nullptr) {
        x = roi[0];
        y = roi[1];
        width = roi[2];
        height = roi[3];
        if (x >= src_width || y >= src_height || x + width > src_width ||
            y + height > src_height)
            return kStatusRejected;
        // A region narrower or lower than the destination would need bands
        // inside one sample, which the weight rules do not describe.
        if (width < dst_width || height < dst_height)
            return kStatusRejected;
    }

    const float ratio_x = float(width) / float(dst_width);
    const float ratio_y = float(height) / float(dst_height);
    if (!(ratio_x * ratio_y > 0.0001f))
        return kStatusRejected;

    geo->src_width = src_width;
    geo->dst_width = dst_width;
    geo->dst_height = dst_height;
    geo->region_offset = size_t(y) * src_width + x;
    geo->region_width = float(width);
    geo->region_height = float(height);
    geo->ratio_x = ratio_x;
    geo->ratio_y = ratio_y;
    geo->inv_area = 1.0f / (ratio_x * ratio_y);
    return 0;
}


// Weight of sample s of a band: the first-sample rule takes precedence over
// the trailing-partial rule.
inline float band_weight(const band &b, uint32_t s)
{
    if (s == b.first)
        return b.first_weight;
    return s == b.end ? b.end_frac : 1.0f;
}

// One past the last sample a band reads.
inline uint32_t band_stop(const band &b)
{
    return b.end_frac != 0.0f ? b.end + 1 : b.end;
}

// Weighted sum over the band pair, row by row, each row left to right, with
// fused multiply-adds; an empty band gives 0.
template <typename T>
float band_sum(const T *region, size_t stride, const band &rows, const band &cols)
{
    float sum = 0.0f;
    const uint32_t row_stop = band_stop(rows);
    const uint32_t col_stop = band_stop(cols);
    for (uint32_t r = rows.first; r < row_stop; ++r) {
        const float wr = band_weight(rows, r);
        const T *line = region + size_t(r) * stride;
        for (uint32_t c = cols.first; c < col_stop; ++c)
            sum = std::fma(wr * band_weight(cols, c), float(line[c]), sum);
    }
    return sum;
}

// Truncation toward zero into a signed 32-bit integer, of which the low 16
// bits are kept. A value outside the 32-bit range, or NaN, has no such
// integer; it gives 0x80000000 (low bits 0), the value the x86 conversion
// produces, on every platform.
inline uint16_t low16_of_trunc(float v)
{
    if (!(v > -2147483904.0f && v < 2147483648.0f))
        return 0;
    return uint16_t(uint32_t(int32_t(v)));
}

// Walks every output of one plane; finish turns a band sum into the stored
// value.
template <typename T, typename Finish>
void downscale_plane(const T *src, uint16_t *dst, const downscale_geometry &geo, Finish finish)
{
    const T *region = src + geo.region_offset;
    band_walker rows(geo.ratio_y, geo.region_height);
    for (uint32_t ky = 1; ky <= geo.dst_height; ++ky) {
        const band row_band = rows.next(ky);
        band_walker cols(geo.ratio_x, geo.region_width);
        uint16_t *out = dst + size_t(ky - 1) * geo.dst_width;
        for (uint32_t kx = 1; kx <= geo.dst_width; ++kx)
            out[kx - 1] = finish(band_sum(region, geo.src_width, row_band, cols.next(kx)));
    }
}

#if defined(EJ_CMC_HAVE_X86_64_V3)
area_geometry vector_geometry(const downscale_geometry &geo)
{
    return {geo.region_offset, geo.src_width,    geo.dst_width, geo.dst_height,
            geo.region_width,  geo.region_height, geo.ratio_x,  geo.ratio_y};
}
#endif

} // namespace

uint32_t image_downscale_32f_to_u16p10(const float *const *src_planes,
                                       uint16_t *const *dst_planes, uint16_t src_width,
                                       uint16_t src_height, uint16_t dst_width,
                                       uint16_t dst_height, uint16_t num_planes,
                                       const uint16_t *roi)
{
    downscale_geometry geo;
    const uint32_t status = validate(src_planes, dst_planes, src_width, src_height, dst_width,
                                     dst_height, roi, &geo);
    if (status != 0)
        return status;

    const float inv_area = geo.inv_area;
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (cmc_isa_selected() == cmc_isa::x86_64_v3) {
        for (uint32_t p = 0; p < num_planes; ++p)
            area_downscale_x86_64_v3(src_planes[p], dst_planes[p], vector_geometry(geo), inv_area);
        return 0;
    }
#endif
    // 2^-11 is half a unit of the 10-bit output: non-negative means round to
    // nearest, halves up.
    const auto finish = [inv_area](float sum) {
        return low16_of_trunc(std::fma(sum, inv_area, 0.00048828125f) * 1024.0f);
    };
    for (uint32_t p = 0; p < num_planes; ++p)
        downscale_plane(src_planes[p], dst_planes[p], geo, finish);
    return 0;
}

uint32_t image_downscale_u16_to_u16(const uint16_t *const *src_planes,
                                    uint16_t *const *dst_planes, uint16_t src_width,
                                    uint16_t src_height, int32_t in_frac_bits,
                                    uint16_t dst_width, uint16_t dst_height,
                                    int32_t out_frac_bits, uint16_t num_planes,
                                    const uint16_t *roi)
{
    downscale_geometry geo;
    const uint32_t status = validate(src_planes, dst_planes, src_width, src_height, dst_width,
                                     dst_height, roi, &geo);
    if (status != 0)
        return status;

    // The shifts are taken modulo 32; both scales are exact powers of two.
    const float in_scale = 1.0f / float(uint32_t(1) << (uint32_t(in_frac_bits) & 31u));
    const float out_scale = float(uint32_t(1) << (uint32_t(out_frac_bits) & 31u));
    const float inv_area = geo.inv_area;
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (cmc_isa_selected() == cmc_isa::x86_64_v3) {
        for (uint32_t p = 0; p < num_planes; ++p)
            area_downscale_x86_64_v3(src_planes[p], dst_planes[p], vector_geometry(geo), inv_area,
                                     in_scale, out_scale);
        return 0;
    }
#endif
    const auto finish = [inv_area, in_scale, out_scale](float sum) {
        return low16_of_trunc(std::fma(inv_area * sum, in_scale, 0.00048828125f) * out_scale);
    };
    for (uint32_t p = 0; p < num_planes; ++p)
        downscale_plane(src_planes[p], dst_planes[p], geo, finish);
    return 0;
}
