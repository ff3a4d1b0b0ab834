// x86-64-v3 loops of the transpose, the matrix products, the LU elimination,
// the single solve, the NVM sample conversion and the normalisation. Eight
// independent outputs per vector (rows of a matrix-vector product, columns
// of a row of a matrix-matrix product or of the elimination, samples);
// each lane runs the portable sequence of its output unchanged. Strided
// operands are read with gathers. No inline function with external linkage
// is called from here (see resample/bicubic_math.h for why).
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "lsc_simd_x86_64_v3.h"
#include "lsc_x86_64_v3.h"

namespace {

// The indices of a span as runs of consecutive indices, in ascending order:
// the whole span, or one run per interior row. The loops walk them with
// plain nested loops (no callback capturing the sums, so that the sums stay
// in registers).
struct span_runs {
    int64_t count;  // number of runs
    int64_t length; // indices per run
    int64_t first;  // first index of run 0
    int64_t step;   // distance from one run's first index to the next one's

    explicit span_runs(const lsc_dot_span &span)
    {
        if (!span.interior) {
            count = span.count > 0 ? 1 : 0;
            length = span.count;
            first = 0;
            step = 0;
        } else {
            count = span.iw > 0 && span.ih > 0 ? span.ih : 0;
            length = span.iw;
            first = span.first_row * span.width + span.first_col;
            step = span.width;
        }
    }
    int64_t start(int64_t r) const { return first + r * step; }
};

// Stores the first `lanes` values of v at base + k * stride bytes.
inline void store_lanes(float *base, int32_t stride, __m256 v, int64_t lanes)
{
    alignas(32) float values[8];
    _mm256_store_ps(values, v);
    for (int64_t k = 0; k < lanes && k < 8; ++k)
        *at(base, ptrdiff_t(k) * stride) = values[k];
}

} // namespace

bool lsc_lane_stride_fits(int32_t stride)
{
    return int64_t(stride) * 7 <= INT32_MAX && int64_t(stride) * 7 >= INT32_MIN;
}

// Up to four groups of eight rows (mul_mv) or of eight columns (mul_mm) run
// through one span together: their sums are independent, so the latencies of
// their fused multiply-adds overlap. Each sum keeps its own order.
constexpr int64_t kGroups = 4;
// Rows of a that mul_mm takes through one span together.
constexpr int64_t kRowsTogether = 2;

namespace {

// mul_mv over a span, for a matrix whose rows are contiguous floats: eight
// rows by eight columns are loaded and transposed, so that column s of the
// eight rows is one vector, taken in ascending s as the gathers take it.
// Two groups of eight rows go through the span together (two independent
// sums per step); rows past the end of a repeat the last row and are not
// stored. A run's tail shorter than eight columns re-reads the eight columns
// that end the run and adds only the new ones; a run ending before column 8
// is read column by column.
struct contiguous_rows_sums {
    const float *rows[16];
    const float *x;
    int32_t x_stride;
    __m256 acc[2];

    void add_block(int64_t base, int64_t first)
    {
        __m256 low[8], high[8];
        for (int l = 0; l < 8; ++l) {
            low[l] = _mm256_loadu_ps(rows[l] + base);
            high[l] = _mm256_loadu_ps(rows[8 + l] + base);
        }
        transpose8(low);
        transpose8(high);
        for (int64_t q = first; q < 8; ++q) {
            const __m256 xs = _mm256_set1_ps(*at(x, ptrdiff_t(base + q) * x_stride));
            acc[0] = _mm256_fmadd_ps(low[q], xs, acc[0]);
            acc[1] = _mm256_fmadd_ps(high[q], xs, acc[1]);
        }
    }

    void add_sample(int64_t s)
    {
        alignas(32) float column[16];
        for (int l = 0; l < 16; ++l)
            column[l] = rows[l][s];
        const __m256 xs = _mm256_set1_ps(*at(x, ptrdiff_t(s) * x_stride));
        acc[0] = _mm256_fmadd_ps(_mm256_load_ps(column), xs, acc[0]);
        acc[1] = _mm256_fmadd_ps(_mm256_load_ps(column + 8), xs, acc[1]);
    }

    void add_run(int64_t s0, int64_t s1) { add_run_in_blocks(*this, s0, s1); }
};

void mul_mv_contiguous_rows(const float *a, int32_t a_row_stride, int32_t a_height,
                            const float *x, int32_t x_stride, float *y, int32_t y_stride,
                            const lsc_dot_span &span)
{
    const span_runs runs(span);
    for (int64_t first = 0; first < a_height; first += 16) {
        const int64_t present = a_height - first < 16 ? a_height - first : 16;
        contiguous_rows_sums sums;
        for (int64_t l = 0; l < 16; ++l)
            sums.rows[l] = at(a, ptrdiff_t(first + (l < present ? l : present - 1)) * a_row_stride);
        sums.x = x;
        sums.x_stride = x_stride;
        sums.acc[0] = sums.acc[1] = _mm256_setzero_ps();
        for (int64_t run = 0; run < runs.count; ++run)
            sums.add_run(runs.start(run), runs.start(run) + runs.length);
        store_lanes(at(y, ptrdiff_t(first) * y_stride), y_stride, sums.acc[0], present);
        if (present > 8)
            store_lanes(at(y, ptrdiff_t(first + 8) * y_stride), y_stride, sums.acc[1], present - 8);
    }
}

} // namespace

void lsc_mul_mv_x86_64_v3(const float *a, int32_t a_row_stride, int32_t a_col_stride,
                          int32_t a_height, const float *x, int32_t x_stride, float *y,
                          int32_t y_stride, const lsc_dot_span &span)
{
    if (a_col_stride == 4) {
        mul_mv_contiguous_rows(a, a_row_stride, a_height, x, x_stride, y, y_stride, span);
        return;
    }
    const __m256i lane_offset =
        _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(a_row_stride));
    for (int64_t first = 0; first < a_height; first += 8 * kGroups) {
        const int64_t groups = (a_height - first + 7) / 8 < kGroups ? (a_height - first + 7) / 8 : kGroups;
        __m256 mask[kGroups];
        const float *rows[kGroups];
        __m256 acc[kGroups];
        for (int64_t g = 0; g < groups; ++g) {
            mask[g] = _mm256_castsi256_ps(first_lanes(a_height - first - 8 * g));
            rows[g] = at(a, ptrdiff_t(first + 8 * g) * a_row_stride);
            acc[g] = _mm256_setzero_ps();
        }
        const span_runs runs(span);
        for (int64_t run = 0; run < runs.count; ++run) {
            const int64_t start = runs.start(run);
            for (int64_t s = start; s < start + runs.length; ++s) {
                const __m256 xs = _mm256_set1_ps(*at(x, ptrdiff_t(s) * x_stride));
                const ptrdiff_t column = ptrdiff_t(s) * a_col_stride;
                for (int64_t g = 0; g < groups; ++g) {
                    const __m256 as = _mm256_mask_i32gather_ps(
                        _mm256_setzero_ps(), at(rows[g], column), lane_offset, mask[g], 1);
                    acc[g] = _mm256_fmadd_ps(as, xs, acc[g]);
                }
            }
        }
        for (int64_t g = 0; g < groups; ++g)
            store_lanes(at(y, ptrdiff_t(first + 8 * g) * y_stride), y_stride, acc[g],
                        a_height - first - 8 * g);
    }
}

// Blocks of eight rows by eight columns: loaded row by row (masked at the
// right edge), transposed in registers and stored as eight rows of the
// destination (masked at its right edge). Every element is copied as it is.
void lsc_transpose_x86_64_v3(const float *src, int32_t src_row_stride, int32_t src_width,
                             int32_t src_height, float *dst, int32_t dst_row_stride)
{
    for (int64_t r0 = 0; r0 < src_height; r0 += 8) {
        const int64_t rows = src_height - r0 < 8 ? src_height - r0 : 8;
        const __m256i row_mask = first_lanes(rows);
        for (int64_t c0 = 0; c0 < src_width; c0 += 8) {
            const int64_t cols = src_width - c0 < 8 ? src_width - c0 : 8;
            const __m256i col_mask = first_lanes(cols);
            __m256 v[8];
            for (int64_t l = 0; l < 8; ++l)
                v[l] = l < rows
                           ? _mm256_maskload_ps(at(src, ptrdiff_t(r0 + l) * src_row_stride) + c0, col_mask)
                           : _mm256_setzero_ps();
            transpose8(v);
            for (int64_t q = 0; q < cols; ++q) {
                float *out = at(dst, ptrdiff_t(c0 + q) * dst_row_stride) + r0;
                if (rows == 8)
                    _mm256_storeu_ps(out, v[q]);
                else
                    _mm256_maskstore_ps(out, row_mask, v[q]);
            }
        }
    }
}

namespace {

// mul_mm for a b at most 16 columns wide (the normal matrix of the fit):
// two groups of eight columns, `rows` rows of a at a time, so that 2 * rows
// independent sums are in flight and share the loads of b. Rows past the
// end of a repeat the last one and are not stored.
template <int rows>
void mul_mm_narrow(const float *a, int32_t a_row_stride, int32_t a_col_stride, int32_t a_height,
                   const float *b, int32_t b_row_stride, int32_t b_col_stride, int32_t b_width,
                   float *dst, int32_t dst_row_stride, int32_t dst_col_stride,
                   const lsc_dot_span &span)
{
    const __m256i lane_offset =
        _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(b_col_stride));
    const __m256 mask[2] = {_mm256_castsi256_ps(first_lanes(b_width)),
                            _mm256_castsi256_ps(first_lanes(int64_t(b_width) - 8))};
    const float *cols[2] = {b, at(b, ptrdiff_t(8) * b_col_stride)};
    const span_runs runs(span);
    for (int64_t i = 0; i < a_height; i += rows) {
        const float *a_row[rows];
        for (int r = 0; r < rows; ++r)
            a_row[r] = at(a, ptrdiff_t(i + r < a_height ? i + r : a_height - 1) * a_row_stride);
        __m256 acc[rows][2];
        for (int r = 0; r < rows; ++r)
            acc[r][0] = acc[r][1] = _mm256_setzero_ps();
        for (int64_t run = 0; run < runs.count; ++run) {
            const int64_t start = runs.start(run);
            for (int64_t s = start; s < start + runs.length; ++s) {
                const ptrdiff_t row = ptrdiff_t(s) * b_row_stride;
                __m256 bs[2];
                for (int g = 0; g < 2; ++g)
                    bs[g] = b_col_stride == 4
                                ? _mm256_maskload_ps(at(cols[g], row), _mm256_castps_si256(mask[g]))
                                : _mm256_mask_i32gather_ps(_mm256_setzero_ps(), at(cols[g], row),
                                                           lane_offset, mask[g], 1);
                for (int r = 0; r < rows; ++r) {
                    const __m256 as = _mm256_set1_ps(*at(a_row[r], ptrdiff_t(s) * a_col_stride));
                    acc[r][0] = _mm256_fmadd_ps(as, bs[0], acc[r][0]);
                    acc[r][1] = _mm256_fmadd_ps(as, bs[1], acc[r][1]);
                }
            }
        }
        for (int r = 0; r < rows && i + r < a_height; ++r)
            for (int g = 0; g < 2 && 8 * g < b_width; ++g)
                store_lanes(at(dst, ptrdiff_t(i + r) * dst_row_stride +
                                        ptrdiff_t(8 * g) * dst_col_stride),
                            dst_col_stride, acc[r][g], int64_t(b_width) - 8 * g);
    }
}

} // namespace

void lsc_mul_mm_x86_64_v3(const float *a, int32_t a_row_stride, int32_t a_col_stride,
                          int32_t a_height, const float *b, int32_t b_row_stride,
                          int32_t b_col_stride, int32_t b_width, float *dst,
                          int32_t dst_row_stride, int32_t dst_col_stride,
                          const lsc_dot_span &span)
{
    if (b_width <= 16) {
        mul_mm_narrow<4>(a, a_row_stride, a_col_stride, a_height, b, b_row_stride, b_col_stride,
                         b_width, dst, dst_row_stride, dst_col_stride, span);
        return;
    }
    const __m256i lane_offset =
        _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(b_col_stride));
    const span_runs runs(span);
    // Two rows of a go through the span together: their sums are independent
    // of each other as well, and they share the loads of b.
    for (int64_t i = 0; i < a_height; i += kRowsTogether) {
        const int64_t rows = a_height - i < kRowsTogether ? a_height - i : kRowsTogether;
        const float *a_row[kRowsTogether];
        for (int64_t r = 0; r < kRowsTogether; ++r)
            a_row[r] = at(a, ptrdiff_t(i + (r < rows ? r : 0)) * a_row_stride);
        for (int64_t first = 0; first < b_width; first += 8 * kGroups) {
            const int64_t groups =
                (b_width - first + 7) / 8 < kGroups ? (b_width - first + 7) / 8 : kGroups;
            __m256 mask[kGroups];
            const float *cols[kGroups];
            __m256 acc[kRowsTogether][kGroups];
            for (int64_t g = 0; g < groups; ++g) {
                mask[g] = _mm256_castsi256_ps(first_lanes(b_width - first - 8 * g));
                cols[g] = at(b, ptrdiff_t(first + 8 * g) * b_col_stride);
                for (int64_t r = 0; r < kRowsTogether; ++r)
                    acc[r][g] = _mm256_setzero_ps();
            }
            for (int64_t run = 0; run < runs.count; ++run) {
                const int64_t start = runs.start(run);
                for (int64_t s = start; s < start + runs.length; ++s) {
                    __m256 as[kRowsTogether] = {};
                    for (int64_t r = 0; r < rows; ++r)
                        as[r] = _mm256_set1_ps(*at(a_row[r], ptrdiff_t(s) * a_col_stride));
                    const ptrdiff_t row = ptrdiff_t(s) * b_row_stride;
                    for (int64_t g = 0; g < groups; ++g) {
                        // Columns one float apart are one (masked) load.
                        const __m256 bs =
                            b_col_stride == 4
                                ? _mm256_maskload_ps(at(cols[g], row), _mm256_castps_si256(mask[g]))
                                : _mm256_mask_i32gather_ps(_mm256_setzero_ps(), at(cols[g], row),
                                                           lane_offset, mask[g], 1);
                        for (int64_t r = 0; r < rows; ++r)
                            acc[r][g] = _mm256_fmadd_ps(as[r], bs, acc[r][g]);
                    }
                }
            }
            for (int64_t r = 0; r < rows; ++r)
                for (int64_t g = 0; g < groups; ++g)
                    store_lanes(at(dst, ptrdiff_t(i + r) * dst_row_stride +
                                            ptrdiff_t(first + 8 * g) * dst_col_stride),
                                dst_col_stride, acc[r][g], b_width - first - 8 * g);
        }
    }
}

// One row of an NVM channel table to gains: float(v) * reciprocal + 1.0 per
// sample, the portable conversion's two operations lane by lane; a reversed
// row has its lanes permuted before the store.
void lsc_convert_row_x86_64_v3(const void *samples, bool wide, float *out, size_t w,
                               float reciprocal, bool reversed)
{
    const __m256 scale = _mm256_set1_ps(reciprocal);
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256i backwards = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
    const auto *narrow = static_cast<const uint8_t *>(samples);
    const auto *wide_samples = static_cast<const uint16_t *>(samples);
    size_t c = 0;
    for (; c + 8 <= w; c += 8) {
        const __m256i v =
            wide ? _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(wide_samples + c)))
                 : _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(narrow + c)));
        const __m256 gain = _mm256_add_ps(_mm256_mul_ps(_mm256_cvtepi32_ps(v), scale), one);
        if (reversed)
            _mm256_storeu_ps(out + (w - 8 - c), _mm256_permutevar8x32_ps(gain, backwards));
        else
            _mm256_storeu_ps(out + c, gain);
    }
    for (; c < w; ++c) {
        const float v = float(wide ? wide_samples[c] : narrow[c]);
        out[reversed ? w - 1 - c : c] = v * reciprocal + 1.0f;
    }
}

// The smallest value of a plane without NaN is the same whatever order the
// comparisons take (equal values have equal bits, except zeros, which the
// test min > 0 refuses either way); the division and the raise are the
// portable ones, lane by lane.
bool lsc_normalise_x86_64_v3(float *plane, size_t count)
{
    if (count == 0)
        return false; // no minimum: refused like a plane without one
    // Four independent minima and NaN tests, so that the comparisons do not
    // wait on each other; merged at the end.
    __m256 low[4], unordered[4];
    for (int g = 0; g < 4; ++g) {
        low[g] = _mm256_set1_ps(plane[0]);
        unordered[g] = _mm256_setzero_ps();
    }
    size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        for (int g = 0; g < 4; ++g) {
            const __m256 v = _mm256_loadu_ps(plane + i + 8 * size_t(g));
            unordered[g] = _mm256_or_ps(unordered[g], _mm256_cmp_ps(v, v, _CMP_UNORD_Q));
            low[g] = _mm256_min_ps(low[g], v);
        }
    }
    for (; i + 8 <= count; i += 8) {
        const __m256 v = _mm256_loadu_ps(plane + i);
        unordered[0] = _mm256_or_ps(unordered[0], _mm256_cmp_ps(v, v, _CMP_UNORD_Q));
        low[0] = _mm256_min_ps(low[0], v);
    }
    for (int g = 1; g < 4; ++g) {
        low[0] = _mm256_min_ps(low[0], low[g]);
        unordered[0] = _mm256_or_ps(unordered[0], unordered[g]);
    }
    alignas(32) float lanes[8];
    _mm256_store_ps(lanes, low[0]);
    float min = lanes[0];
    for (int k = 1; k < 8; ++k)
        min = lanes[k] < min ? lanes[k] : min;
    bool nan = !_mm256_testz_ps(unordered[0], unordered[0]);
    for (; i < count; ++i) {
        nan = nan || plane[i] != plane[i];
        min = plane[i] < min ? plane[i] : min;
    }
    if (nan || !(min > 0.0f))
        return false;
    const __m256 divisor = _mm256_set1_ps(min);
    const __m256 one = _mm256_set1_ps(1.0f);
    for (i = 0; i + 8 <= count; i += 8) {
        const __m256 v = _mm256_div_ps(_mm256_loadu_ps(plane + i), divisor);
        _mm256_storeu_ps(plane + i, _mm256_blendv_ps(one, v, _mm256_cmp_ps(v, one, _CMP_GT_OQ)));
    }
    for (; i < count; ++i) {
        const float v = plane[i] / min;
        plane[i] = v > 1.0f ? v : 1.0f;
    }
    return true;
}

// The elimination with the hardware fused multiply-add: the portable loop
// calls the C library's fma for every update. The updates of one row are
// independent across j: with row-major working copy and factors they take
// eight columns per vector; otherwise the scalar instruction. The order of
// k and i is the portable one, and every element gets the same update.
void lsc_lu_eliminate_x86_64_v3(float *work, int32_t work_row_stride, int32_t work_col_stride,
                                uint32_t *pivot, float *dst, int32_t dst_row_stride,
                                int32_t dst_col_stride, int64_t n)
{
    auto a = [&](int64_t r, int64_t c) -> float & {
        return *at(work, ptrdiff_t(r) * work_row_stride + ptrdiff_t(c) * work_col_stride);
    };
    auto out = [&](int64_t r, int64_t c) -> float & {
        return *at(dst, ptrdiff_t(r) * dst_row_stride + ptrdiff_t(c) * dst_col_stride);
    };
    const bool rows_contiguous = work_col_stride == 4 && dst_col_stride == 4;
    out(0, 0) = a(0, 0);
    for (int64_t k = 0; k + 1 < n; ++k) {
        const float p = a(k, k);
        for (int64_t i = k + 1; i < n; ++i) {
            out(i, k) = a(i, k) / p;
            out(k, i) = a(k, i);
        }
        for (int64_t i = k + 1; i < n; ++i) {
            const float l = -out(i, k);
            int64_t j = k + 1;
            if (rows_contiguous) {
                // The updates of a row are independent: eight columns per
                // vector, each with its own fused multiply-add.
                float *row = &a(i, 0);
                const float *upper = &out(k, 0);
                const __m256 factor = _mm256_set1_ps(l);
                for (; j + 8 <= n; j += 8)
                    _mm256_storeu_ps(row + j, _mm256_fmadd_ps(factor, _mm256_loadu_ps(upper + j),
                                                              _mm256_loadu_ps(row + j)));
                if (j < n) {
                    const __m256i mask = first_lanes(n - j);
                    _mm256_maskstore_ps(row + j, mask,
                                        _mm256_fmadd_ps(factor, _mm256_maskload_ps(upper + j, mask),
                                                        _mm256_maskload_ps(row + j, mask)));
                }
                continue;
            }
            for (; j < n; ++j)
                a(i, j) = __builtin_fmaf(l, out(k, j), a(i, j));
        }
        out(k + 1, k + 1) = a(k + 1, k + 1);
        pivot[k] = uint32_t(k);
    }
    pivot[n - 1] = uint32_t(n - 1);
}

void lsc_substitute_x86_64_v3(const float *lu, const float *b, float *t, float *c, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        float acc = 0.0f;
        for (size_t j = 0; j < i; ++j)
            acc = __builtin_fmaf(lu[i * n + j], t[j], acc);
        t[i] = b[i] - acc;
    }
    for (size_t i = n; i-- > 0;) {
        float acc = 0.0f;
        for (size_t j = i + 1; j < n; ++j)
            acc = __builtin_fmaf(lu[i * n + j], c[j], acc);
        c[i] = (t[i] - acc) / lu[i * n + i];
    }
}
