// The padded buffer that every bicubic kernel interpolates from.
#include <cmath>
#include <cstring>

#include "bicubic_internal.h"

namespace {

// Linear extrapolation of an edge: one step beyond near, away from far.
inline float extrapolate(float near_value, float far_value)
{
    return 2.0f * near_value - far_value;
}

// A corner: the mean of its horizontal and vertical extrapolation, evaluated
// as ((2 near_h + (2 near_v - far_v)) - far_h) * 0.5 with fused doublings.
inline float corner(float near_h, float far_h, float near_v, float far_v)
{
    return (std::fma(2.0f, near_h, std::fma(2.0f, near_v, -far_v)) - far_h) * 0.5f;
}

// Fills the border around data rows 1..H, columns 1..W already in place.
//
// A source extent of 1 has no far sample to extrapolate from: the only linear
// extension of a single sample is the constant one, so on that axis every
// border column (row) repeats the data column (row). The formulas give the
// same values for a two-sample axis whose samples are equal; the replication
// keeps the other border values out of the neighbourhood arithmetic, so with
// the zero scale such an axis has, only the data column (row) carries weight.
//
// With edges_only, the border columns are filled in data rows 1, 2, H - 1 and
// H only (the rows the border rows and corners are extrapolated from); the
// other rows' border columns depend on their own row alone.
void complete_border(float *buffer, size_t width, size_t height, bool edges_only = false)
{
    const size_t w = width;
    const size_t h = height;
    const size_t stride = w + 3;
    auto at = [buffer, stride](size_t r, size_t c) -> float & { return buffer[r * stride + c]; };

    for (size_t r = 1; r <= h; ++r) {
        if (edges_only && r > 2 && r + 1 < h)
            r = h - 1; // rows 3 .. H - 2 are skipped
        if (w >= 2) {
            at(r, 0) = extrapolate(at(r, 1), at(r, 2));
            at(r, w + 1) = extrapolate(at(r, w), at(r, w - 1));
            at(r, w + 2) = extrapolate(at(r, w + 1), at(r, w));
        } else {
            at(r, 0) = at(r, 1);
            at(r, 2) = at(r, 1);
            at(r, 3) = at(r, 1);
        }
    }

    if (h == 1) {
        std::memcpy(&at(0, 0), &at(1, 0), stride * sizeof(float));
        std::memcpy(&at(2, 0), &at(1, 0), stride * sizeof(float));
        std::memcpy(&at(3, 0), &at(1, 0), stride * sizeof(float));
        return;
    }

    // Replicates the data column of border row r into its border columns
    // (source width 1).
    auto replicate_corners = [&at](size_t r) {
        at(r, 0) = at(r, 1);
        at(r, 2) = at(r, 1);
        at(r, 3) = at(r, 1);
    };

    for (size_t c = 1; c <= w; ++c)
        at(0, c) = extrapolate(at(1, c), at(2, c));

    if (w >= 2) {
        at(0, 0) = corner(at(0, 1), at(0, 2), at(1, 0), at(2, 0));
        at(0, w + 1) = corner(at(0, w), at(0, w - 1), at(1, w + 1), at(2, w + 1));
        at(0, w + 2) = corner(at(0, w + 1), at(0, w), at(1, w + 2), at(2, w + 2));
    } else {
        replicate_corners(0);
    }

    for (size_t c = 1; c <= w; ++c) {
        at(h + 1, c) = extrapolate(at(h, c), at(h - 1, c));
        at(h + 2, c) = extrapolate(at(h + 1, c), at(h, c));
    }

    if (w >= 2) {
        at(h + 1, 0) = corner(at(h + 1, 1), at(h + 1, 2), at(h, 0), at(h - 1, 0));
        at(h + 2, 0) = corner(at(h + 2, 1), at(h + 2, 2), at(h + 1, 0), at(h, 0));
        at(h + 1, w + 1) = corner(at(h + 1, w), at(h + 1, w - 1), at(h, w + 1), at(h - 1, w + 1));
        at(h + 1, w + 2) = corner(at(h + 1, w + 1), at(h + 1, w), at(h, w + 2), at(h - 1, w + 2));
        at(h + 2, w + 1) = corner(at(h + 2, w), at(h + 2, w - 1), at(h + 1, w + 1), at(h, w + 1));
        at(h + 2, w + 2) = corner(at(h + 2, w + 1), at(h + 2, w), at(h + 1, w + 2), at(h, w + 2));
    } else {
        replicate_corners(h + 1);
        replicate_corners(h + 2);
    }
}

// Copies the converted source rows into place, then fills the border. A zero
// extent leaves the buffer unwritten: no kernel reads it then (the border
// formulas would reach outside the buffer).
//
// With edges_only, only the rows the border is extrapolated from (source rows
// 0, 1, H - 2 and H - 1) are copied, and then only those rows and the border
// rows are completed.
template <typename Sample, typename Convert>
void build(const Sample *src, float *buffer, uint16_t width, uint16_t height, Convert convert,
           bool edges_only = false)
{
    if (width == 0 || height == 0)
        return;
    const size_t w = width;
    const size_t stride = w + 3;
    for (size_t y = 0; y < height; ++y) {
        if (edges_only && y > 1 && y + 2 < height)
            y = height - 2; // source rows 2 .. H - 3 are skipped
        const Sample *row = src + y * w;
        float *out = buffer + (y + 1) * stride + 1;
        for (size_t x = 0; x < w; ++x)
            out[x] = convert(row[x]);
    }
    complete_border(buffer, w, height, edges_only);
}

float fixed_point_scale(int32_t frac_bits)
{
    return 1.0f / static_cast<float>(UINT32_C(1) << (static_cast<uint32_t>(frac_bits) & 31u));
}

} // namespace

void create_buffer_for_bicubic_uint16(const uint16_t *src, float *buffer, uint16_t width,
                                      uint16_t height, int32_t frac_bits)
{
    const float scale = fixed_point_scale(frac_bits);
    build(src, buffer, width, height,
          [scale](uint16_t s) { return static_cast<float>(s) * scale; });
}

void create_buffer_edges_for_bicubic_uint16(const uint16_t *src, float *buffer, uint16_t width,
                                            uint16_t height, int32_t frac_bits)
{
    const float scale = fixed_point_scale(frac_bits);
    build(src, buffer, width, height,
          [scale](uint16_t s) { return static_cast<float>(s) * scale; }, true);
}

void create_buffer_edges_for_bicubic_float(const float *src, float *buffer, uint16_t width,
                                           uint16_t height)
{
    build(src, buffer, width, height, [](float s) { return s; }, true);
}

void create_buffer_for_bicubic_uint8(const uint8_t *src, float *buffer, uint16_t width,
                                     uint16_t height)
{
    build(src, buffer, width, height, [](uint8_t s) { return static_cast<float>(s); });
}

void create_buffer_for_bicubic_float(const float *src, float *buffer, uint16_t width,
                                     uint16_t height)
{
    // The samples are copied unchanged: whole rows at a time.
    if (width == 0 || height == 0)
        return;
    const size_t w = width;
    for (size_t y = 0; y < height; ++y)
        std::memcpy(buffer + (y + 1) * (w + 3) + 1, src + y * w, w * sizeof(float));
    complete_border(buffer, w, height);
}
