// x86-64-v3 (AVX2 + FMA) cell walk of the bicubic upscalers to float. Compiled with
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
