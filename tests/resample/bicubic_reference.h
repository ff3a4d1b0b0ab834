// A small, deliberately plain reference of the bicubic kernels, written from
// their definition and independently of the library code: the padded buffer
// step by step, the 16 patch coefficients parsed from their written formulas,
// the cell walk as two per-axis maps (output index -> cell and fraction), and
// the direct Catmull-Rom evaluation of the resizers.
#ifndef EJ_TEST_BICUBIC_REFERENCE_H
#define EJ_TEST_BICUBIC_REFERENCE_H

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace bicubic_ref {

// The padded (W + 3) x (H + 3) buffer of a W x H plane of float values.
// A source extent of 1 extends its single row (column) as a constant.
inline std::vector<float> padded(const std::vector<float> &s, int w, int h)
{
    const int stride = w + 3;
    std::vector<float> b(static_cast<size_t>(stride) * (h + 3), 0.0f);
    auto B = [&](int r, int c) -> float & { return b[static_cast<size_t>(r) * stride + c]; };
    auto corner = [](float nh, float fh, float nv, float fv) {
        const float vertical = std::fmaf(2.0f, nv, -fv);
        return (std::fmaf(2.0f, nh, vertical) - fh) * 0.5f;
    };
    if (w == 0 || h == 0)
        return b;
    if (w == 1 || h == 1) {
        // Extend the non-degenerate axis (if any) linearly along one line,
        // then repeat that line over the degenerate axis.
        const int n = w == 1 ? h : w;
        std::vector<float> line(n + 3);
        for (int k = 0; k < n; ++k)
            line[k + 1] = s[k];
        if (n >= 2) {
            line[0] = 2.0f * line[1] - line[2];
            line[n + 1] = 2.0f * line[n] - line[n - 1];
            line[n + 2] = 2.0f * line[n + 1] - line[n];
        } else {
            line[0] = line[2] = line[3] = line[1];
        }
        for (int r = 0; r < h + 3; ++r)
            for (int c = 0; c < w + 3; ++c)
                B(r, c) = w == 1 ? line[r] : line[c];
        return b;
    }
    const int W = w, H = h;
    for (int r = 1; r <= H; ++r) {
        for (int c = 1; c <= W; ++c)
            B(r, c) = s[static_cast<size_t>(r - 1) * w + (c - 1)];
        B(r, 0) = 2.0f * B(r, 1) - B(r, 2);
        B(r, W + 1) = 2.0f * B(r, W) - B(r, W - 1);
        B(r, W + 2) = 2.0f * B(r, W + 1) - B(r, W);
    }
    for (int c = 1; c <= W; ++c) {
        B(0, c) = 2.0f * B(1, c) - B(2, c);
        B(H + 1, c) = 2.0f * B(H, c) - B(H - 1, c);
        B(H + 2, c) = 2.0f * B(H + 1, c) - B(H, c);
    }
    // Each corner from its two nearer neighbours along the row and the
    // column, in an order where both are already set.
    const int corners[9][2] = {{0, 0},         {0, W + 1},     {0, W + 2},
                               {H + 1, 0},     {H + 2, 0},     {H + 1, W + 1},
                               {H + 1, W + 2}, {H + 2, W + 1}, {H + 2, W + 2}};
    for (const auto &rc : corners) {
        const int r = rc[0], c = rc[1], dr = r == 0 ? 1 : -1, dc = c == 0 ? 1 : -1;
        B(r, c) = corner(B(r, c + dc), B(r, c + 2 * dc), B(r + dr, c), B(r + 2 * dr, c));
    }
    return b;
}

// The coefficients a00 .. a33 as written in their definition.
inline const char *const kCoefficientFormulas[16] = {
    "P11",
    "-0.5*P10 + 0.5*P12",
    "P10 - 2.5*P11 + 2*P12 - 0.5*P13",
    "-0.5*P10 + 1.5*P11 - 1.5*P12 + 0.5*P13",
    "-0.5*P01 + 0.5*P21",
    "0.25*P00 - 0.25*P02 - 0.25*P20 + 0.25*P22",
    "-0.5*P00 + 1.25*P01 - P02 + 0.25*P03 + 0.5*P20 - 1.25*P21 + P22 - 0.25*P23",
    "0.25*P00 - 0.75*P01 + 0.75*P02 - 0.25*P03 - 0.25*P20 + 0.75*P21 - 0.75*P22 + 0.25*P23",
    "P01 - 2.5*P11 + 2*P21 - 0.5*P31",
    "-0.5*P00 + 0.5*P02 + 1.25*P10 - 1.25*P12 - P20 + P22 + 0.25*P30 - 0.25*P32",
    "P00 - 2.5*P01 + 2*P02 - 0.5*P03 - 2.5*P10 + 6.25*P11 - 5*P12 + 1.25*P13 + 2*P20 - 5*P21 "
    "+ 4*P22 - P23 - 0.5*P30 + 1.25*P31 - P32 + 0.25*P33",
    "-0.5*P00 + 1.5*P01 - 1.5*P02 + 0.5*P03 + 1.25*P10 - 3.75*P11 + 3.75*P12 - 1.25*P13 - P20 "
    "+ 3*P21 - 3*P22 + P23 + 0.25*P30 - 0.75*P31 + 0.75*P32 - 0.25*P33",
    "-0.5*P01 + 1.5*P11 - 1.5*P21 + 0.5*P31",
    "0.25*P00 - 0.25*P02 - 0.75*P10 + 0.75*P12 + 0.75*P20 - 0.75*P22 - 0.25*P30 + 0.25*P32",
    "-0.5*P00 + 1.25*P01 - P02 + 0.25*P03 + 1.5*P10 - 3.75*P11 + 3*P12 - 0.75*P13 - 1.5*P20 "
    "+ 3.75*P21 - 3*P22 + 0.75*P23 + 0.5*P30 - 1.25*P31 + P32 - 0.25*P33",
    "0.25*P00 - 0.75*P01 + 0.75*P02 - 0.25*P03 - 0.75*P10 + 2.25*P11 - 2.25*P12 + 0.75*P13 "
    "+ 0.75*P20 - 2.25*P21 + 2.25*P22 - 0.75*P23 - 0.25*P30 + 0.75*P31 - 0.75*P32 + 0.25*P33",
};

// One written term ("-0.5*P10", "P22", "4*P22"): its sign, its weight (none
// when unwritten: the sample is used as it is) and its sample.
struct Term {
    char sign = '+';
    bool weighted = false;
    float weight = 1.0f;
    int r = 0, c = 0;
};

inline std::vector<Term> parse_formula(const char *formula)
{
    std::istringstream in(formula);
    std::vector<Term> terms;
    std::string token, sign = "+";
    while (in >> token) {
        if (token == "+" || token == "-") {
            sign = token;
            continue;
        }
        Term t;
        t.sign = sign[0];
        const size_t at = token.find('P');
        t.r = token[at + 1] - '0';
        t.c = token[at + 2] - '0';
        t.weighted = at > 0;
        if (t.weighted)
            t.weight = std::strtof(token.substr(0, at - 1).c_str(), nullptr);
        terms.push_back(t);
    }
    return terms;
}

// A written sum evaluated left to right in single precision.
inline float evaluate_formula(const std::vector<Term> &terms, const float p[4][4])
{
    float sum = 0.0f;
    for (size_t k = 0; k < terms.size(); ++k) {
        const Term &t = terms[k];
        const float value = t.weighted ? t.weight * p[t.r][t.c] : p[t.r][t.c];
        sum = k == 0 ? value : t.sign == '+' ? sum + value : sum - value;
    }
    return sum;
}

inline const std::vector<std::vector<Term>> &coefficient_terms()
{
    static const std::vector<std::vector<Term>> parsed = [] {
        std::vector<std::vector<Term>> all;
        for (const char *f : kCoefficientFormulas)
            all.push_back(parse_formula(f));
        return all;
    }();
    return parsed;
}

// Output index -> (cell, fraction) along one axis, following the run rules.
// cell = -1 marks an index that no cell emits.
struct AxisSample {
    int cell = -1;
    float fraction = 0.0f;
};

inline std::vector<AxisSample> axis_map(int src, int dst, float scale)
{
    std::vector<AxisSample> map(dst);
    int out = 0;
    for (int cell = 0; cell < src && out < dst; ++cell) {
        const int first = static_cast<int>(static_cast<float>(out) * scale);
        int k = 0;
        do {
            const float pos = static_cast<float>(out + k) * scale;
            map[out + k] = {cell, pos - std::trunc(pos)};
            ++k;
        } while (out + k < dst && static_cast<int>(static_cast<float>(out + k) * scale) == first);
        out += k;
    }
    return map;
}

// The bicubic upscale of one plane of float values; samples no cell emits
// keep the value in dst.
inline void upscale(const std::vector<float> &src, int sw, int sh, std::vector<float> &dst, int dw,
                    int dh)
{
    const std::vector<float> b = padded(src, sw, sh);
    auto scale = [](int s, int d) {
        return d == 1 ? 0.0f : (static_cast<float>(s) - 1.0f) / (static_cast<float>(d) - 1.0f);
    };
    const std::vector<AxisSample> rows = axis_map(sh, dh, scale(sh, dh));
    const std::vector<AxisSample> cols = axis_map(sw, dw, scale(sw, dw));
    for (int y = 0; y < dh; ++y) {
        for (int x = 0; x < dw; ++x) {
            if (rows[y].cell < 0 || cols[x].cell < 0)
                continue;
            float p[4][4];
            for (int r = 0; r < 4; ++r)
                for (int c = 0; c < 4; ++c)
                    p[r][c] = b[static_cast<size_t>(rows[y].cell + r) * (sw + 3) + cols[x].cell + c];
            float a[4][4];
            for (int k = 0; k < 16; ++k)
                a[k / 4][k % 4] = evaluate_formula(coefficient_terms()[k], p);
            const float fx = cols[x].fraction, fy = rows[y].fraction;
            const float fx2 = fx * fx, fx3 = fx * fx2, fy2 = fy * fy, fy3 = fy * fy2;
            float q[4];
            for (int m = 0; m < 4; ++m)
                q[m] = std::fmaf(a[m][3], fx3, std::fmaf(a[m][2], fx2, std::fmaf(a[m][1], fx, a[m][0])));
            const float v = std::fmaf(q[3], fy3, std::fmaf(q[2], fy2, std::fmaf(q[1], fy, q[0])));
            dst[static_cast<size_t>(y) * dw + x] = v > -255.0f ? std::fmin(v, 65535.0f) : -255.0f;
        }
    }
}

inline float catmull_rom(float p0, float p1, float p2, float p3, float t)
{
    const float a = 2.0f * p0 - 5.0f * p1 + 4.0f * p2 - p3;
    const float b = 3.0f * (p1 - p2) + p3 - p0;
    return std::fmaf(t * 0.5f, std::fmaf(t, std::fmaf(t, b, a), p2 - p0), p1);
}

// The u16p10 result of one sample: value x 1024 truncated, INT32_MIN outside
// the int32 range or for NaN, then the low 16 bits.
inline uint16_t to_u16p10(float v)
{
    const double scaled = static_cast<double>(v * 1024.0f);
    int32_t q = INT32_MIN;
    if (!std::isnan(scaled) && scaled > -2147483649.0 && scaled < 2147483648.0)
        q = static_cast<int32_t>(std::trunc(scaled));
    return static_cast<uint16_t>(static_cast<uint32_t>(q) & 0xFFFFu);
}

// The bicubic resize of a plane of float values to u16p10.
inline std::vector<uint16_t> resize(const std::vector<float> &src, int sh, int sw, int dh, int dw)
{
    const std::vector<float> b = padded(src, sw, sh);
    std::vector<uint16_t> dst(static_cast<size_t>(dh) * dw);
    for (int i = 0; i < dh; ++i) {
        const float y = (static_cast<float>(i) / (static_cast<float>(dh) - 1.0f)) *
                        (static_cast<float>(sh) - 1.0f);
        const int y0 = static_cast<int>(std::floor(y));
        for (int j = 0; j < dw; ++j) {
            const float x = (static_cast<float>(j) / (static_cast<float>(dw) - 1.0f)) *
                            (static_cast<float>(sw) - 1.0f);
            const int x0 = static_cast<int>(std::floor(x));
            auto B = [&](int r, int c) { return b[static_cast<size_t>(y0 + r) * (sw + 3) + x0 + c]; };
            float q[4];
            for (int r = 0; r < 4; ++r)
                q[r] = catmull_rom(B(r, 0), B(r, 1), B(r, 2), B(r, 3), x - std::floor(x));
            dst[static_cast<size_t>(i) * dw + j] =
                to_u16p10(catmull_rom(q[0], q[1], q[2], q[3], y - std::floor(y)));
        }
    }
    return dst;
}

// Bit patterns, so that comparisons are exact (and NaN compares to itself).
inline std::vector<uint32_t> bits(const std::vector<float> &v)
{
    std::vector<uint32_t> out(v.size());
    std::memcpy(out.data(), v.data(), v.size() * sizeof(float));
    return out;
}

} // namespace bicubic_ref

#endif // EJ_TEST_BICUBIC_REFERENCE_H
