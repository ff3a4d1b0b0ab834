// x86-64-v3 loops of the bilinear 2-D array resize, float member.
//
// Every output is computed with exactly the portable operations (same
// products, same fused steps, same order), eight outputs of a row per
// vector; only the products that do not involve the vertical fraction are
// shared between the output rows of a band. None allocates. No inline
// function with external linkage is called from here (see bicubic_math.h
// for why).
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "bilinear_lanes_x86_64_v3.h"
#include "resample_x86_64_v3.h"
#include "window_x86_64_v3.h"

namespace {

// Index pair and fraction of output index i on a float axis, exactly as the
// portable loop computes them.
struct float_axis {
    uint32_t i0, i1;
    float f;
};

inline float_axis float_axis_at(uint32_t i, float scale, uint32_t extent)
{
    const float pos = float(i) * scale;
    uint32_t i0 = uint16_t(uint32_t(__builtin_truncf(pos)));
    if (i0 > extent - 1)
        i0 = extent - 1;
    return {i0, i0 < extent - 1 ? i0 + 1 : i0, pos - float(i0)};
}

// Reductions: every output from its own four samples, row by row (whole
// rows keep the hardware prefetcher streaming). The column of each lane is
// computed in vector form exactly as float_axis_at does: float(j) * scale_x,
// truncated (below 2^16, so the 16-bit wrap is the identity; it is applied
// anyway), limited to the last column, the fraction pos - float(i0), the
// upper neighbour i0 + 1 unless i0 is the last column.
struct float_row_geometry {
    const float *row0;
    const float *row1;
    size_t readable; // elements readable from row1 on (row0 has more)
    size_t ahead;    // from row0 to the next output row's row0 (0: none)
    int32_t width;   // src_width
    float scale_x;
    float fy;
};

// The products of eight columns j that do not involve the vertical
// fraction: gx * S00, fx * S01, gx * S10, fx * S11.
struct float_products {
    __m256 p00, p01, p10, p11;
};

template <int Registers>
EJ_BILINEAR_INLINE void float_products8(const float_row_geometry &g, __m256i j, float_products &p)
{
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256i last = _mm256_set1_epi32(g.width - 1);
    const __m256 pos = _mm256_mul_ps(_mm256_cvtepi32_ps(j), _mm256_set1_ps(g.scale_x));
    const __m256i i0 = _mm256_min_epu32(
        _mm256_and_si256(_mm256_cvttps_epi32(pos), _mm256_set1_epi32(0xFFFF)), last);
    const __m256i i1 = _mm256_sub_epi32(i0, _mm256_cmpgt_epi32(last, i0)); // + 1 below the last
    const __m256 fx = _mm256_sub_ps(pos, _mm256_cvtepi32_ps(i0));
    __m256 s00, s01, s10, s11;
    const int32_t base = _mm256_cvtsi256_si32(i0);
    if (Registers != 0 && size_t(base) + 8 * size_t(Registers) <= g.readable) {
        constexpr int R = Registers == 0 ? 1 : Registers;
        const __m256i b = _mm256_set1_epi32(base);
        __m256i a, c, d, e;
        window_rows<R>(g.row0 + base, g.row1 + base, _mm256_sub_epi32(i0, b), _mm256_sub_epi32(i1, b),
                       a, c, d, e);
        s00 = _mm256_castsi256_ps(a);
        s01 = _mm256_castsi256_ps(c);
        s10 = _mm256_castsi256_ps(d);
        s11 = _mm256_castsi256_ps(e);
    } else {
        s00 = _mm256_i32gather_ps(g.row0, i0, 4);
        s01 = _mm256_i32gather_ps(g.row0, i1, 4);
        s10 = _mm256_i32gather_ps(g.row1, i0, 4);
        s11 = _mm256_i32gather_ps(g.row1, i1, 4);
    }
    const __m256 gx = _mm256_sub_ps(one, fx);
    p.p00 = _mm256_mul_ps(gx, s00);
    p.p01 = _mm256_mul_ps(fx, s01);
    p.p10 = _mm256_mul_ps(gx, s10);
    p.p11 = _mm256_mul_ps(fx, s11);
}

// v = fma(fx * S11, fy, fma(gx * S10, fy, fma(gx * S00, gy, (fx * S01) * gy))).
EJ_BILINEAR_INLINE __m256 float_combine(const float_products &p, float fy_scalar)
{
    const __m256 fy = _mm256_set1_ps(fy_scalar);
    const __m256 gy = _mm256_set1_ps(1.0f - fy_scalar);
    const __m256 inner = _mm256_mul_ps(p.p01, gy);
    const __m256 low = _mm256_fmadd_ps(p.p00, gy, inner);
    const __m256 mid = _mm256_fmadd_ps(p.p10, fy, low);
    return _mm256_fmadd_ps(p.p11, fy, mid);
}

template <int Registers>
EJ_BILINEAR_INLINE __m256 float_direct8(const float_row_geometry &g, __m256i j)
{
    float_products p;
    float_products8<Registers>(g, j, p);
    return float_combine(p, g.fy);
}

// Registers of the window of eight consecutive columns (0: gather): they
// reach from the first lower index to the last upper one over fewer than
// 7 * scale_x + 3 source columns (truncation and the upper neighbour); one
// more covers the rounding of the positions and of this bound.
inline int32_t float_window_registers(float scale_x)
{
    const float span = 7.0f * scale_x + 4.0f;
    return span >= float(kWindowElements) ? 0 : window_registers(int32_t(span));
}

// Enlargements band by band: the output rows on one pair of source rows
// (at most kBandRows of them, fractions fy[r]), vector by vector of eight
// columns; the products of a column, which do not involve fy, serve every
// row of the band.
constexpr uint32_t kBandRows = 64;

template <int Registers>
void float_band(const float_row_geometry &g, const float *fy, uint32_t rows, float *out,
                uint32_t n)
{
    for (uint32_t k = 0; k < n; k += 8) {
        __m256i j = _mm256_add_epi32(_mm256_set1_epi32(int32_t(k)), lane_index());
        const bool tail = k + 8 > n;
        if (tail) {
            // Lanes past the last column repeat it, so their reads stay inside.
            j = _mm256_min_epi32(j, _mm256_set1_epi32(int32_t(n - 1)));
        }
        const __m256i mask = _mm256_cmpgt_epi32(_mm256_set1_epi32(int32_t(n - k)), lane_index());
        float_products p;
        float_products8<Registers>(g, j, p);
        float *o = out + k;
        for (uint32_t r = 0; r < rows; ++r, o += n) {
            const __m256 v = float_combine(p, fy[r]);
            if (!tail)
                _mm256_storeu_ps(o, v);
            else
                _mm256_maskstore_ps(o, mask, v);
        }
    }
}

void float_band_walk(const float *src, uint16_t src_width, int32_t src_height, float *dst,
                     uint16_t dst_width, int32_t dst_height, float scale_x, float scale_y)
{
    const int32_t registers = float_window_registers(scale_x);
    const size_t total = size_t(src_width) * uint32_t(src_height);
    float fy[kBandRows];
    for (uint32_t i = 0; i < uint32_t(dst_height);) {
        const float_axis ay = float_axis_at(i, scale_y, uint32_t(src_height));
        fy[0] = ay.f;
        uint32_t rows = 1;
        for (; rows < kBandRows && i + rows < uint32_t(dst_height); ++rows) {
            const float_axis next = float_axis_at(i + rows, scale_y, uint32_t(src_height));
            if (next.i0 != ay.i0)
                break;
            fy[rows] = next.f;
        }
        float_row_geometry g;
        g.row0 = src + size_t(ay.i0) * src_width;
        g.row1 = src + size_t(ay.i1) * src_width;
        g.readable = total - size_t(ay.i1) * src_width;
        g.ahead = 0;
        g.width = src_width;
        g.scale_x = scale_x;
        g.fy = ay.f;
        float *out = dst + size_t(i) * dst_width;
        switch (registers) {
        case 0: float_band<0>(g, fy, rows, out, dst_width); break;
        case 1: float_band<1>(g, fy, rows, out, dst_width); break;
        case 2: float_band<2>(g, fy, rows, out, dst_width); break;
        case 3: float_band<3>(g, fy, rows, out, dst_width); break;
        default: float_band<4>(g, fy, rows, out, dst_width); break;
        }
        i += rows;
    }
}

template <int Registers>
void float_direct_row(const float_row_geometry &g, float *out, uint32_t n)
{
    uint32_t k = 0;
    for (; k + 8 <= n; k += 8) {
        if (g.ahead != 0) {
            // The next output row's samples of these columns (a hint: never
            // faults, reads nothing); the column is only estimated.
            const size_t at = 4 * (g.ahead + uint32_t(int32_t(float(k) * g.scale_x)));
            prefetch_at(g.row0, at);
            prefetch_at(g.row1, at);
        }
        _mm256_storeu_ps(out + k, float_direct8<Registers>(g, _mm256_add_epi32(_mm256_set1_epi32(int32_t(k)), lane_index())));
    }
    if (k == n)
        return;
    // Lanes past the last column repeat it, so their reads stay inside.
    const __m256i j = _mm256_min_epi32(_mm256_add_epi32(_mm256_set1_epi32(int32_t(k)), lane_index()),
                                       _mm256_set1_epi32(int32_t(n - 1)));
    const __m256i mask = _mm256_cmpgt_epi32(_mm256_set1_epi32(int32_t(n - k)), lane_index());
    _mm256_maskstore_ps(out + k, mask, float_direct8<Registers>(g, j));
}

void float_direct_walk(const float *src, uint16_t src_width, int32_t src_height, float *dst,
                       uint16_t dst_width, int32_t dst_height, float scale_x, float scale_y)
{
    const int32_t registers = float_window_registers(scale_x);
    const size_t total = size_t(src_width) * uint32_t(src_height);
    for (uint32_t i = 0; i < uint32_t(dst_height); ++i) {
        const float_axis ay = float_axis_at(i, scale_y, uint32_t(src_height));
        float_row_geometry g;
        g.row0 = src + size_t(ay.i0) * src_width;
        g.row1 = src + size_t(ay.i1) * src_width;
        g.readable = total - size_t(ay.i1) * src_width;
        g.ahead = 0;
        if (i + 1 < uint32_t(dst_height)) {
            const uint32_t next = float_axis_at(i + 1, scale_y, uint32_t(src_height)).i0;
            if (next > ay.i0)
                g.ahead = size_t(next - ay.i0) * src_width;
        }
        g.width = src_width;
        g.scale_x = scale_x;
        g.fy = ay.f;
        float *out = dst + size_t(i) * dst_width;
        switch (registers) {
        case 0: float_direct_row<0>(g, out, dst_width); break;
        case 1: float_direct_row<1>(g, out, dst_width); break;
        case 2: float_direct_row<2>(g, out, dst_width); break;
        case 3: float_direct_row<3>(g, out, dst_width); break;
        default: float_direct_row<4>(g, out, dst_width); break;
        }
    }
}

} // namespace

// Enlargements band by band (the products of a column shared by the rows
// of a band), the rest row by row.
void resize_float_x86_64_v3(const float *src, uint16_t src_width, int32_t src_height,
                            float *dst, uint16_t dst_width, int32_t dst_height, float scale_x,
                            float scale_y)
{
    if (scale_y < 1.0f)
        float_band_walk(src, src_width, src_height, dst, dst_width, dst_height, scale_x, scale_y);
    else
        float_direct_walk(src, src_width, src_height, dst, dst_width, dst_height, scale_x,
                          scale_y);
}
