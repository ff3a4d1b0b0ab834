// Bicubic upscaling of 8- and 16-bit planes to float planes: the 16
// coefficients of a Catmull-Rom bicubic patch per source cell, evaluated at
// every output sample that falls into the cell (corner-aligned sampling).
#include <cstdlib>

#include "allocation.h"
#include "bicubic_internal.h"
#include "ej_cmc_resample.h"
#include "isa_dispatch.h"

void bicubic_cell_coefficients(const float *p, size_t stride, float *a)
{
    float P[16];
    for (size_t r = 0; r < 4; ++r)
        for (size_t c = 0; c < 4; ++c)
            P[4 * r + c] = p[r * stride + c];
    patch_coefficients(P, a);
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
    patch_along_x(a, fx, fx2, fx3, q);
    return patch_along_y(q, fy, fy2, fy3);
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
#if defined(EJ_CMC_HAVE_X86_64_V3)
        if (cmc_isa_selected() == cmc_isa::x86_64_v3) {
            bicubic_cell_walk_x86_64_v3(buffer, dst_planes[p], src_width, src_height, dst_width,
                                        dst_height, scale_x, scale_y, sizeof(Sample) == 1);
            continue;
        }
#endif
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
