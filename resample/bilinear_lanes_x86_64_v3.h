/* Lane helpers shared by the x86-64-v3 loops of the bilinear resize
 * (included by the resize_2d_array*_x86_64_v3.cpp sources only): lane
 * indices, aligned loads, prefetch hints, register windows of two samples
 * per lane and the even/odd split of halving columns.
 *
 * Everything here has internal linkage (see bicubic_math.h for why). */
#ifndef EJ_RESAMPLE_BILINEAR_LANES_X86_64_V3_H
#define EJ_RESAMPLE_BILINEAR_LANES_X86_64_V3_H

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "window_x86_64_v3.h"

// The per-vector helpers of the hot loops: always inlined, so that their
// vectors stay in registers (a call passes them through memory).
#define EJ_BILINEAR_INLINE __attribute__((always_inline)) inline

namespace {

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

// Elements rel_a and rel_b of the window at p, lane by lane.
template <int Registers, typename T>
EJ_BILINEAR_INLINE void window_pair(const T *p, __m256i rel_a, __m256i rel_b, __m256i &a, __m256i &b)
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

// Halving columns (relative lower indices 0, 2, ..., 14, upper ones one
// more): the even and odd elements of the sixteen at p, in lane order.
EJ_BILINEAR_INLINE void even_odd16(const void *p, __m256i &even, __m256i &odd)
{
    const __m256 a = _mm256_loadu_ps(static_cast<const float *>(p));
    const __m256 b = _mm256_loadu_ps(static_cast<const float *>(p) + 8);
    even = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(a, b, 0x88)), 0xD8);
    odd = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(a, b, 0xDD)), 0xD8);
}

EJ_BILINEAR_INLINE bool halving_lanes(__m256i rel0, __m256i rel1)
{
    const __m256i twice = _mm256_add_epi32(lane_index(), lane_index());
    const __m256i same = _mm256_and_si256(
        _mm256_cmpeq_epi32(rel0, twice),
        _mm256_cmpeq_epi32(rel1, _mm256_add_epi32(twice, _mm256_set1_epi32(1))));
    return _mm256_movemask_epi8(same) == -1;
}

// The pairs (row0[rel0], row0[rel1]) and (row1[rel0], row1[rel1]) of eight
// lanes from windows at row0 and row1 (relative indices, rel0 <= rel1, within
// the R registers the caller has checked to be readable on both rows).
// Halving columns split a window into its even and odd elements; otherwise
// the bound R on the span is for the worst vector, and most need a register
// less (the last lane's upper sample decides). Every path hands a lane the
// elements at its indices.
template <int R, typename T>
EJ_BILINEAR_INLINE void window_rows(const T *row0, const T *row1, __m256i rel0, __m256i rel1,
                                    __m256i &s00, __m256i &s01, __m256i &s10, __m256i &s11)
{
    constexpr int Fewer = R > 1 ? R - 1 : 1;
    if (R > 1 && halving_lanes(rel0, rel1)) {
        even_odd16(row0, s00, s01);
        even_odd16(row1, s10, s11);
    } else if (R > 1 && _mm256_extract_epi32(rel1, 7) < 8 * Fewer) {
        window_pair<Fewer>(row0, rel0, rel1, s00, s01);
        window_pair<Fewer>(row1, rel0, rel1, s10, s11);
    } else {
        window_pair<R>(row0, rel0, rel1, s00, s01);
        window_pair<R>(row1, rel0, rel1, s10, s11);
    }
}

} // namespace

#endif /* EJ_RESAMPLE_BILINEAR_LANES_X86_64_V3_H */
