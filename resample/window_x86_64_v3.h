/* Register windows for the x86-64-v3 resampling loops (included by the
 * *_x86_64_v3.cpp sources only).
 *
 * When the eight samples a vector needs lie within a few consecutive
 * elements of one row, loading those elements whole and permuting them into
 * the lanes costs far less than a gather. A window is up to kWindowRegisters
 * registers of eight consecutive elements each, widened to 32 bits (16- and
 * 8-bit samples zero-extended, 32-bit ones and floats bit for bit), so a lane
 * receives exactly the element a gather would have read.
 *
 * Everything here has internal linkage (see bicubic_math.h for why). */
#ifndef EJ_RESAMPLE_WINDOW_X86_64_V3_H
#define EJ_RESAMPLE_WINDOW_X86_64_V3_H

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace {

constexpr int32_t kWindowRegisters = 4;
constexpr int32_t kWindowElements = 8 * kWindowRegisters;

// Registers a window needs to hold relative indices 0 ... `reach` - 1, or 0
// when it cannot hold them (the caller then gathers).
inline int32_t window_registers(int32_t reach)
{
    if (reach <= 0 || reach > kWindowElements)
        return 0;
    return (reach + 7) / 8;
}

inline __m256i widen8(const float *p)
{
    return _mm256_castps_si256(_mm256_loadu_ps(p));
}
inline __m256i widen8(const int32_t *p)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
}
inline __m256i widen8(const uint32_t *p)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
}
inline __m256i widen8(const uint16_t *p)
{
    return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}
inline __m256i widen8(const uint8_t *p)
{
    return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)));
}

// Registers for lanes reading elements lower[k] ... upper[k] (lower[k] >=
// base): the reach from base over the eight lanes, or 0 when some lane lies
// before base or too far from it.
inline int32_t window_registers(const int32_t *lower, const int32_t *upper, int32_t base)
{
    int32_t reach = 0;
    for (int k = 0; k < 8; ++k) {
        if (lower[k] < base)
            return 0;
        reach = upper[k] + 1 - base > reach ? upper[k] + 1 - base : reach;
    }
    return window_registers(reach);
}

// Loads the window p[0] ... p[8 * Registers - 1], which the caller has
// checked to be readable.
template <int Registers, typename T>
inline void load_window(__m256i (&reg)[Registers], const T *p)
{
    for (int j = 0; j < Registers; ++j)
        reg[j] = widen8(p + 8 * j);
}

// Lane k receives element idx[k] of the window, for 0 <= idx[k] < 8 *
// Registers; other indices give an unspecified element of the window.
template <int Registers>
inline __m256i window_pick(const __m256i (&reg)[Registers], __m256i idx)
{
    __m256i r = _mm256_permutevar8x32_epi32(reg[0], idx);
    for (int j = 1; j < Registers; ++j)
        r = _mm256_blendv_epi8(r, _mm256_permutevar8x32_epi32(reg[j], idx),
                               _mm256_cmpgt_epi32(idx, _mm256_set1_epi32(8 * j - 1)));
    return r;
}

} // namespace

#endif /* EJ_RESAMPLE_WINDOW_X86_64_V3_H */
