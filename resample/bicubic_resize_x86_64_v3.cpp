// x86-64-v3 (AVX2 + FMA) sample loop of the bicubic resizers to u16p10.
// Compiled with -march=x86-64-v3 and entered only on CPUs that run it. Every
// output sample gets exactly the operations of the portable loop, in the same
// order (the shared templates of bicubic_math.h); the lanes of a vector are
// independent output samples, never parts of one sum.
//
// This file calls no inline function with external linkage (no std::
// wrappers, nothing from bicubic_internal.h but declarations), so no copy
// compiled for this instruction set can be shared with the portable code.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bicubic_internal.h"
#include "bicubic_math.h"

namespace {

inline uint32_t min_u32(uint32_t a, uint32_t b)
{
    return a < b ? a : b;
}

// Lanes 0 .. 7 as integers.
inline __m256i lane_index()
{
    return _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
}

// Output columns per strip: the per-column tables, the horizontal results of
// four buffer rows and one row's span of padded samples (or the fraction-free
// terms of the vertical cubic) stay on the stack (about 30 KiB).
//
// A strip walks down the whole source reading its span of every row, so the
// wider the strips, the fewer the passes over the source and the longer the
// consecutive runs of each row read in one go: a threefold reduction of a
// 3840-sample row takes two passes of 7.5 KiB runs (three of 6 KiB with 512
// columns and 2048 floats), which the memory system serves measurably faster.
constexpr uint32_t kStripColumns = 640;
// Enlargements read little of the source but keep the fraction-free terms of
// the vertical cubic as well: their strips stay narrower, so that everything
// a strip's output rows touch stays in the first-level cache.
constexpr uint32_t kEnlargementStripColumns = 512;
static_assert(kEnlargementStripColumns % 8 == 0 && kEnlargementStripColumns <= kStripColumns,
              "whole vectors inside the tables");
// Padded columns one strip may span (strong reductions get narrower strips),
// and the readable slack after them for whole-register window loads.
constexpr int32_t kSpanFloats = 3072;
constexpr int32_t kSpanSlack = 8;

struct strip_tables {
    // First padded column of each output column, relative to `lo`; fraction
    // and half fraction.
    alignas(32) int32_t x0[kStripColumns];
    alignas(32) float fx[kStripColumns];
    alignas(32) float half_x[kStripColumns];
    // Horizontal cubic of buffer row `row[s]` at every column of the strip,
    // in slot s = row & 3, so the four rows of a neighbourhood never collide.
    alignas(32) float h[4][kStripColumns];
    // Once the rows of h are in place, span_values holds instead the terms
    // of the vertical cubic through rows pre_y0 .. pre_y0 + 3 of h that do
    // not depend on the fraction (shared by the output rows of an
    // enlargement): p1, p2 - p0, the quadratic and the cubic coefficient,
    // kStripColumns floats each.
    int64_t pre_y0;
    // Padded columns lo .. lo + span - 1 of the row being processed.
    alignas(32) float span_values[kSpanFloats + kSpanSlack];
    static_assert(4 * kStripColumns <= kSpanFloats, "room for the vertical terms");
    float *pre(int m) { return span_values + m * kStripColumns; }
    // Per vector of eight columns: 1 when all it reads (window slack
    // included) lies in data columns 1 .. W, so that a float row can be read
    // in place there.
    uint8_t interior[kStripColumns / 8];
    // The vectors that are not interior read span columns below head_end or
    // from tail_start on: the only ones a float row needs in span_values.
    int32_t head_end;
    int32_t tail_start;
    // The float source row being processed (its data column 1), or null
    // when the row is wholly in span_values.
    const float *row_data;
    // Per vector of eight columns: 1 when its taps fit in one register, else
    // 0 (loaded column by column).
    int32_t window[kStripColumns / 8];
    int64_t row[4];
    int32_t lo;
    int32_t span;
};

// Source coordinates of columns first .. first + count - 1 (count rounded up
// to whole vectors; the lanes past the last column repeat it). Returns the
// columns the strip takes: as many as fit in a span of kSpanFloats padded
// columns (at least one, since a column spans four).
uint32_t column_tables(strip_tables &t, uint32_t first, uint32_t columns, uint16_t src_width,
                       uint16_t dst_width)
{
    const __m256 denominator = _mm256_set1_ps(static_cast<float>(dst_width) - 1.0f);
    const __m256 extent = _mm256_set1_ps(static_cast<float>(src_width) - 1.0f);
    const __m256i last = _mm256_set1_epi32(static_cast<int32_t>(dst_width) - 1);
    const uint32_t count = (columns + 7) & ~7u;
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
    // x0 never decreases with the column: cut the strip where the span from
    // the first column's neighbourhood would grow too wide.
    t.lo = t.x0[0];
    uint32_t taken = 1;
    while (taken < columns && t.x0[taken] + 4 - t.lo <= kSpanFloats)
        ++taken;
    for (uint32_t k = taken; k < ((taken + 7) & ~7u); ++k) {
        t.x0[k] = t.x0[taken - 1];
        t.fx[k] = t.fx[taken - 1];
        t.half_x[k] = t.half_x[taken - 1];
    }
    t.span = t.x0[taken - 1] + 4 - t.lo;
    t.head_end = 0;
    t.tail_start = t.span;
    for (uint32_t k = 0; k < taken; k += 8) {
        for (uint32_t m = 0; m < 8; ++m)
            t.x0[k + m] -= t.lo;
        const int32_t reach = t.x0[k + 7] + 4 - t.x0[k];
        t.window[k / 8] = reach <= 8 ? 1 : 0;
        const int32_t start = t.lo + t.x0[k];
        const int32_t stop = t.lo + t.x0[k + 7] + 4 + kSpanSlack;
        const bool interior = start >= 1 && stop <= static_cast<int32_t>(src_width) + 1;
        t.interior[k / 8] = interior ? 1 : 0;
        if (!interior && start < 1)
            t.head_end = t.x0[k + 7] + 4 > t.head_end ? t.x0[k + 7] + 4 : t.head_end;
        else if (!interior)
            t.tail_start = t.x0[k] < t.tail_start ? t.x0[k] : t.tail_start;
    }
    return taken;
}

static_assert(sizeof(strip_tables) <= 31 * 1024, "the strip's tables stay a bounded stack use");

// Rows ahead whose span load_span asks for.
constexpr uint32_t kPrefetchRows = 4;

// Prefetches the cache lines of p[0 .. n - 1].
template <typename T>
inline void prefetch_span(const T *p, size_t n)
{
    const char *bytes = reinterpret_cast<const char *>(p);
    for (size_t k = 0; k < n * sizeof(T); k += 64)
        _mm_prefetch(bytes + k, _MM_HINT_T0);
}

// Linear extrapolation of an edge, as the buffer build does it.
inline float extrapolate(float near_value, float far_value)
{
    return 2.0f * near_value - far_value;
}

// Padded columns lo .. lo + span - 1 of buffer row `row` into span_values.
//
// Only the border rows and the rows they are extrapolated from are built in
// the buffer (create_buffer_edges_for_bicubic_*); a data row is read from
// the source instead: the same values, since a sample's conversion (a copy,
// or an exact product by a power of two) depends on the sample alone, and
// its border columns are extrapolated here with the build's own operations.
// The buffer is still allocated whole, as the kernel defines it.
void load_span(strip_tables &t, const bicubic_resize_source &src, const float *buffer,
               uint32_t row, uint32_t src_width, uint32_t src_height)
{
    const int32_t w = static_cast<int32_t>(src_width);
    const int32_t lo = t.lo;
    const int32_t end = t.lo + t.span; // one past the last padded column
    float *out = t.span_values;
    t.row_data = nullptr;
    if (row == 0 || row > src_height) {
        std::memcpy(out, buffer + row * (static_cast<size_t>(src_width) + 3) + lo,
                    static_cast<size_t>(t.span) * sizeof(float));
        return;
    }
    const size_t offset = static_cast<size_t>(row - 1) * src_width;
    // The strip walks down the source: ask for the span of a row a few rows
    // further on, so that its samples arrive before they are needed (a hint;
    // reads nothing).
    if (row - 1 + kPrefetchRows < src_height) {
        const size_t ahead = offset + kPrefetchRows * static_cast<size_t>(src_width) +
                             static_cast<size_t>(lo > 0 ? lo - 1 : 0);
        if (src.f32 != nullptr)
            prefetch_span(src.f32 + ahead, static_cast<size_t>(t.span));
        else
            prefetch_span(src.u16 + ahead, static_cast<size_t>(t.span));
    }
    // Float samples are read in place by the interior vectors; the others
    // take theirs from span_values.
    if (src.f32 != nullptr)
        t.row_data = src.f32 + offset;
    // Data columns 1 .. W hold the converted samples 0 .. W - 1.
    auto sample = [&](int32_t column) -> float {
        if (src.f32 != nullptr)
            return src.f32[offset + static_cast<size_t>(column - 1)];
        return static_cast<float>(src.u16[offset + static_cast<size_t>(column - 1)]) * src.scale;
    };
    const int32_t first = lo > 1 ? lo : 1;
    const int32_t stop = end < w + 1 ? end : w + 1;
    if (first < stop) {
        float *o = out + (first - lo);
        const size_t n = static_cast<size_t>(stop - first);
        if (src.f32 != nullptr) {
            // Only the head and the tail of the span: the interior vectors
            // between them read the row in place.
            const float *in = src.f32 + offset + static_cast<size_t>(first - 1);
            const size_t head = t.head_end + lo > first
                                    ? static_cast<size_t>(t.head_end + lo - first)
                                    : 0;
            const size_t tail = t.tail_start + lo > first
                                    ? static_cast<size_t>(t.tail_start + lo - first)
                                    : 0;
            if (head >= tail) {
                std::memcpy(o, in, n * sizeof(float));
            } else {
                std::memcpy(o, in, (head < n ? head : n) * sizeof(float));
                if (tail < n)
                    std::memcpy(o + tail, in + tail, (n - tail) * sizeof(float));
            }
        } else {
            const uint16_t *in = src.u16 + offset + static_cast<size_t>(first - 1);
            const __m256 scale = _mm256_set1_ps(src.scale);
            size_t k = 0;
            for (; k + 8 <= n; k += 8) {
                const __m256i v = _mm256_cvtepu16_epi32(
                    _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + k)));
                _mm256_storeu_ps(o + k, _mm256_mul_ps(_mm256_cvtepi32_ps(v), scale));
            }
            for (; k < n; ++k)
                o[k] = static_cast<float>(in[k]) * src.scale;
        }
    }
    // The border columns, as the build extrapolates them (a single-sample
    // row repeats its sample).
    if (lo == 0)
        out[0] = w >= 2 ? extrapolate(sample(1), sample(2)) : sample(1);
    if (end > w + 1) {
        const float right = w >= 2 ? extrapolate(sample(w), sample(w - 1)) : sample(1);
        if (w + 1 >= lo)
            out[w + 1 - lo] = right;
        if (end > w + 2)
            out[w + 2 - lo] = w >= 2 ? extrapolate(right, sample(w)) : sample(1);
    }
}

// The horizontal cubic of the loaded span at every column of the strip. The
// four taps of eight columns come from a one-register window when they lie
// that close together (permutes pick the same elements a gather would read),
// else from four-float loads per column, transposed.
void horizontal_row(const strip_tables &t, uint32_t count, float *out)
{
    for (uint32_t k = 0; k < count; k += 8) {
        const __m256i x0 = _mm256_load_si256(reinterpret_cast<const __m256i *>(t.x0 + k));
        __m256 p[4];
        // The vector's first tap, and the offsets of its columns' taps from it.
        const int32_t base = t.x0[k];
        const float *span = t.row_data != nullptr && t.interior[k / 8] != 0
                                ? t.row_data + (t.lo + base - 1)
                                : t.span_values + base;
        const int32_t registers = t.window[k / 8];
        if (registers == 1) {
            const __m256 window = _mm256_loadu_ps(span);
            const __m256i idx = _mm256_sub_epi32(x0, _mm256_set1_epi32(base));
            #pragma GCC unroll 16
            for (int tap = 0; tap < 4; ++tap)
                p[tap] = _mm256_permutevar8x32_ps(
                    window, _mm256_add_epi32(idx, _mm256_set1_epi32(tap)));
        } else {
            // Each column's four taps are consecutive: load them as four
            // floats per column and transpose eight such rows into the taps.
            const int32_t *x = t.x0 + k;
            auto taps = [span, x, base](int m) { return _mm_loadu_ps(span + (x[m] - base)); };
            const __m256 r0 = _mm256_insertf128_ps(_mm256_castps128_ps256(taps(0)), taps(4), 1);
            const __m256 r1 = _mm256_insertf128_ps(_mm256_castps128_ps256(taps(1)), taps(5), 1);
            const __m256 r2 = _mm256_insertf128_ps(_mm256_castps128_ps256(taps(2)), taps(6), 1);
            const __m256 r3 = _mm256_insertf128_ps(_mm256_castps128_ps256(taps(3)), taps(7), 1);
            const __m256 t0 = _mm256_unpacklo_ps(r0, r1);
            const __m256 t1 = _mm256_unpackhi_ps(r0, r1);
            const __m256 t2 = _mm256_unpacklo_ps(r2, r3);
            const __m256 t3 = _mm256_unpackhi_ps(r2, r3);
            p[0] = _mm256_shuffle_ps(t0, t2, 0x44);
            p[1] = _mm256_shuffle_ps(t0, t2, 0xEE);
            p[2] = _mm256_shuffle_ps(t1, t3, 0x44);
            p[3] = _mm256_shuffle_ps(t1, t3, 0xEE);
        }
        _mm256_store_ps(out + k, catmull_rom(p[0], p[1], p[2], p[3], _mm256_load_ps(t.fx + k),
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
void bicubic_resample_u16p10_x86_64_v3(const bicubic_resize_source &src, const float *buffer,
                                       uint16_t src_height, uint16_t src_width, uint16_t *dst,
                                       uint16_t dst_height, uint16_t dst_width)
{
    strip_tables t;
    // The slack after a span is read by window loads into lanes no column
    // picks; keep it defined.
    std::memset(t.span_values, 0, sizeof(t.span_values));
    const uint32_t strip_columns =
        dst_width > src_width ? kEnlargementStripColumns : kStripColumns;
    uint32_t columns = 0;
    for (uint32_t first = 0; first < dst_width; first += columns) {
        columns = column_tables(t, first, min_u32(strip_columns, dst_width - first), src_width,
                                dst_width);
        const uint32_t count = (columns + 7) & ~7u;
        for (int s = 0; s < 4; ++s)
            t.row[s] = -1;
        t.pre_y0 = -1;
        // y = (float(i) / (float(dst_height) - 1)) * (float(src_height) - 1)
        auto source_row = [dst_height, src_height](uint32_t i) {
            return (static_cast<float>(i) / (static_cast<float>(dst_height) - 1.0f)) *
                   (static_cast<float>(src_height) - 1.0f);
        };
        for (uint32_t i = 0; i < dst_height; ++i) {
            const float y = source_row(i);
            const float y_floor = __builtin_floorf(y);
            const float fy = y - y_floor;
            const uint32_t y0 = static_cast<uint16_t>(y_floor);
            const float *h[4];
            for (uint32_t r = 0; r < 4; ++r) {
                const uint32_t row = y0 + r;
                float *slot = t.h[row & 3];
                if (t.row[row & 3] != row) {
                    t.pre_y0 = -1; // span_values is overwritten
                    load_span(t, src, buffer, row, src_width, src_height);
                    horizontal_row(t, count, slot);
                    t.row[row & 3] = row;
                }
                h[r] = slot;
            }
            const __m256 vfy = _mm256_set1_ps(fy);
            const __m256 vhy = _mm256_set1_ps(fy * 0.5f);
            uint16_t *out = dst + static_cast<size_t>(i) * dst_width + first;
            // v times 1024, truncated, low 16 bits stored. Out of range and
            // NaN convert to INT32_MIN, as in the portable loop.
            auto store = [out, columns](uint32_t k, __m256 v) {
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
            };
            // Three or more output rows sharing y0 share the fraction-free
            // terms: computed once, by the same operations as catmull_rom,
            // then only the fused steps per row.
            if (t.pre_y0 != y0 && i + 2 < dst_height &&
                static_cast<uint16_t>(__builtin_floorf(source_row(i + 2))) == y0) {
                for (uint32_t k = 0; k < count; k += 8) {
                    const __m256 p0 = _mm256_load_ps(h[0] + k), p1 = _mm256_load_ps(h[1] + k),
                                 p2 = _mm256_load_ps(h[2] + k), p3 = _mm256_load_ps(h[3] + k);
                    const __m256 two = _mm256_set1_ps(2.0f), three = _mm256_set1_ps(3.0f),
                                 four = _mm256_set1_ps(4.0f), five = _mm256_set1_ps(5.0f);
                    // 2 p0 - 5 p1 + 4 p2 - p3 and 3 (p1 - p2) + p3 - p0, left to right.
                    const __m256 quadratic = _mm256_sub_ps(
                        _mm256_add_ps(_mm256_sub_ps(_mm256_mul_ps(two, p0), _mm256_mul_ps(five, p1)),
                                      _mm256_mul_ps(four, p2)),
                        p3);
                    const __m256 cubic = _mm256_sub_ps(
                        _mm256_add_ps(_mm256_mul_ps(three, _mm256_sub_ps(p1, p2)), p3), p0);
                    _mm256_store_ps(t.pre(0) + k, p1);
                    _mm256_store_ps(t.pre(1) + k, _mm256_sub_ps(p2, p0));
                    _mm256_store_ps(t.pre(2) + k, quadratic);
                    _mm256_store_ps(t.pre(3) + k, cubic);
                }
                t.pre_y0 = y0;
            }
            if (t.pre_y0 == y0) {
                for (uint32_t k = 0; k < count; k += 8) {
                    const __m256 inner = _mm256_fmadd_ps(vfy, _mm256_load_ps(t.pre(3) + k),
                                                         _mm256_load_ps(t.pre(2) + k));
                    const __m256 outer =
                        _mm256_fmadd_ps(vfy, inner, _mm256_load_ps(t.pre(1) + k));
                    store(k, _mm256_fmadd_ps(vhy, outer, _mm256_load_ps(t.pre(0) + k)));
                }
                continue;
            }
            for (uint32_t k = 0; k < count; k += 8)
                store(k, catmull_rom(_mm256_load_ps(h[0] + k), _mm256_load_ps(h[1] + k),
                                     _mm256_load_ps(h[2] + k), _mm256_load_ps(h[3] + k), vfy,
                                     vhy));
        }
    }
}
