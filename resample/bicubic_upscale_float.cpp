// Bicubic upscaling of 8- and 16-bit planes to float planes: the 16
// coefficients of a Catmull-Rom bicubic patch per source cell, evaluated at
// every output sample that falls into the cell (corner-aligned sampling).
#include <cstdlib>

#include "allocation.h"
#include "bicubic_internal.h"
#include "ej_cmc_resample.h"

// Each coefficient is a plain single-precision sum taken left to right exactly
// as written (no fusing), so that the bits follow the definition.
void bicubic_cell_coefficients(const float *p, size_t stride, float *a)
{
    const float *r0 = p;
    const float *r1 = p + stride;
    const float *r2 = p + 2 * stride;
    const float *r3 = p + 3 * stride;
    const float P00 = r0[0], P01 = r0[1], P02 = r0[2], P03 = r0[3];
    const float P10 = r1[0], P11 = r1[1], P12 = r1[2], P13 = r1[3];
    const float P20 = r2[0], P21 = r2[1], P22 = r2[2], P23 = r2[3];
    const float P30 = r3[0], P31 = r3[1], P32 = r3[2], P33 = r3[3];

    a[0] = P11;
    a[1] = -0.5f * P10 + 0.5f * P12;
    a[2] = P10 - 2.5f * P11 + 2.0f * P12 - 0.5f * P13;
    a[3] = -0.5f * P10 + 1.5f * P11 - 1.5f * P12 + 0.5f * P13;
    a[4] = -0.5f * P01 + 0.5f * P21;
    a[5] = 0.25f * P00 - 0.25f * P02 - 0.25f * P20 + 0.25f * P22;
    a[6] = -0.5f * P00 + 1.25f * P01 - P02 + 0.25f * P03 + 0.5f * P20 - 1.25f * P21 + P22 -
           0.25f * P23;
    a[7] = 0.25f * P00 - 0.75f * P01 + 0.75f * P02 - 0.25f * P03 - 0.25f * P20 + 0.75f * P21 -
           0.75f * P22 + 0.25f * P23;
    a[8] = P01 - 2.5f * P11 + 2.0f * P21 - 0.5f * P31;
    a[9] = -0.5f * P00 + 0.5f * P02 + 1.25f * P10 - 1.25f * P12 - P20 + P22 + 0.25f * P30 -
           0.25f * P32;
    a[10] = P00 - 2.5f * P01 + 2.0f * P02 - 0.5f * P03 - 2.5f * P10 + 6.25f * P11 - 5.0f * P12 +
            1.25f * P13 + 2.0f * P20 - 5.0f * P21 + 4.0f * P22 - P23 - 0.5f * P30 + 1.25f * P31 -
            P32 + 0.25f * P33;
    a[11] = -0.5f * P00 + 1.5f * P01 - 1.5f * P02 + 0.5f * P03 + 1.25f * P10 - 3.75f * P11 +
            3.75f * P12 - 1.25f * P13 - P20 + 3.0f * P21 - 3.0f * P22 + P23 + 0.25f * P30 -
            0.75f * P31 + 0.75f * P32 - 0.25f * P33;
    a[12] = -0.5f * P01 + 1.5f * P11 - 1.5f * P21 + 0.5f * P31;
    a[13] = 0.25f * P00 - 0.25f * P02 - 0.75f * P10 + 0.75f * P12 + 0.75f * P20 - 0.75f * P22 -
            0.25f * P30 + 0.25f * P32;
    a[14] = -0.5f * P00 + 1.25f * P01 - P02 + 0.25f * P03 + 1.5f * P10 - 3.75f * P11 +
            3.0f * P12 - 0.75f * P13 - 1.5f * P20 + 3.75f * P21 - 3.0f * P22 + 0.75f * P23 +
            0.5f * P30 - 1.25f * P31 + P32 - 0.25f * P33;
    a[15] = 0.25f * P00 - 0.75f * P01 + 0.75f * P02 - 0.25f * P03 - 0.75f * P10 + 2.25f * P11 -
            2.25f * P12 + 0.75f * P13 + 0.75f * P20 - 2.25f * P21 + 2.25f * P22 - 0.75f * P23 -
            0.25f * P30 + 0.75f * P31 - 0.75f * P32 + 0.25f * P33;
}

namespace {

constexpr uint32_t kStatusOk = 0;
constexpr uint32_t kStatusNoMemory = 4;
constexpr uint32_t kStatusBadArgument = 32;

// Sum of a_mn fy^m fx^n: a Horner-like pass along x per power of y, then along
// y, every step fused.
inline float evaluate(const float *a, float fx, float fx2, float fx3, float fy, float fy2,
                      float fy3)
{
    float q[4];
    for (int m = 0; m < 4; ++m) {
        const float *am = a + 4 * m;
        float s = std::fma(am[1], fx, am[0]);
        s = std::fma(am[2], fx2, s);
        q[m] = std::fma(am[3], fx3, s);
    }
    float v = std::fma(q[1], fy, q[0]);
    v = std::fma(q[2], fy2, v);
    return std::fma(q[3], fy3, v);
}

// The lower bound is -255, not 0; NaN goes to the lower bound.
inline float clamp_sample(float v)
{
    if (v > -255.0f)
        return v < 65535.0f ? v : 65535.0f;
    return -255.0f;
}

inline int32_t trunc_to_int(float v)
{
    return static_cast<int32_t>(v);
}

// Corner-aligned step between output samples in source units. A destination
// extent of 1 (the source extent is then 1 or 0) has no step, (1 - 1) / (1 - 1):
// its single sample falls on the first source sample, so the step is 0.
float axis_scale(uint16_t src_extent, uint16_t dst_extent)
{
    if (dst_extent == 1)
        return 0.0f;
    return (static_cast<float>(src_extent) - 1.0f) / (static_cast<float>(dst_extent) - 1.0f);
}

// The output samples of one cell along one row: the first always (while
// output remains), the following ones while their truncated source coordinate
// stays that of the first. Returns how many were written.
uint32_t column_run(const float *a, float *row_out, uint32_t out_x, uint32_t dst_width,
                    float scale_x, float fy, float fy2, float fy3)
{
    if (out_x >= dst_width)
        return 0;
    const int32_t cx = trunc_to_int(static_cast<float>(out_x) * scale_x);
    uint32_t kx = 0;
    for (;;) {
        const float x = (static_cast<float>(kx) + static_cast<float>(out_x)) * scale_x;
        const float fx = x - static_cast<float>(trunc_to_int(x));
        const float fx2 = fx * fx;
        const float fx3 = fx * fx2;
        row_out[out_x + kx] = clamp_sample(evaluate(a, fx, fx2, fx3, fy, fy2, fy3));
        ++kx;
        if (kx == dst_width - out_x ||
            trunc_to_int((static_cast<float>(kx) + static_cast<float>(out_x)) * scale_x) != cx)
            return kx;
    }
}

// The cell walk over one plane: every source cell emits the block of output
// rows and columns whose coordinates truncate to the cell's own.
void cell_walk(const float *buffer, float *dst, uint32_t src_width, uint32_t src_height,
               uint32_t dst_width, uint32_t dst_height, float scale_x, float scale_y, float *a)
{
    const size_t stride = static_cast<size_t>(src_width) + 3;
    uint32_t out_y = 0;
    for (uint32_t i = 0; i < src_height; ++i) {
        if (out_y >= dst_height)
            break; // the remaining cells emit nothing
        // Every cell of a source row emits the same rows.
        uint32_t ny = 0;
        uint32_t out_x = 0;
        for (uint32_t j = 0; j < src_width; ++j) {
            bicubic_cell_coefficients(buffer + i * stride + j, stride, a);
            uint32_t nx = 0;
            ny = 0;
            const int32_t cy = trunc_to_int(static_cast<float>(out_y) * scale_y);
            for (;;) {
                const float y = (static_cast<float>(ny) + static_cast<float>(out_y)) * scale_y;
                const float fy = y - static_cast<float>(trunc_to_int(y));
                const float fy2 = fy * fy;
                const float fy3 = fy * fy2;
                float *row_out = dst + static_cast<size_t>(out_y + ny) * dst_width;
                nx = column_run(a, row_out, out_x, dst_width, scale_x, fy, fy2, fy3);
                ++ny;
                if (ny == dst_height - out_y ||
                    trunc_to_int((static_cast<float>(ny) + static_cast<float>(out_y)) * scale_y) !=
                        cy)
                    break;
            }
            out_x += nx;
        }
        out_y += ny;
    }
}

// The steps both kernels share; build_plane(p, buffer) fills the padded
// buffer from source plane p.
template <typename Sample, typename BuildPlane>
uint32_t upscale(const Sample *const *src_planes, float *const *dst_planes, uint16_t src_width,
                 uint16_t src_height, uint16_t dst_width, uint16_t dst_height,
                 uint16_t num_planes, BuildPlane build_plane)
{
    // Without planes the arrays are never read: such a call only allocates,
    // frees and returns 0, whatever the array pointers are.
    if (num_planes != 0 && (src_planes == nullptr || dst_planes == nullptr))
        return kStatusBadArgument;
    if (dst_width < src_width || dst_height < src_height)
        return kStatusBadArgument;
    // The padded extents W + 3 and H + 3 must stay 16-bit values.
    if (src_width > kBicubicMaxSourceExtent || src_height > kBicubicMaxSourceExtent)
        return kStatusBadArgument;
    // The plane pointers are checked too, so that a bad set is refused before
    // any plane is written.
    for (uint32_t p = 0; p < num_planes; ++p) {
        if (src_planes[p] == nullptr || dst_planes[p] == nullptr)
            return kStatusBadArgument;
    }

    float *coefficients = static_cast<float *>(cmc_malloc(16 * sizeof(float)));
    float *buffer =
        static_cast<float *>(cmc_malloc(bicubic_buffer_floats(src_width, src_height) * sizeof(float)));
    if (coefficients == nullptr || buffer == nullptr) {
        std::free(coefficients);
        std::free(buffer);
        return kStatusNoMemory;
    }

    const float scale_x = axis_scale(src_width, dst_width);
    const float scale_y = axis_scale(src_height, dst_height);
    for (uint32_t p = 0; p < num_planes; ++p) {
        build_plane(src_planes[p], buffer);
        cell_walk(buffer, dst_planes[p], src_width, src_height, dst_width, dst_height, scale_x,
                  scale_y, coefficients);
    }

    std::free(coefficients);
    std::free(buffer);
    return kStatusOk;
}

} // namespace

uint32_t image_bicubic_upscale_uint8_to_float(const uint8_t *const *src_planes,
                                              float *const *dst_planes, uint16_t src_width,
                                              uint16_t src_height, uint16_t dst_width,
                                              uint16_t dst_height, uint16_t num_planes)
{
    return upscale(src_planes, dst_planes, src_width, src_height, dst_width, dst_height,
                   num_planes, [src_width, src_height](const uint8_t *src, float *buffer) {
                       create_buffer_for_bicubic_uint8(src, buffer, src_width, src_height);
                   });
}

uint32_t image_bicubic_upscale_uint16_to_float(const uint16_t *const *src_planes,
                                               float *const *dst_planes, uint16_t src_width,
                                               uint16_t src_height, uint16_t dst_width,
                                               uint16_t dst_height, uint16_t num_planes)
{
    return upscale(src_planes, dst_planes, src_width, src_height, dst_width, dst_height,
                   num_planes, [src_width, src_height](const uint16_t *src, float *buffer) {
                       create_buffer_for_bicubic_uint16(src, buffer, src_width, src_height, 0);
                   });
}
