// Transpose and the matrix-matrix and matrix-vector products on strided
// single-precision views, in full and over the interior of a sample grid.
// Every dot product starts at 0.0 and adds one fused multiply-add per term in
// ascending index order, so results are reproducible bit for bit.
#include <cmath>
#include <cstdint>

#include "ej_cmc_lsc.h"
#include "isa_dispatch.h"
#include "lsc_x86_64_v3.h"
#include "matrix_view.h"

using ej_lsc::element;
using ej_lsc::GridInterior;

namespace {

// The views a product reads and writes; a null pointer is refused only where
// the product would actually dereference it (an empty inner sum reads
// neither factor).
bool usable(const void *lhs, const void *rhs, const void *dst, bool reads_factors)
{
    return dst != nullptr && (!reads_factors || (lhs != nullptr && rhs != nullptr));
}

// The interior form reads columns s(k) of a: the grid must not reach past
// the inner extent (the grid and the matrix are separate arguments, and a
// mismatch would read outside the caller's matrices).
bool interior_fits(const GridInterior &in, int32_t inner)
{
    return in.empty() || in.last_sample() < inner;
}

// Whether the x86-64-v3 loops take a product whose lanes step by `stride`.
bool vector_loops(int32_t stride)
{
#if defined(EJ_CMC_HAVE_X86_64_V3)
    return cmc_isa_selected() == cmc_isa::x86_64_v3 && lsc_lane_stride_fits(stride);
#else
    (void)stride;
    return false;
#endif
}

#if defined(EJ_CMC_HAVE_X86_64_V3)
lsc_dot_span full_span(int32_t count)
{
    return {false, count, 0, 0, 0, 0, 0};
}

lsc_dot_span interior_span(const GridInterior &in)
{
    return {true, 0, in.width, in.first_row, in.first_col, in.iw, in.ih};
}
#endif

#if defined(EJ_CMC_HAVE_X86_64_V3)
// Whether the x86-64-v3 transpose takes these views: both row-major with
// rows that do not overlap each other, and the two views apart, so that the
// order in which elements are copied does not matter.
bool block_transpose(const float *src, int32_t src_row_stride, int32_t src_col_stride,
                     int32_t src_width, int32_t src_height, const float *dst,
                     int32_t dst_row_stride, int32_t dst_col_stride)
{
    if (cmc_isa_selected() != cmc_isa::x86_64_v3 || src_col_stride != 4 || dst_col_stride != 4 ||
        int64_t(src_row_stride) < 4 * int64_t(src_width) ||
        int64_t(dst_row_stride) < 4 * int64_t(src_height))
        return false;
    const uintptr_t s0 = reinterpret_cast<uintptr_t>(src), d0 = reinterpret_cast<uintptr_t>(dst);
    const uintptr_t s1 = s0 + uintptr_t(int64_t(src_height - 1) * src_row_stride + 4 * int64_t(src_width));
    const uintptr_t d1 = d0 + uintptr_t(int64_t(src_width - 1) * dst_row_stride + 4 * int64_t(src_height));
    return s1 <= d0 || d1 <= s0;
}
#endif

// The portable loops of every product: dst(i, j) = the sum of a(i, s) * b(s, j)
// over the samples s in ascending order, all of 0 ... inner - 1 or, with
// `in`, only the interior of the grid. A vector is read as a one-column
// matrix (column stride 0). Rows of a are the outer loop.
void product_loops(const float *a, int32_t a_row_stride, int32_t a_col_stride, int32_t a_height,
                   const float *b, int32_t b_row_stride, int32_t b_col_stride, int32_t b_width,
                   float *dst, int32_t dst_row_stride, int32_t dst_col_stride,
                   const GridInterior *in, int32_t inner)
{
    for (ptrdiff_t i = 0; i < a_height; ++i) {
        for (ptrdiff_t j = 0; j < b_width; ++j) {
            float acc = 0.0f;
            const auto add_term = [&](ptrdiff_t s) {
                acc = std::fma(*element(a, i, s, a_row_stride, a_col_stride),
                               *element(b, s, j, b_row_stride, b_col_stride), acc);
            };
            if (in == nullptr) {
                for (ptrdiff_t s = 0; s < inner; ++s)
                    add_term(s);
            } else {
                // Interior rows, then columns: ascending interior index k.
                for (int64_t r = 0; !in->empty() && r < in->ih; ++r) {
                    const int64_t row_start = (in->first_row + r) * in->width + in->first_col;
                    for (int64_t q = 0; q < in->iw; ++q)
                        add_term(static_cast<ptrdiff_t>(row_start + q));
                }
            }
            *element(dst, i, j, dst_row_stride, dst_col_stride) = acc;
        }
    }
}

} // namespace

uint32_t transpose_m(const float *src, int32_t src_row_stride, int32_t src_col_stride,
                     int32_t src_width, int32_t src_height, float *dst, int32_t dst_row_stride,
                     int32_t dst_col_stride)
{
    // Null views have nothing to read or receive; the status stays 0 as for
    // an empty view.
    if (src_width <= 0 || src_height <= 0 || src == nullptr || dst == nullptr)
        return 0;
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (block_transpose(src, src_row_stride, src_col_stride, src_width, src_height, dst,
                        dst_row_stride, dst_col_stride)) {
        lsc_transpose_x86_64_v3(src, src_row_stride, src_width, src_height, dst, dst_row_stride);
        return 0;
    }
#endif
    for (ptrdiff_t r = 0; r < src_height; ++r)
        for (ptrdiff_t c = 0; c < src_width; ++c)
            *element(dst, c, r, dst_row_stride, dst_col_stride) =
                *element(src, r, c, src_row_stride, src_col_stride);
    return 0;
}

uint32_t mul_mm(const float *a, int32_t a_row_stride, int32_t a_col_stride, int32_t a_width,
                int32_t a_height, const float *b, int32_t b_row_stride, int32_t b_col_stride,
                int32_t b_width, int32_t b_height, float *dst, int32_t dst_row_stride,
                int32_t dst_col_stride)
{
    if (a_width != b_height)
        return 32;
    if (a_height < 1 || b_width < 1)
        return 0;
    if (!usable(a, b, dst, a_width > 0))
        return 32;
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (vector_loops(b_col_stride)) {
        lsc_mul_mm_x86_64_v3(a, a_row_stride, a_col_stride, a_height, b, b_row_stride,
                             b_col_stride, b_width, dst, dst_row_stride, dst_col_stride,
                             full_span(a_width));
        return 0;
    }
#endif
    product_loops(a, a_row_stride, a_col_stride, a_height, b, b_row_stride, b_col_stride, b_width,
                  dst, dst_row_stride, dst_col_stride, nullptr, a_width);
    return 0;
}

uint32_t mul_mm_lsc(const float *a, int32_t a_row_stride, int32_t a_col_stride, int32_t a_width,
                    int32_t a_height, const float *b, int32_t b_row_stride, int32_t b_col_stride,
                    int32_t b_width, int32_t b_height, float *dst, int32_t dst_row_stride,
                    int32_t dst_col_stride, uint16_t height, uint16_t width, uint16_t margin_y,
                    uint16_t margin_x)
{
    if (a_width != b_height)
        return 32;
    if (a_height < 1 || b_width < 1)
        return 0;
    const GridInterior in(height, width, margin_y, margin_x);
    if (!usable(a, b, dst, !in.empty()) || !interior_fits(in, a_width))
        return 32;
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (vector_loops(b_col_stride)) {
        lsc_mul_mm_x86_64_v3(a, a_row_stride, a_col_stride, a_height, b, b_row_stride,
                             b_col_stride, b_width, dst, dst_row_stride, dst_col_stride,
                             interior_span(in));
        return 0;
    }
#endif
    product_loops(a, a_row_stride, a_col_stride, a_height, b, b_row_stride, b_col_stride, b_width,
                  dst, dst_row_stride, dst_col_stride, &in, a_width);
    return 0;
}

uint32_t mul_mv(const float *a, int32_t a_row_stride, int32_t a_col_stride, int32_t a_width,
                int32_t a_height, const float *x, int32_t x_stride, int32_t x_len, float *y,
                int32_t y_stride)
{
    if (a_width != x_len)
        return 32;
    if (a_height < 1)
        return 0;
    if (!usable(a, x, y, a_width > 0))
        return 32;
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (vector_loops(a_row_stride)) {
        lsc_mul_mv_x86_64_v3(a, a_row_stride, a_col_stride, a_height, x, x_stride, y, y_stride,
                             full_span(a_width));
        return 0;
    }
#endif
    product_loops(a, a_row_stride, a_col_stride, a_height, x, x_stride, 0, 1, y, y_stride, 0,
                  nullptr, a_width);
    return 0;
}

uint32_t mul_mv_lsc(const float *a, int32_t a_row_stride, int32_t a_col_stride, int32_t a_width,
                    int32_t a_height, const float *x, int32_t x_stride, int32_t x_len, float *y,
                    int32_t y_stride, uint16_t height, uint16_t width, uint16_t margin_y,
                    uint16_t margin_x)
{
    if (a_width != x_len)
        return 32;
    if (a_height < 1)
        return 0;
    const GridInterior in(height, width, margin_y, margin_x);
    if (!usable(a, x, y, !in.empty()) || !interior_fits(in, a_width))
        return 32;
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (vector_loops(a_row_stride)) {
        lsc_mul_mv_x86_64_v3(a, a_row_stride, a_col_stride, a_height, x, x_stride, y, y_stride,
                             interior_span(in));
        return 0;
    }
#endif
    product_loops(a, a_row_stride, a_col_stride, a_height, x, x_stride, 0, 1, y, y_stride, 0, &in,
                  a_width);
    return 0;
}
