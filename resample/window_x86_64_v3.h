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

// The elements p[0] ... p[8 * registers - 1], which the caller has checked
// to be readable.
struct window {
    __m256i reg[kWindowRegisters];
    int32_t registers;
};

template <typename T>
inline void load_window(window &w, const T *p, int32_t registers)
{
    w.registers = registers;
    for (int32_t j = 0; j < registers; ++j)
        w.reg[j] = widen8(p + 8 * j);
}

// Lane k receives element idx[k] of the window, for 0 <= idx[k] < 8 *
// registers; other indices give an unspecified element of the window.
inline __m256i window_pick(const window &w, __m256i idx)
{
    __m256i r = _mm256_permutevar8x32_epi32(w.reg[0], idx);
    for (int32_t j = 1; j < w.registers; ++j) {
        const __m256i v = _mm256_permutevar8x32_epi32(w.reg[j], idx);
        r = _mm256_blendv_epi8(r, v, _mm256_cmpgt_epi32(idx, _mm256_set1_epi32(8 * j - 1)));
    }
    return r;
}

} // namespace

#endif /* EJ_RESAMPLE_WINDOW_X86_64_V3_H */
