// x86-64-v3 loops of the bilinear 2-D array resize, 8- and 16-bit members
// (F = 8).
//
// The weighted sum of the four neighbours is an exact integer below 2^32, so
// it may be formed in any order in 32-bit lanes; each walk below says how it
// forms it. The result is rounded and stored as the portable loop does.
// The walks, chosen by the shape of the resize:
// - halving with whole weights: rows of picks, packed;
// - whole weights with other column steps of up to eight samples: rows of
//   picks moved into place by byte shuffles;
// - rows (x steps up to 512, some weight fractional; for 16-bit samples
//   only with one to four output rows per source row): whole output rows in
//   order, from horizontal sums kept for the two source rows in use, each
//   pair of samples from one load and a byte shuffle (8-bit samples: 16-bit
//   products; 16-bit samples: a signed 16-bit multiply-add);
// - direct, row by row (the other 16-bit shapes with some weight
//   fractional and at most four output rows per source row): every output
//   from its own four samples, the columns computed in vector form;
// - strips (the rest): per-column tables and per-source-row horizontal sums
//   in bounded stack buffers, shared by the output rows that read that
//   source row.
// None allocates. Where the samples of eight columns lie within a few
// registers of a row they are loaded whole and permuted into the lanes;
// elsewhere they are gathered (or read one by one near the end of the
// source); 8-bit strips whose columns lie within sixteen bytes per eight
// columns spread those bytes into 16-bit lanes with byte shuffles instead.
// All hand every lane the same sample. No inline function with
// external linkage is called from here (see bicubic_math.h for why).
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "bilinear_lanes_x86_64_v3.h"
#include "resample_x86_64_v3.h"
#include "window_x86_64_v3.h"

namespace {

// Output columns per strip of the 8- and 16-bit walk: wide enough that most
// rows are walked in a few strips (the memory walk of narrow strips costs
// more than their computation), narrow enough for the strip tables to stay
// within about 30 KiB of stack.
constexpr uint32_t kStripColumns = 1024;


// Lower index and upper weight of fixed-point position pos (F = 8): pos 0
// takes the pair (0, 1) with weight 0 on 1; otherwise lower = (pos - 1) >> 8.
inline void axis_rule(uint32_t pos, uint32_t &lower, uint32_t &upper_weight)
{
    lower = pos == 0 ? 0 : (pos - 1) >> 8;
    upper_weight = pos - (lower << 8);
}

// The horizontal sums of source rows y0 and y0 + 1 for one output row, in
// h[0] and h[1]. The walks keep each source row's sums in slot row & 1
// (slots[0], slots[1]), `kept` naming the row a slot holds (-1: none), so a
// row's sums are formed once, by fill(row, slot), for all the output rows
// that read it.
template <typename H, typename Fill>
EJ_BILINEAR_INLINE void row_pair_sums(H *const (&slots)[2], int64_t (&kept)[2], uint32_t y0,
                                      const H *(&h)[2], Fill fill)
{
    for (uint32_t r = 0; r < 2; ++r) {
        const uint32_t row = y0 + r;
        H *slot = slots[row & 1];
        if (kept[row & 1] != row) {
            fill(row, slot);
            kept[row & 1] = row;
        }
        h[r] = slot;
    }
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
    // 8-bit samples, sixteen columns per vector (see bytes_h16): byte k of
    // column k's 16-bit lane (the first of the pair) is the index of S[x0]
    // among the sixteen bytes read for its half of the vector (0x80, which
    // zeroes, for the second); wx1 in 16 bits; whether the columns of the
    // vector fit in those bytes.
    alignas(32) int8_t shuffle[2 * kStripColumns];
    alignas(32) int16_t wx1_16[kStripColumns];
    bool bytes_fit[kStripColumns / 16];
    bool whole_weights;
    int64_t row[2];
    uint32_t n;      // columns in the strip
    uint32_t vector; // n rounded up to whole vectors
};

static_assert(sizeof(strip) <= 30 * 1024, "the strip tables live on the stack");

void plan_strip(strip &s, uint32_t ox0, uint32_t columns_left, uint32_t x_start, uint32_t x_step)
{
    s.n = min_u32(kStripColumns, columns_left);
    s.vector = (s.n + 15) & ~15u;
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
    for (uint32_t v = 0; v < s.vector / 16; ++v) {
        bool fit = true;
        for (uint32_t m = 0; m < 16; ++m) {
            const uint32_t k = 16 * v + m;
            const int32_t rel = s.x0[k] - s.x0[16 * v + (m & 8)];
            fit = fit && rel + 1 < 16;
            s.shuffle[2 * k] = int8_t(rel + 1 < 16 ? rel : 0);
            s.shuffle[2 * k + 1] = int8_t(0x80);
            s.wx1_16[k] = int16_t(s.wx1[k]);
        }
        s.bytes_fit[v] = fit;
    }
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

// Stores H of columns k ... k + 7: 16-bit samples as 32-bit values; 8-bit
// samples, whose H is at most 255 * 256, as H - 32768 in 16 bits (the
// element k of the row's slot seen as 16-bit lanes), for vertical_u8.
inline void put_h8(const uint16_t *, uint32_t *h, uint32_t k, __m256i sum)
{
    _mm256_store_si256(reinterpret_cast<__m256i *>(h + k), sum);
}
inline void put_h8(const uint8_t *, uint32_t *h, uint32_t k, __m256i sum)
{
    const __m256i biased = _mm256_sub_epi32(sum, _mm256_set1_epi32(32768));
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(biased, biased), 0x08);
    _mm_store_si128(reinterpret_cast<__m128i *>(h) + k / 8, _mm256_castsi256_si128(packed));
}

// H of one source row at columns k ... k + 7. `readable` is the number of
// source elements from `row` to the end of the source.
template <typename T>
inline void horizontal8(const strip &s, const T *row, size_t readable, uint32_t *h, uint32_t k)
{
    const size_t samples_read = wide_read_bytes(row) / sizeof(T);
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
        alignas(32) int32_t v[8];
        for (uint32_t m = 0; m < 8; ++m)
            v[m] = int32_t(uint32_t(row[s.x0[k + m]]) * uint32_t(s.wx0[k + m]) +
                           uint32_t(row[s.x0[k + m] + 1]) * uint32_t(s.wx1[k + m]));
        put_h8(row, h, k, load8(v));
        return;
    }
    const __m256i sum = _mm256_add_epi32(_mm256_mullo_epi32(lo, load8(s.wx0 + k)),
                                         _mm256_mullo_epi32(hi, load8(s.wx1 + k)));
    put_h8(row, h, k, sum);
}

// 8-bit samples, columns k ... k + 15 whose halves each lie within sixteen
// bytes from their first lower index (both readable): the bytes are spread
// into 16-bit lanes by the strip's shuffles (the upper sample's index is one
// more, and 0x80 + 1 still zeroes). H = S[x0] * wx0 + S[x0 + 1] * wx1 is at
// most 255 * 256, so the 16-bit products and their sum, taken modulo 2^16,
// are exact; H - 32768 is H with its top bit flipped, stored as put_h8 does.
inline void bytes_h16_at(const uint8_t *row, int32_t base0, int32_t base1, const int8_t *shuffles,
                         const int16_t *wx1s, void *h)
{
    const __m256i bytes = _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(row + base0))),
        _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + base1)), 1);
    const __m256i shuffle = _mm256_load_si256(reinterpret_cast<const __m256i *>(shuffles));
    const __m256i lo = _mm256_shuffle_epi8(bytes, shuffle);
    const __m256i hi = _mm256_shuffle_epi8(bytes, _mm256_add_epi8(shuffle, _mm256_set1_epi8(1)));
    const __m256i wx1 = _mm256_load_si256(reinterpret_cast<const __m256i *>(wx1s));
    const __m256i wx0 = _mm256_sub_epi16(_mm256_set1_epi16(256), wx1);
    const __m256i sum = _mm256_add_epi16(_mm256_mullo_epi16(lo, wx0), _mm256_mullo_epi16(hi, wx1));
    _mm256_store_si256(reinterpret_cast<__m256i *>(h), _mm256_xor_si256(sum, _mm256_set1_epi16(int16_t(0x8000))));
}

inline void bytes_h16(const strip &s, const uint8_t *row, uint32_t *h, uint32_t k)
{
    bytes_h16_at(row, s.x0[k], s.x0[k + 8], s.shuffle + 2 * k, s.wx1_16 + k,
                 reinterpret_cast<__m256i *>(h) + k / 16);
}

// H of one source row at every column of the strip; `readable` as above.
template <typename T>
void horizontal_row(const strip &s, const T *row, size_t readable, uint32_t *h)
{
    for (uint32_t k = 0; k < s.vector; k += 16) {
        if constexpr (sizeof(T) == 1) {
            if (s.bytes_fit[k / 16] && size_t(s.x0[k + 8]) + 16 <= readable) {
                bytes_h16(s, row, h, k);
                continue;
            }
        }
        horizontal8(s, row, readable, h, k);
        horizontal8(s, row, readable, h, k + 8);
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

// Lanes M ... N - 1 of v (sixteen 8-bit or eight 16-bit results) for
// out[m * step].
template <int M, int N, typename T>
inline void put_lanes(T *out, __m128i v, size_t step)
{
    put_lane<M>(out + M * step, v);
    if constexpr (M + 1 < N)
        put_lanes<M + 1, N>(out, v, step);
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

// The vertical step of the strip walk for 8-bit samples, sixteen columns
// per vector: with H' = H - 32768 (16-bit, see put_h8) one multiply-add of
// the pairs (H'(y0), H'(y1)) by (wy0, wy1) gives X' = X - 32768 * 256 where
// X = H(y0) * wy0 + H(y1) * wy1 (all terms below 2^24 in magnitude), so
// out = (X' + 2^23 + 2^15) >> 16, the same integer.
inline void vertical_u8(uint32_t n, const void *h0, const void *h1, uint32_t wy1, uint8_t *out,
                        size_t dst_step)
{
    const __m256i w = _mm256_set1_epi32(int32_t((wy1 << 16) | (256 - wy1)));
    const __m256i bias = _mm256_set1_epi32((1 << 23) + 32768);
    const __m256i *a = reinterpret_cast<const __m256i *>(h0);
    const __m256i *b = reinterpret_cast<const __m256i *>(h1);
    for (uint32_t k = 0; k < n; k += 16) {
        // Sixteen 16-bit H' of columns k ... k + 15 per row.
        const __m256i p0 = _mm256_load_si256(a + k / 16);
        const __m256i p1 = _mm256_load_si256(b + k / 16);
        // Per 128-bit half: columns 0-3 (low) and 4-7 (high) of that half.
        const __m256i low = _mm256_madd_epi16(_mm256_unpacklo_epi16(p0, p1), w);
        const __m256i high = _mm256_madd_epi16(_mm256_unpackhi_epi16(p0, p1), w);
        const __m256i words = _mm256_packus_epi32(_mm256_srli_epi32(_mm256_add_epi32(low, bias), 16),
                                                  _mm256_srli_epi32(_mm256_add_epi32(high, bias), 16));
        const __m128i v = _mm256_castsi256_si128(
            _mm256_permute4x64_epi64(_mm256_packus_epi16(words, words), 0x08));
        if (k + 16 <= n) {
            if (dst_step == 1)
                _mm_storeu_si128(reinterpret_cast<__m128i *>(out + k), v);
            else
                put_lanes<0, 16>(out + size_t(k) * dst_step, v, dst_step);
            continue;
        }
        alignas(16) uint8_t tail[16];
        _mm_store_si128(reinterpret_cast<__m128i *>(tail), v);
        for (uint32_t m = 0; k + m < n; ++m)
            out[(k + m) * dst_step] = tail[m];
    }
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
            constexpr int half = int(per_vector / 2);
            T *o = out + size_t(ox) * dst_step;
            put_lanes<0, half>(o, _mm256_castsi256_si128(r), dst_step);
            put_lanes<0, half>(o + half * dst_step, _mm256_extracti128_si256(r, 1), dst_step);
        }
        for (; ox < dst_width; ++ox)
            out[size_t(ox) * dst_step] = line[2 * size_t(ox)];
    }
    return true;
}

// Whole weights with a column step of k whole samples (x_step = 256 k, k <=
// 8): every output is the sample at (pos_y >> 8, pos_x >> 8) (see pick_row),
// so a row's outputs are every k-th sample from its first pick. Rows are
// walked whole, in order; sixteen bytes of output (sixteen 8-bit or eight
// 16-bit samples) come from the k vectors of sixteen bytes they span, each
// byte moved into place by a shuffle (bytes of other vectors zeroed) and the
// k results combined.
constexpr uint32_t kMaxPickStride = 8;

template <typename T>
bool pick_walk(const T *src, size_t src_stride, size_t src_elements, uint32_t x_start,
               uint32_t x_step, uint32_t y_start, uint32_t y_step, T *dst, uint32_t dst_width,
               uint32_t dst_height, size_t dst_step)
{
    if (((x_step | x_start | y_step | y_start) & 255) != 0)
        return false;
    const uint32_t k = x_step >> 8;
    if (k == 0 || k > kMaxPickStride)
        return false;
    constexpr uint32_t per_vector = 16 / sizeof(T);
    // shuffles[v]: byte b of the output takes byte b + k * (b - b % size) - 16 v
    // of vector v, when that lies in it.
    alignas(16) int8_t shuffles[kMaxPickStride][16];
    for (uint32_t v = 0; v < k; ++v) {
        for (uint32_t b = 0; b < 16; ++b) {
            const int32_t at = int32_t(k * (b - b % sizeof(T)) + b % sizeof(T)) - int32_t(16 * v);
            shuffles[v][b] = at >= 0 && at < 16 ? int8_t(at) : int8_t(0x80);
        }
    }
    uint32_t pos_y = y_start;
    for (uint32_t oy = 0; oy < dst_height; ++oy, pos_y += y_step) {
        const size_t offset = size_t(pos_y >> 8) * src_stride + (x_start >> 8);
        const T *line = src + offset;
        const size_t readable = src_elements - offset;
        T *out = dst + size_t(oy) * dst_width * dst_step;
        uint32_t ox = 0;
        // A vector of outputs reads k * 16 bytes from line + ox * k.
        for (; ox + per_vector <= dst_width && size_t(ox + per_vector) * k <= readable; ox += per_vector) {
            const uint8_t *from = reinterpret_cast<const uint8_t *>(line + size_t(ox) * k);
            __m128i r = _mm_setzero_si128();
            for (uint32_t v = 0; v < k; ++v)
                r = _mm_or_si128(r, _mm_shuffle_epi8(
                                        _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + 16 * v)),
                                        _mm_load_si128(reinterpret_cast<const __m128i *>(shuffles[v]))));
            if (dst_step == 1)
                _mm_storeu_si128(reinterpret_cast<__m128i *>(out + ox), r);
            else
                put_lanes<0, per_vector>(out + size_t(ox) * dst_step, r, dst_step);
        }
        for (; ox < dst_width; ++ox)
            out[size_t(ox) * dst_step] = line[size_t(ox) * k];
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
EJ_BILINEAR_INLINE __m256i small_direct8(const small_row_geometry &g, const T *row0, const T *row1,
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

// Row walk of the 16-bit members for x steps up to 512: output rows are
// written whole, in order (rows cut into strips measured far slower: the
// short runs of every row defeat the prefetchers), from horizontal sums
// kept for the two source rows in use. A lane's pair (S[x0], S[x0 + 1]) is
// one 32-bit unit of the row at x0; with x_step <= 512 the four lanes of a
// half vector have lower indices at most six apart (3 * 512 / 256), so one
// load of eight samples from the half's first lower index holds all four
// pairs, which a byte shuffle moves into the lanes. Flipping each sample's
// top bit (S - 32768) makes them signed, and the signed multiply-add by
// (wx0, wx1) then gives H' = H - 2^23 exactly (wx0 + wx1 = 256). Per output
// row, X' = H'(y0) * wy0 + H'(y1) * wy1 = X - 2^31 is exact modulo 2^32 and
// X + 2^15 < 2^32, so adding 2^31 + 2^15 and shifting by 16 gives the
// portable loop's result.
constexpr uint32_t kPairColumns = 4096; // the sums of two rows: 32 KiB of stack

struct pair_rows {
    alignas(32) int32_t h[2][kPairColumns]; // H' of source row `row[s]`, slot s = row & 1
    int64_t row[2];
};

// H' of eight columns of one source row, given their lower indices and
// upper weights and the lower indices of lanes 0 and 4; `readable` is the
// number of elements from `row` to the end of the source.
EJ_BILINEAR_INLINE __m256i pair_sums8(const uint16_t *row, size_t readable, __m256i lower, __m256i wx1,
                                     int32_t base_lo, int32_t base_hi)
{
    if (size_t(base_hi) + 8 <= readable) {
        const __m256i w01 = _mm256_or_si256(_mm256_sub_epi32(_mm256_set1_epi32(256), wx1),
                                            _mm256_slli_epi32(wx1, 16));
        // Byte b of lane m: 2 * rel + b, rel = lower[m] - lower[first lane of the half].
        const __m256i halves = _mm256_setr_epi32(0, 0, 0, 0, 4, 4, 4, 4);
        const __m256i rel = _mm256_sub_epi32(lower, _mm256_permutevar8x32_epi32(lower, halves));
        const __m256i shuffle = _mm256_add_epi32(_mm256_mullo_epi32(rel, _mm256_set1_epi32(0x02020202)),
                                                 _mm256_set1_epi32(0x03020100));
        const __m256i samples = _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(row + base_lo))),
            _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + base_hi)), 1);
        const __m256i pairs = _mm256_xor_si256(_mm256_shuffle_epi8(samples, shuffle),
                                               _mm256_set1_epi16(int16_t(0x8000)));
        return _mm256_madd_epi16(pairs, w01);
    }
    // Near the end of the source: the same H' from the samples one by one.
    alignas(32) int32_t x0[8], w1[8], v[8];
    _mm256_store_si256(reinterpret_cast<__m256i *>(x0), lower);
    _mm256_store_si256(reinterpret_cast<__m256i *>(w1), wx1);
    for (int m = 0; m < 8; ++m)
        v[m] = (int32_t(row[x0[m]]) - 32768) * (256 - w1[m]) + (int32_t(row[x0[m] + 1]) - 32768) * w1[m];
    return load8(v);
}

// Calls f(k, lower, wx1, base_lo, base_hi) for the columns ox0 + k ... ox0
// + k + 7, k = 0, 8, ... below n (lanes past the last column repeat it, so
// their reads stay inside).
template <typename F>
EJ_BILINEAR_INLINE void for_each_column8(uint32_t ox0, uint32_t n, uint32_t dst_width, uint32_t x_start,
                                        uint32_t x_step, F f)
{
    const __m256i one = _mm256_set1_epi32(1);
    const __m256i last = _mm256_set1_epi32(int32_t(dst_width - 1));
    // Positions advance by the step (exact: every stored column's position
    // is below 2^32); the last vector of the row takes its lanes' columns
    // clamped to the last one, so that nothing past the end can wrap.
    const __m256i advance = _mm256_set1_epi32(int32_t(8 * x_step));
    __m256i next = _mm256_add_epi32(_mm256_set1_epi32(int32_t(x_start + ox0 * x_step)),
                                    _mm256_mullo_epi32(lane_index(), _mm256_set1_epi32(int32_t(x_step))));
    for (uint32_t k = 0; k < n; k += 8, next = _mm256_add_epi32(next, advance)) {
        const uint32_t ox = ox0 + k;
        __m256i pos = next;
        if (ox + 8 > dst_width) {
            const __m256i column = _mm256_min_epu32(_mm256_add_epi32(_mm256_set1_epi32(int32_t(ox)), lane_index()), last);
            pos = _mm256_add_epi32(_mm256_set1_epi32(int32_t(x_start)),
                                   _mm256_mullo_epi32(column, _mm256_set1_epi32(int32_t(x_step))));
        }
        // lower = (max(pos, 1) - 1) >> 8 is 0 for pos = 0, whose weight is then 0.
        const __m256i lower = _mm256_srli_epi32(_mm256_sub_epi32(_mm256_max_epu32(pos, one), one), 8);
        const __m256i wx1 = _mm256_sub_epi32(pos, _mm256_slli_epi32(lower, 8));
        const int32_t base_lo = _mm256_cvtsi256_si32(lower);
        const int32_t base_hi = _mm256_cvtsi256_si32(_mm256_permutevar8x32_epi32(lower, _mm256_set1_epi32(4)));
        f(k, lower, wx1, base_lo, base_hi);
    }
}

// The rounded result of X' = H'(y0) * wy0 + H'(y1) * wy1 (see above).
EJ_BILINEAR_INLINE __m256i pair_vertical8(__m256i h0, __m256i h1, __m256i wy0, __m256i wy1)
{
    const __m256i x = _mm256_add_epi32(_mm256_mullo_epi32(h0, wy0), _mm256_mullo_epi32(h1, wy1));
    return _mm256_srli_epi32(_mm256_add_epi32(x, _mm256_set1_epi32(int32_t(0x80008000u))), 16); // + 2^31 + 2^15
}

bool pair_row_walk(const uint16_t *src, size_t src_stride, size_t src_elements, uint32_t x_start,
                   uint32_t x_step, uint32_t y_start, uint32_t y_step, uint16_t *dst,
                   uint32_t dst_width, uint32_t dst_height, size_t dst_step)
{
    if (x_step > 512 || y_step >= 256)
        return false;
    pair_rows p;
    for (uint32_t ox0 = 0; ox0 < dst_width; ox0 += kPairColumns) {
        const uint32_t n = min_u32(kPairColumns, dst_width - ox0);
        p.row[0] = p.row[1] = -1;
        uint32_t pos_y = y_start;
        for (uint32_t oy = 0; oy < dst_height; ++oy, pos_y += y_step) {
            uint32_t y0, wy1;
            axis_rule(pos_y, y0, wy1);
            const int32_t *h[2];
            int32_t *const slots[2] = {p.h[0], p.h[1]};
            row_pair_sums(slots, p.row, y0, h, [&](uint32_t row, int32_t *slot) {
                const size_t offset = size_t(row) * src_stride;
                const uint16_t *line = src + offset;
                const size_t readable = src_elements - offset;
                for_each_column8(ox0, n, dst_width, x_start, x_step,
                                 [&](uint32_t k, __m256i lower, __m256i wx1, int32_t lo, int32_t hi) {
                    _mm256_store_si256(reinterpret_cast<__m256i *>(slot + k),
                                       pair_sums8(line, readable, lower, wx1, lo, hi));
                });
            });
            const __m256i w0 = _mm256_set1_epi32(int32_t(256 - wy1));
            const __m256i w1 = _mm256_set1_epi32(int32_t(wy1));
            uint16_t *out = dst + (size_t(oy) * dst_width + ox0) * dst_step;
            for (uint32_t k = 0; k < n; k += 8) {
                const __m256i h0 = _mm256_load_si256(reinterpret_cast<const __m256i *>(h[0] + k));
                const __m256i h1 = _mm256_load_si256(reinterpret_cast<const __m256i *>(h[1] + k));
                store_outputs(out, k, n, dst_step, pair_vertical8(h0, h1, w0, w1));
            }
        }
    }
    return true;
}

// Row walk of the 8-bit members for x steps up to 512: output rows are
// written whole, in order (narrow strips measured far slower: the short
// runs of every row defeat the prefetchers), from the 16-bit horizontal sums
// of the two source rows in use (bytes_h16_at, vertical_u8). With x_step <=
// 512 the eight columns of a half vector have lower indices at most fourteen
// apart (7 * 512 / 256), so every pair lies within the sixteen bytes read
// from the half's first lower index. The tables are those of the strips in
// their 16-bit form only, so that a whole 4K row fits in about 34 KiB.
constexpr uint32_t kByteColumns = 4096;

struct byte_rows {
    alignas(32) int8_t shuffle[2 * kByteColumns]; // as strip::shuffle
    alignas(32) int16_t wx1[kByteColumns];
    alignas(32) int16_t h[2][kByteColumns]; // H' of source row `row[s]`, slot s = row & 1
    int32_t base[kByteColumns / 8];         // lower index of columns 8j
    int64_t row[2];
};

static_assert(sizeof(byte_rows) <= 36 * 1024, "the row tables live on the stack");

// Tables of columns ox0 ... ox0 + n - 1; the columns up to the next multiple
// of sixteen repeat the last one, so their reads stay inside.
void plan_byte_rows(byte_rows &b, uint32_t ox0, uint32_t n, uint32_t x_start, uint32_t x_step)
{
    const uint32_t vector = (n + 15) & ~15u;
    for (uint32_t k = 0; k < vector; ++k) {
        uint32_t lower, weight;
        axis_rule(x_start + (ox0 + min_u32(k, n - 1)) * x_step, lower, weight);
        if (k % 8 == 0)
            b.base[k / 8] = int32_t(lower);
        b.shuffle[2 * k] = int8_t(int32_t(lower) - b.base[k / 8]);
        b.shuffle[2 * k + 1] = int8_t(0x80);
        b.wx1[k] = int16_t(weight);
    }
    b.row[0] = b.row[1] = -1;
}

// H' of one source row; `readable` elements from `row` to the end of the
// source. Vectors whose second half would read past it take the samples one
// by one (the same H', H - 32768 modulo 2^16).
void byte_row_sums(const byte_rows &b, uint32_t n, const uint8_t *row, size_t readable, int16_t *h)
{
    for (uint32_t k = 0; k < n; k += 16) {
        if (size_t(b.base[k / 8 + 1]) + 16 <= readable) {
            bytes_h16_at(row, b.base[k / 8], b.base[k / 8 + 1], b.shuffle + 2 * k, b.wx1 + k, h + k);
            continue;
        }
        for (uint32_t m = k; m < k + 16; ++m) {
            const int32_t x0 = b.base[m / 8] + b.shuffle[2 * m];
            const int32_t w = b.wx1[m];
            h[m] = int16_t(uint16_t((row[x0] * (256 - w) + row[x0 + 1] * w) ^ 0x8000));
        }
    }
}

bool byte_row_walk(const uint8_t *src, size_t src_stride, size_t src_elements, uint32_t x_start,
                   uint32_t x_step, uint32_t y_start, uint32_t y_step, uint8_t *dst,
                   uint32_t dst_width, uint32_t dst_height, size_t dst_step)
{
    if (x_step > 512)
        return false;
    byte_rows b;
    for (uint32_t ox0 = 0; ox0 < dst_width; ox0 += kByteColumns) {
        const uint32_t n = min_u32(kByteColumns, dst_width - ox0);
        plan_byte_rows(b, ox0, n, x_start, x_step);
        uint32_t pos_y = y_start;
        for (uint32_t oy = 0; oy < dst_height; ++oy, pos_y += y_step) {
            uint32_t y0, wy1;
            axis_rule(pos_y, y0, wy1);
            const int16_t *h[2];
            int16_t *const slots[2] = {b.h[0], b.h[1]};
            row_pair_sums(slots, b.row, y0, h, [&](uint32_t row, int16_t *slot) {
                const size_t offset = size_t(row) * src_stride;
                byte_row_sums(b, n, src + offset, src_elements - offset, slot);
            });
            vertical_u8(n, h[0], h[1], wy1, dst + (size_t(oy) * dst_width + ox0) * dst_step, dst_step);
        }
    }
    return true;
}

template <typename T>
void walk(const T *src, size_t src_stride, size_t src_elements, uint32_t x_start, uint32_t x_step,
          uint32_t y_start, uint32_t y_step, T *dst, uint32_t dst_width, uint32_t dst_height,
          size_t dst_step)
{
    if (halving_walk(src, src_stride, src_elements, x_start, x_step, y_start, y_step, dst,
                     dst_width, dst_height, dst_step) ||
        pick_walk(src, src_stride, src_elements, x_start, x_step, y_start, y_step, dst, dst_width,
                  dst_height, dst_step))
        return;
    // Whole weights with larger column steps keep the strips (their rows
    // are picks).
    // 8-bit samples take the row walk when x_step <= 512, else the strips.
    // 16-bit samples: strong enlargements (more than four output rows per
    // source row) keep the strips; of the rest, enlargements with x_step <=
    // 512 take the row walk, which shares a source row's sums between output
    // rows, and everything else the direct walk, which then costs less.
    if constexpr (sizeof(T) == 1) {
        const bool whole = ((x_step | x_start | y_step | y_start) & 255) == 0;
        if (!whole && byte_row_walk(src, src_stride, src_elements, x_start, x_step, y_start, y_step,
                                    dst, dst_width, dst_height, dst_step))
            return;
    }
    if constexpr (sizeof(T) == 2) {
        const bool whole = ((x_step | x_start | y_step | y_start) & 255) == 0;
        if (!whole && y_step >= 64) {
            if (!pair_row_walk(src, src_stride, src_elements, x_start, x_step, y_start, y_step, dst,
                               dst_width, dst_height, dst_step))
                small_direct_walk(src, src_stride, src_elements, x_start, x_step, y_start, y_step,
                                  dst, dst_width, dst_height, dst_step);
            return;
        }
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
            uint32_t *const slots[2] = {s.h[0], s.h[1]};
            row_pair_sums(slots, s.row, y0, h, [&](uint32_t row, uint32_t *slot) {
                const size_t offset = size_t(row) * src_stride;
                horizontal_row(s, src + offset, src_elements - offset, slot);
            });
            T *out = dst + (size_t(oy) * dst_width + ox0) * dst_step;
            if constexpr (sizeof(T) == 1) {
                vertical_u8(s.n, h[0], h[1], wy1, out, dst_step);
                continue;
            }
            const __m256i w0 = _mm256_set1_epi32(int32_t(256 - wy1));
            const __m256i w1 = _mm256_set1_epi32(int32_t(wy1));
            const __m256i half = _mm256_set1_epi32(32768);
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
