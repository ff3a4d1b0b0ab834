/*
 * lsc_simd_x86_64_v3.h - small AVX2 helpers shared by the x86-64-v3 loops of
 * the linear-algebra kernels and of the polynomial fit (internal).
 *
 * Included only by sources compiled with -march=x86-64-v3; everything here
 * has internal linkage, so that no wide-instruction copy of a function can be
 * handed to the portable build by the linker.
 */
#ifndef EJ_LSC_SIMD_X86_64_V3_H
#define EJ_LSC_SIMD_X86_64_V3_H

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace {

inline const float *at(const float *base, ptrdiff_t bytes)
{
    return reinterpret_cast<const float *>(reinterpret_cast<const char *>(base) + bytes);
}

inline float *at(float *base, ptrdiff_t bytes)
{
    return reinterpret_cast<float *>(reinterpret_cast<char *>(base) + bytes);
}

// A lane mask with the first min(count, 8) lanes set.
inline __m256i first_lanes(int64_t count)
{
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(int32_t(count < 8 ? count : 8)),
                              _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
}

// r[0..7] (eight rows of eight floats) become the eight columns.
inline void transpose8(__m256 *r)
{
    const __m256 t0 = _mm256_unpacklo_ps(r[0], r[1]), t1 = _mm256_unpackhi_ps(r[0], r[1]);
    const __m256 t2 = _mm256_unpacklo_ps(r[2], r[3]), t3 = _mm256_unpackhi_ps(r[2], r[3]);
    const __m256 t4 = _mm256_unpacklo_ps(r[4], r[5]), t5 = _mm256_unpackhi_ps(r[4], r[5]);
    const __m256 t6 = _mm256_unpacklo_ps(r[6], r[7]), t7 = _mm256_unpackhi_ps(r[6], r[7]);
    const __m256 u0 = _mm256_shuffle_ps(t0, t2, 0x44), u1 = _mm256_shuffle_ps(t0, t2, 0xEE);
    const __m256 u2 = _mm256_shuffle_ps(t1, t3, 0x44), u3 = _mm256_shuffle_ps(t1, t3, 0xEE);
    const __m256 u4 = _mm256_shuffle_ps(t4, t6, 0x44), u5 = _mm256_shuffle_ps(t4, t6, 0xEE);
    const __m256 u6 = _mm256_shuffle_ps(t5, t7, 0x44), u7 = _mm256_shuffle_ps(t5, t7, 0xEE);
    r[0] = _mm256_permute2f128_ps(u0, u4, 0x20);
    r[1] = _mm256_permute2f128_ps(u1, u5, 0x20);
    r[2] = _mm256_permute2f128_ps(u2, u6, 0x20);
    r[3] = _mm256_permute2f128_ps(u3, u7, 0x20);
    r[4] = _mm256_permute2f128_ps(u0, u4, 0x31);
    r[5] = _mm256_permute2f128_ps(u1, u5, 0x31);
    r[6] = _mm256_permute2f128_ps(u2, u6, 0x31);
    r[7] = _mm256_permute2f128_ps(u3, u7, 0x31);
}

// The samples s0 .. s1 - 1 of a sum in ascending order: eight at a time
// through sums.add_block(base, first), which adds samples base + first ..
// base + 7; a tail shorter than a block re-reads the block that ends at s1
// and adds only its new samples; a run ending before sample 8 goes sample by
// sample (sums.add_sample).
template <typename Sums>
inline void add_run_in_blocks(Sums &sums, int64_t s0, int64_t s1)
{
    int64_t s = s0;
    for (; s + 8 <= s1; s += 8)
        sums.add_block(s, 0);
    if (s == s1)
        return;
    if (s1 >= 8) {
        sums.add_block(s1 - 8, 8 - (s1 - s));
        return;
    }
    for (; s < s1; ++s)
        sums.add_sample(s);
}

} // namespace

#endif /* EJ_LSC_SIMD_X86_64_V3_H */
