// The block-maximum mode of the int32 nearest-neighbour downscale, shared by
// the portable build and the x86-64-v3 one (where the same loops are
// compiled with wider vectors; a maximum is exact in any grouping).
//
// Everything here has internal linkage (anonymous namespace) and calls no
// inline function with external linkage: the header is compiled once for the
// portable target and once for x86-64-v3, and a shared out-of-line copy could
// otherwise be taken from the wrong one (see bicubic_math.h).
#ifndef EJ_CMC_NEAREST_BLOCK_MAX_H
#define EJ_CMC_NEAREST_BLOCK_MAX_H

#include <cstddef>
#include <cstdint>

namespace {

// 1-based float-ratio rule where only an exactly integral t counts; the
// integer part is taken modulo 2^16 as the kernel's 16-bit index.
inline uint32_t exact_index(uint32_t k, float ratio, uint32_t last)
{
    const float t = float(k) * ratio;
    uint32_t i = uint32_t(__builtin_truncf(t)) & 0xFFFFu;
    if (t - float(i) == 0.0f && i != 0)
        --i;
    return i < last ? i : last;
}

// Outputs per strip: their picked columns are tabled on the stack (8 KiB).
// A strip as wide as a 4K row lets the column maxima walk whole source rows,
// one contiguous stream per row, instead of revisiting every row per strip.
constexpr uint32_t kBlockStripColumns = 2048;

// Maximum of 0 and the samples in rows y_begin ... y_end - 1 and columns
// x_begin ... x_end - 1 (an empty range gives 0).
int32_t block_max(const int32_t *src, size_t stride, uint32_t y_begin, uint32_t y_end,
                  uint32_t x_begin, uint32_t x_end)
{
    int32_t best = 0;
    for (uint32_t y = y_begin; y < y_end; ++y) {
        const int32_t *line = src + size_t(y) * stride;
        for (uint32_t x = x_begin; x < x_end; ++x)
            best = line[x] > best ? line[x] : best;
    }
    return best;
}

// How the blocks of a strip of outputs lie across the columns: every block
// after the first `width` columns long (1 ... 4), or at most one column
// (`width` 0), or neither (`width` -1).
struct strip_shape {
    int32_t width;
};

// Block k of a strip covers relative columns ends[k - 1] ... ends[k] - 1
// (ends[-1] = 0).
strip_shape shape_of(const uint32_t *ends, uint32_t n)
{
    bool narrow = ends[0] <= 1;
    const uint32_t width = n > 1 ? ends[1] - ends[0] : 1;
    bool uniform = width >= 1 && width <= 4;
    for (uint32_t k = 1; k < n; ++k) {
        narrow = narrow && ends[k] - ends[k - 1] <= 1;
        uniform = uniform && ends[k] - ends[k - 1] == width;
    }
    if (uniform)
        return {int32_t(width)};
    return {narrow ? 0 : -1};
}

// Blocks after the first, all Width columns long, from column `start` on;
// fixed-length maxima that the compiler can vectorise.
template <uint32_t Width>
void across_uniform(const int32_t *maxima, int32_t *out, uint32_t start, uint32_t n)
{
    const int32_t *m = maxima + start;
    for (uint32_t k = 0; k < n; ++k) {
        int32_t best = m[Width * k];
        if (Width > 1)
            best = m[Width * k + 1] > best ? m[Width * k + 1] : best;
        if (Width > 2)
            best = m[Width * k + 2] > best ? m[Width * k + 2] : best;
        if (Width > 3)
            best = m[Width * k + 3] > best ? m[Width * k + 3] : best;
        out[k] = best;
    }
}

// The second pass: out[k] = maximum of the column maxima (each already at
// least 0) of block k, 0 for an empty block.
void across(const int32_t *maxima, int32_t *out, const uint32_t *ends, uint32_t n,
            strip_shape shape)
{
    if (shape.width == 0) {
        // Blocks of one column or none: a choice, no loop.
        uint32_t begin = 0;
        for (uint32_t k = 0; k < n; ++k) {
            const uint32_t end = ends[k];
            out[k] = end > begin ? maxima[end - 1] : 0;
            begin = end;
        }
        return;
    }
    uint32_t begin = 0;
    const uint32_t first = shape.width > 0 ? 1 : n; // blocks taken by the general loop
    for (uint32_t k = 0; k < first; ++k) {
        const uint32_t end = ends[k];
        int32_t best = 0;
        for (uint32_t c = begin; c < end; ++c)
            best = maxima[c] > best ? maxima[c] : best;
        out[k] = best;
        begin = end;
    }
    switch (shape.width) {
    case 1: across_uniform<1>(maxima, out + 1, ends[0], n - 1); break;
    case 2: across_uniform<2>(maxima, out + 1, ends[0], n - 1); break;
    case 3: across_uniform<3>(maxima, out + 1, ends[0], n - 1); break;
    case 4: across_uniform<4>(maxima, out + 1, ends[0], n - 1); break;
    default: break;
    }
}

// Source columns whose maxima down a band of rows are kept at once (16 KiB
// of stack).
constexpr uint32_t kMaxColumns = 4096;

// Block maxima of one strip of outputs: n outputs whose columns (the picked
// source column of each) are columns[0 ... n - 1], the output before the
// strip having picked column prev_x; the table is turned into the blocks'
// ends in place. A maximum is associative and
// commutative, so each output row's blocks are taken in two passes that
// read every source sample once: the maximum of 0 and each column down the
// band's rows, then the maximum of those across each output's columns.
void block_max_strip(const int32_t *src, int32_t *dst, size_t stride, uint32_t dst_width,
                     uint32_t dst_height, uint32_t *columns, uint32_t n, uint32_t prev_x,
                     float ratio_y, uint32_t last_row)
{
    if (n == 0)
        return;
    // Columns prev_x + 1 ... columns[n - 1] enter a maximum; the caller
    // keeps them within kMaxColumns.
    const uint32_t lo = prev_x + 1;
    const uint32_t span = columns[n - 1] + 1 > lo ? columns[n - 1] + 1 - lo : 0;
    // End of every output's block, relative to lo (the columns grow with k).
    uint32_t *const ends = columns;
    for (uint32_t k = 0; k < n; ++k)
        ends[k] = columns[k] - prev_x;
    const strip_shape shape = shape_of(ends, n);
    int32_t maxima[kMaxColumns];
    uint32_t prev_y = 0;
    for (uint32_t ky = 1; ky <= dst_height; ++ky) {
        const uint32_t iy = exact_index(ky, ratio_y, last_row);
        int32_t *out = dst + size_t(ky - 1) * dst_width;
        if (iy <= prev_y) {
            for (uint32_t k = 0; k < n; ++k)
                out[k] = 0;
            continue;
        }
        // Two or three rows per pass where the band has them: fewer passes
        // over the maxima, several streams of source rows at a time.
        const int32_t *line = src + size_t(prev_y + 1) * stride + lo;
        uint32_t y = prev_y + 1;
        if (y + 1 < iy) {
            const int32_t *next = line + stride, *third = next + stride;
            for (uint32_t c = 0; c < span; ++c) {
                const int32_t top = line[c] > 0 ? line[c] : 0;
                const int32_t pair = third[c] > next[c] ? third[c] : next[c];
                maxima[c] = pair > top ? pair : top;
            }
            y += 3;
            line += 3 * stride;
        } else if (y < iy) {
            const int32_t *next = line + stride;
            for (uint32_t c = 0; c < span; ++c) {
                const int32_t top = line[c] > 0 ? line[c] : 0;
                maxima[c] = next[c] > top ? next[c] : top;
            }
            y += 2;
            line += 2 * stride;
        } else {
            for (uint32_t c = 0; c < span; ++c)
                maxima[c] = line[c] > 0 ? line[c] : 0;
            y += 1;
            line += stride;
        }
        for (; y < iy; y += 2, line += 2 * stride) {
            const int32_t *next = line + stride;
            for (uint32_t c = 0; c < span; ++c) {
                const int32_t pair = next[c] > line[c] ? next[c] : line[c];
                maxima[c] = pair > maxima[c] ? pair : maxima[c];
            }
        }
        if (y == iy) {
            for (uint32_t c = 0; c < span; ++c)
                maxima[c] = line[c] > maxima[c] ? line[c] : maxima[c];
        }
        across(maxima, out, ends, n, shape);
        prev_y = iy;
    }
}

// The whole block-maximum output. The column of every output of a strip is
// tabled once (bounded stack table); so is the previous output's column,
// which starts the block. A strip ends before its blocks span more than
// kMaxColumns source columns; a single output wider than that is taken
// directly.
inline void block_max_all(const int32_t *src, int32_t *dst, uint32_t src_width,
                          uint32_t src_height, uint32_t dst_width, uint32_t dst_height,
                          float ratio_x, float ratio_y)
{
    const size_t stride = src_width;
    uint32_t columns[kBlockStripColumns];
    for (uint32_t x0 = 0; x0 < dst_width;) {
        const uint32_t prev_x = x0 == 0 ? 0 : exact_index(x0, ratio_x, src_width - 1u);
        uint32_t n = 0;
        while (n < kBlockStripColumns && x0 + n < dst_width) {
            const uint32_t column = exact_index(x0 + n + 1, ratio_x, src_width - 1u);
            if (n > 0 && column - prev_x > kMaxColumns)
                break;
            columns[n++] = column;
        }
        if (columns[0] > prev_x && columns[0] - prev_x > kMaxColumns) {
            uint32_t prev_y = 0;
            for (uint32_t ky = 1; ky <= dst_height; ++ky) {
                const uint32_t iy = exact_index(ky, ratio_y, src_height - 1u);
                const bool rows = iy > prev_y;
                const uint32_t x_end = columns[0] + 1;
                dst[size_t(ky - 1) * dst_width + x0] =
                    rows ? block_max(src, stride, prev_y + 1, iy + 1, prev_x + 1, x_end) : 0;
                prev_y = rows ? iy : prev_y;
            }
            x0 += 1;
            continue;
        }
        block_max_strip(src, dst + x0, stride, dst_width, dst_height, columns, n, prev_x, ratio_y,
                        src_height - 1u);
        x0 += n;
    }
}

} // namespace

#if defined(EJ_CMC_HAVE_X86_64_V3)
// block_max_all() compiled for x86-64-v3.
void nearest_block_max_x86_64_v3(const int32_t *src, int32_t *dst, uint32_t src_width,
                                 uint32_t src_height, uint32_t dst_width, uint32_t dst_height,
                                 float ratio_x, float ratio_y);
#endif

#endif // EJ_CMC_NEAREST_BLOCK_MAX_H
