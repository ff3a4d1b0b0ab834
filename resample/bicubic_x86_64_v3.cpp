// x86-64-v3 (AVX2 + FMA) sample loops of the bicubic kernels. Compiled with
// -march=x86-64-v3 and entered only on CPUs that run it. Every output sample
// gets exactly the operations of the portable loops, in the same order (the
// shared templates of bicubic_math.h); the lanes of a vector are independent
// output samples, never parts of one sum.
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
    const __m256 upper = _mm256_blendv_ps(hi, v, _mm256_cmp_ps(v, hi, _CMP_LT_OQ));
    return _mm256_blendv_ps(lo, upper, _mm256_cmp_ps(v, lo, _CMP_GT_OQ));
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

// Output columns per strip of the cell walk: the column plan and the
// coefficients of the strip's cells stay on the stack (about 20 KiB).
constexpr uint32_t kWalkColumns = 256;
// Rows whose vertical fractions are tabled at a time.
constexpr uint32_t kRowBlock = 64;

struct walk_strip {
    // Cell of each column relative to first_cell (columns no cell emits, if
    // any, come last and are not stored), and the column's fraction powers.
    alignas(32) int32_t cell[kWalkColumns];
    alignas(32) float fx[kWalkColumns];
    alignas(32) float fx2[kWalkColumns];
    alignas(32) float fx3[kWalkColumns];
    // coef[n][c]: coefficient a_n of cell first_cell + c; eight spare entries
    // so that a vector load at any cell of the strip stays inside.
    alignas(32) float coef[16][kWalkColumns + 8];
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

// Coefficients of the strip's cells in cell row i. Eight whole cells are
// computed as one vector; the loads stay inside buffer row i + 3 since cell
// j + 7 <= W - 1 reads up to column W + 2. Other cells are computed one by
// one, with the same operations.
void strip_coefficients(walk_strip &s, const float *buffer, size_t stride, uint32_t i,
                        uint32_t src_width)
{
    const float *row = buffer + i * stride;
    uint32_t c = 0;
    for (; c + 8 <= s.cells && s.first_cell + c + 8 <= src_width; c += 8) {
        const float *cell = row + s.first_cell + c;
        __m256 P[16];
        for (size_t r = 0; r < 4; ++r)
            for (size_t k = 0; k < 4; ++k)
                P[4 * r + k] = _mm256_loadu_ps(cell + r * stride + k);
        __m256 a[16];
        patch_coefficients(P, a);
        for (int n = 0; n < 16; ++n)
            _mm256_storeu_ps(s.coef[n] + c, a[n]);
    }
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

} // namespace

// The portable cell walk, reordered: for a strip of output columns and a cell
// row, eight neighbouring columns form a vector whose lanes take the
// coefficients of their own cells (at most eight consecutive cells, as every
// cell emits at least one column); the horizontal half of the evaluation is
// shared by all rows the cell row emits. Each output sample gets exactly the
// portable operations.
void bicubic_cell_walk_x86_64_v3(const float *buffer, float *dst, uint32_t src_width,
                                 uint32_t src_height, uint32_t dst_width, uint32_t dst_height,
                                 float scale_x, float scale_y)
{
    if (src_width == 0 || src_height == 0)
        return; // no cell, nothing written
    const size_t stride = static_cast<size_t>(src_width) + 3;
    walk_strip s;
    column_planner planner;
    for (uint32_t x0 = 0; x0 < dst_width; x0 += s.columns) {
        planner.plan(s, min_u32(kWalkColumns, dst_width - x0), src_width, dst_width, scale_x);
        if (s.assigned == 0)
            break;
        uint32_t out_y = 0;
        for (uint32_t i = 0; i < src_height && out_y < dst_height; ++i) {
            // Every cell of a source row emits the same rows.
            const uint32_t ny = run_length(out_y, dst_height - out_y, scale_y);
            strip_coefficients(s, buffer, stride, i, src_width);
            // The rows' fraction powers, a bounded block of rows at a time.
            for (uint32_t ky0 = 0; ky0 < ny; ky0 += kRowBlock) {
                const uint32_t rows = min_u32(kRowBlock, ny - ky0);
                float fy[kRowBlock], fy2[kRowBlock], fy3[kRowBlock];
                for (uint32_t r = 0; r < rows; ++r) {
                    const float y =
                        (static_cast<float>(ky0 + r) + static_cast<float>(out_y)) * scale_y;
                    fy[r] = y - static_cast<float>(trunc_to_int(y));
                    fy2[r] = fy[r] * fy[r];
                    fy3[r] = fy[r] * fy2[r];
                }
                for (uint32_t k = 0; k < s.assigned; k += 8) {
                    const __m256i cell =
                        _mm256_load_si256(reinterpret_cast<const __m256i *>(s.cell + k));
                    const int32_t base = s.cell[k];
                    const __m256i lane_cell = _mm256_sub_epi32(cell, _mm256_set1_epi32(base));
                    __m256 a[16];
                    for (int n = 0; n < 16; ++n)
                        a[n] = _mm256_permutevar8x32_ps(_mm256_loadu_ps(s.coef[n] + base),
                                                        lane_cell);
                    __m256 q[4];
                    patch_along_x(a, _mm256_load_ps(s.fx + k), _mm256_load_ps(s.fx2 + k),
                                  _mm256_load_ps(s.fx3 + k), q);
                    const uint32_t lanes = min_u32(8, s.assigned - k);
                    const __m256i mask = first_lanes(lanes);
                    float *out = dst + static_cast<size_t>(out_y + ky0) * dst_width + x0 + k;
                    for (uint32_t r = 0; r < rows; ++r, out += dst_width) {
                        const __m256 v = clamp_sample(patch_along_y(
                            q, _mm256_set1_ps(fy[r]), _mm256_set1_ps(fy2[r]),
                            _mm256_set1_ps(fy3[r])));
                        if (lanes == 8)
                            _mm256_storeu_ps(out, v);
                        else
                            _mm256_maskstore_ps(out, mask, v);
                    }
                }
            }
            out_y += ny;
        }
    }
}

namespace {

// Output columns per strip of the resize: the per-column tables and the
// horizontal results of four buffer rows stay on the stack (about 23 KiB).
constexpr uint32_t kStripColumns = 512;

struct strip_tables {
    alignas(32) int32_t x0[kStripColumns];
    alignas(32) float fx[kStripColumns];
    alignas(32) float half_x[kStripColumns];
    // Horizontal cubic of buffer row `row[s]` at every column of the strip,
    // in slot s = row & 3, so the four rows of a neighbourhood never collide.
    alignas(32) float h[4][kStripColumns];
    int64_t row[4];
};

// Source coordinates of columns first .. first + count - 1 (count rounded up
// to whole vectors; the lanes past the last column repeat it so that their
// gathers stay inside the buffer).
void column_tables(strip_tables &t, uint32_t first, uint32_t count, uint16_t src_width,
                   uint16_t dst_width)
{
    const __m256 denominator = _mm256_set1_ps(static_cast<float>(dst_width) - 1.0f);
    const __m256 extent = _mm256_set1_ps(static_cast<float>(src_width) - 1.0f);
    const __m256i last = _mm256_set1_epi32(static_cast<int32_t>(dst_width) - 1);
    for (uint32_t k = 0; k < count; k += 8) {
        const __m256i col = _mm256_min_epi32(
            _mm256_add_epi32(_mm256_set1_epi32(static_cast<int32_t>(first + k)), lane_index()),
            last);
        // (float(j) / (float(dst_width) - 1)) * (float(src_width) - 1)
        const __m256 x = _mm256_mul_ps(_mm256_div_ps(_mm256_cvtepi32_ps(col), denominator), extent);
        const __m256 x_floor = _mm256_floor_ps(x);
        const __m256 fx = _mm256_sub_ps(x, x_floor);
        _mm256_store_si256(reinterpret_cast<__m256i *>(t.x0 + k), _mm256_cvttps_epi32(x_floor));
        _mm256_store_ps(t.fx + k, fx);
        _mm256_store_ps(t.half_x + k, _mm256_mul_ps(fx, _mm256_set1_ps(0.5f)));
    }
}

// Prefetches floats p[0 .. n - 1] into the cache (a hint; reads nothing).
inline void prefetch_span(const float *p, size_t n)
{
    for (size_t k = 0; k < n; k += 16)
        _mm_prefetch(reinterpret_cast<const char *>(p + k), _MM_HINT_T0);
}

// The horizontal cubic of one buffer row at every column of the strip.
void horizontal_row(strip_tables &t, const float *buffer_row, uint32_t count, float *out)
{
    for (uint32_t k = 0; k < count; k += 8) {
        const __m256i x0 = _mm256_load_si256(reinterpret_cast<const __m256i *>(t.x0 + k));
        const __m256 p0 = _mm256_i32gather_ps(buffer_row, x0, 4);
        const __m256 p1 = _mm256_i32gather_ps(buffer_row + 1, x0, 4);
        const __m256 p2 = _mm256_i32gather_ps(buffer_row + 2, x0, 4);
        const __m256 p3 = _mm256_i32gather_ps(buffer_row + 3, x0, 4);
        _mm256_store_ps(out + k, catmull_rom(p0, p1, p2, p3, _mm256_load_ps(t.fx + k),
                                             _mm256_load_ps(t.half_x + k)));
    }
}

// Low 16 bits of eight int32 values, in order.
inline __m128i low_halves(__m256i v)
{
    const __m256i masked = _mm256_and_si256(v, _mm256_set1_epi32(0xFFFF));
    const __m256i packed = _mm256_packus_epi32(masked, masked); // exact: all <= 65535
    return _mm256_castsi256_si128(_mm256_permute4x64_epi64(packed, 0x08));
}

} // namespace

// Same samples as the portable resize: for every output (i, j), the four
// horizontal cubics q_r at fx, then the vertical one at fy, times 1024,
// truncated, the low 16 bits stored. The horizontal cubics of a buffer row
// depend on the row and the column only, so they are computed once per strip
// and reused by every output row whose neighbourhood contains that row.
void bicubic_resample_u16p10_x86_64_v3(const float *buffer, uint16_t src_height,
                                       uint16_t src_width, uint16_t *dst, uint16_t dst_height,
                                       uint16_t dst_width)
{
    const size_t stride = static_cast<size_t>(src_width) + 3;
    strip_tables t;
    for (uint32_t first = 0; first < dst_width; first += kStripColumns) {
        const uint32_t columns = min_u32(kStripColumns, dst_width - first);
        const uint32_t count = (columns + 7) & ~7u;
        column_tables(t, first, count, src_width, dst_width);
        for (int s = 0; s < 4; ++s)
            t.row[s] = -1;
        for (uint32_t i = 0; i < dst_height; ++i) {
            const float y = (static_cast<float>(i) / (static_cast<float>(dst_height) - 1.0f)) *
                            (static_cast<float>(src_height) - 1.0f);
            const float y_floor = __builtin_floorf(y);
            const float fy = y - y_floor;
            const uint32_t y0 = static_cast<uint16_t>(y_floor);
            const float *h[4];
            for (uint32_t r = 0; r < 4; ++r) {
                const uint32_t row = y0 + r;
                float *slot = t.h[row & 3];
                if (t.row[row & 3] != row) {
                    horizontal_row(t, buffer + row * stride, count, slot);
                    t.row[row & 3] = row;
                    // The strip walks down the buffer: ask for the columns it
                    // reads two rows further on before the gathers need them.
                    if (row + 2 < static_cast<uint32_t>(src_height) + 3)
                        prefetch_span(buffer + (row + 2) * stride + t.x0[0],
                                      static_cast<size_t>(t.x0[count - 1]) + 4 - t.x0[0]);
                }
                h[r] = slot;
            }
            const __m256 vfy = _mm256_set1_ps(fy);
            const __m256 vhy = _mm256_set1_ps(fy * 0.5f);
            uint16_t *out = dst + static_cast<size_t>(i) * dst_width + first;
            for (uint32_t k = 0; k < count; k += 8) {
                const __m256 v = catmull_rom(_mm256_load_ps(h[0] + k), _mm256_load_ps(h[1] + k),
                                             _mm256_load_ps(h[2] + k), _mm256_load_ps(h[3] + k),
                                             vfy, vhy);
                // Out of range and NaN convert to INT32_MIN, as in the portable loop.
                const __m128i low = low_halves(
                    _mm256_cvttps_epi32(_mm256_mul_ps(v, _mm256_set1_ps(1024.0f))));
                if (k + 8 <= columns) {
                    _mm_storeu_si128(reinterpret_cast<__m128i *>(out + k), low);
                } else {
                    alignas(16) uint16_t tail[8];
                    _mm_store_si128(reinterpret_cast<__m128i *>(tail), low);
                    for (uint32_t m = 0; k + m < columns; ++m)
                        out[k + m] = tail[m];
                }
            }
        }
    }
}
