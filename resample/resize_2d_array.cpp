// Bilinear 2-D array resize, corner-aligned.
//
// The integer members walk the source in unsigned fixed point with F
// fractional bits: the step of an axis is ((src - 1) << F) / (dst - 1),
// truncated once, and positions are accumulated sums of it, so the last
// output may fall a little short of the last sample. A position p > 0 uses
// the pair ((p - 1) >> F, that + 1), so an exact multiple n << F takes the
// pair (n - 1, n) with the full weight on n; p = 0 takes (0, 1) with the full
// weight on 0. The weighted sum of the four neighbours is rounded half up.
// The loops use shifts, multiplications and additions only: the two steps
// are the call's only divisions, and there is no floating point.
//
// Every position stays at most (extent - 1) << F, so the upper index never
// passes the last sample; extents whose positions would not fit in 32 bits
// (source extents above 2^24 for F = 8, 2^20 for F = 12) are rejected.
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "ej_cmc_resample.h"
#include "isa_dispatch.h"
#include "resample_x86_64_v3.h"

namespace {

constexpr uint32_t kStatusRejected = 32;

// Lower index and upper weight of a fixed-point position (axis rule).
template <unsigned F>
struct axis_pair {
    uint32_t lower;
    uint32_t upper_weight; // 0 ... 2^F; the lower weight is 2^F minus it
};

template <unsigned F>
inline axis_pair<F> axis_rule(uint32_t pos)
{
    if (pos == 0)
        return {0, 0};
    const uint32_t lower = (pos - 1) >> F;
    return {lower, pos - (lower << F)};
}

// Sample types, their sum arithmetic and their rounding.
template <typename T>
struct fixed_point_traits;

template <>
struct fixed_point_traits<uint8_t> {
    static constexpr unsigned F = 8;
    using sum_t = uint32_t;
    static uint8_t round(sum_t sum) { return uint8_t((sum + 32768u) >> 16); }
};

template <>
struct fixed_point_traits<uint16_t> {
    static constexpr unsigned F = 8;
    using sum_t = uint32_t; // 65535 * 65536 + 32768 still fits
    static uint16_t round(sum_t sum) { return uint16_t((sum + 32768u) >> 16); }
};

template <>
struct fixed_point_traits<int32_t> {
    static constexpr unsigned F = 12;
    using sum_t = int64_t;
    // Arithmetic shift: the floor of (sum + 2^23) / 2^24, also for negatives.
    static int32_t round(sum_t sum) { return int32_t((sum + (int64_t(1) << 23)) >> 24); }
};

template <>
struct fixed_point_traits<uint32_t> {
    static constexpr unsigned F = 12;
    using sum_t = uint64_t;
    static uint32_t round(sum_t sum) { return uint32_t((sum + (uint64_t(1) << 23)) >> 24); }
};

// Geometry of one axis: first position and step.
struct axis_walk {
    uint32_t start;
    uint32_t step;
};

// Members without an x86-64-v3 walk (none on builds without the variant).
template <typename T>
inline bool vector_walk(const T *, size_t, size_t, axis_walk, axis_walk, T *, uint32_t, uint32_t,
                        size_t)
{
    return false;
}

#if defined(EJ_CMC_HAVE_X86_64_V3)
template <typename T>
inline bool small_sample_vector_walk(const T *src, size_t src_stride, size_t src_elements,
                                     axis_walk ax, axis_walk ay,
                                     T *dst, uint32_t dst_width, uint32_t dst_height,
                                     size_t dst_step)
{
    if (cmc_isa_selected() != cmc_isa::x86_64_v3)
        return false;
    bilinear_walk_x86_64_v3(src, src_stride, src_elements, ax.start, ax.step, ay.start, ay.step, dst, dst_width,
                            dst_height, dst_step);
    return true;
}

template <>
inline bool vector_walk(const uint8_t *src, size_t src_stride, size_t src_elements, axis_walk ax,
                        axis_walk ay,
                        uint8_t *dst, uint32_t dst_width, uint32_t dst_height, size_t dst_step)
{
    return small_sample_vector_walk(src, src_stride, src_elements, ax, ay, dst, dst_width, dst_height, dst_step);
}

// The 32-bit members are only ever walked densely from position 0.
template <typename T>
inline bool wide_vector_walk(const T *src, size_t src_stride, size_t src_elements, axis_walk ax,
                             axis_walk ay, T *dst, uint32_t dst_width, uint32_t dst_height,
                             size_t dst_step)
{
    if (cmc_isa_selected() != cmc_isa::x86_64_v3 || ax.start != 0 || ay.start != 0 ||
        dst_step != 1)
        return false;
    bilinear_walk_x86_64_v3(src, src_stride, src_elements, ax.step, ay.step, dst, dst_width,
                            dst_height);
    return true;
}

template <>
inline bool vector_walk(const int32_t *src, size_t src_stride, size_t src_elements, axis_walk ax,
                        axis_walk ay, int32_t *dst, uint32_t dst_width, uint32_t dst_height,
                        size_t dst_step)
{
    return wide_vector_walk(src, src_stride, src_elements, ax, ay, dst, dst_width, dst_height,
                            dst_step);
}

template <>
inline bool vector_walk(const uint32_t *src, size_t src_stride, size_t src_elements, axis_walk ax,
                        axis_walk ay, uint32_t *dst, uint32_t dst_width, uint32_t dst_height,
                        size_t dst_step)
{
    return wide_vector_walk(src, src_stride, src_elements, ax, ay, dst, dst_width, dst_height,
                            dst_step);
}

template <>
inline bool vector_walk(const uint16_t *src, size_t src_stride, size_t src_elements, axis_walk ax,
                        axis_walk ay,
                        uint16_t *dst, uint32_t dst_width, uint32_t dst_height, size_t dst_step)
{
    return small_sample_vector_walk(src, src_stride, src_elements, ax, ay, dst, dst_width, dst_height, dst_step);
}
#endif

// The bilinear walk. The source rows have stride src_stride; output sample k
// of the dense order (k = oy * dst_width + ox) goes to dst[k * dst_step].
// The positions of both axes start at start (absolute source coordinates).
// The source holds src_elements samples.
template <typename T>
void bilinear_walk(const T *src, size_t src_stride, size_t src_elements, axis_walk ax,
                   axis_walk ay, T *dst, uint32_t dst_width, uint32_t dst_height,
                   size_t dst_step)
{
    if (vector_walk(src, src_stride, src_elements, ax, ay, dst, dst_width, dst_height, dst_step))
        return;
    using traits = fixed_point_traits<T>;
    using sum_t = typename traits::sum_t;
    constexpr unsigned F = traits::F;
    constexpr uint32_t one = 1u << F;

    uint32_t pos_y = ay.start;
    for (uint32_t oy = 0; oy < dst_height; ++oy, pos_y += ay.step) {
        const axis_pair<F> py = axis_rule<F>(pos_y);
        const sum_t wy1 = py.upper_weight;
        const sum_t wy0 = one - py.upper_weight;
        const T *row0 = src + size_t(py.lower) * src_stride;
        const T *row1 = row0 + src_stride;
        T *out = dst + size_t(oy) * dst_width * dst_step;

        uint32_t pos_x = ax.start;
        for (uint32_t ox = 0; ox < dst_width; ++ox, pos_x += ax.step, out += dst_step) {
            const axis_pair<F> px = axis_rule<F>(pos_x);
            const sum_t wx1 = px.upper_weight;
            const sum_t wx0 = one - px.upper_weight;
            const uint32_t x0 = px.lower;
            const sum_t sum = (sum_t(row1[x0]) * wx0 + sum_t(row1[x0 + 1]) * wx1) * wy1 +
                              (sum_t(row0[x0]) * wx0 + sum_t(row0[x0 + 1]) * wx1) * wy0;
            *out = traits::round(sum);
        }
    }
}

// Common path of the integer members: validation, steps, walk.
template <typename T>
uint32_t resize_fixed_point(const T *src, int32_t src_width, int32_t src_height, T *dst,
                            int32_t dst_width, int32_t dst_height, size_t dst_step)
{
    constexpr unsigned F = fixed_point_traits<T>::F;
    constexpr int32_t max_src = int32_t(1) << (32 - F); // (max_src - 1) << F fits
    if (src_width <= 1 || src_height <= 1 || dst_width <= 1 || dst_height <= 1 ||
        src_width > max_src || src_height > max_src)
        return kStatusRejected;

    const axis_walk ax = {0, (uint32_t(src_width - 1) << F) / uint32_t(dst_width - 1)};
    const axis_walk ay = {0, (uint32_t(src_height - 1) << F) / uint32_t(dst_height - 1)};
    bilinear_walk(src, size_t(src_width), size_t(src_width) * size_t(src_height), ax, ay, dst,
                  uint32_t(dst_width), uint32_t(dst_height),
                  dst_step);
    return 0;
}

template <typename T>
uint32_t resize_fixed_point_strided(const T *src, int32_t src_width, int32_t src_height, T *dst,
                                    int32_t dst_width, int32_t dst_height, int32_t dst_step)
{
    // The destination is the one pointer these members check, before any write.
    if (dst_step < 1 || dst == nullptr)
        return kStatusRejected;
    return resize_fixed_point(src, src_width, src_height, dst, dst_width, dst_height,
                              size_t(dst_step));
}

// Float axis: index of a position computed from the output index, the upper
// neighbour clamped to the last sample. The lower index is the truncated
// position taken as an unsigned 16-bit value, so on an axis of more than
// 65536 samples (only the height can be) it wraps, and the fraction
// y - y0 then exceeds 1; the wrapped index stays inside the source. The limit
// to the last sample is kept as a guard.
struct float_axis {
    uint32_t i0;
    uint32_t i1;
    float f;
};

inline float_axis float_axis_at(uint32_t i, float scale, uint32_t extent)
{
    const float pos = float(i) * scale;
    uint32_t i0 = uint16_t(uint32_t(std::trunc(pos)));
    if (i0 > extent - 1)
        i0 = extent - 1;
    const float f = pos - float(i0);
    return {i0, i0 < extent - 1 ? i0 + 1 : i0, f};
}

} // namespace

uint32_t resize_2d_array_uint8(const uint8_t *src, int32_t src_width, int32_t src_height,
                               uint8_t *dst, int32_t dst_width, int32_t dst_height)
{
    return resize_fixed_point(src, src_width, src_height, dst, dst_width, dst_height, 1);
}

uint32_t resize_2d_array_uint8_v1(const uint8_t *src, int32_t src_width, int32_t src_height,
                                  uint8_t *dst, int32_t dst_width, int32_t dst_height,
                                  int32_t dst_step)
{
    return resize_fixed_point_strided(src, src_width, src_height, dst, dst_width, dst_height,
                                      dst_step);
}

uint32_t resize_2d_array_uint16(const uint16_t *src, int32_t src_width, int32_t src_height,
                                uint16_t *dst, int32_t dst_width, int32_t dst_height)
{
    return resize_fixed_point(src, src_width, src_height, dst, dst_width, dst_height, 1);
}

uint32_t resize_2d_array_uint16_v1(const uint16_t *src, int32_t src_width, int32_t src_height,
                                   uint16_t *dst, int32_t dst_width, int32_t dst_height,
                                   int32_t dst_step)
{
    return resize_fixed_point_strided(src, src_width, src_height, dst, dst_width, dst_height,
                                      dst_step);
}

uint32_t resize_2d_array_int32(const int32_t *src, int32_t src_width, int32_t src_height,
                               int32_t *dst, int32_t dst_width, int32_t dst_height)
{
    return resize_fixed_point(src, src_width, src_height, dst, dst_width, dst_height, 1);
}

uint32_t resize_2d_array_uint32(const uint32_t *src, int32_t src_width, int32_t src_height,
                                uint32_t *dst, int32_t dst_width, int32_t dst_height)
{
    return resize_fixed_point(src, src_width, src_height, dst, dst_width, dst_height, 1);
}

uint32_t resize_2d_array_float(const float *src, uint16_t src_width, int32_t src_height,
                               float *dst, uint16_t dst_width, int32_t dst_height)
{
    if (src_width <= 1 || dst_width <= 1 || src_height <= 1 || dst_height <= 1)
        return kStatusRejected;

    const float scale_x = (float(src_width) - 1.0f) / (float(dst_width) - 1.0f);
    const float scale_y = (float(src_height) - 1.0f) / (float(dst_height) - 1.0f);
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (cmc_isa_selected() == cmc_isa::x86_64_v3) {
        resize_float_x86_64_v3(src, src_width, src_height, dst, dst_width, dst_height, scale_x,
                               scale_y);
        return 0;
    }
#endif

    for (uint32_t i = 0; i < uint32_t(dst_height); ++i) {
        const float_axis ay = float_axis_at(i, scale_y, uint32_t(src_height));
        const float fy = ay.f;
        const float *row0 = src + size_t(ay.i0) * src_width;
        const float *row1 = src + size_t(ay.i1) * src_width;
        float *out = dst + size_t(i) * dst_width;
        for (uint32_t j = 0; j < dst_width; ++j) {
            const float_axis ax = float_axis_at(j, scale_x, src_width);
            const float fx = ax.f;
            const float gx = 1.0f - fx;
            const float gy = 1.0f - fy;
            const float inner = fx * row0[ax.i1] * gy; // (fx * S[y0][x1]) * (1 - fy)
            const float low = std::fma(gx * row0[ax.i0], gy, inner);
            const float mid = std::fma(gx * row1[ax.i0], fy, low);
            out[j] = std::fma(fx * row1[ax.i1], fy, mid);
        }
    }
    return 0;
}

uint32_t crop_resize_2d_array_uint16(const uint16_t *src, uint32_t src_width,
                                     uint32_t src_height, resize_crop_pair crop_top_left,
                                     resize_crop_pair crop_bottom_right, uint16_t *dst,
                                     uint32_t dst_width, uint32_t dst_height)
{
    // Margins are counted in 64 bits: a negative margin (a crop reaching
    // outside the source) and margins whose sum reaches the extent are
    // rejected rather than wrapped into a huge crop.
    const int64_t left = crop_top_left.x, top = crop_top_left.y;
    const int64_t right = crop_bottom_right.x, bottom = crop_bottom_right.y;
    if (left < 0 || top < 0 || right < 0 || bottom < 0)
        return kStatusRejected;
    const int64_t crop_w = int64_t(src_width) - left - right;
    const int64_t crop_h = int64_t(src_height) - top - bottom;
    // Absolute positions reach (extent - 1) << 8, which must fit in 32 bits.
    constexpr uint32_t max_src = uint32_t(1) << 24;
    if (crop_w < 2 || crop_h < 2 || dst_width < 2 || dst_height < 2 || src_width > max_src ||
        src_height > max_src)
        return kStatusRejected;

    const axis_walk ax = {uint32_t(left) << 8,
                          (uint32_t(crop_w - 1) << 8) / (dst_width - 1)};
    const axis_walk ay = {uint32_t(top) << 8,
                          (uint32_t(crop_h - 1) << 8) / (dst_height - 1)};
    bilinear_walk(src, size_t(src_width), size_t(src_width) * src_height, ax, ay, dst, dst_width,
                  dst_height, 1);
    return 0;
}
