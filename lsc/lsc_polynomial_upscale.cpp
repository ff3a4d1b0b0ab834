// Solve the polynomial fit of four lens-shading planes and evaluate it on a
// target grid: right-hand side design_t * z, forward and back substitution
// with the LU factors of the normal matrix, then P(x, y) on the
// corner-aligned target grid.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "allocation.h"
#include "ej_cmc_lsc.h"
#include "isa_dispatch.h"
#include "lsc_x86_64_v3.h"
#include "matrix_view.h"

using ej_lsc::GridInterior;

namespace {

constexpr uint16_t kPolynomialTerms = 15;

// A zero-filled vector of n floats, freed on every path.
struct Vector {
    float *data = nullptr;
    explicit Vector(size_t n)
        : data(static_cast<float *>(cmc_calloc(n > 0 ? n : 1, sizeof(float))))
    {
    }
    ~Vector() { std::free(data); }
    Vector(const Vector &) = delete;
    Vector &operator=(const Vector &) = delete;
};

// t = L^-1 b with the unit lower factor; each sum starts at 0.0, adds
// lu(i, j) * t[j] by fused multiply-add in ascending j and is subtracted once.
void forward_substitution(const float *lu, const float *b, float *t, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        float acc = 0.0f;
        for (size_t j = 0; j < i; ++j)
            acc = std::fma(lu[i * n + j], t[j], acc);
        t[i] = b[i] - acc;
    }
}

// c = U^-1 t, from the last row up; the sum as in the forward pass.
void back_substitution(const float *lu, const float *t, float *c, size_t n)
{
    for (size_t i = n; i-- > 0;) {
        float acc = 0.0f;
        for (size_t j = i + 1; j < n; ++j)
            acc = std::fma(lu[i * n + j], c[j], acc);
        c[i] = (t[i] - acc) / lu[i * n + i];
    }
}

// P(x, y): the terms formed as the design matrix forms them, in its column
// order, accumulated from 0.0 by fused multiply-add.
float evaluate(const float *c, float x, float y)
{
    const float x2 = x * x;
    const float x3 = x * x2;
    const float x4 = x * x3;
    const float y2 = y * y;
    const float y3 = y * y2;
    const float y4 = y * y3;
    const float terms[kPolynomialTerms] = {1.0f,   x,       y,       x2,      x * y,
                                           y2,     x3,      x2 * y,  x * y2,  y3,
                                           x4,     x3 * y,  x2 * y2, x * y3,  y4};
    float acc = 0.0f;
    for (size_t i = 0; i < kPolynomialTerms; ++i)
        acc = std::fma(c[i], terms[i], acc);
    return acc;
}

void evaluate_plane(const float *c, float *dst, uint16_t src_width, uint16_t src_height,
                    uint16_t dst_width, uint16_t dst_height)
{
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (cmc_isa_selected() == cmc_isa::x86_64_v3) {
        float *const planes[1] = {dst};
        lsc_evaluate_planes_x86_64_v3(c, kPolynomialTerms, 1, planes, src_width, src_height,
                                      dst_width, dst_height);
        return;
    }
#endif
    const float sx = (static_cast<float>(src_width) - 1.0f) / (static_cast<float>(dst_width) - 1.0f);
    const float sy =
        (static_cast<float>(src_height) - 1.0f) / (static_cast<float>(dst_height) - 1.0f);
    for (size_t j = 0; j < dst_height; ++j) {
        const float y = std::fma(static_cast<float>(j), sy, 1.0f);
        float *row = dst + j * dst_width;
        for (size_t i = 0; i < dst_width; ++i)
            row[i] = evaluate(c, std::fma(static_cast<float>(i), sx, 1.0f), y);
    }
}

#if defined(EJ_CMC_HAVE_X86_64_V3)
// Whether [a, a + a_count) and [b, b + b_count) share a float.
bool overlap(const float *a, size_t a_count, const float *b, size_t b_count)
{
    const uintptr_t a0 = reinterpret_cast<uintptr_t>(a), b0 = reinterpret_cast<uintptr_t>(b);
    return a0 < b0 + b_count * sizeof(float) && b0 < a0 + a_count * sizeof(float);
}

// Whether the four planes can be solved together (x86-64-v3): 15 terms, and
// every plane and matrix there, so that no channel would stop the per-channel
// loop early and both products would return 0 (their dimensions agree by
// construction and the interior of the grid always lies inside it); and no
// destination plane overlapping another one or anything the solve reads, so
// that writing a plane early cannot change what a later channel reads or
// which write lands last.
bool four_planes_together(const float *design_t, const float *lu, float *const *src_planes,
                          float *const *dst_planes, uint16_t num_terms, size_t m,
                          size_t plane, bool evaluated)
{
    if (cmc_isa_selected() != cmc_isa::x86_64_v3 || num_terms != kPolynomialTerms ||
        design_t == nullptr)
        return false;
    for (int k = 0; k < 4; ++k)
        if (src_planes[k] == nullptr || (evaluated && dst_planes[k] == nullptr))
            return false;
    if (!evaluated)
        return true;
    for (int k = 0; k < 4; ++k) {
        const float *dst = dst_planes[k];
        if (overlap(dst, plane, design_t, kPolynomialTerms * m) ||
            overlap(dst, plane, lu, kPolynomialTerms * kPolynomialTerms))
            return false;
        for (int j = 0; j < 4; ++j)
            if (overlap(dst, plane, src_planes[j], m) ||
                (j != k && overlap(dst, plane, dst_planes[j], plane)))
                return false;
    }
    return true;
}

// The four channels at once, "as if" one after the other: the right-hand
// sides, the substitutions and the evaluation give every plane the bits of
// the per-channel loop (see lsc_four_planes_x86_64_v3.cpp). The loop's
// per-channel vector t is still allocated and released once per channel in
// turn; when one of those allocations fails, the planes of the earlier
// channels are written, as the loop would have written them, and the call
// fails.
uint32_t upscale_four_planes(const float *design_t, const float *lu, float *const *src_planes,
                             float *const *dst_planes, uint16_t src_width, uint16_t src_height,
                             uint16_t dst_width, uint16_t dst_height, uint16_t margin_y,
                             uint16_t margin_x, bool use_margins, bool evaluated)
{
    const int64_t m = static_cast<int64_t>(src_width) * src_height;
    lsc_dot_span span{false, m, 0, 0, 0, 0, 0};
    if (use_margins) {
        const GridInterior in(src_height, src_width, margin_y, margin_x);
        span = {true, 0, in.width, in.first_row, in.first_col, in.iw, in.ih};
    }
    const float *const z[4] = {src_planes[0], src_planes[1], src_planes[2], src_planes[3]};
    float b[kPolynomialTerms][4];
    float c[4 * kPolynomialTerms];
    lsc_rhs4_x86_64_v3(design_t, m, z, b, span);
    lsc_substitute4_x86_64_v3(lu, b, c);
    int solved = 0;
    for (; solved < 4; ++solved) {
        Vector t(kPolynomialTerms);
        if (t.data == nullptr)
            break;
    }
    if (evaluated && solved > 0)
        lsc_evaluate_planes_x86_64_v3(c, kPolynomialTerms, solved, dst_planes, src_width,
                                      src_height, dst_width, dst_height);
    return solved == 4 ? 0 : 2;
}
#endif

} // namespace

uint32_t lsc_polynomial_upscale_float(const float *design_t, const float *lu,
                                      const uint32_t * /*pivot: identity, not needed*/,
                                      float *const *src_planes, float *const *dst_planes,
                                      uint16_t src_width, uint16_t src_height, uint16_t dst_width,
                                      uint16_t dst_height, uint16_t num_terms, uint16_t margin_y,
                                      uint16_t margin_x, uint8_t use_margins)
{
    // P(x, y) reads 15 coefficients, so fewer terms cannot be evaluated; the
    // source planes, the factors and the transpose (whose 4 * m-byte row
    // stride is a 32-bit argument) must be there, and so must the
    // destination planes when they are written. All fail as a step: 2.
    const int64_t m = static_cast<int64_t>(src_width) * src_height;
    const bool evaluated = dst_width > 1 && dst_height > 1;
    if (num_terms < kPolynomialTerms || src_planes == nullptr ||
        (evaluated && dst_planes == nullptr) || lu == nullptr || 4 * m > INT32_MAX)
        return 2;
    const int32_t mi = static_cast<int32_t>(m);
    const int32_t nt = num_terms;

    Vector b(num_terms);
    Vector c(num_terms);
    if (b.data == nullptr || c.data == nullptr)
        return 2;
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (four_planes_together(design_t, lu, src_planes, dst_planes, num_terms,
                             static_cast<size_t>(m),
                             static_cast<size_t>(dst_width) * dst_height, evaluated))
        return upscale_four_planes(design_t, lu, src_planes, dst_planes, src_width, src_height,
                                   dst_width, dst_height, margin_y, margin_x, use_margins != 0,
                                   evaluated);
#endif

    for (int k = 0; k < 4; ++k) {
        const float *z = src_planes[k];
        // A missing destination plane is refused like a missing source plane
        // (planes of earlier channels stay written).
        if (z == nullptr || (evaluated && dst_planes[k] == nullptr))
            return 2;
        const uint32_t status =
            use_margins != 0
                ? mul_mv_lsc(design_t, 4 * mi, 4, mi, nt, z, 4, mi, b.data, 4, src_height,
                             src_width, margin_y, margin_x)
                : mul_mv(design_t, 4 * mi, 4, mi, nt, z, 4, mi, b.data, 4);
        if (status != 0)
            return 2;
        {
            Vector t(num_terms);
            if (t.data == nullptr)
                return 2;
#if defined(EJ_CMC_HAVE_X86_64_V3)
            if (cmc_isa_selected() == cmc_isa::x86_64_v3) {
                lsc_substitute_x86_64_v3(lu, b.data, t.data, c.data, num_terms);
            } else
#endif
            {
                forward_substitution(lu, b.data, t.data, num_terms);
                back_substitution(lu, t.data, c.data, num_terms);
            }
        }
        // A single target row or column has no step size (it would divide by
        // zero): the coefficients are solved but nothing is evaluated.
        if (evaluated)
            evaluate_plane(c.data, dst_planes[k], src_width, src_height, dst_width, dst_height);
    }
    return 0;
}
