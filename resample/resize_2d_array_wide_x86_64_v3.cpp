// x86-64-v3 loops of the bilinear 2-D array resize, 32-bit members (F = 12).
//
// The weighted sum of the four neighbours is an exact integer below 2^55 in
// magnitude, formed in 64-bit lanes (AVX2 multiplies 32 by 32 bits into 64)
// in any order and modulo 2^64; bits 24 ... 55 of the sum plus 2^23, the
// stored value, are the same after a logical or an arithmetic shift.
// Reductions walk row by row, enlargements band by band (see below). None
// allocates. No inline function with external linkage is called from here
// (see bicubic_math.h for why).
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "bilinear_lanes_x86_64_v3.h"
#include "resample_x86_64_v3.h"
#include "window_x86_64_v3.h"

namespace {

// Lower index and upper weight of fixed-point position pos (F = 12).
inline void axis_rule12(uint32_t pos, uint32_t &lower, uint32_t &upper_weight)
{
    lower = pos == 0 ? 0 : (pos - 1) >> 12;
    upper_weight = pos - (lower << 12);
}

// Signed (int32 samples) or unsigned (uint32) 32 x 32 -> 64-bit products of
// the low halves of each 64-bit lane.
template <bool Signed>
EJ_BILINEAR_INLINE __m256i mul32x32(__m256i a, __m256i b)
{
    return Signed ? _mm256_mul_epi32(a, b) : _mm256_mul_epu32(a, b);
}

// A 64-bit value times a weight below 2^13, modulo 2^64.
EJ_BILINEAR_INLINE __m256i mul64_by_weight(__m256i h, __m256i w)
{
    const __m256i low = _mm256_mul_epu32(h, w);
    const __m256i high = _mm256_mul_epu32(_mm256_srli_epi64(h, 32), w);
    return _mm256_add_epi64(low, _mm256_slli_epi64(high, 32));
}

// Direct walk of the 32-bit members, row by row: every output from its own
// four samples, with nothing shared between output rows (a reduction reads
// new source rows for almost every output row, and a row-major walk keeps
// the hardware prefetcher on whole rows). The sum is
// regrouped by sample, exactly:
//   sum = S00 * (wx0 * wy0) + S01 * (wx1 * wy0) + S10 * (wx0 * wy1) + S11 * (wx1 * wy1)
// Each weight product is at most 2^24, so every term is one signed (int32)
// or unsigned (uint32) 32 x 32 -> 64-bit multiplication and the sum, at most
// 2^55 in magnitude, is the portable loop's integer. The column of each lane
// comes from its position ox * x_step (the accumulated step, exact in 32
// bits), by the axis rule in vector form: lower = (max(pos, 1) - 1) >> 12
// gives 0 for pos = 0, and the upper weight pos - (lower << 12) is then 0.
struct wide_row_geometry {
    const uint32_t *row0;
    const uint32_t *row1;
    size_t readable; // elements readable from row1 on (row0 has more)
    size_t ahead;    // from row0 to the next output row's row0 (0: none)
    uint32_t x_step;
    uint32_t wy1;
};


// Samples S[y0][x0], S[y0][x0 + 1], S[y1][x0], S[y1][x0 + 1] of eight lanes
// from their lower indices; `Registers` the window over x0[0] ... x0[7] + 1
// where it fits (0: always gather).
template <int Registers>
EJ_BILINEAR_INLINE void wide_samples8(const wide_row_geometry &g, __m256i lower, __m256i &s00, __m256i &s01,
                          __m256i &s10, __m256i &s11)
{
    const __m256i one = _mm256_set1_epi32(1);
    const int32_t base = _mm256_cvtsi256_si32(lower);
    if (Registers != 0 && size_t(base) + 8 * size_t(Registers) <= g.readable) {
        constexpr int R = Registers == 0 ? 1 : Registers;
        const __m256i rel = _mm256_sub_epi32(lower, _mm256_set1_epi32(base));
        window_rows<R>(g.row0 + base, g.row1 + base, rel, _mm256_add_epi32(rel, one), s00, s01,
                       s10, s11);
    } else {
        const int *r0 = reinterpret_cast<const int *>(g.row0);
        const int *r1 = reinterpret_cast<const int *>(g.row1);
        const __m256i upper = _mm256_add_epi32(lower, one);
        s00 = _mm256_i32gather_epi32(r0, lower, 4);
        s01 = _mm256_i32gather_epi32(r0, upper, 4);
        s10 = _mm256_i32gather_epi32(r1, lower, 4);
        s11 = _mm256_i32gather_epi32(r1, upper, 4);
    }
}

// Eight outputs at positions pos; `Registers` the window over x0[0] ...
// x0[7] + 1 where it fits (0: always gather). The weight products and the
// samples fill 32-bit lanes; the 64-bit products are formed for the even
// lanes and, after a shift, for the odd ones, and the two halves of the
// results are blended back in order.
template <bool Signed, int Registers>
EJ_BILINEAR_INLINE __m256i wide_direct8(const wide_row_geometry &g, __m256i pos)
{
    const __m256i one = _mm256_set1_epi32(1);
    const __m256i lower = _mm256_srli_epi32(_mm256_sub_epi32(_mm256_max_epu32(pos, one), one), 12);
    const __m256i wx1 = _mm256_sub_epi32(pos, _mm256_slli_epi32(lower, 12));
    const __m256i wx1_full = _mm256_slli_epi32(wx1, 12); // wx1 * 4096
    // w11 = wx1 * wy1, w10 = wx0 * wy1, w01 = wx1 * wy0, w00 = wx0 * wy0.
    const __m256i w11 = _mm256_mullo_epi32(wx1, _mm256_set1_epi32(int32_t(g.wy1)));
    const __m256i w10 = _mm256_sub_epi32(_mm256_set1_epi32(int32_t(g.wy1 << 12)), w11);
    const __m256i w01 = _mm256_sub_epi32(wx1_full, w11);
    const __m256i w00 = _mm256_sub_epi32(_mm256_sub_epi32(_mm256_set1_epi32(1 << 24), wx1_full), w10);
    __m256i s00, s01, s10, s11;
    wide_samples8<Registers>(g, lower, s00, s01, s10, s11);
    const __m256i even = _mm256_add_epi64(
        _mm256_add_epi64(mul32x32<Signed>(s00, w00), mul32x32<Signed>(s01, w01)),
        _mm256_add_epi64(mul32x32<Signed>(s10, w10), mul32x32<Signed>(s11, w11)));
    const __m256i odd = _mm256_add_epi64(
        _mm256_add_epi64(mul32x32<Signed>(_mm256_srli_epi64(s00, 32), _mm256_srli_epi64(w00, 32)),
                         mul32x32<Signed>(_mm256_srli_epi64(s01, 32), _mm256_srli_epi64(w01, 32))),
        _mm256_add_epi64(mul32x32<Signed>(_mm256_srli_epi64(s10, 32), _mm256_srli_epi64(w10, 32)),
                         mul32x32<Signed>(_mm256_srli_epi64(s11, 32), _mm256_srli_epi64(w11, 32))));
    // Bits 24 ... 55 of sum + 2^23 (the same after a logical or an
    // arithmetic shift): to the low half for the even lanes, the high half
    // for the odd ones.
    const __m256i half = _mm256_set1_epi64x(int64_t(1) << 23);
    const __m256i low = _mm256_srli_epi64(_mm256_add_epi64(even, half), 24);
    const __m256i high = _mm256_slli_epi64(_mm256_add_epi64(odd, half), 8);
    return _mm256_blend_epi32(low, high, 0xAA);
}

template <bool Signed, int Registers>
void wide_direct_row(const wide_row_geometry &g, uint32_t *out, uint32_t dst_width)
{
    const __m256i lanes = _mm256_mullo_epi32(lane_index(), _mm256_set1_epi32(int32_t(g.x_step)));
    uint32_t ox = 0;
    for (; ox + 8 <= dst_width; ox += 8) {
        if (g.ahead != 0) {
            // The next output row's samples of these columns (a hint: never
            // faults, reads nothing).
            const size_t at = 4 * (g.ahead + ((size_t(ox) * g.x_step) >> 12));
            prefetch_at(g.row0, at);
            prefetch_at(g.row1, at);
        }
        const __m256i pos = _mm256_add_epi32(_mm256_set1_epi32(int32_t(ox * g.x_step)), lanes);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + ox), wide_direct8<Signed, Registers>(g, pos));
    }
    if (ox == dst_width)
        return;
    // Lanes past the last column repeat it, so their reads stay inside.
    const __m256i pos = _mm256_min_epu32(
        _mm256_add_epi32(_mm256_set1_epi32(int32_t(ox * g.x_step)), lanes),
        _mm256_set1_epi32(int32_t((dst_width - 1) * g.x_step)));
    const __m256i mask = _mm256_cmpgt_epi32(_mm256_set1_epi32(int32_t(dst_width - ox)), lane_index());
    _mm256_maskstore_epi32(reinterpret_cast<int *>(out + ox), mask, wide_direct8<Signed, Registers>(g, pos));
}

// Output rows on source rows y0 and y0 + 1 with row weight wy1 (no
// prefetch of a next row yet).
inline wide_row_geometry row_pair(const uint32_t *src, size_t src_stride, size_t src_elements,
                                  uint32_t y0, uint32_t x_step, uint32_t wy1)
{
    wide_row_geometry g;
    g.row0 = src + size_t(y0) * src_stride;
    g.row1 = g.row0 + src_stride;
    g.readable = src_elements - (size_t(y0) + 1) * src_stride;
    g.x_step = x_step;
    g.wy1 = wy1;
    g.ahead = 0;
    return g;
}

// Registers of the window of eight consecutive columns (0: gather): they
// span at most (7 * x_step >> 12) + 1 source columns from the first lower
// index to the last, plus the upper one.
inline int32_t wide_window_registers(uint32_t x_step)
{
    const uint64_t span = ((7 * uint64_t(x_step)) >> 12) + 3;
    return span > uint64_t(kWindowElements) ? 0 : window_registers(int32_t(span));
}

template <bool Signed>
void wide_direct_walk(const uint32_t *src, size_t src_stride, size_t src_elements,
                      uint32_t x_step, uint32_t y_step, uint32_t *dst, uint32_t dst_width,
                      uint32_t dst_height)
{
    const int32_t registers = wide_window_registers(x_step);
    uint32_t pos_y = 0;
    for (uint32_t oy = 0; oy < dst_height; ++oy, pos_y += y_step) {
        uint32_t y0, wy1;
        axis_rule12(pos_y, y0, wy1);
        wide_row_geometry g = row_pair(src, src_stride, src_elements, y0, x_step, wy1);
        if (oy + 1 < dst_height) {
            uint32_t next, unused;
            axis_rule12(pos_y + y_step, next, unused);
            g.ahead = size_t(next - y0) * src_stride;
        }
        uint32_t *out = dst + size_t(oy) * dst_width;
        switch (registers) {
        case 0: wide_direct_row<Signed, 0>(g, out, dst_width); break;
        case 1: wide_direct_row<Signed, 1>(g, out, dst_width); break;
        case 2: wide_direct_row<Signed, 2>(g, out, dst_width); break;
        case 3: wide_direct_row<Signed, 3>(g, out, dst_width); break;
        default: wide_direct_row<Signed, 4>(g, out, dst_width); break;
        }
    }
}

// Enlargements (more than one output row per pair of source rows): band by
// band of output rows on one pair of source rows, and within a band
// vector by vector of eight columns. In a band wy1 grows by y_step from one
// row to the next, so the sum grows by (H(y1) - H(y0)) * y_step with H(y) =
// S[y][x0] * wx0 + S[y][x1] * wx1, exactly (modulo 2^64; the true values
// fit): the sums of eight columns stay in registers while the band's rows
// are written. A 64-bit H times a weight is formed from its two halves
// modulo 2^64 (mul64_by_weight).
template <bool Signed, int Registers>
void wide_band(const wide_row_geometry &g, uint32_t y_step, uint32_t rows, uint32_t *out,
               uint32_t dst_width)
{
    const __m256i one = _mm256_set1_epi32(1);
    const __m256i lanes = _mm256_mullo_epi32(lane_index(), _mm256_set1_epi32(int32_t(g.x_step)));
    const __m256i half = _mm256_set1_epi64x(int64_t(1) << 23);
    const __m256i wy0 = _mm256_set1_epi64x(4096 - g.wy1), wy1 = _mm256_set1_epi64x(g.wy1);
    const __m256i step = _mm256_set1_epi64x(y_step);
    for (uint32_t ox = 0; ox < dst_width; ox += 8) {
        __m256i pos = _mm256_add_epi32(_mm256_set1_epi32(int32_t(ox * g.x_step)), lanes);
        const bool tail = ox + 8 > dst_width;
        if (tail) {
            // Lanes past the last column repeat it, so their reads stay inside.
            pos = _mm256_min_epu32(pos, _mm256_set1_epi32(int32_t((dst_width - 1) * g.x_step)));
        }
        const __m256i lower = _mm256_srli_epi32(_mm256_sub_epi32(_mm256_max_epu32(pos, one), one), 12);
        const __m256i wx1 = _mm256_sub_epi32(pos, _mm256_slli_epi32(lower, 12));
        const __m256i wx0 = _mm256_sub_epi32(_mm256_set1_epi32(4096), wx1);
        __m256i s00, s01, s10, s11;
        wide_samples8<Registers>(g, lower, s00, s01, s10, s11);
        // Even lanes, then the odd ones moved down.
        const __m256i h0e = _mm256_add_epi64(mul32x32<Signed>(s00, wx0), mul32x32<Signed>(s01, wx1));
        const __m256i h1e = _mm256_add_epi64(mul32x32<Signed>(s10, wx0), mul32x32<Signed>(s11, wx1));
        const __m256i wx0o = _mm256_srli_epi64(wx0, 32), wx1o = _mm256_srli_epi64(wx1, 32);
        const __m256i h0o = _mm256_add_epi64(mul32x32<Signed>(_mm256_srli_epi64(s00, 32), wx0o),
                                             mul32x32<Signed>(_mm256_srli_epi64(s01, 32), wx1o));
        const __m256i h1o = _mm256_add_epi64(mul32x32<Signed>(_mm256_srli_epi64(s10, 32), wx0o),
                                             mul32x32<Signed>(_mm256_srli_epi64(s11, 32), wx1o));
        __m256i sum_e = _mm256_add_epi64(mul64_by_weight(h0e, wy0), mul64_by_weight(h1e, wy1));
        __m256i sum_o = _mm256_add_epi64(mul64_by_weight(h0o, wy0), mul64_by_weight(h1o, wy1));
        const __m256i d_e = mul64_by_weight(_mm256_sub_epi64(h1e, h0e), step);
        const __m256i d_o = mul64_by_weight(_mm256_sub_epi64(h1o, h0o), step);
        const __m256i mask = _mm256_cmpgt_epi32(_mm256_set1_epi32(int32_t(dst_width - ox)), lane_index());
        uint32_t *o = out + ox;
        for (uint32_t r = 0; r < rows; ++r, o += dst_width) {
            // Bits 24 ... 55 of sum + 2^23: to the low half of the even
            // lanes, the high half of the odd ones.
            const __m256i v = _mm256_blend_epi32(_mm256_srli_epi64(_mm256_add_epi64(sum_e, half), 24),
                                                 _mm256_slli_epi64(_mm256_add_epi64(sum_o, half), 8), 0xAA);
            if (!tail)
                _mm256_storeu_si256(reinterpret_cast<__m256i *>(o), v);
            else
                _mm256_maskstore_epi32(reinterpret_cast<int *>(o), mask, v);
            sum_e = _mm256_add_epi64(sum_e, d_e);
            sum_o = _mm256_add_epi64(sum_o, d_o);
        }
    }
}

template <bool Signed>
void wide_band_walk(const uint32_t *src, size_t src_stride, size_t src_elements, uint32_t x_step,
                    uint32_t y_step, uint32_t *dst, uint32_t dst_width, uint32_t dst_height)
{
    const int32_t registers = wide_window_registers(x_step);
    uint32_t pos_y = 0;
    for (uint32_t oy = 0; oy < dst_height;) {
        uint32_t y0, wy1;
        axis_rule12(pos_y, y0, wy1);
        // The band: the following rows on the same pair.
        uint32_t rows = 1;
        uint32_t next = pos_y + y_step;
        for (; oy + rows < dst_height; ++rows, next += y_step) {
            uint32_t lower, weight;
            axis_rule12(next, lower, weight);
            if (lower != y0)
                break;
        }
        wide_row_geometry g = row_pair(src, src_stride, src_elements, y0, x_step, wy1);
        uint32_t *out = dst + size_t(oy) * dst_width;
        switch (registers) {
        case 0: wide_band<Signed, 0>(g, y_step, rows, out, dst_width); break;
        case 1: wide_band<Signed, 1>(g, y_step, rows, out, dst_width); break;
        case 2: wide_band<Signed, 2>(g, y_step, rows, out, dst_width); break;
        case 3: wide_band<Signed, 3>(g, y_step, rows, out, dst_width); break;
        default: wide_band<Signed, 4>(g, y_step, rows, out, dst_width); break;
        }
        oy += rows;
        pos_y = next;
    }
}

// Enlargements walk band by band, keeping their sums in registers;
// reductions take the direct walk.
template <bool Signed>
void wide_dispatch(const uint32_t *src, size_t src_stride, size_t src_elements, uint32_t x_step,
                   uint32_t y_step, uint32_t *dst, uint32_t dst_width, uint32_t dst_height)
{
    if (y_step < (1u << 12))
        wide_band_walk<Signed>(src, src_stride, src_elements, x_step, y_step, dst, dst_width,
                               dst_height);
    else
        wide_direct_walk<Signed>(src, src_stride, src_elements, x_step, y_step, dst, dst_width,
                                 dst_height);
}

} // namespace

void bilinear_walk_x86_64_v3(const int32_t *src, size_t src_stride, size_t src_elements,
                             uint32_t x_step, uint32_t y_step, int32_t *dst, uint32_t dst_width,
                             uint32_t dst_height)
{
    wide_dispatch<true>(reinterpret_cast<const uint32_t *>(src), src_stride, src_elements, x_step,
                        y_step, reinterpret_cast<uint32_t *>(dst), dst_width, dst_height);
}

void bilinear_walk_x86_64_v3(const uint32_t *src, size_t src_stride, size_t src_elements,
                             uint32_t x_step, uint32_t y_step, uint32_t *dst, uint32_t dst_width,
                             uint32_t dst_height)
{
    wide_dispatch<false>(src, src_stride, src_elements, x_step, y_step, dst, dst_width,
                         dst_height);
}
