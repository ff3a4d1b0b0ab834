// Nearest-neighbour scaling: two index rules.
//
// 16.16 stepping (uint32 and interleaved kernels): output k reads source
// index (k * step) >> 16 with step = (src << 16) / dst + 1. The position is
// accumulated in 64 bits: wherever the 32-bit accumulation of the rule does
// not wrap, the indices are the same, and a wrapped position could only have
// produced a meaningless index.
//
// Float ratio, 1-based (uint16 upscale, int32 downscale): output k reads
// ceil(k * ratio) - 1, with t = float(k) * ratio in single precision and two
// different tests of "t is integral".
//
// Both rules can pass the last source sample at the last outputs (a large
// enlargement makes (k * step) >> 16 reach the extent; single-precision
// rounding can put t just above the extent); the index is then limited to
// extent - 1, so the last sample is repeated instead of reading past the row.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ej_cmc_resample.h"
#include "isa_dispatch.h"
#include "nearest_block_max.h"

namespace {

constexpr uint32_t kStatusRejected = 32;

inline uint64_t min_u64(uint64_t a, uint64_t b)
{
    return a < b ? a : b;
}

// Source index of an output at 16.16 position acc, kept inside the source.
inline uint64_t step_index(uint64_t acc, uint64_t last)
{
    return min_u64(acc >> 16, last);
}

// 1-based float-ratio rule with the 0.0001 tolerance: a t whose fraction is
// below 0.0001 counts as integral (so 3 -> 21 still ends on index 2 when t
// rounds to 3.0000002).
inline uint32_t tolerant_index(uint32_t k, float ratio, uint32_t last)
{
    const float t = float(k) * ratio;
    const float whole = std::trunc(t);
    uint32_t i = uint32_t(whole);
    if (t - whole < 0.0001f && t >= 1.0f)
        --i;
    return i < last ? i : last;
}

// Output columns per strip: the source column of every output column of the
// strip is computed once per call and kept in a bounded stack table (the
// kernels allocate nothing), instead of once per output sample. 4096 columns
// (32 KiB) take a 4K row in one strip: rows cut into strips of 1024 measured
// up to twice as slow on enlargements, their short runs per row starving the
// hardware prefetchers.
constexpr uint32_t kStripColumns = 4096;

// Output rows moved together at most by walk_rows().
constexpr uint32_t kRowGroup = 4;

// Strips of output columns: strip(x0, n, table) handles outputs x0 ...
// x0 + n - 1, table[k] holding column_of(x0 + k) (an element offset).
template <typename ColumnOf, typename Strip>
void for_each_strip(uint32_t dst_width, ColumnOf column_of, Strip strip)
{
    size_t table[kStripColumns];
    for (uint32_t x0 = 0; x0 < dst_width; x0 += kStripColumns) {
        const uint32_t n = dst_width - x0 < kStripColumns ? dst_width - x0 : kStripColumns;
        for (uint32_t k = 0; k < n; ++k)
            table[k] = column_of(x0 + k);
        strip(x0, n, table);
    }
}

// The rows of one strip of n outputs (pixels of `pixel` elements): output
// row oy reads source row row_of(oy) (an element offset). An output row that
// reads the same source row as the previous one equals it, so it is copied
// from there; up to kRowGroup neighbouring output rows that read
// different source rows are moved together (several streams from memory at
// a time): move(outs, rows, count) moves the strips of count rows (rows
// increasing).
template <typename T, typename RowOf, typename Move>
void walk_rows(T *dst, uint32_t dst_width, uint32_t dst_height, size_t pixel, uint32_t x0,
               uint32_t n, RowOf row_of, Move move)
{
    const size_t dst_row = size_t(dst_width) * pixel;
    size_t previous = SIZE_MAX;
    for (uint32_t oy = 0; oy < dst_height;) {
        const size_t row = row_of(oy);
        T *out = dst + size_t(oy) * dst_row + size_t(x0) * pixel;
        if (row == previous) {
            std::memcpy(out, out - dst_row, size_t(n) * pixel * sizeof(T));
            ++oy;
            continue;
        }
        T *outs[kRowGroup] = {out};
        size_t rows[kRowGroup] = {row};
        uint32_t count = 1;
        while (count < kRowGroup && oy + count < dst_height) {
            const size_t next = row_of(oy + count);
            if (next == rows[count - 1])
                break;
            outs[count] = outs[count - 1] + dst_row;
            rows[count++] = next;
        }
        move(outs, rows, count);
        previous = rows[count - 1];
        oy += count;
    }
}

// The plain walk of the picking kernels (interleaved pixels other than one or
// three elements): output column ox of a strip reads element column_of(ox)
// of its row; copy(out, in) moves one pixel.
template <typename T, typename RowOf, typename ColumnOf, typename Copy>
void pick(const T *src, T *dst, uint32_t dst_width, uint32_t dst_height, size_t pixel,
          RowOf row_of, ColumnOf column_of, Copy copy)
{
    for_each_strip(dst_width, column_of, [&](uint32_t x0, uint32_t n, const size_t *table) {
        walk_rows(dst, dst_width, dst_height, pixel, x0, n, row_of,
                  [&](T *const *outs, const size_t *rows, uint32_t count) {
                      for (uint32_t r = 0; r < count; ++r) {
                          T *out = outs[r];
                          const T *line = src + rows[r];
                          for (uint32_t k = 0; k < n; ++k, out += pixel)
                              copy(out, line + table[k]);
                      }
                  });
    });
}

// Strips of R output rows of one-element pixels.
template <uint32_t R, typename T>
void move_singles(const T *src, const size_t *table, uint32_t n, T *const *outs,
                  const size_t *rows)
{
    T *out[R];
    const T *line[R];
    for (uint32_t r = 0; r < R; ++r) {
        out[r] = outs[r];
        line[r] = src + rows[r];
    }
    if constexpr (R == 1) {
        T *o = out[0];
        const T *l = line[0];
        for (uint32_t k = 0; k < n; ++k)
            o[k] = l[table[k]];
    } else {
        for (uint32_t k = 0; k < n; ++k) {
            const size_t column = table[k];
            for (uint32_t r = 0; r < R; ++r)
                out[r][k] = line[r][column];
        }
    }
}

// The same for strips whose columns advance by a fixed Step from `first`
// (whole-number reductions, equal extents): the picks are strided loads the
// compiler can vectorise (nearest_neighbor.cpp is built with the dynamic
// vectoriser cost model).
template <uint32_t R, uint32_t Step, typename T>
void move_singles_strided(const T *src, size_t first, uint32_t n, T *const *outs,
                          const size_t *rows)
{
    // Sections of 64 outputs, row after row, so that the R source rows
    // still stream together.
    for (uint32_t k0 = 0; k0 < n; k0 += 64) {
        const uint32_t k1 = n - k0 < 64 ? n : k0 + 64;
        for (uint32_t r = 0; r < R; ++r) {
            T *out = outs[r];
            const T *line = src + rows[r] + first;
            for (uint32_t k = k0; k < k1; ++k)
                out[k] = line[Step * k];
        }
    }
}

// Step of a strip's columns when they advance by 1 ... 4 from one output to
// the next, else 0.
inline uint32_t column_step(const size_t *table, uint32_t n)
{
    if (n < 2 || table[1] <= table[0] || table[1] - table[0] > 4)
        return 0;
    const size_t step = table[1] - table[0];
    for (uint32_t k = 2; k < n; ++k)
        if (table[k] - table[k - 1] != step)
            return 0;
    return uint32_t(step);
}

template <uint32_t Step, typename T>
void move_strided(const T *src, size_t first, uint32_t n, T *const *outs, const size_t *rows,
                  uint32_t count)
{
    switch (count) {
    case 1: move_singles_strided<1, Step>(src, first, n, outs, rows); break;
    case 2: move_singles_strided<2, Step>(src, first, n, outs, rows); break;
    case 3: move_singles_strided<3, Step>(src, first, n, outs, rows); break;
    default: move_singles_strided<4, Step>(src, first, n, outs, rows); break;
    }
}

// Whether every source column of a strip is read by exactly two
// neighbouring outputs, in order (table[k] == table[0] + k / 2): the
// enlargements by two.
inline bool doubled_columns(const size_t *table, uint32_t n)
{
    if (n < 2)
        return false;
    for (uint32_t k = 0; k < n; ++k)
        if (table[k] != table[0] + k / 2)
            return false;
    return true;
}

// The strips of count rows of such a strip: each source sample is stored
// twice, which the compiler vectorises (no gathered loads).
template <typename T>
void move_doubled(const T *src, size_t first, uint32_t n, T *const *outs, const size_t *rows,
                  uint32_t count)
{
    for (uint32_t r = 0; r < count; ++r) {
        T *out = outs[r];
        const T *line = src + rows[r] + first;
        for (uint32_t j = 0; j < n / 2; ++j) {
            const T value = line[j];
            out[2 * j] = value;
            out[2 * j + 1] = value;
        }
        if (n % 2 != 0)
            out[n - 1] = line[n / 2];
    }
}

// pick() for pixels of one element, several output rows at a time.
template <typename T, typename RowOf, typename ColumnOf>
void pick_singles(const T *src, T *dst, uint32_t dst_width, uint32_t dst_height, RowOf row_of,
                  ColumnOf column_of)
{
    for_each_strip(dst_width, column_of, [&](uint32_t x0, uint32_t n, const size_t *table) {
        // Evenly spaced columns take the strided loads (measured faster than
        // the table's picks for 16- and 32-bit samples alike).
        const uint32_t step = column_step(table, n);
        const bool doubled = step == 0 && doubled_columns(table, n);
        walk_rows(dst, dst_width, dst_height, 1, x0, n, row_of,
                  [&](T *const *outs, const size_t *rows, uint32_t count) {
                      if (doubled) {
                          move_doubled(src, table[0], n, outs, rows, count);
                          return;
                      }
                      switch (step) {
                      case 1: move_strided<1>(src, table[0], n, outs, rows, count); return;
                      case 2: move_strided<2>(src, table[0], n, outs, rows, count); return;
                      case 3: move_strided<3>(src, table[0], n, outs, rows, count); return;
                      case 4: move_strided<4>(src, table[0], n, outs, rows, count); return;
                      default: break;
                      }
                      switch (count) {
                      case 1: move_singles<1>(src, table, n, outs, rows); break;
                      case 2: move_singles<2>(src, table, n, outs, rows); break;
                      case 3: move_singles<3>(src, table, n, outs, rows); break;
                      default: move_singles<4>(src, table, n, outs, rows); break;
                      }
                  });
    });
}

// Strips of R output rows of three-channel pixels: outputs 0 ... wide - 1
// as blocks (wide is that of the last row, the lowest of the group), the
// others value by value.
template <uint32_t R>
void move_triples(const int32_t *src, const size_t *table, uint32_t n, uint32_t wide,
                  int32_t *const *outs, const size_t *rows)
{
    int32_t *out[R];
    const int32_t *line[R];
    for (uint32_t r = 0; r < R; ++r) {
        out[r] = outs[r];
        line[r] = src + rows[r];
    }
    uint32_t k = 0;
    for (; k < wide; ++k)
        for (uint32_t r = 0; r < R; ++r)
            std::memcpy(out[r] + 3 * size_t(k), line[r] + table[k], 4 * sizeof(int32_t));
    for (; k < n; ++k) {
        for (uint32_t r = 0; r < R; ++r) {
            const int32_t *in = line[r] + table[k];
            int32_t *o = out[r] + 3 * size_t(k);
            o[0] = in[0];
            o[1] = in[1];
            o[2] = in[2];
        }
    }
}

// The walk of pick() for pixels of three 32-bit values, each moved as one
// 16-byte block: its three values and the element after them. The pixels of
// a row are written left to right, so the next pixel overwrites the extra
// element; the last pixel of every strip row, and the pixels whose block
// would end past the source plane, are moved value by value. Every output
// element ends up holding its pixel's value, and nothing outside the source
// plane is read, nor outside the destination written.
template <typename RowOf, typename ColumnOf>
void pick_triples(const int32_t *src, size_t src_elements, int32_t *dst, uint32_t dst_width,
                  uint32_t dst_height, RowOf row_of, ColumnOf column_of)
{
    for_each_strip(dst_width, column_of, [&](uint32_t x0, uint32_t n, const size_t *table) {
        // Outputs 0 ... wide(row) - 1 of a row are moved as blocks (the
        // columns grow with k, the rows with the output row).
        const auto wide = [&](size_t row) {
            uint32_t w = n - 1;
            while (w > 0 && row + table[w - 1] + 4 > src_elements)
                --w;
            return w;
        };
        walk_rows(dst, dst_width, dst_height, 3, x0, n, row_of,
                  [&](int32_t *const *outs, const size_t *rows, uint32_t count) {
                      switch (count) {
                      case 1: move_triples<1>(src, table, n, wide(rows[0]), outs, rows); break;
                      case 2: move_triples<2>(src, table, n, wide(rows[1]), outs, rows); break;
                      case 3: move_triples<3>(src, table, n, wide(rows[2]), outs, rows); break;
                      default: move_triples<4>(src, table, n, wide(rows[3]), outs, rows); break;
                      }
                  });
    });
}

} // namespace

uint32_t image_nearest_neighbor_scale_interleaved_int32(const int32_t *src, uint32_t src_width,
                                                        uint32_t src_height, uint32_t channels,
                                                        int32_t *dst, uint32_t dst_width,
                                                        uint32_t dst_height)
{
    // A source height of 0 has no row to read, so it is rejected like a width
    // of 0; extents from 65536 on would overflow the 16.16 step.
    if (src == nullptr || dst == nullptr || src_width == 0 || src_height == 0 ||
        dst_height == 0 || src_width > 0xFFFFu || src_height > 0xFFFFu)
        return kStatusRejected;
    if (dst_width == 0 || channels == 0)
        return 0;

    const uint32_t step_x = (src_width << 16) / dst_width + 1;
    const uint32_t step_y = (src_height << 16) / dst_height + 1;
    const size_t pixel = channels;
    const size_t src_row = size_t(src_width) * pixel;
    const auto row_of = [=](uint32_t oy) {
        return size_t(step_index(uint64_t(oy) * step_y, src_height - 1)) * src_row;
    };
    const auto column_of = [=](uint32_t ox) {
        return size_t(step_index(uint64_t(ox) * step_x, src_width - 1)) * pixel;
    };
    // The run of channels of a pixel is one block; common small runs are
    // copied without a call.
    switch (channels) {
    case 1:
        pick_singles(src, dst, dst_width, dst_height, row_of, column_of);
        break;
    case 3:
        pick_triples(src, size_t(src_height) * src_row, dst, dst_width, dst_height, row_of,
                     column_of);
        break;
    case 4:
        pick(src, dst, dst_width, dst_height, 4, row_of, column_of,
             [](int32_t *out, const int32_t *in) { std::memcpy(out, in, 4 * sizeof(int32_t)); });
        break;
    default:
        pick(src, dst, dst_width, dst_height, pixel, row_of, column_of,
             [pixel](int32_t *out, const int32_t *in) {
                 std::memcpy(out, in, pixel * sizeof(int32_t));
             });
    }
    return 0;
}

uint32_t image_nearest_neighbor_scale_uint32(const uint32_t *src, int32_t src_width,
                                             int32_t src_height, uint32_t *dst,
                                             int32_t dst_width, int32_t dst_height)
{
    // src << 16 must stay a positive signed 32-bit value.
    if (src == nullptr || dst == nullptr || src_width <= 0 || src_height <= 0 ||
        dst_width <= 0 || dst_height <= 0 || src_width > 0x7FFF || src_height > 0x7FFF)
        return kStatusRejected;

    const int32_t step_x = int32_t(uint32_t(src_width) << 16) / dst_width + 1;
    const int32_t step_y = int32_t(uint32_t(src_height) << 16) / dst_height + 1;

    const size_t stride = size_t(src_width);
    pick_singles(src, dst, uint32_t(dst_width), uint32_t(dst_height),
         [=](uint32_t oy) {
             return size_t(step_index(uint64_t(oy) * uint64_t(step_y), uint64_t(src_height) - 1)) * stride;
         },
         [=](uint32_t ox) {
             return size_t(step_index(uint64_t(ox) * uint64_t(step_x), uint64_t(src_width) - 1));
         });
    return 0;
}

uint32_t image_upscale_nearest_neighbor_uint16(const uint16_t *src, uint16_t *dst,
                                               uint16_t src_width, uint16_t src_height,
                                               uint16_t dst_width, uint16_t dst_height)
{
    if (src_width < 2 || src_height < 2 || dst_width < 2 || dst_height < 2)
        return kStatusRejected;

    const float ratio_x = float(src_width) / float(dst_width);
    const float ratio_y = float(src_height) / float(dst_height);

    // Output positions are counted in 32 bits, so a destination extent of
    // 65535 is handled like any other.
    const size_t stride = src_width;
    pick_singles(src, dst, dst_width, dst_height,
         [=](uint32_t oy) { return size_t(tolerant_index(oy + 1, ratio_y, src_height - 1u)) * stride; },
         [=](uint32_t ox) { return size_t(tolerant_index(ox + 1, ratio_x, src_width - 1u)); });
    return 0;
}

uint32_t image_downscale_nearest_neighbor_int32(const int32_t *src, int32_t *dst,
                                                uint16_t src_width, uint16_t src_height,
                                                uint16_t dst_width, uint16_t dst_height,
                                                uint8_t use_max)
{
    if (src_width < 2 || src_height < 2 || dst_width < 2 || dst_height < 2)
        return kStatusRejected;

    const float ratio_x = float(src_width) / float(dst_width);
    const float ratio_y = float(src_height) / float(dst_height);
    const size_t stride = src_width;

    // The block maximum covers the samples after the previous output's picked
    // row (column) up to the output's own. The first output row and the first
    // output of every row start from a previous index of 0, so source row 0
    // and column 0 never enter a maximum. This is the kernel's established
    // output, which the camera stack's callers are tuned to; starting the
    // first block at index 0 instead would change the first output row and
    // column of every call.
    if (use_max == 0) {
        pick_singles(src, dst, dst_width, dst_height,
             [=](uint32_t oy) { return size_t(exact_index(oy + 1, ratio_y, src_height - 1u)) * stride; },
             [=](uint32_t ox) { return size_t(exact_index(ox + 1, ratio_x, src_width - 1u)); });
        return 0;
    }
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (cmc_isa_selected() == cmc_isa::x86_64_v3) {
        nearest_block_max_x86_64_v3(src, dst, src_width, src_height, dst_width, dst_height,
                                    ratio_x, ratio_y);
        return 0;
    }
#endif
    block_max_all(src, dst, src_width, src_height, dst_width, dst_height, ratio_x, ratio_y);
    return 0;
}
