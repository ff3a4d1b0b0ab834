/*
 * matrix_view.h - element addressing of the strided single-precision matrix
 * views of the linear-algebra kernels (internal).
 *
 * Offsets are formed in ptrdiff_t: a row index times a 32-bit stride does not
 * fit 32 bits for large views.
 */
#ifndef EJ_LSC_MATRIX_VIEW_H
#define EJ_LSC_MATRIX_VIEW_H

#include <cstddef>
#include <cstdint>

namespace ej_lsc {

inline const float *element(const float *base, ptrdiff_t r, ptrdiff_t c, int32_t row_stride,
                            int32_t col_stride)
{
    return reinterpret_cast<const float *>(reinterpret_cast<const char *>(base) + r * row_stride +
                                           c * col_stride);
}

inline float *element(float *base, ptrdiff_t r, ptrdiff_t c, int32_t row_stride,
                      int32_t col_stride)
{
    return reinterpret_cast<float *>(reinterpret_cast<char *>(base) + r * row_stride +
                                     c * col_stride);
}

/*
 * The interior of a width x height sample grid: iw x ih samples starting at
 * (margin_x, margin_y). The extents are signed; the interior is empty when
 * either is not positive. Interior sample k is grid sample
 * (margin_y + k / iw) * width + margin_x + k % iw, which is what a row-major
 * walk over the interior rows visits in ascending k.
 */
struct GridInterior {
    int64_t width;
    int64_t first_row;
    int64_t first_col;
    int64_t iw;
    int64_t ih;

    GridInterior(uint16_t height, uint16_t grid_width, uint16_t margin_y, uint16_t margin_x)
        : width(grid_width), first_row(margin_y), first_col(margin_x),
          iw(static_cast<int64_t>(grid_width) - 2 * static_cast<int64_t>(margin_x)),
          ih(static_cast<int64_t>(height) - 2 * static_cast<int64_t>(margin_y))
    {
    }
    bool empty() const { return iw <= 0 || ih <= 0; }
    // Grid index of the last interior sample (meaningful when not empty).
    int64_t last_sample() const
    {
        return (first_row + ih - 1) * width + first_col + iw - 1;
    }
};

} // namespace ej_lsc

#endif /* EJ_LSC_MATRIX_VIEW_H */
