// LU decomposition of a square single-precision matrix: Doolittle elimination
// without row exchanges on a working copy, L (unit diagonal, not stored)
// below the diagonal of the destination and U on and above it.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "allocation.h"
#include "isa_dispatch.h"
#include "lsc_x86_64_v3.h"
#include "ej_cmc_lsc.h"
#include "matrix_view.h"

using ej_lsc::element;

namespace {

// The working copy is a dense block of n * n floats addressed with the
// source's strides. Those strides must therefore address elements inside the
// block (normally (4n, 4) or (4, 4n)); other strides would take the
// elimination outside the copy, so they are refused.
bool strides_fit_block(int32_t row_stride, int32_t col_stride, int64_t n)
{
    if (row_stride < 0 || col_stride < 0 || row_stride % 4 != 0 || col_stride % 4 != 0)
        return false;
    const int64_t last = (n - 1) * row_stride + (n - 1) * col_stride;
    return last + 4 <= n * n * 4;
}

} // namespace

uint32_t lu_decomposition_m(const float *src, int32_t src_row_stride, int32_t src_col_stride,
                            uint32_t *pivot, float *dst, int32_t dst_row_stride,
                            int32_t dst_col_stride, int32_t size)
{
    // Nothing to decompose: returns before allocating, so that a negative
    // size never turns into a copy of size * size floats.
    if (size < 1)
        return 0;
    const int64_t n = size;
    // Beyond the statuses of the elimination itself: a missing destination
    // or pivot array, or source strides that do not address the dense block,
    // return 32 with nothing written.
    if (pivot == nullptr || dst == nullptr || !strides_fit_block(src_row_stride, src_col_stride, n))
        return 32;

    const size_t count = static_cast<size_t>(n) * static_cast<size_t>(n);
    float *work = static_cast<float *>(cmc_calloc(count, sizeof(float)));
    if (work == nullptr)
        return 4;
    if (src != nullptr)
        std::memcpy(work, src, count * sizeof(float));

    auto a = [&](int64_t r, int64_t c) -> float & {
        return *element(work, r, c, src_row_stride, src_col_stride);
    };
    auto out = [&](int64_t r, int64_t c) -> float & {
        return *element(dst, r, c, dst_row_stride, dst_col_stride);
    };

#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (cmc_isa_selected() == cmc_isa::x86_64_v3) {
        lsc_lu_eliminate_x86_64_v3(work, src_row_stride, src_col_stride, pivot, dst,
                                   dst_row_stride, dst_col_stride, n);
        std::free(work);
        return 0;
    }
#endif
    out(0, 0) = a(0, 0);
    for (int64_t k = 0; k + 1 < n; ++k) {
        const float p = a(k, k);
        for (int64_t i = k + 1; i < n; ++i) {
            out(i, k) = a(i, k) / p;
            out(k, i) = a(k, i);
        }
        for (int64_t i = k + 1; i < n; ++i)
            for (int64_t j = k + 1; j < n; ++j)
                a(i, j) = std::fma(-out(i, k), out(k, j), a(i, j));
        out(k + 1, k + 1) = a(k + 1, k + 1);
        pivot[k] = static_cast<uint32_t>(k);
    }
    pivot[n - 1] = static_cast<uint32_t>(n - 1);
    std::free(work);
    return 0;
}
