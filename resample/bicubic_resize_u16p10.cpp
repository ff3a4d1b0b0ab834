// Bicubic resize of one plane, larger or smaller, to unsigned 16-bit fixed
// point with 10 fractional bits: every output sample is mapped on its own to
// source coordinates (corner-aligned) and interpolated there.
#include <cmath>
#include <cstdlib>

#include "allocation.h"
#include "bicubic_internal.h"
#include "ej_cmc_resample.h"
#include "isa_dispatch.h"

namespace {

constexpr uint32_t kStatusOk = 0;
constexpr uint32_t kStatusNoMemory = 4;
constexpr uint32_t kStatusBadArgument = 32;

// Source coordinate of output index k: divide first, then multiply, so that
// the last output falls exactly on the last source sample.
inline float source_coordinate(uint32_t k, uint16_t dst_extent, uint16_t src_extent)
{
    return (static_cast<float>(k) / (static_cast<float>(dst_extent) - 1.0f)) *
           (static_cast<float>(src_extent) - 1.0f);
}

// Rejects what the resize cannot map. A destination extent of 1 has no step.
// A source extent of 0 would map every output outside the (then empty) buffer,
// so it is refused rather than defined. Source extents above 65532 would make
// the padded extents overflow 16 bits.
uint32_t check_extents(const void *src, uint16_t src_height, uint16_t src_width, const void *dst,
                       uint16_t dst_height, uint16_t dst_width)
{
    if (dst_height == 1 || dst_width == 1)
        return kStatusBadArgument;
    // An empty destination may be null: nothing is written to it.
    if (src == nullptr || (dst == nullptr && dst_height != 0 && dst_width != 0))
        return kStatusBadArgument;
    if (src_height == 0 || src_width == 0)
        return kStatusBadArgument;
    if (src_height > kBicubicMaxSourceExtent || src_width > kBicubicMaxSourceExtent)
        return kStatusBadArgument;
    return kStatusOk;
}

// Samples the padded buffer of a src_width x src_height source at every
// output position.
void resample(const float *buffer, uint16_t src_height, uint16_t src_width, uint16_t *dst,
              uint16_t dst_height, uint16_t dst_width)
{
    const size_t stride = static_cast<size_t>(src_width) + 3;
    float p[16];
    for (uint32_t i = 0; i < dst_height; ++i) {
        const float y = source_coordinate(i, dst_height, src_height);
        const float y_floor = std::floor(y);
        const float fy = y - y_floor;
        // y lies in [0, src_height - 1]: rows y0 .. y0 + 3 are inside the buffer.
        const float *rows = buffer + static_cast<uint16_t>(y_floor) * stride;
        uint16_t *out = dst + static_cast<size_t>(i) * dst_width;
        for (uint32_t j = 0; j < dst_width; ++j) {
            const float x = source_coordinate(j, dst_width, src_width);
            const float x_floor = std::floor(x);
            const float fx = x - x_floor;
            const float *cell = rows + static_cast<uint16_t>(x_floor);
            for (int r = 0; r < 4; ++r) {
                const float *row = cell + r * stride;
                p[4 * r + 0] = row[0];
                p[4 * r + 1] = row[1];
                p[4 * r + 2] = row[2];
                p[4 * r + 3] = row[3];
            }
            // No saturation: the low 16 bits are stored, so -1.0 becomes 64512.
            out[j] = static_cast<uint16_t>(
                static_cast<uint32_t>(bicubicInterpolate_32f_to_u16p10(p, fy, fx)));
        }
    }
}

// build_buffer(buffer) builds the whole padded buffer, build_edges(buffer)
// only its border and the rows it is extrapolated from; `source` describes
// the plane for the vector loop, which reads the other rows from it.
template <typename Sample, typename BuildBuffer, typename BuildEdges>
uint32_t resize(const Sample *src, uint16_t src_height, uint16_t src_width, uint16_t *dst,
                uint16_t dst_height, uint16_t dst_width, BuildBuffer build_buffer,
                BuildEdges build_edges, const bicubic_resize_source &source)
{
    const uint32_t status = check_extents(src, src_height, src_width, dst, dst_height, dst_width);
    if (status != kStatusOk)
        return status;
    float *buffer =
        static_cast<float *>(cmc_malloc(bicubic_buffer_floats(src_width, src_height) * sizeof(float)));
    if (buffer == nullptr)
        return kStatusNoMemory;
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (cmc_isa_selected() == cmc_isa::x86_64_v3) {
        // The same buffer, allocated whole, but with only its edges built:
        // the vector loop takes the data rows from the source, where they
        // hold the same values.
        build_edges(buffer);
        bicubic_resample_u16p10_x86_64_v3(source, buffer, src_height, src_width, dst, dst_height,
                                          dst_width);
        std::free(buffer);
        return kStatusOk;
    }
#else
    (void)build_edges;
    (void)source;
#endif
    build_buffer(buffer);
    resample(buffer, src_height, src_width, dst, dst_height, dst_width);
    std::free(buffer);
    return kStatusOk;
}

} // namespace

uint32_t bicubic_resize_32f_to_u16p10(const float *src, uint16_t src_height, uint16_t src_width,
                                      uint16_t *dst, uint16_t dst_height, uint16_t dst_width)
{
    const bicubic_resize_source source = {src, nullptr, 1.0f};
    return resize(
        src, src_height, src_width, dst, dst_height, dst_width,
        [&](float *buffer) { create_buffer_for_bicubic_float(src, buffer, src_width, src_height); },
        [&](float *buffer) {
            create_buffer_edges_for_bicubic_float(src, buffer, src_width, src_height);
        },
        source);
}

uint32_t bicubic_resize_u16_to_u16(const uint16_t *src, uint16_t src_height, uint16_t src_width,
                                   uint16_t frac_bits, uint16_t *dst, uint16_t dst_height,
                                   uint16_t dst_width)
{
    // The conversion factor of the buffer build, 1 / 2^(frac_bits mod 32).
    const float scale = 1.0f / static_cast<float>(UINT32_C(1) << (frac_bits & 31u));
    const bicubic_resize_source source = {nullptr, src, scale};
    return resize(
        src, src_height, src_width, dst, dst_height, dst_width,
        [&](float *buffer) {
            create_buffer_for_bicubic_uint16(src, buffer, src_width, src_height, frac_bits);
        },
        [&](float *buffer) {
            create_buffer_edges_for_bicubic_uint16(src, buffer, src_width, src_height, frac_bits);
        },
        source);
}
