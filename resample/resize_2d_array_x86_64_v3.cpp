// x86-64-v3 loops of the bilinear 2-D array resize.
//
// Integer members: the weighted sum of the four neighbours is an exact
// integer (it fits the member's sum type), so it may be formed in any order
// and in modular arithmetic wide enough for it; each loop below says how it
// forms it. The result is rounded and stored as the portable loop does.
//
// Float member: every output is computed with exactly the portable
// operations (same products, same fused steps, same order), eight outputs of
// a row per vector; only products that do not involve the vertical fraction
// are shared between rows.
//
// The walks, chosen by the shape of the resize:
// - halving with whole weights (8/16-bit): rows of picks, packed;
// - direct, row by row (reductions; 16-bit mild enlargements): every output
//   from its own four samples, the columns computed in vector form;
// - bands (32-bit and float enlargements): the output rows on one pair of
//   source rows, column vector by column vector, with per-column values kept
//   in registers for the band's rows;
// - strips (8-bit enlargements, 16-bit strong ones, whole-weight picks):
//   per-column tables and per-source-row horizontal sums in bounded stack
//   buffers, shared by the output rows that read that source row.
// None allocates. Where the samples of eight columns lie within a few
// registers of a row they are loaded whole and permuted into the lanes;
// elsewhere they are gathered (or read one by one near the end of the
// source). Both hand every lane the same sample. No inline function with
// external linkage is called from here (see bicubic_math.h for why).
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "resample_x86_64_v3.h"
#include "window_x86_64_v3.h"

namespace {

// Output columns per strip of the 8- and 16-bit walk: wide enough that most
// rows are walked in a few strips (the memory walk of narrow strips costs
// more than their computation), narrow enough for the strip tables to stay
// within about 25 KiB of stack.
constexpr uint32_t kStripColumns = 1024;

inline uint32_t min_u32(uint32_t a, uint32_t b)
{
    return a < b ? a : b;
}

// Asks for the cache line `bytes` bytes after p (a hint: never faults, reads
// nothing; the address is formed as an integer, so it may lie anywhere).
inline void prefetch_at(const void *p, size_t bytes)
{
    _mm_prefetch(reinterpret_cast<const char *>(reinterpret_cast<uintptr_t>(p) + bytes), _MM_HINT_T0);
}

inline __m256i lane_index()
{
    return _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
}

inline __m256i load8(const int32_t *p)
{
    return _mm256_load_si256(reinterpret_cast<const __m256i *>(p));
}

// Lower index and upper weight of fixed-point position pos (F = 8): pos 0
// takes the pair (0, 1) with weight 0 on 1; otherwise lower = (pos - 1) >> 8.
inline void axis_rule(uint32_t pos, uint32_t &lower, uint32_t &upper_weight)
{
    lower = pos == 0 ? 0 : (pos - 1) >> 8;
    upper_weight = pos - (lower << 8);
}

// The strip walk of the 8- and 16-bit members forms the sum split by axis,
//   H(y, x) = S[y][x0] * wx0 + S[y][x1] * wx1   (once per source row and column)
//   out     = (H(y0, x) * wy0 + H(y1, x) * wy1 + 2^15) >> 16
// in 32-bit lanes (every value fits); H of a source row serves every output
// row that reads that row.
struct strip {
    alignas(32) int32_t x0[kStripColumns]; // lower source index of each column
    alignas(32) int32_t wx0[kStripColumns];
    alignas(32) int32_t wx1[kStripColumns];
    alignas(32) uint32_t h[2][kStripColumns]; // H of source row `row[s]`, slot s = row & 1
    // When every column of the strip puts its whole weight on one sample
    // (weights 0 and 256, as integer reductions give), pick[k] is that sample.
    alignas(32) int32_t pick[kStripColumns];
    // Window of each vector of eight columns (0: gather): over x0 ... x0 + 1
    // for the pairs, over the picks for whole weights.
    int32_t pair_registers[kStripColumns / 8];
    int32_t pick_registers[kStripColumns / 8];
    bool whole_weights;
    int64_t row[2];
    uint32_t n;      // columns in the strip
    uint32_t vector; // n rounded up to whole vectors
};

void plan_strip(strip &s, uint32_t ox0, uint32_t columns_left, uint32_t x_start, uint32_t x_step)
{
    s.n = min_u32(kStripColumns, columns_left);
    s.vector = (s.n + 7) & ~7u;
    for (uint32_t k = 0; k < s.vector; ++k) {
        // Lanes past the last column repeat it, so their reads stay inside.
        uint32_t lower, weight;
        axis_rule(x_start + (ox0 + min_u32(k, s.n - 1)) * x_step, lower, weight);
        s.x0[k] = int32_t(lower);
        s.wx1[k] = int32_t(weight);
        s.wx0[k] = int32_t(256 - weight);
    }
    s.row[0] = s.row[1] = -1;
    s.whole_weights = true;
    for (uint32_t k = 0; k < s.vector; ++k) {
        s.whole_weights = s.whole_weights && (s.wx1[k] == 0 || s.wx1[k] == 256);
        s.pick[k] = s.x0[k] + (s.wx1[k] == 256 ? 1 : 0);
    }
    for (uint32_t v = 0; v < s.vector / 8; ++v) {
        const int32_t *x0 = s.x0 + 8 * v;
        int32_t x1[8];
        for (int m = 0; m < 8; ++m)
            x1[m] = x0[m] + 1;
        s.pair_registers[v] = window_registers(x0, x1, x0[0]);
        s.pick_registers[v] = window_registers(s.pick + 8 * v, s.pick + 8 * v, s.pick[8 * v]);
    }
}

// Elements rel_a and rel_b of the window at p, lane by lane.
template <int Registers, typename T>
inline void window_pair(const T *p, __m256i rel_a, __m256i rel_b, __m256i &a, __m256i &b)
{
    __m256i reg[Registers];
    load_window(reg, p);
    a = window_pick(reg, rel_a);
    b = window_pick(reg, rel_b);
}

template <typename T>
inline void window_pair(int32_t registers, const T *p, __m256i rel_a, __m256i rel_b, __m256i &a,
                        __m256i &b)
{
    switch (registers) {
    case 1: window_pair<1>(p, rel_a, rel_b, a, b); break;
    case 2: window_pair<2>(p, rel_a, rel_b, a, b); break;
    case 3: window_pair<3>(p, rel_a, rel_b, a, b); break;
    default: window_pair<4>(p, rel_a, rel_b, a, b); break;
    }
}

// A window of `registers` registers starting at element `base`, `readable`
// elements being readable from element 0.
inline bool window_fits(int32_t registers, int32_t base, size_t readable)
{
    return registers != 0 && size_t(base) + 8 * size_t(registers) <= readable;
}



// The neighbour pairs (S[x0], S[x0 + 1]) of eight columns, from one 32-bit
// gather per column: 16-bit samples are read as one pair.
inline void pairs8(const uint16_t *row, __m256i x0, __m256i &lo, __m256i &hi)
{
    const __m256i both = _mm256_i32gather_epi32(reinterpret_cast<const int *>(row), x0, 2);
    lo = _mm256_and_si256(both, _mm256_set1_epi32(0xFFFF));
    hi = _mm256_srli_epi32(both, 16);
}

// 8-bit samples: a 32-bit read at x0 takes x0 ... x0 + 3, so it is used only
// where x0 + 3 is still inside the source (`readable` elements from row).
inline void pairs8(const uint8_t *row, __m256i x0, __m256i &lo, __m256i &hi)
{
    const __m256i four = _mm256_i32gather_epi32(reinterpret_cast<const int *>(row), x0, 1);
    lo = _mm256_and_si256(four, _mm256_set1_epi32(0xFF));
    hi = _mm256_and_si256(_mm256_srli_epi32(four, 8), _mm256_set1_epi32(0xFF));
}

inline size_t wide_read_bytes(const uint16_t *)
{
    return 4; // two samples: never past x0 + 1
}
inline size_t wide_read_bytes(const uint8_t *)
{
    return 4; // four samples: up to x0 + 3
}

// H of one source row at every column of the strip. `readable` is the number
// of source elements from `row` to the end of the source.
template <typename T>
void horizontal_row(const strip &s, const T *row, size_t readable, uint32_t *h)
{
    const size_t samples_read = wide_read_bytes(row) / sizeof(T);
    for (uint32_t k = 0; k < s.vector; k += 8) {
        __m256i lo, hi;
        const int32_t registers = s.pair_registers[k / 8];
        if (window_fits(registers, s.x0[k], readable)) {
            const __m256i rel = _mm256_sub_epi32(load8(s.x0 + k), _mm256_set1_epi32(s.x0[k]));
            window_pair(registers, row + s.x0[k], rel, _mm256_add_epi32(rel, _mm256_set1_epi32(1)),
                        lo, hi);
        } else if (size_t(s.x0[k + 7]) + samples_read <= readable) {
            // The last column of the vector reads the most.
            pairs8(row, load8(s.x0 + k), lo, hi);
        } else {
            for (uint32_t m = k; m < k + 8; ++m)
                h[m] = uint32_t(row[s.x0[m]]) * uint32_t(s.wx0[m]) +
                       uint32_t(row[s.x0[m] + 1]) * uint32_t(s.wx1[m]);
            continue;
        }
        const __m256i sum = _mm256_add_epi32(_mm256_mullo_epi32(lo, load8(s.wx0 + k)),
                                             _mm256_mullo_epi32(hi, load8(s.wx1 + k)));
        _mm256_store_si256(reinterpret_cast<__m256i *>(h + k), sum);
    }
}

// Eight results (each below 2^16, or 2^8 for 8-bit samples) narrowed.
inline void store8(uint16_t *out, __m256i r)
{
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(r, r), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm256_castsi256_si128(packed));
}
inline void store8(uint8_t *out, __m256i r)
{
    const __m256i words = _mm256_permute4x64_epi64(_mm256_packus_epi32(r, r), 0x08);
    const __m128i bytes = _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_castsi256_si128(words));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(out), bytes);
}

// Eight results for dst[k * step], k = 0 ... 7, each lane extracted
// straight to its element (the elements between are not touched).
inline __m128i narrow8(uint16_t *, __m256i r)
{
    return _mm256_castsi256_si128(_mm256_permute4x64_epi64(_mm256_packus_epi32(r, r), 0x08));
}
inline __m128i narrow8(uint8_t *, __m256i r)
{
    const __m128i words = narrow8(static_cast<uint16_t *>(nullptr), r);
    return _mm_packus_epi16(words, words);
}
template <int M>
inline void put_lane(uint16_t *o, __m128i v)
{
    *o = uint16_t(_mm_extract_epi16(v, M));
}
template <int M>
inline void put_lane(uint8_t *o, __m128i v)
{
    *o = uint8_t(_mm_extract_epi8(v, M));
}
template <typename T>
inline void store8_strided(T *out, __m256i r, size_t step)
{
    const __m128i v = narrow8(out, r);
    put_lane<0>(out, v);
    put_lane<1>(out + step, v);
    put_lane<2>(out + 2 * step, v);
    put_lane<3>(out + 3 * step, v);
    put_lane<4>(out + 4 * step, v);
    put_lane<5>(out + 5 * step, v);
    put_lane<6>(out + 6 * step, v);
    put_lane<7>(out + 7 * step, v);
}

// Results r of outputs k ... k + 7 of a row whose n outputs go to
// out[0], out[dst_step], ...; only outputs below n are stored.
template <typename T>
inline void store_outputs(T *out, uint32_t k, uint32_t n, size_t dst_step, __m256i r)
{
    if (k + 8 <= n) {
        if (dst_step == 1)
            store8(out + k, r);
        else
            store8_strided(out + size_t(k) * dst_step, r, dst_step);
        return;
    }
    alignas(32) T tail[16];
    store8(tail, r);
    for (uint32_t m = 0; k + m < n; ++m)
        out[(k + m) * dst_step] = tail[m];
}

// With whole weights on both axes an output is one sample: the sum is
// S * 256 * 256, and (S * 65536 + 32768) >> 16 = S. Eight picks of one row;
// `readable` as in horizontal_row.
template <typename T>
void pick_row(const strip &s, const T *line, size_t readable, T *out, size_t dst_step)
{
    for (uint32_t k = 0; k < s.n; k += 8) {
        __m256i r;
        const int32_t registers = s.pick_registers[k / 8];
        if (window_fits(registers, s.pick[k], readable)) {
            const __m256i rel = _mm256_sub_epi32(load8(s.pick + k), _mm256_set1_epi32(s.pick[k]));
            __m256i unused;
            window_pair(registers, line + s.pick[k], rel, rel, r, unused);
        } else if (size_t(s.pick[k + 7]) + 4 / sizeof(T) <= readable) {
            const __m256i four = _mm256_i32gather_epi32(reinterpret_cast<const int *>(line),
                                                        load8(s.pick + k), int(sizeof(T)));
            r = _mm256_and_si256(four, _mm256_set1_epi32(sizeof(T) == 1 ? 0xFF : 0xFFFF));
        } else {
            for (uint32_t m = k; m < k + 8 && m < s.n; ++m)
                out[m * dst_step] = line[s.pick[m]];
            continue;
        }
        store_outputs(out, k, s.n, dst_step, r);
    }
}

// Halving with whole weights: positions that are multiples of 256 on both
// axes make every output the one sample at (pos_y >> 8, pos_x >> 8) (see
// pick_row), and a step of 512 takes every other sample of a row. Such rows
// are walked whole, row by row, the even samples of 32 bytes packed into
// the lanes. take_even returns the outputs of 2 * 32 / sizeof(T) samples.
inline __m256i take_even(const uint16_t *p)
{
    const __m256i mask = _mm256_set1_epi32(0xFFFF);
    const __m256i a = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)), mask);
    const __m256i b = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + 16)), mask);
    return _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), 0xD8);
}
inline __m256i take_even(const uint8_t *p)
{
    const __m256i mask = _mm256_set1_epi16(0xFF);
    const __m256i a = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)), mask);
    const __m256i b = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + 32)), mask);
    return _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
}

template <typename T>
bool halving_walk(const T *src, size_t src_stride, size_t src_elements, uint32_t x_start,
                  uint32_t x_step, uint32_t y_start, uint32_t y_step, T *dst, uint32_t dst_width,
                  uint32_t dst_height, size_t dst_step)
{
    if (x_step != 512 || (x_start & 255) != 0 || (y_step & 255) != 0 || (y_start & 255) != 0)
        return false;
    constexpr uint32_t per_vector = 32 / sizeof(T);
    uint32_t pos_y = y_start;
    for (uint32_t oy = 0; oy < dst_height; ++oy, pos_y += y_step) {
        const size_t offset = size_t(pos_y >> 8) * src_stride + (x_start >> 8);
        const T *line = src + offset;
        const size_t readable = src_elements - offset;
        T *out = dst + size_t(oy) * dst_width * dst_step;
        uint32_t ox = 0;
        // A vector reads 2 * per_vector samples from line + 2 * ox.
        for (; ox + per_vector <= dst_width && 2 * (size_t(ox) + per_vector) <= readable;
             ox += per_vector) {
            const __m256i r = take_even(line + 2 * size_t(ox));
            if (dst_step == 1) {
                _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + ox), r);
                continue;
            }
            alignas(32) T lanes[per_vector];
            _mm256_store_si256(reinterpret_cast<__m256i *>(lanes), r);
            T *o = out + size_t(ox) * dst_step;
            for (uint32_t m = 0; m < per_vector; ++m, o += dst_step)
                *o = lanes[m];
        }
        for (; ox < dst_width; ++ox)
            out[size_t(ox) * dst_step] = line[2 * size_t(ox)];
    }
    return true;
}

// Direct walk of the 8- and 16-bit members, row by row: every output from
// its own four samples (the same integer as the portable loop's, all
// products and sums below 2^32), with nothing shared between output rows.
// The column of each lane comes from its position x_start + ox * x_step (the
// accumulated step, exact in 32 bits) by the axis rule in vector form:
// lower = (max(pos, 1) - 1) >> 8 gives 0 for pos = 0, where the upper weight
// pos - (lower << 8) is then 0.
struct small_row_geometry {
    size_t readable; // elements readable from row1 on (row0 has more)
    uint32_t x_start;
    uint32_t x_step;
    uint32_t wy1;
};

template <typename T, int Registers>
inline __m256i small_direct8(const small_row_geometry &g, const T *row0, const T *row1,
                             __m256i pos)
{
    const __m256i one = _mm256_set1_epi32(1);
    const __m256i lower = _mm256_srli_epi32(_mm256_sub_epi32(_mm256_max_epu32(pos, one), one), 8);
    const __m256i wx1 = _mm256_sub_epi32(pos, _mm256_slli_epi32(lower, 8));
    const __m256i wx0 = _mm256_sub_epi32(_mm256_set1_epi32(256), wx1);
    const int32_t base = _mm256_cvtsi256_si32(lower);
    __m256i s00, s01, s10, s11;
    if (Registers != 0 && size_t(base) + 8 * size_t(Registers) <= g.readable) {
        constexpr int R = Registers == 0 ? 1 : Registers;
        const __m256i rel = _mm256_sub_epi32(lower, _mm256_set1_epi32(base));
        const __m256i rel1 = _mm256_add_epi32(rel, one);
        window_pair<R>(row0 + base, rel, rel1, s00, s01);
        window_pair<R>(row1 + base, rel, rel1, s10, s11);
    } else {
        alignas(32) int32_t x0[8], v[4][8];
        _mm256_store_si256(reinterpret_cast<__m256i *>(x0), lower);
        for (int m = 0; m < 8; ++m) {
            v[0][m] = row0[x0[m]];
            v[1][m] = row0[x0[m] + 1];
            v[2][m] = row1[x0[m]];
            v[3][m] = row1[x0[m] + 1];
        }
        s00 = load8(v[0]);
        s01 = load8(v[1]);
        s10 = load8(v[2]);
        s11 = load8(v[3]);
    }
    const __m256i h0 = _mm256_add_epi32(_mm256_mullo_epi32(s00, wx0), _mm256_mullo_epi32(s01, wx1));
    const __m256i h1 = _mm256_add_epi32(_mm256_mullo_epi32(s10, wx0), _mm256_mullo_epi32(s11, wx1));
    const __m256i sum = _mm256_add_epi32(_mm256_mullo_epi32(h1, _mm256_set1_epi32(int32_t(g.wy1))),
                                         _mm256_mullo_epi32(h0, _mm256_set1_epi32(int32_t(256 - g.wy1))));
    return _mm256_srli_epi32(_mm256_add_epi32(sum, _mm256_set1_epi32(32768)), 16);
}

template <typename T, int Registers>
void small_direct_row(const small_row_geometry &g, const T *row0, const T *row1, T *out,
                      uint32_t dst_width, size_t dst_step)
{
    const __m256i lanes = _mm256_mullo_epi32(lane_index(), _mm256_set1_epi32(int32_t(g.x_step)));
    for (uint32_t ox = 0; ox < dst_width; ox += 8) {
        __m256i pos = _mm256_add_epi32(_mm256_set1_epi32(int32_t(g.x_start + ox * g.x_step)), lanes);
        if (ox + 8 > dst_width) {
            // Lanes past the last column repeat it, so their reads stay inside.
            const __m256i last = _mm256_set1_epi32(int32_t(g.x_start + (dst_width - 1) * g.x_step));
            pos = _mm256_min_epu32(pos, last);
        }
        store_outputs(out, ox, dst_width, dst_step, small_direct8<T, Registers>(g, row0, row1, pos));
    }
}

template <typename T>
void small_direct_walk(const T *src, size_t src_stride, size_t src_elements, uint32_t x_start,
                       uint32_t x_step, uint32_t y_start, uint32_t y_step, T *dst,
                       uint32_t dst_width, uint32_t dst_height, size_t dst_step)
{
    // Eight consecutive columns span at most (7 * x_step >> 8) + 1 source
    // columns from the first lower index to the last, plus the upper one.
    const uint64_t span = ((7 * uint64_t(x_step)) >> 8) + 3;
    const int32_t registers = span > uint64_t(kWindowElements) ? 0 : window_registers(int32_t(span));
    small_row_geometry g;
    g.x_start = x_start;
    g.x_step = x_step;
    uint32_t pos_y = y_start;
    for (uint32_t oy = 0; oy < dst_height; ++oy, pos_y += y_step) {
        uint32_t y0;
        axis_rule(pos_y, y0, g.wy1);
        const T *row0 = src + size_t(y0) * src_stride;
        const T *row1 = row0 + src_stride;
        g.readable = src_elements - (size_t(y0) + 1) * src_stride;
        T *out = dst + size_t(oy) * dst_width * dst_step;
        switch (registers) {
        case 0: small_direct_row<T, 0>(g, row0, row1, out, dst_width, dst_step); break;
        case 1: small_direct_row<T, 1>(g, row0, row1, out, dst_width, dst_step); break;
        case 2: small_direct_row<T, 2>(g, row0, row1, out, dst_width, dst_step); break;
        case 3: small_direct_row<T, 3>(g, row0, row1, out, dst_width, dst_step); break;
        default: small_direct_row<T, 4>(g, row0, row1, out, dst_width, dst_step); break;
        }
    }
}

template <typename T>
void walk(const T *src, size_t src_stride, size_t src_elements, uint32_t x_start, uint32_t x_step,
          uint32_t y_start, uint32_t y_step, T *dst, uint32_t dst_width, uint32_t dst_height,
          size_t dst_step)
{
    if (halving_walk(src, src_stride, src_elements, x_start, x_step, y_start, y_step, dst,
                     dst_width, dst_height, dst_step))
        return;
    // 16-bit samples: whole weights on every column keep the strips (their
    // rows are picks); otherwise strong enlargements (more than four output
    // rows per source row) share the horizontal sums of a source row, and
    // the rest take the direct walk. 8-bit samples keep the strips: there
    // the shared sums measured faster, the samples being cheap to stream.
    if (sizeof(T) == 2 && ((x_step | x_start) & 255) != 0 && y_step >= 64) {
        small_direct_walk(src, src_stride, src_elements, x_start, x_step, y_start, y_step, dst,
                          dst_width, dst_height, dst_step);
        return;
    }
    strip s;
    for (uint32_t ox0 = 0; ox0 < dst_width; ox0 += s.n) {
        plan_strip(s, ox0, dst_width - ox0, x_start, x_step);
        uint32_t pos_y = y_start;
        for (uint32_t oy = 0; oy < dst_height; ++oy, pos_y += y_step) {
            uint32_t y0, wy1;
            axis_rule(pos_y, y0, wy1);
            if (s.whole_weights && (wy1 == 0 || wy1 == 256)) {
                const size_t offset = size_t(y0 + (wy1 == 256 ? 1 : 0)) * src_stride;
                pick_row(s, src + offset, src_elements - offset,
                         dst + (size_t(oy) * dst_width + ox0) * dst_step, dst_step);
                continue;
            }
            const uint32_t *h[2];
            for (uint32_t r = 0; r < 2; ++r) {
                const uint32_t row = y0 + r;
                uint32_t *slot = s.h[row & 1];
                if (s.row[row & 1] != row) {
                    const size_t offset = size_t(row) * src_stride;
                    horizontal_row(s, src + offset, src_elements - offset, slot);
                    s.row[row & 1] = row;
                }
                h[r] = slot;
            }
            const __m256i w0 = _mm256_set1_epi32(int32_t(256 - wy1));
            const __m256i w1 = _mm256_set1_epi32(int32_t(wy1));
            const __m256i half = _mm256_set1_epi32(32768);
            T *out = dst + (size_t(oy) * dst_width + ox0) * dst_step;
            for (uint32_t k = 0; k < s.n; k += 8) {
                const __m256i h0 = _mm256_load_si256(reinterpret_cast<const __m256i *>(h[0] + k));
                const __m256i h1 = _mm256_load_si256(reinterpret_cast<const __m256i *>(h[1] + k));
                const __m256i sum = _mm256_add_epi32(_mm256_mullo_epi32(h0, w0), _mm256_mullo_epi32(h1, w1));
                const __m256i r = _mm256_srli_epi32(_mm256_add_epi32(sum, half), 16);
                store_outputs(out, k, s.n, dst_step, r);
            }
        }
    }
}

} // namespace

void bilinear_walk_x86_64_v3(const uint8_t *src, size_t src_stride, size_t src_elements,
                             uint32_t x_start, uint32_t x_step, uint32_t y_start, uint32_t y_step,
                             uint8_t *dst, uint32_t dst_width, uint32_t dst_height, size_t dst_step)
{
    walk(src, src_stride, src_elements, x_start, x_step, y_start, y_step, dst, dst_width,
         dst_height, dst_step);
}

void bilinear_walk_x86_64_v3(const uint16_t *src, size_t src_stride, size_t src_elements,
                             uint32_t x_start, uint32_t x_step, uint32_t y_start, uint32_t y_step,
                             uint16_t *dst, uint32_t dst_width, uint32_t dst_height,
                             size_t dst_step)
{
    walk(src, src_stride, src_elements, x_start, x_step, y_start, y_step, dst, dst_width,
         dst_height, dst_step);
}

namespace {

// The 32-bit members (F = 12): sums in 64-bit integers (AVX2 multiplies 32
// by 32 bits into 64), of which bits 24 ... 55 after adding 2^23 are stored.
inline void axis_rule12(uint32_t pos, uint32_t &lower, uint32_t &upper_weight)
{
    lower = pos == 0 ? 0 : (pos - 1) >> 12;
    upper_weight = pos - (lower << 12);
}

// Signed (int32 samples) or unsigned (uint32) 32 x 32 -> 64-bit products of
// the low halves of each 64-bit lane.
template <bool Signed>
inline __m256i mul32x32(__m256i a, __m256i b)
{
    return Signed ? _mm256_mul_epi32(a, b) : _mm256_mul_epu32(a, b);
}

// A 64-bit value times a weight below 2^13, modulo 2^64.
inline __m256i mul64_by_weight(__m256i h, __m256i w)
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

// Halving columns (relative lower indices 0, 2, ..., 14, upper ones one
// more): the even and odd elements of the sixteen at p, in lane order.
inline void even_odd16(const void *p, __m256i &even, __m256i &odd)
{
    const __m256 a = _mm256_loadu_ps(static_cast<const float *>(p));
    const __m256 b = _mm256_loadu_ps(static_cast<const float *>(p) + 8);
    even = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(a, b, 0x88)), 0xD8);
    odd = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(a, b, 0xDD)), 0xD8);
}

inline bool halving_lanes(__m256i rel0, __m256i rel1)
{
    const __m256i twice = _mm256_add_epi32(lane_index(), lane_index());
    const __m256i same = _mm256_and_si256(
        _mm256_cmpeq_epi32(rel0, twice),
        _mm256_cmpeq_epi32(rel1, _mm256_add_epi32(twice, _mm256_set1_epi32(1))));
    return _mm256_movemask_epi8(same) == -1;
}

// Samples S[y0][x0], S[y0][x0 + 1], S[y1][x0], S[y1][x0 + 1] of eight lanes
// from their lower indices; `Registers` the window over x0[0] ... x0[7] + 1
// where it fits (0: always gather).
template <int Registers>
inline void wide_samples8(const wide_row_geometry &g, __m256i lower, __m256i &s00, __m256i &s01,
                          __m256i &s10, __m256i &s11)
{
    const __m256i one = _mm256_set1_epi32(1);
    const int32_t base = _mm256_cvtsi256_si32(lower);
    if (Registers != 0 && size_t(base) + 8 * size_t(Registers) <= g.readable) {
        constexpr int R = Registers == 0 ? 1 : Registers;
        constexpr int Fewer = R > 1 ? R - 1 : 1;
        const __m256i rel = _mm256_sub_epi32(lower, _mm256_set1_epi32(base));
        const __m256i rel1 = _mm256_add_epi32(rel, one);
        // The bound on the span is for the worst vector; most need a
        // register less (the last lane's upper sample decides).
        if (R > 1 && halving_lanes(rel, rel1)) {
            even_odd16(g.row0 + base, s00, s01);
            even_odd16(g.row1 + base, s10, s11);
        } else if (R > 1 && _mm256_extract_epi32(rel1, 7) < 8 * Fewer) {
            window_pair<Fewer>(g.row0 + base, rel, rel1, s00, s01);
            window_pair<Fewer>(g.row1 + base, rel, rel1, s10, s11);
        } else {
            window_pair<R>(g.row0 + base, rel, rel1, s00, s01);
            window_pair<R>(g.row1 + base, rel, rel1, s10, s11);
        }
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
inline __m256i wide_direct8(const wide_row_geometry &g, __m256i pos)
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
        wide_row_geometry g;
        g.row0 = src + size_t(y0) * src_stride;
        g.row1 = g.row0 + src_stride;
        g.readable = src_elements - (size_t(y0) + 1) * src_stride;
        g.x_step = x_step;
        g.wy1 = wy1;
        g.ahead = 0;
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
        wide_row_geometry g;
        g.row0 = src + size_t(y0) * src_stride;
        g.row1 = g.row0 + src_stride;
        g.readable = src_elements - (size_t(y0) + 1) * src_stride;
        g.x_step = x_step;
        g.wy1 = wy1;
        g.ahead = 0;
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

// Float member. Reductions: every output from its own four samples, row by
// row (whole rows keep the hardware prefetcher streaming). The column of each lane is
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
inline void float_products8(const float_row_geometry &g, __m256i j, float_products &p)
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
        constexpr int Fewer = R > 1 ? R - 1 : 1;
        const __m256i b = _mm256_set1_epi32(base);
        const __m256i rel0 = _mm256_sub_epi32(i0, b), rel1 = _mm256_sub_epi32(i1, b);
        __m256i a, c, d, e;
        // As in wide_samples8: halvings, and most vectors need a register
        // less than the bound.
        if (R > 1 && halving_lanes(rel0, rel1)) {
            even_odd16(g.row0 + base, a, c);
            even_odd16(g.row1 + base, d, e);
        } else if (R > 1 && _mm256_extract_epi32(rel1, 7) < 8 * Fewer) {
            window_pair<Fewer>(g.row0 + base, rel0, rel1, a, c);
            window_pair<Fewer>(g.row1 + base, rel0, rel1, d, e);
        } else {
            window_pair<R>(g.row0 + base, rel0, rel1, a, c);
            window_pair<R>(g.row1 + base, rel0, rel1, d, e);
        }
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
inline __m256 float_combine(const float_products &p, float fy_scalar)
{
    const __m256 fy = _mm256_set1_ps(fy_scalar);
    const __m256 gy = _mm256_set1_ps(1.0f - fy_scalar);
    const __m256 inner = _mm256_mul_ps(p.p01, gy);
    const __m256 low = _mm256_fmadd_ps(p.p00, gy, inner);
    const __m256 mid = _mm256_fmadd_ps(p.p10, fy, low);
    return _mm256_fmadd_ps(p.p11, fy, mid);
}

template <int Registers>
inline __m256 float_direct8(const float_row_geometry &g, __m256i j)
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
            const size_t at = 4 * (g.ahead + size_t(float(k) * g.scale_x));
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
