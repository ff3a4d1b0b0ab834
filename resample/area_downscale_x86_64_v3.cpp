// x86-64-v3 loops of the area-averaging downscale. The lanes of a vector are
// eight neighbouring outputs of one row; each lane runs exactly the portable
// sequence for its output: for every row of the band, left to right over its
// own column band, sum = fma(row_weight * column_weight, sample, sum). Lanes
// whose band is shorter skip the extra steps (their sum is kept, not added
// to), so no sum is reordered or padded. The conversion of a sum is the
// portable one, lane by lane.
//
// The column bands depend on the output column only: they are tabled once
// per strip of columns, in bounded stack buffers (the kernels allocate
// nothing). Where the bands of a vector's eight outputs lie within a few
// registers of one row, each band row is loaded whole once and every step
// permutes its samples into the lanes; elsewhere (strong reductions, the
// right edge of the plane) the samples are gathered. Both give each lane the
// same sample. No inline function with external linkage is called from here
// (see bicubic_math.h for why).
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "area_bands.h"
#include "resample_x86_64_v3.h"
#include "window_x86_64_v3.h"

namespace {

constexpr uint32_t kStripColumns = 512;

inline uint32_t min_u32(uint32_t a, uint32_t b)
{
    return a < b ? a : b;
}


inline uint32_t band_stop(const band &b)
{
    return b.end_frac != 0.0f ? b.end + 1 : b.end;
}

inline float band_weight(const band &b, uint32_t s)
{
    if (s == b.first)
        return b.first_weight;
    return s == b.end ? b.end_frac : 1.0f;
}

struct column_strip {
    alignas(32) int32_t first[kStripColumns];
    alignas(32) int32_t stop[kStripColumns];
    alignas(32) int32_t end[kStripColumns];
    alignas(32) float first_weight[kStripColumns];
    alignas(32) float end_frac[kStripColumns];
    alignas(32) int32_t length[kStripColumns / 8]; // longest band of each vector
    int32_t base[kStripColumns / 8];      // first column of each vector's first lane
    int32_t registers[kStripColumns / 8]; // window of each vector, 0: gather
};

inline __m256i load8(const int32_t *p)
{
    return _mm256_load_si256(reinterpret_cast<const __m256i *>(p));
}

// Samples of eight columns of one line, as floats, for the active lanes
// (inactive lanes read nothing and give 0).
inline __m256 samples8(const float *line, __m256i col, __m256i active)
{
    return _mm256_mask_i32gather_ps(_mm256_setzero_ps(), line, col, _mm256_castsi256_ps(active), 4);
}

// 16-bit samples: a 32-bit read ending at the sample (it starts one sample
// earlier, byte offset 2 * col - 2), so that it never reaches past the plane.
// `line_start` is the index of line[0] in its plane: a read at index 0 of the
// plane would start before it and is done sample by sample instead.
inline __m256 samples8(const uint16_t *line, __m256i col, __m256i active, size_t line_start)
{
    const __m256i min_col = _mm256_set1_epi32(line_start == 0 ? 1 : 0);
    if (line_start == 0 && !_mm256_testz_si256(_mm256_cmpgt_epi32(min_col, col), active)) {
        alignas(32) int32_t c[8], a[8];
        alignas(32) float v[8];
        _mm256_store_si256(reinterpret_cast<__m256i *>(c), col);
        _mm256_store_si256(reinterpret_cast<__m256i *>(a), active);
        for (int k = 0; k < 8; ++k)
            v[k] = a[k] != 0 ? float(line[c[k]]) : 0.0f;
        return _mm256_load_ps(v);
    }
    const __m256i offset = _mm256_sub_epi32(_mm256_slli_epi32(col, 1), _mm256_set1_epi32(2));
    const __m256i pairs = _mm256_mask_i32gather_epi32(
        _mm256_setzero_si256(), reinterpret_cast<const int *>(line), offset, active, 1);
    return _mm256_cvtepi32_ps(_mm256_srli_epi32(pairs, 16));
}

// Samples picked from a window, as floats.
inline __m256 window_samples(const float *, __m256i picked)
{
    return _mm256_castsi256_ps(picked);
}
inline __m256 window_samples(const uint16_t *, __m256i picked)
{
    return _mm256_cvtepi32_ps(picked);
}

template <typename T>
inline __m256 load_samples(const T *line, __m256i col, __m256i active, size_t line_start)
{
    if constexpr (sizeof(T) == 2)
        return samples8(line, col, active, line_start);
    else
        return samples8(line, col, active);
}

// Low 16 bits of trunc(v) as a signed 32-bit integer; out of range and NaN
// give 0x80000000 (low bits 0), as in the portable conversion.
inline void store_low16(uint16_t *out, __m256 v, uint32_t lanes)
{
    const __m256i i = _mm256_and_si256(_mm256_cvttps_epi32(v), _mm256_set1_epi32(0xFFFF));
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(i, i), 0x08);
    const __m128i low = _mm256_castsi256_si128(packed);
    if (lanes == 8) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out), low);
        return;
    }
    alignas(16) uint16_t tail[8];
    _mm_store_si128(reinterpret_cast<__m128i *>(tail), low);
    for (uint32_t k = 0; k < lanes; ++k)
        out[k] = tail[k];
}

// The column bands of one vector's eight lanes.
struct lane_bands {
    __m256i first, stop, end;
    __m256 first_weight, end_frac;
};

// The rows of one output row's band, for one vector.
template <typename T>
struct vector_rows {
    const T *region;
    size_t stride;
    size_t region_offset;
    band rows;
    uint32_t row_stop;
    int32_t length; // longest column band of the lanes
    int32_t base;   // window start (column of the region), when Registers > 0
};

template <typename T>
vector_rows(const T *, size_t, size_t, band, uint32_t, int32_t, int32_t) -> vector_rows<T>;

// Band sums of eight lanes: every band row, each left to right. With
// Registers > 0 the samples of a band row come from a window of that many
// registers loaded at column `base`; with 0 they are gathered.
template <int Registers, typename T>
__m256 vector_band_sum(const vector_rows<T> &vr, const lane_bands &b)
{
    __m256 sum = _mm256_setzero_ps();
    const __m256i rel = _mm256_sub_epi32(b.first, _mm256_set1_epi32(vr.base));
    for (uint32_t r = vr.rows.first; r < vr.row_stop; ++r) {
        const __m256 wr = _mm256_set1_ps(band_weight(vr.rows, r));
        const T *line = vr.region + size_t(r) * vr.stride;
        __m256i reg[Registers > 0 ? Registers : 1];
        if constexpr (Registers > 0) {
            load_window(reg, line + vr.base);
            // The next output row reads about one band height further down;
            // the strip walks the rows in sections too short for the
            // hardware prefetcher. A hint: never faults, reads nothing.
            const uintptr_t next = reinterpret_cast<uintptr_t>(line + vr.base) +
                                   uintptr_t(vr.row_stop - vr.rows.first) * vr.stride * sizeof(T);
            _mm_prefetch(reinterpret_cast<const char *>(next), _MM_HINT_T0);
            _mm_prefetch(reinterpret_cast<const char *>(next + 64), _MM_HINT_T0);
        }
        for (int32_t t = 0; t < vr.length; ++t) {
            const __m256i col = _mm256_add_epi32(b.first, _mm256_set1_epi32(t));
            const __m256i active = _mm256_cmpgt_epi32(b.stop, col);
            // First-column weight over the last-partial one over 1.
            __m256 wc = _mm256_blendv_ps(_mm256_set1_ps(1.0f), b.end_frac,
                                         _mm256_castsi256_ps(_mm256_cmpeq_epi32(col, b.end)));
            wc = _mm256_blendv_ps(wc, b.first_weight,
                                  _mm256_castsi256_ps(_mm256_cmpeq_epi32(col, b.first)));
            __m256 sample;
            if constexpr (Registers > 0) {
                const __m256i idx = _mm256_add_epi32(rel, _mm256_set1_epi32(t));
                sample = window_samples(line, window_pick(reg, idx));
            } else {
                sample = load_samples(line, col, active, vr.region_offset + size_t(r) * vr.stride);
            }
            const __m256 stepped = _mm256_fmadd_ps(_mm256_mul_ps(wr, wc), sample, sum);
            sum = _mm256_blendv_ps(sum, stepped, _mm256_castsi256_ps(active));
        }
    }
    return sum;
}

// --- Whole-number ratios.
//
// When the region is exactly nx times as wide and ny times as high as the
// destination, every band has the same shape: output (ox, oy) covers source
// columns nx * ox ... nx * ox + nx - 1 and rows ny * oy ... ny * oy + ny - 1,
// each weighing 1 - 0 = 1 (no band end has a fraction), so every step of the
// sum is fma(1 * 1, sample, sum) = sum + sample, rounded once. The float loop
// adds the samples in the portable order (row by row, each left to right),
// lane by lane. For 16-bit samples every partial sum is an integer below
// nx * ny * 65536 <= 2^24 when nx * ny <= 256, so the float sum of the
// portable loop is exact and equals the integer sum in any grouping: columns
// are summed down the band's rows first, then across.

constexpr uint32_t kWholeMaxColumns = 4; // nx covered: the window holds 8 * nx samples

// Whole ratios of the region to the destination, or false when an axis has
// none (or nx is too wide for a window).
inline bool whole_ratios(const area_geometry &geo, uint32_t *nx, uint32_t *ny)
{
    if (geo.ratio_x != __builtin_truncf(geo.ratio_x) ||
        geo.ratio_y != __builtin_truncf(geo.ratio_y))
        return false;
    *nx = uint32_t(geo.ratio_x);
    *ny = uint32_t(geo.ratio_y);
    return *nx >= 1 && *nx <= kWholeMaxColumns && *ny >= 1 &&
           uint64_t(*nx) * geo.dst_width == uint64_t(geo.region_width) &&
           uint64_t(*ny) * geo.dst_height == uint64_t(geo.region_height);
}

// Lane k of pick c reads window element nx * k + c.
template <int NX>
inline __m256i whole_pick_index(int c)
{
    return _mm256_add_epi32(_mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7),
                                               _mm256_set1_epi32(NX)),
                            _mm256_set1_epi32(c));
}

// Sums of eight neighbouring outputs whose bands start at column 0 of `at`.
template <int NX>
inline __m256 whole_sum8(const float *at, size_t stride, uint32_t ny)
{
    if constexpr (NX == 2) {
        // Even and odd samples of two registers land in the lane order of
        // outputs 0 1 4 5 2 3 6 7; every lane adds its own two samples per
        // row in order, and one permutation restores the output order.
        __m256 sum = _mm256_setzero_ps();
        for (uint32_t r = 0; r < ny; ++r, at += stride) {
            const __m256 a = _mm256_loadu_ps(at), b = _mm256_loadu_ps(at + 8);
            sum = _mm256_add_ps(sum, _mm256_shuffle_ps(a, b, 0x88));
            sum = _mm256_add_ps(sum, _mm256_shuffle_ps(a, b, 0xDD));
        }
        return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(sum), 0xD8));
    }
    __m256 sum = _mm256_setzero_ps();
    for (uint32_t r = 0; r < ny; ++r, at += stride) {
        __m256i reg[NX];
        load_window(reg, at);
        for (int c = 0; c < NX; ++c) {
            const __m256i picked = window_pick(reg, whole_pick_index<NX>(c));
            sum = _mm256_add_ps(sum, _mm256_castsi256_ps(picked));
        }
    }
    return sum;
}

template <int NX>
inline __m256 whole_sum8(const uint16_t *at, size_t stride, uint32_t ny)
{
    if constexpr (NX == 2) {
        // The two samples of an output share one 32-bit lane.
        const __m256i low = _mm256_set1_epi32(0xFFFF);
        __m256i total = _mm256_setzero_si256();
        for (uint32_t r = 0; r < ny; ++r, at += stride) {
            const __m256i pairs = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(at));
            total = _mm256_add_epi32(total, _mm256_add_epi32(_mm256_and_si256(pairs, low),
                                                             _mm256_srli_epi32(pairs, 16)));
        }
        return _mm256_cvtepi32_ps(total);
    }
    __m256i column[NX];
    for (int j = 0; j < NX; ++j)
        column[j] = _mm256_setzero_si256();
    for (uint32_t r = 0; r < ny; ++r, at += stride)
        for (int j = 0; j < NX; ++j)
            column[j] = _mm256_add_epi32(column[j], widen8(at + 8 * j));
    __m256i total = window_pick(column, whole_pick_index<NX>(0));
    for (int c = 1; c < NX; ++c)
        total = _mm256_add_epi32(total, window_pick(column, whole_pick_index<NX>(c)));
    return _mm256_cvtepi32_ps(total);
}

// The same sum for one output, in the same order.
inline float whole_sum1(const float *at, size_t stride, uint32_t nx, uint32_t ny)
{
    float sum = 0.0f;
    for (uint32_t r = 0; r < ny; ++r, at += stride)
        for (uint32_t c = 0; c < nx; ++c)
            sum = sum + at[c];
    return sum;
}

inline float whole_sum1(const uint16_t *at, size_t stride, uint32_t nx, uint32_t ny)
{
    int32_t sum = 0;
    for (uint32_t r = 0; r < ny; ++r, at += stride)
        for (uint32_t c = 0; c < nx; ++c)
            sum += at[c];
    return float(sum);
}

// Outputs full ... dst_width - 1 of a row one by one: a window would read
// past the region's last column.
template <int NX, typename T, typename Finish>
void whole_tail(const T *band_rows, uint16_t *out, const area_geometry &geo, uint32_t ny,
                uint32_t full, Finish finish)
{
    if (full == geo.dst_width)
        return;
    alignas(32) float sums[8] = {};
    for (uint32_t ox = full; ox < geo.dst_width; ++ox)
        sums[ox - full] = whole_sum1(band_rows + size_t(ox) * NX, geo.src_width, NX, ny);
    store_low16(out + full, finish(_mm256_load_ps(sums)), geo.dst_width - full);
}

// Group output rows are taken side by side: their source rows stream from
// memory together. Each output's sum is unchanged.
template <int NX, uint32_t Group, typename T, typename Finish>
void downscale_whole_rows(const T *region, uint16_t *dst, const area_geometry &geo, uint32_t ny,
                          Finish finish)
{
    const size_t stride = geo.src_width;
    const uint32_t full = geo.dst_width & ~7u;
    constexpr uint32_t group = Group;
    for (uint32_t oy = 0; oy < geo.dst_height; ++oy) {
        const T *band_rows = region + size_t(oy) * ny * stride;
        uint16_t *out = dst + size_t(oy) * geo.dst_width;
        if (oy + group <= geo.dst_height) {
            const size_t band = size_t(ny) * stride;
            const size_t row = geo.dst_width;
            for (uint32_t ox = 0; ox < full; ox += 8) {
                const T *at = band_rows + size_t(ox) * NX;
                for (uint32_t r = 0; r < group; ++r)
                    store_low16(out + r * row + ox,
                                finish(whole_sum8<NX>(at + r * band, stride, ny)), 8);
            }
            for (uint32_t r = 0; r < group; ++r)
                whole_tail<NX>(band_rows + r * band, out + r * row, geo, ny, full, finish);
            oy += group - 1;
            continue;
        }
        for (uint32_t ox = 0; ox < full; ox += 8) {
            const size_t at = size_t(ox) * NX;
            store_low16(out + ox, finish(whole_sum8<NX>(band_rows + at, stride, ny)), 8);
        }
        whole_tail<NX>(band_rows, out, geo, ny, full, finish);
    }
}

// Output rows taken together: four of two source rows or fewer each (the
// 2x reductions), else two (measured: more streams no longer pay there).
template <int NX, typename T, typename Finish>
void downscale_whole(const T *region, uint16_t *dst, const area_geometry &geo, uint32_t ny,
                     Finish finish)
{
    if (ny <= 2)
        downscale_whole_rows<NX, 4>(region, dst, geo, ny, finish);
    else
        downscale_whole_rows<NX, 2>(region, dst, geo, ny, finish);
}

// Runs the whole-ratio loops when they apply; false leaves the call to the
// general loops.
template <typename T, typename Finish>
bool try_downscale_whole(const T *src, uint16_t *dst, const area_geometry &geo, Finish finish)
{
    uint32_t nx = 0, ny = 0;
    if (!whole_ratios(geo, &nx, &ny))
        return false;
    if (sizeof(T) == 2 && nx * ny > 256)
        return false;
    const T *region = src + geo.region_offset;
    switch (nx) {
    case 1: downscale_whole<1>(region, dst, geo, ny, finish); break;
    case 2: downscale_whole<2>(region, dst, geo, ny, finish); break;
    case 3: downscale_whole<3>(region, dst, geo, ny, finish); break;
    default: downscale_whole<4>(region, dst, geo, ny, finish); break;
    }
    return true;
}

template <typename T, typename Finish>
void downscale(const T *src, uint16_t *dst, const area_geometry &geo, Finish finish)
{
    if (try_downscale_whole(src, dst, geo, finish))
        return;
    const T *region = src + geo.region_offset;
    const size_t stride = geo.src_width;
    // Elements of a plane row from the region's first column on: a window
    // never reads past them.
    const int64_t readable = int64_t(geo.src_width) - int64_t(geo.region_offset % geo.src_width);
    column_strip cs;
    band_walker cols(geo.ratio_x, geo.region_width);
    for (uint32_t x0 = 0; x0 < geo.dst_width; x0 += kStripColumns) {
        const uint32_t n = min_u32(kStripColumns, geo.dst_width - x0);
        const uint32_t vector = (n + 7) & ~7u;
        for (uint32_t k = 0; k < vector; ++k) {
            // Lanes past the last column get empty bands.
            band b = k < n ? cols.next(x0 + k + 1) : band{0, 0, 0.0f, 0.0f};
            cs.first[k] = int32_t(b.first);
            cs.stop[k] = int32_t(k < n ? band_stop(b) : b.first);
            cs.end[k] = int32_t(b.end);
            cs.first_weight[k] = b.first_weight;
            cs.end_frac[k] = b.end_frac;
        }
        for (uint32_t v = 0; v < vector / 8; ++v) {
            int32_t longest = 0;
            for (uint32_t k = 8 * v; k < 8 * v + 8; ++k)
                longest = cs.stop[k] - cs.first[k] > longest ? cs.stop[k] - cs.first[k] : longest;
            cs.length[v] = longest;
            // Window from the first lane's first column over every sample an
            // active lane reads.
            const int32_t base = cs.first[8 * v];
            int32_t reach = 0;
            for (uint32_t k = 8 * v; k < 8 * v + 8; ++k) {
                if (cs.stop[k] > cs.first[k] && cs.first[k] >= base)
                    reach = cs.stop[k] - base > reach ? cs.stop[k] - base : reach;
                else if (cs.stop[k] > cs.first[k])
                    reach = kWindowElements + 1; // not reachable from base
            }
            int32_t registers = window_registers(reach);
            if (int64_t(base) + 8 * int64_t(registers) > readable)
                registers = 0;
            cs.base[v] = base;
            cs.registers[v] = registers;
        }

        band_walker rows(geo.ratio_y, geo.region_height);
        for (uint32_t ky = 1; ky <= geo.dst_height; ++ky) {
            const band rb = rows.next(ky);
            const uint32_t row_stop = band_stop(rb);
            uint16_t *out = dst + size_t(ky - 1) * geo.dst_width + x0;
            for (uint32_t v = 0; v < vector / 8; ++v) {
                const uint32_t k = 8 * v;
                const lane_bands lanes = {load8(cs.first + k), load8(cs.stop + k), load8(cs.end + k),
                                          _mm256_load_ps(cs.first_weight + k),
                                          _mm256_load_ps(cs.end_frac + k)};
                const vector_rows vr = {region, stride, geo.region_offset, rb, row_stop,
                                        cs.length[v], cs.base[v]};
                __m256 sum;
                switch (cs.registers[v]) {
                case 1: sum = vector_band_sum<1>(vr, lanes); break;
                case 2: sum = vector_band_sum<2>(vr, lanes); break;
                case 3: sum = vector_band_sum<3>(vr, lanes); break;
                case 4: sum = vector_band_sum<4>(vr, lanes); break;
                default: sum = vector_band_sum<0>(vr, lanes); break;
                }
                store_low16(out + k, finish(sum), min_u32(8, n - k));
            }
        }
    }
}

} // namespace

void area_downscale_x86_64_v3(const float *src, uint16_t *dst, const area_geometry &geo,
                              float inv_area)
{
    const __m256 scale = _mm256_set1_ps(inv_area);
    downscale(src, dst, geo, [scale](__m256 sum) {
        return _mm256_mul_ps(_mm256_fmadd_ps(sum, scale, _mm256_set1_ps(0.00048828125f)),
                             _mm256_set1_ps(1024.0f));
    });
}

void area_downscale_x86_64_v3(const uint16_t *src, uint16_t *dst, const area_geometry &geo,
                              float inv_area, float in_scale, float out_scale)
{
    const __m256 area = _mm256_set1_ps(inv_area);
    const __m256 in = _mm256_set1_ps(in_scale);
    const __m256 out = _mm256_set1_ps(out_scale);
    downscale(src, dst, geo, [area, in, out](__m256 sum) {
        return _mm256_mul_ps(
            _mm256_fmadd_ps(_mm256_mul_ps(area, sum), in, _mm256_set1_ps(0.00048828125f)), out);
    });
}
