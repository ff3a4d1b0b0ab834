/*
 * bicubic_math.h - the per-sample arithmetic of the bicubic kernels (internal).
 *
 * Written once as templates over the lane type V, which is either float (the
 * portable kernels) or an eight-float AVX vector (the x86-64-v3 kernels, one
 * independent output sample per lane). Every operation is the same in both:
 * products and sums taken left to right exactly as written, and a fused
 * multiply-add exactly where the definition fuses; -ffp-contract=off keeps the
 * compiler from fusing anything else. Both variants therefore give the same
 * bits.
 *
 * Everything here has internal linkage (anonymous namespace): the portable and
 * the x86-64-v3 translation units each get their own copy, so the linker never
 * picks a copy compiled for the wider instruction set for the portable path.
 * For the same reason the fused multiply-add is the compiler builtin, not
 * std::fma (an inline library function with one shared out-of-line copy).
 */
#ifndef EJ_BICUBIC_MATH_H
#define EJ_BICUBIC_MATH_H

#if defined(__AVX2__) && defined(__FMA__)
#include <immintrin.h>
#endif

namespace {

inline float fused(float a, float b, float c)
{
    return __builtin_fmaf(a, b, c);
}

#if defined(__AVX2__) && defined(__FMA__)
inline __m256 fused(__m256 a, __m256 b, __m256 c)
{
    return _mm256_fmadd_ps(a, b, c);
}
#endif

/*
 * The 16 coefficients a00, a01, ..., a33 (first index the power of the
 * vertical fraction, second that of the horizontal one) of the bicubic patch
 * over the 4 x 4 neighbourhood P (row-major, P[5] the cell's own sample).
 * Each coefficient is a plain sum taken left to right as written.
 */
template <typename V>
inline void patch_coefficients(const V *P, V *a)
{
    const V P00 = P[0], P01 = P[1], P02 = P[2], P03 = P[3];
    const V P10 = P[4], P11 = P[5], P12 = P[6], P13 = P[7];
    const V P20 = P[8], P21 = P[9], P22 = P[10], P23 = P[11];
    const V P30 = P[12], P31 = P[13], P32 = P[14], P33 = P[15];

    a[0] = P11;
    a[1] = -0.5f * P10 + 0.5f * P12;
    a[2] = P10 - 2.5f * P11 + 2.0f * P12 - 0.5f * P13;
    a[3] = -0.5f * P10 + 1.5f * P11 - 1.5f * P12 + 0.5f * P13;
    a[4] = -0.5f * P01 + 0.5f * P21;
    a[5] = 0.25f * P00 - 0.25f * P02 - 0.25f * P20 + 0.25f * P22;
    a[6] = -0.5f * P00 + 1.25f * P01 - P02 + 0.25f * P03 + 0.5f * P20 - 1.25f * P21 + P22 -
           0.25f * P23;
    a[7] = 0.25f * P00 - 0.75f * P01 + 0.75f * P02 - 0.25f * P03 - 0.25f * P20 + 0.75f * P21 -
           0.75f * P22 + 0.25f * P23;
    a[8] = P01 - 2.5f * P11 + 2.0f * P21 - 0.5f * P31;
    a[9] = -0.5f * P00 + 0.5f * P02 + 1.25f * P10 - 1.25f * P12 - P20 + P22 + 0.25f * P30 -
           0.25f * P32;
    a[10] = P00 - 2.5f * P01 + 2.0f * P02 - 0.5f * P03 - 2.5f * P10 + 6.25f * P11 - 5.0f * P12 +
            1.25f * P13 + 2.0f * P20 - 5.0f * P21 + 4.0f * P22 - P23 - 0.5f * P30 + 1.25f * P31 -
            P32 + 0.25f * P33;
    a[11] = -0.5f * P00 + 1.5f * P01 - 1.5f * P02 + 0.5f * P03 + 1.25f * P10 - 3.75f * P11 +
            3.75f * P12 - 1.25f * P13 - P20 + 3.0f * P21 - 3.0f * P22 + P23 + 0.25f * P30 -
            0.75f * P31 + 0.75f * P32 - 0.25f * P33;
    a[12] = -0.5f * P01 + 1.5f * P11 - 1.5f * P21 + 0.5f * P31;
    a[13] = 0.25f * P00 - 0.25f * P02 - 0.75f * P10 + 0.75f * P12 + 0.75f * P20 - 0.75f * P22 -
            0.25f * P30 + 0.25f * P32;
    a[14] = -0.5f * P00 + 1.25f * P01 - P02 + 0.25f * P03 + 1.5f * P10 - 3.75f * P11 +
            3.0f * P12 - 0.75f * P13 - 1.5f * P20 + 3.75f * P21 - 3.0f * P22 + 0.75f * P23 +
            0.5f * P30 - 1.25f * P31 + P32 - 0.25f * P33;
    a[15] = 0.25f * P00 - 0.75f * P01 + 0.75f * P02 - 0.25f * P03 - 0.75f * P10 + 2.25f * P11 -
            2.25f * P12 + 0.75f * P13 + 0.75f * P20 - 2.25f * P21 + 2.25f * P22 - 0.75f * P23 -
            0.25f * P30 + 0.75f * P31 - 0.75f * P32 + 0.25f * P33;
}

/*
 * The horizontal half of the patch evaluation: q_m = a_m0 + a_m1 fx, then
 * + a_m2 fx2, then + a_m3 fx3, each step fused. It depends on the column only,
 * so a kernel may compute it once for every row of a cell.
 */
template <typename V>
inline void patch_along_x(const V *a, V fx, V fx2, V fx3, V *q)
{
    #pragma GCC unroll 16
    for (int m = 0; m < 4; ++m) {
        const V *am = a + 4 * m;
        V s = fused(am[1], fx, am[0]);
        s = fused(am[2], fx2, s);
        q[m] = fused(am[3], fx3, s);
    }
}

/* The vertical half: v = q0 + q1 fy, then + q2 fy2, then + q3 fy3, fused. */
template <typename V>
inline V patch_along_y(const V *q, V fy, V fy2, V fy3)
{
    V v = fused(q[1], fy, q[0]);
    v = fused(q[2], fy2, v);
    return fused(q[3], fy3, v);
}

/*
 * Catmull-Rom cubic through p0..p3 at t in [0, 1], with half_t = t * 0.5:
 *   p1 + half_t * ((p2 - p0) + t * ((2 p0 - 5 p1 + 4 p2 - p3)
 *                                   + t * (3 (p1 - p2) + p3 - p0)))
 * The two inner polynomial terms are plain sums taken left to right; the
 * nesting is evaluated from the inside out with fused multiply-adds.
 */
template <typename V>
inline V catmull_rom(V p0, V p1, V p2, V p3, V t, V half_t)
{
    const V quadratic = 2.0f * p0 - 5.0f * p1 + 4.0f * p2 - p3;
    const V cubic = 3.0f * (p1 - p2) + p3 - p0;
    const V inner = fused(t, cubic, quadratic);
    const V outer = fused(t, inner, p2 - p0);
    return fused(half_t, outer, p1);
}

} // namespace

#endif /* EJ_BICUBIC_MATH_H */
