// x86-64-v3 loops of the polynomial fit that serve the four planes of one
// solve together: the right-hand sides, the substitutions and the
// evaluation on the target grid. The design matrix, the factors and the
// grid's terms are the same for the four planes, so each is read or formed
// once for all of them; every plane's sums keep the per-plane operations and
// order (lanes are planes, rows of design_t or output samples). No inline
// function with external linkage is called from here (see
// resample/bicubic_math.h for why).
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "lsc_simd_x86_64_v3.h"
#include "lsc_x86_64_v3.h"

namespace {

constexpr int kTerms = 15;
constexpr int kPlanes = 4;

// Right-hand sides: lanes are the rows of design_t (0..7 and 8..14), and
// the four planes are four independent sets of sums, so eight chains of
// fused multiply-adds are in flight. Columns s .. s + 7 of the 15 rows are
// read as rows and transposed in registers.
struct rhs_sums {
    const float *rows[16];
    const float *const *z;
    __m256 acc[kPlanes][2];

    // Adds the samples base + first .. base + 7, all inside one row of
    // design_t, reading the block base .. base + 7.
    void add_block(int64_t base, int64_t first)
    {
        __m256 low[8], high[8];
        for (int l = 0; l < 8; ++l) {
            low[l] = _mm256_loadu_ps(rows[l] + base);
            high[l] = l < 7 ? _mm256_loadu_ps(rows[8 + l] + base) : _mm256_setzero_ps();
        }
        transpose8(low);
        transpose8(high);
        for (int64_t q = first; q < 8; ++q) {
            for (int k = 0; k < kPlanes; ++k) {
                const __m256 zs = _mm256_set1_ps(z[k][base + q]);
                acc[k][0] = _mm256_fmadd_ps(low[q], zs, acc[k][0]);
                acc[k][1] = _mm256_fmadd_ps(high[q], zs, acc[k][1]);
            }
        }
    }

    // One sample whose column is gathered element by element (runs shorter
    // than a block at the very start of the rows).
    void add_sample(int64_t s)
    {
        alignas(32) float column[16] = {};
        for (int i = 0; i < kTerms; ++i)
            column[i] = rows[i][s];
        const __m256 low = _mm256_load_ps(column), high = _mm256_load_ps(column + 8);
        for (int k = 0; k < kPlanes; ++k) {
            const __m256 zs = _mm256_set1_ps(z[k][s]);
            acc[k][0] = _mm256_fmadd_ps(low, zs, acc[k][0]);
            acc[k][1] = _mm256_fmadd_ps(high, zs, acc[k][1]);
        }
    }

    // The samples s0 .. s1 - 1 in ascending order.
    void add_run(int64_t s0, int64_t s1) { add_run_in_blocks(*this, s0, s1); }
};

} // namespace

void lsc_rhs4_x86_64_v3(const float *design_t, int64_t m, const float *const *z, float (*b)[4],
                        const lsc_dot_span &span)
{
    rhs_sums sums;
    for (int i = 0; i < kTerms; ++i)
        sums.rows[i] = design_t + ptrdiff_t(i) * m;
    sums.rows[15] = nullptr;
    sums.z = z;
    for (auto &plane : sums.acc)
        plane[0] = plane[1] = _mm256_setzero_ps();
    if (!span.interior) {
        sums.add_run(0, span.count);
    } else if (span.iw > 0 && span.ih > 0) {
        for (int64_t r = 0; r < span.ih; ++r) {
            const int64_t start = (span.first_row + r) * span.width + span.first_col;
            sums.add_run(start, start + span.iw);
        }
    }
    for (int k = 0; k < kPlanes; ++k) {
        alignas(32) float lanes[16];
        _mm256_store_ps(lanes, sums.acc[k][0]);
        _mm256_store_ps(lanes + 8, sums.acc[k][1]);
        for (int i = 0; i < kTerms; ++i)
            b[i][k] = lanes[i];
    }
}

// Lanes are the four planes: each runs the single solve's sequence.
void lsc_substitute4_x86_64_v3(const float *lu, const float (*b)[4], float *c)
{
    __m128 t[kTerms], x[kTerms];
    for (int i = 0; i < kTerms; ++i) {
        __m128 acc = _mm_setzero_ps();
        for (int j = 0; j < i; ++j)
            acc = _mm_fmadd_ps(_mm_set1_ps(lu[i * kTerms + j]), t[j], acc);
        t[i] = _mm_sub_ps(_mm_loadu_ps(b[i]), acc);
    }
    for (int i = kTerms; i-- > 0;) {
        __m128 acc = _mm_setzero_ps();
        for (int j = i + 1; j < kTerms; ++j)
            acc = _mm_fmadd_ps(_mm_set1_ps(lu[i * kTerms + j]), x[j], acc);
        x[i] = _mm_div_ps(_mm_sub_ps(t[i], acc), _mm_set1_ps(lu[i * kTerms + i]));
    }
    for (int i = 0; i < kTerms; ++i) {
        alignas(16) float lanes[4];
        _mm_store_ps(lanes, x[i]);
        for (int k = 0; k < kPlanes; ++k)
            c[k * kTerms + i] = lanes[k];
    }
}

// The evaluation. The terms of P are those of the design matrix, in its
// column order: 1, x, y, x^2, xy, y^2, x^3, x^2 y, x y^2, y^3, x^4, x^3 y,
// x^2 y^2, x y^3, y^4. The powers of x are the same on every row and those
// of y on every column, so they are formed once per strip of columns and
// once per row; the six mixed products once per row for all planes. Each
// value is formed by the same operations as the single-plane evaluation
// forms it (x2 = x * x, x3 = x * x2, ..., x3 * y), so every term has the
// same bits; the first step fma(c0, 1, 0) is the same for every sample of a
// plane and taken once. The sum then runs from c0 upwards, one fused
// multiply-add per term, as before.
namespace {

// Columns per strip: the strip's terms live on the stack (10 arrays of this
// many floats, 10 KiB).
constexpr int64_t kStrip = 256;

struct strip_terms {
    alignas(32) float x[kStrip], x2[kStrip], x3[kStrip], x4[kStrip];
    alignas(32) float xy[kStrip], x2y[kStrip], xy2[kStrip], x3y[kStrip], x2y2[kStrip],
        xy3[kStrip];
};

// Vectors of a row evaluated side by side: their sums are independent, so
// the latencies of their fused multiply-adds overlap.
constexpr int kTogether = 2;

// P at the columns v .. v + 8 * count - 1 of the strip, into row + v; the
// last vector keeps only its first `valid` - 8 * (count - 1) lanes.
template <int count>
inline void sum_vectors(const __m256 *a, __m256 first, const strip_terms &s, const __m256 *ys,
                        int64_t v, float *row, int64_t valid)
{
    // Written out term by term (no lambda capturing the sums), so that the
    // sums stay in registers.
#define EJ_TERM(t, term)                                                                   \
    _Pragma("GCC unroll 4") for (int n = 0; n < count; ++n) acc[n] =                       \
        _mm256_fmadd_ps(a[t], term, acc[n]);
    __m256 acc[count];
#pragma GCC unroll 4
    for (int n = 0; n < count; ++n)
        acc[n] = first;
    EJ_TERM(1, _mm256_load_ps(s.x + v + 8 * n))
    EJ_TERM(2, ys[0])
    EJ_TERM(3, _mm256_load_ps(s.x2 + v + 8 * n))
    EJ_TERM(4, _mm256_load_ps(s.xy + v + 8 * n))
    EJ_TERM(5, ys[1])
    EJ_TERM(6, _mm256_load_ps(s.x3 + v + 8 * n))
    EJ_TERM(7, _mm256_load_ps(s.x2y + v + 8 * n))
    EJ_TERM(8, _mm256_load_ps(s.xy2 + v + 8 * n))
    EJ_TERM(9, ys[2])
    EJ_TERM(10, _mm256_load_ps(s.x4 + v + 8 * n))
    EJ_TERM(11, _mm256_load_ps(s.x3y + v + 8 * n))
    EJ_TERM(12, _mm256_load_ps(s.x2y2 + v + 8 * n))
    EJ_TERM(13, _mm256_load_ps(s.xy3 + v + 8 * n))
    EJ_TERM(14, ys[3])
#undef EJ_TERM
    for (int n = 0; n + 1 < count; ++n)
        _mm256_storeu_ps(row + v + 8 * n, acc[n]);
    const int64_t last = valid - 8 * (count - 1);
    if (last >= 8)
        _mm256_storeu_ps(row + v + 8 * (count - 1), acc[count - 1]);
    else
        _mm256_maskstore_ps(row + v + 8 * (count - 1), first_lanes(last), acc[count - 1]);
}

} // namespace

void lsc_evaluate_planes_x86_64_v3(const float *c, size_t c_stride, int planes,
                                   float *const *dst, uint16_t src_width, uint16_t src_height,
                                   uint16_t dst_width, uint16_t dst_height)
{
    const float sx = (float(src_width) - 1.0f) / (float(dst_width) - 1.0f);
    const float sy = (float(src_height) - 1.0f) / (float(dst_height) - 1.0f);
    const __m256 one = _mm256_set1_ps(1.0f);
    __m256 coefficient[kPlanes][kTerms], first[kPlanes];
    for (int k = 0; k < planes; ++k) {
        for (int t = 0; t < kTerms; ++t)
            coefficient[k][t] = _mm256_set1_ps(c[size_t(k) * c_stride + size_t(t)]);
        first[k] = _mm256_fmadd_ps(coefficient[k][0], one, _mm256_setzero_ps());
    }
    strip_terms s;
    for (int64_t start = 0; start < dst_width; start += kStrip) {
        const int64_t columns = dst_width - start < kStrip ? dst_width - start : kStrip;
        for (int64_t v = 0; v < columns; v += 8) {
            const __m256 i = _mm256_cvtepi32_ps(_mm256_add_epi32(
                _mm256_set1_epi32(int32_t(start + v)), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7)));
            const __m256 x = _mm256_fmadd_ps(i, _mm256_set1_ps(sx), one);
            const __m256 x2 = _mm256_mul_ps(x, x);
            const __m256 x3 = _mm256_mul_ps(x, x2);
            _mm256_store_ps(s.x + v, x);
            _mm256_store_ps(s.x2 + v, x2);
            _mm256_store_ps(s.x3 + v, x3);
            _mm256_store_ps(s.x4 + v, _mm256_mul_ps(x, x3));
        }
        for (size_t j = 0; j < dst_height; ++j) {
            const __m256 y = _mm256_set1_ps(__builtin_fmaf(float(j), sy, 1.0f));
            const __m256 y2 = _mm256_mul_ps(y, y);
            const __m256 y3 = _mm256_mul_ps(y, y2);
            const __m256 y4 = _mm256_mul_ps(y, y3);
            for (int64_t v = 0; v < columns; v += 8) {
                const __m256 x = _mm256_load_ps(s.x + v), x2 = _mm256_load_ps(s.x2 + v),
                             x3 = _mm256_load_ps(s.x3 + v);
                _mm256_store_ps(s.xy + v, _mm256_mul_ps(x, y));
                _mm256_store_ps(s.x2y + v, _mm256_mul_ps(x2, y));
                _mm256_store_ps(s.xy2 + v, _mm256_mul_ps(x, y2));
                _mm256_store_ps(s.x3y + v, _mm256_mul_ps(x3, y));
                _mm256_store_ps(s.x2y2 + v, _mm256_mul_ps(x2, y2));
                _mm256_store_ps(s.xy3 + v, _mm256_mul_ps(x, y3));
            }
            const __m256 ys[4] = {y, y2, y3, y4};
            for (int k = 0; k < planes; ++k) {
                float *row = dst[k] + j * dst_width + size_t(start);
                int64_t v = 0;
                for (; v + 8 * kTogether <= columns; v += 8 * kTogether)
                    sum_vectors<kTogether>(coefficient[k], first[k], s, ys, v, row, 8 * kTogether);
                for (; v < columns; v += 8)
                    sum_vectors<1>(coefficient[k], first[k], s, ys, v, row, columns - v);
            }
        }
    }
}
