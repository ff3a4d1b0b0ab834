// x86-64-v3 (AVX2 + FMA) cell walk of the bicubic upscalers to float.
// Compiled with -march=x86-64-v3 and entered only on CPUs that run it. Every
// output sample gets exactly the operations of the portable loops, in the
// same order (the shared templates of bicubic_math.h), except where a
// regrouping is proven exact (catmull_rom_weights); the lanes of a vector are
// independent output samples, never parts of one sum.
//
// This file calls no inline function with external linkage (no std::
// wrappers, nothing from bicubic_internal.h but declarations), so no copy
// compiled for this instruction set can be shared with the portable code.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "bicubic_internal.h"
#include "bicubic_math.h"

namespace {

inline int32_t trunc_to_int(float v)
{
    return static_cast<int32_t>(v);
}

inline uint32_t min_u32(uint32_t a, uint32_t b)
{
    return a < b ? a : b;
}

// Lanes 0 .. 7 as integers.
inline __m256i lane_index()
{
    return _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
}

// All-ones in the first `count` lanes (count 0 ... 8).
inline __m256i first_lanes(uint32_t count)
{
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int32_t>(count)), lane_index());
}

// v > -255 ? min(v, 65535) : -255, as the portable clamp (NaN to -255).
inline __m256 clamp_sample(__m256 v)
{
    const __m256 hi = _mm256_set1_ps(65535.0f);
    const __m256 lo = _mm256_set1_ps(-255.0f);
    // max(v, lo) is v > lo ? v : lo (NaN gives lo); min(r, hi) is
    // r < hi ? r : hi: the portable comparisons exactly.
    return _mm256_min_ps(_mm256_max_ps(v, lo), hi);
}

// Rows (or columns) of one run of the cell walk: the first always, the
// following ones while their truncated coordinate stays that of the first,
// at most `remaining`.
inline uint32_t run_length(uint32_t out, uint32_t remaining, float scale)
{
    const int32_t first = trunc_to_int(static_cast<float>(out) * scale);
    uint32_t n = 1;
    while (n != remaining &&
           trunc_to_int((static_cast<float>(n) + static_cast<float>(out)) * scale) == first)
        ++n;
    return n;
}

// Output columns per strip of the cell walk: the column plan, the
// coefficients of the strip's cells, the row weights of four buffer rows and
// the horizontal halves of one cell row stay on the stack (about 22 KiB).
constexpr uint32_t kWalkColumns = 128;
// Cell rows per band: the walk covers a band strip by strip, so that the
// band's buffer rows stay in the cache while its strips are emitted.
constexpr uint32_t kBandCellRows = 16;
// Destination planes of at least this many bytes are written with streaming
// stores (they would only push everything else out of the cache).
constexpr size_t kStreamingBytes = size_t(4) << 20;

struct walk_strip {
    // Cell of each column relative to first_cell (columns no cell emits, if
    // any, come last and are not stored), and the column's fraction powers.
    alignas(32) int32_t cell[kWalkColumns];
    alignas(32) float fx[kWalkColumns];
    alignas(32) float fx2[kWalkColumns];
    alignas(32) float fx3[kWalkColumns];
    // coef[n][c]: coefficient a_n of cell first_cell + c; eight spare entries
    // so that a vector load or store at any cell of the strip stays inside.
    alignas(32) float coef[16][kWalkColumns + 8];
    // q[m][k]: the horizontal half q_m of the evaluation at column k, for
    // the cell row being emitted.
    alignas(32) float q[4][kWalkColumns];
    // weights[row & 3][n][c]: the Catmull-Rom weight n along buffer row `row`
    // at cell first_cell + c (separable coefficients only), for the rows in
    // weights_row; a cell row shares three of its four rows with the next.
    alignas(32) float weights[4][4][kWalkColumns + 8];
    int64_t weights_row[4];
    uint32_t first_cell;
    uint32_t cells;    // cells the strip's columns belong to
    uint32_t columns;  // columns in the strip
    uint32_t assigned; // leading columns that some cell emits
};

// Which cell emits each column: cell j emits the run of columns that starts
// where cell j - 1 stopped (the portable walk's column runs, which do not
// depend on the row). The state carries over from strip to strip.
struct column_planner {
    uint32_t next_cell = 0; // cell whose run comes next
    uint32_t run_left = 0;  // columns left in the current cell's run
    uint32_t out_x = 0;     // first column not yet planned

    void plan(walk_strip &s, uint32_t columns, uint32_t src_width, uint32_t dst_width,
              float scale_x)
    {
        s.columns = columns;
        s.assigned = 0;
        s.first_cell = run_left != 0 ? next_cell - 1 : next_cell;
        for (uint32_t k = 0; k < columns; ++k, ++out_x) {
            if (run_left == 0) {
                if (next_cell == src_width)
                    break; // the cells are exhausted: the rest is not written
                run_left = run_length(out_x, dst_width - out_x, scale_x);
                ++next_cell;
            }
            --run_left;
            s.cell[k] = int32_t(next_cell - 1 - s.first_cell);
            ++s.assigned;
        }
        out_x = out_x + (columns - s.assigned); // skipped columns
        s.cells = s.assigned != 0 ? uint32_t(s.cell[s.assigned - 1]) + 1 : 0;
        for (uint32_t k = s.assigned; k < ((columns + 7) & ~7u); ++k)
            s.cell[k] = s.assigned != 0 ? s.cell[s.assigned - 1] : 0;
        // x = (float(kx) + float(out_x)) * scale_x of the portable run is
        // float(column) * scale_x: the sum of two integers below 2^24 is exact.
        const uint32_t first_column = out_x - columns;
        for (uint32_t k = 0; k < columns; k += 8) {
            const __m256i col = _mm256_add_epi32(
                _mm256_set1_epi32(static_cast<int32_t>(first_column + k)), lane_index());
            const __m256 x = _mm256_mul_ps(_mm256_cvtepi32_ps(col), _mm256_set1_ps(scale_x));
            const __m256 fx = _mm256_sub_ps(x, _mm256_cvtepi32_ps(_mm256_cvttps_epi32(x)));
            const __m256 fx2 = _mm256_mul_ps(fx, fx);
            _mm256_store_ps(s.fx + k, fx);
            _mm256_store_ps(s.fx2 + k, fx2);
            _mm256_store_ps(s.fx3 + k, _mm256_mul_ps(fx, fx2));
        }
    }
};

// Largest magnitude in the buffer for which the separable coefficients are
// the coefficients' exact values (see catmull_rom_weights).
constexpr float kExactMagnitude = 32768.0f;

// The Catmull-Rom weights of four values, with fused multiply-adds: applied
// along each of the four rows of a neighbourhood, then down the four
// results, they give the 16 coefficients as a separable product. In general
// this rounds differently from the coefficients' plain sums; it is used only
// where neither rounds at all:
//  - a buffer built from 8- or 16-bit samples (the upscalers' sources) holds
//    multiples of 1/2 (integers, their extrapolations, the corners' halves);
//  - every weight and every product of two weights is a multiple of 1/4, so
//    every product, partial sum and result of either form is a multiple of
//    1/8;
//  - with |B| <= 2^15 everywhere, every such value is bounded by the sum of
//    the absolute weights of a coefficient (at most 36) times 2^15, below
//    2^21, and a multiple of 1/8 below 2^21 is a float.
// Both forms then compute the same exact value: identical bits. Zeros too:
// no buffer value is -0 (its integers and extrapolations cancel to +0), and
// neither form turns such inputs into -0 (in each sum or fused chain, a
// leading -0 product is followed by a +0 or non-zero term, and an exact
// cancellation rounds to +0).
struct catmull_rom_weights {
    __m256 half = _mm256_set1_ps(0.5f);
    __m256 neg_half = _mm256_set1_ps(-0.5f);
    __m256 two = _mm256_set1_ps(2.0f);
    __m256 neg_two_half = _mm256_set1_ps(-2.5f);
    __m256 one_half = _mm256_set1_ps(1.5f);
    __m256 neg_one_half = _mm256_set1_ps(-1.5f);

    // Weights w_n(p0, p1, p2, p3) of the powers 0 .. 3 of the fraction.
    inline void operator()(__m256 p0, __m256 p1, __m256 p2, __m256 p3, __m256 *w) const
    {
        w[0] = p1;
        w[1] = _mm256_mul_ps(_mm256_sub_ps(p2, p0), half);
        w[2] = _mm256_fmadd_ps(neg_half, p3,
                               _mm256_fmadd_ps(two, p2, _mm256_fmadd_ps(neg_two_half, p1, p0)));
        w[3] = _mm256_fmadd_ps(half, p3,
                               _mm256_fmadd_ps(neg_one_half, p2,
                                               _mm256_fmadd_ps(one_half, p1,
                                                               _mm256_mul_ps(neg_half, p0))));
    }
};

// True when every value of the buffer is within kExactMagnitude (a NaN is
// not).
bool buffer_within_exact_range(const float *buffer, size_t n)
{
    const __m256 abs_mask = _mm256_castsi256_ps(_mm256_set1_epi32(0x7FFFFFFF));
    const __m256 limit = _mm256_set1_ps(kExactMagnitude);
    __m256 within = _mm256_castsi256_ps(_mm256_set1_epi32(-1));
    size_t k = 0;
    for (; k + 8 <= n; k += 8)
        within = _mm256_and_ps(
            within, _mm256_cmp_ps(_mm256_and_ps(_mm256_loadu_ps(buffer + k), abs_mask), limit,
                                  _CMP_LE_OQ));
    bool all = _mm256_movemask_ps(within) == 0xFF;
    for (; k < n; ++k)
        all = all && buffer[k] <= kExactMagnitude && buffer[k] >= -kExactMagnitude;
    return all;
}

// Coefficients of the strip's cells in cell row i. Eight whole cells are
// computed as one vector; the loads stay inside buffer row i + 3 since cell
// j + 7 <= W - 1 reads up to column W + 2. Other cells are computed one by
// one, with the same operations.
void strip_coefficients(walk_strip &s, const float *buffer, size_t stride, uint32_t i,
                        uint32_t src_width, bool exact)
{
    const float *row = buffer + i * stride;
    // Cells computed eight at a time (the last vector may compute cells past
    // the strip's, unused): their loads stay inside buffer row i + 3, since
    // cell j + 7 <= W - 1 reads up to column W + 2.
    uint32_t vector_cells = 0;
    while (vector_cells < s.cells && s.first_cell + vector_cells + 8 <= src_width)
        vector_cells += 8;
    uint32_t c = 0;
    if (exact) {
        // The weights along each of the four rows (kept from the cell rows
        // before where they share rows), then down the four.
        const catmull_rom_weights weigh;
        for (uint32_t r = 0; r < 4; ++r) {
            const uint32_t buffer_row = i + r;
            float(*w)[kWalkColumns + 8] = s.weights[buffer_row & 3];
            if (s.weights_row[buffer_row & 3] == buffer_row)
                continue;
            s.weights_row[buffer_row & 3] = buffer_row;
            const float *cells = buffer + buffer_row * stride + s.first_cell;
            for (uint32_t v = 0; v < vector_cells; v += 8) {
                __m256 t[4];
                weigh(_mm256_loadu_ps(cells + v), _mm256_loadu_ps(cells + v + 1),
                      _mm256_loadu_ps(cells + v + 2), _mm256_loadu_ps(cells + v + 3), t);
                #pragma GCC unroll 16
                for (int n = 0; n < 4; ++n)
                    _mm256_store_ps(w[n] + v, t[n]);
            }
        }
        float(*w0)[kWalkColumns + 8] = s.weights[i & 3];
        float(*w1)[kWalkColumns + 8] = s.weights[(i + 1) & 3];
        float(*w2)[kWalkColumns + 8] = s.weights[(i + 2) & 3];
        float(*w3)[kWalkColumns + 8] = s.weights[(i + 3) & 3];
        for (; c < vector_cells; c += 8) {
            #pragma GCC unroll 16
            for (int n = 0; n < 4; ++n) {
                __m256 a[4];
                weigh(_mm256_load_ps(w0[n] + c), _mm256_load_ps(w1[n] + c),
                      _mm256_load_ps(w2[n] + c), _mm256_load_ps(w3[n] + c), a);
                #pragma GCC unroll 16
                for (int m = 0; m < 4; ++m)
                    _mm256_storeu_ps(s.coef[4 * m + n] + c, a[m]);
            }
        }
    }
    for (; c < vector_cells; c += 8) {
        const float *cell = row + s.first_cell + c;
        __m256 P[16];
        #pragma GCC unroll 16
        for (size_t r = 0; r < 4; ++r)
            #pragma GCC unroll 16
            for (size_t k = 0; k < 4; ++k)
                P[4 * r + k] = _mm256_loadu_ps(cell + r * stride + k);
        __m256 a[16];
        patch_coefficients(P, a);
        #pragma GCC unroll 16
        for (int n = 0; n < 16; ++n)
            _mm256_storeu_ps(s.coef[n] + c, a[n]);
    }
    // The cells left over, one by one with the plain sums (exact or not).
    for (; c < s.cells; ++c) {
        const float *cell = row + s.first_cell + c;
        float P[16];
        for (size_t r = 0; r < 4; ++r)
            for (size_t k = 0; k < 4; ++k)
                P[4 * r + k] = cell[r * stride + k];
        float a[16];
        patch_coefficients(P, a);
        for (int n = 0; n < 16; ++n)
            s.coef[n][c] = a[n];
    }
}

// Sixteen columns k .. k + 15 made of two columns per cell (the common case
// of a twofold enlargement): even lanes are the first columns of cells
// base .. base + 7 and odd lanes their second ones (shift 0), or even lanes
// the second columns of cells base .. base + 7 and odd lanes the first ones
// of base + 1 .. base + 8 (shift 1). Returns the shift, or -1 for another
// pattern.
int paired_columns(const walk_strip &s, uint32_t k)
{
    if (k + 16 > s.assigned)
        return -1;
    const __m256i base = _mm256_set1_epi32(s.cell[k]);
    const __m256i low = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(s.cell + k));
    const __m256i high = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(s.cell + k + 8));
    for (int shift = 0; shift < 2; ++shift) {
        // cell of lane j: base + ((j + shift) >> 1)
        const __m256i want_low = _mm256_add_epi32(
            base, shift == 0 ? _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3)
                             : _mm256_setr_epi32(0, 1, 1, 2, 2, 3, 3, 4));
        const __m256i want_high = _mm256_add_epi32(
            base, shift == 0 ? _mm256_setr_epi32(4, 4, 5, 5, 6, 6, 7, 7)
                             : _mm256_setr_epi32(4, 5, 5, 6, 6, 7, 7, 8));
        const __m256i same = _mm256_and_si256(_mm256_cmpeq_epi32(low, want_low),
                                              _mm256_cmpeq_epi32(high, want_high));
        if (_mm256_movemask_epi8(same) == -1)
            return shift;
    }
    return -1;
}

// The horizontal halves of such sixteen columns: the cells' own coefficients
// serve as they are, once for the even and once for the odd lanes, and the
// two results are interleaved into column order.
void paired_horizontal(walk_strip &s, uint32_t k, int shift)
{
    const int32_t base = s.cell[k];
    __m256 a_even[16], a_odd[16];
    #pragma GCC unroll 16
    for (int n = 0; n < 16; ++n) {
        a_even[n] = _mm256_loadu_ps(s.coef[n] + base);
        a_odd[n] = shift == 0 ? a_even[n] : _mm256_loadu_ps(s.coef[n] + base + 1);
    }
    // Fractions of the even and the odd columns; their powers as the column
    // plan takes them.
    const __m256 lo = _mm256_load_ps(s.fx + k);
    const __m256 hi = _mm256_load_ps(s.fx + k + 8);
    const __m256 fx_even = _mm256_castpd_ps(_mm256_permute4x64_pd(
        _mm256_castps_pd(_mm256_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0))), 0xD8));
    const __m256 fx_odd = _mm256_castpd_ps(_mm256_permute4x64_pd(
        _mm256_castps_pd(_mm256_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1))), 0xD8));
    const __m256 fx2_even = _mm256_mul_ps(fx_even, fx_even);
    const __m256 fx2_odd = _mm256_mul_ps(fx_odd, fx_odd);
    __m256 q_even[4], q_odd[4];
    patch_along_x(a_even, fx_even, fx2_even, _mm256_mul_ps(fx_even, fx2_even), q_even);
    patch_along_x(a_odd, fx_odd, fx2_odd, _mm256_mul_ps(fx_odd, fx2_odd), q_odd);
    #pragma GCC unroll 16
    for (int m = 0; m < 4; ++m) {
        const __m256 first = _mm256_unpacklo_ps(q_even[m], q_odd[m]);  // lanes 0-3 | 8-11
        const __m256 second = _mm256_unpackhi_ps(q_even[m], q_odd[m]); // lanes 4-7 | 12-15
        _mm256_store_ps(s.q[m] + k, _mm256_permute2f128_ps(first, second, 0x20));
        _mm256_store_ps(s.q[m] + k + 8, _mm256_permute2f128_ps(first, second, 0x31));
    }
}

// The horizontal halves of columns k .. k + 7: the lanes take the
// coefficients of their own cells.
void columns_horizontal(walk_strip &s, uint32_t k)
{
    __m256 a[16];
    if (s.cell[k] == s.cell[k + 7]) {
        // All eight columns in one cell.
        #pragma GCC unroll 16
        for (int n = 0; n < 16; ++n)
            a[n] = _mm256_broadcast_ss(s.coef[n] + s.cell[k]);
    } else {
        // Four neighbouring columns belong to at most four consecutive cells
        // (every cell emits at least one column): each half of the vector
        // loads the four cells from its first column's on and picks its
        // lanes' cells within its half.
        const __m256i cell = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(s.cell + k));
        const int32_t low = s.cell[k];
        const int32_t high = s.cell[k + 4];
        const __m256i lane_cell = _mm256_sub_epi32(
            cell, _mm256_setr_epi32(low, low, low, low, high, high, high, high));
        #pragma GCC unroll 16
        for (int n = 0; n < 16; ++n)
            a[n] = _mm256_permutevar_ps(_mm256_loadu2_m128(s.coef[n] + high, s.coef[n] + low),
                                        lane_cell);
    }
    __m256 q[4];
    patch_along_x(a, _mm256_loadu_ps(s.fx + k), _mm256_loadu_ps(s.fx2 + k),
                  _mm256_loadu_ps(s.fx3 + k), q);
    #pragma GCC unroll 16
    for (int m = 0; m < 4; ++m)
        _mm256_storeu_ps(s.q[m] + k, q[m]);
}

// The horizontal halves q_0 .. q_3 of the strip's columns for the cell row
// whose coefficients are in s.coef: twofold runs sixteen columns at a time,
// other columns eight at a time.
void strip_horizontal(walk_strip &s)
{
    for (uint32_t k = 0; k < s.assigned;) {
        const int shift = paired_columns(s, k);
        if (shift >= 0) {
            paired_horizontal(s, k, shift);
            k += 16;
        } else {
            columns_horizontal(s, k);
            k += 8;
        }
    }
}

// One output row of the strip at vertical fraction fy: the vertical half of
// the evaluation and the clamp, stored along the row.
void strip_row(const walk_strip &s, float fy, float *out, bool streaming)
{
    const float fy2 = fy * fy;
    const float fy3 = fy * fy2;
    const __m256 vfy = _mm256_set1_ps(fy), vfy2 = _mm256_set1_ps(fy2),
                 vfy3 = _mm256_set1_ps(fy3);
    // Streaming stores need 16-byte aligned addresses; floats of a row stay
    // so aligned once the row start is.
    streaming = streaming && (reinterpret_cast<uintptr_t>(out) & 15u) == 0;
    for (uint32_t k = 0; k < s.assigned; k += 8) {
        const __m256 q[4] = {_mm256_load_ps(s.q[0] + k), _mm256_load_ps(s.q[1] + k),
                             _mm256_load_ps(s.q[2] + k), _mm256_load_ps(s.q[3] + k)};
        const __m256 v = clamp_sample(patch_along_y(q, vfy, vfy2, vfy3));
        if (k + 8 > s.assigned) {
            _mm256_maskstore_ps(out + k, first_lanes(s.assigned - k), v);
        } else if (streaming) {
            _mm_stream_ps(out + k, _mm256_castps256_ps128(v));
            _mm_stream_ps(out + k + 4, _mm256_extractf128_ps(v, 1));
        } else {
            _mm256_storeu_ps(out + k, v);
        }
    }
}

} // namespace

// The portable cell walk, reordered: the cell rows are taken in bands; within
// a band, strip by strip of output columns, every cell row computes its
// cells' coefficients, the horizontal half of the evaluation at each column
// (shared by all rows the cell row emits), then its rows. Each output sample
// gets exactly the portable operations; only the order in which samples are
// computed and stored differs.
void bicubic_cell_walk_x86_64_v3(const float *buffer, float *dst, uint32_t src_width,
                                 uint32_t src_height, uint32_t dst_width, uint32_t dst_height,
                                 float scale_x, float scale_y, bool eight_bit)
{
    if (src_width == 0 || src_height == 0 || dst_width == 0)
        return; // no cell or no column: nothing written
    const size_t stride = static_cast<size_t>(src_width) + 3;
    const bool streaming =
        static_cast<size_t>(dst_width) * dst_height * sizeof(float) >= kStreamingBytes;
    // Small enough samples (every 8-bit plane, most 16-bit ones) take the
    // separable form of the coefficients, which is exact for them. The border
    // of samples in [0, S] stays within [-13 S, 13 S] (its extrapolations and
    // corners are fixed linear combinations of the samples), so 8-bit planes
    // need no check: 13 * 255 < 2^15.
    const bool exact =
        eight_bit ||
        buffer_within_exact_range(buffer, stride * (static_cast<size_t>(src_height) + 3));
    walk_strip s;
    uint32_t band_i = 0;
    uint32_t band_out_y = 0;
    while (band_i < src_height && band_out_y < dst_height) {
        const uint32_t band_end = min_u32(src_height, band_i + kBandCellRows);
        // Where the band stops (the same for every strip: rows do not depend
        // on the column).
        uint32_t next_i = band_end;
        uint32_t next_out_y = band_out_y;
        column_planner planner;
        for (uint32_t x0 = 0; x0 < dst_width; x0 += s.columns) {
            planner.plan(s, min_u32(kWalkColumns, dst_width - x0), src_width, dst_width, scale_x);
            if (s.assigned == 0)
                break;
            for (int64_t &row : s.weights_row)
                row = -1; // the strip's cells are new
            uint32_t out_y = band_out_y;
            uint32_t i = band_i;
            for (; i < band_end && out_y < dst_height; ++i) {
                // Every cell of a source row emits the same rows.
                const uint32_t ny = run_length(out_y, dst_height - out_y, scale_y);
                strip_coefficients(s, buffer, stride, i, src_width, exact);
                strip_horizontal(s);
                float *out = dst + static_cast<size_t>(out_y) * dst_width + x0;
                for (uint32_t ky = 0; ky < ny; ++ky, out += dst_width) {
                    const float y =
                        (static_cast<float>(ky) + static_cast<float>(out_y)) * scale_y;
                    strip_row(s, y - static_cast<float>(trunc_to_int(y)), out, streaming);
                }
                out_y += ny;
            }
            next_i = i;
            next_out_y = out_y;
        }
        band_i = next_i;
        band_out_y = next_out_y;
    }
    if (streaming)
        _mm_sfence(); // the streamed samples are visible before the kernel returns
}
