// Test reference of the polynomial lens-shading fit: plain loops on dense
// row-major matrices, the same operation order and the same fused
// multiply-adds as the library is meant to use, written independently of it.
#ifndef EJTEST_LSC_REFERENCE_H
#define EJTEST_LSC_REFERENCE_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace ejtest::lscref {

using Matrix = std::vector<float>; // dense row-major

// Grid indices of the interior samples, in the order the fit visits them.
inline std::vector<size_t> interior(int width, int height, int margin_y, int margin_x)
{
    std::vector<size_t> s;
    const int iw = width - 2 * margin_x;
    const int ih = height - 2 * margin_y;
    for (int k = 0; iw > 0 && ih > 0 && k < iw * ih; ++k)
        s.push_back(static_cast<size_t>((margin_y + k / iw) * width + margin_x + k % iw));
    return s;
}

inline std::vector<size_t> all_samples(size_t n)
{
    std::vector<size_t> s(n);
    for (size_t i = 0; i < n; ++i)
        s[i] = i;
    return s;
}

// (rows x inner) * (inner x cols), the inner sum over the given indices.
inline Matrix mul(const Matrix &a, const Matrix &b, size_t rows, size_t inner, size_t cols,
                  const std::vector<size_t> &over)
{
    Matrix out(rows * cols);
    for (size_t i = 0; i < rows; ++i)
        for (size_t j = 0; j < cols; ++j) {
            float acc = 0.0f;
            for (size_t k : over)
                acc = std::fma(a[i * inner + k], b[k * cols + j], acc);
            out[i * cols + j] = acc;
        }
    return out;
}

inline Matrix lu(Matrix a, size_t n)
{
    Matrix out(n * n);
    for (size_t k = 0; k < n; ++k) {
        for (size_t j = k; j < n; ++j)
            out[k * n + j] = a[k * n + j];
        for (size_t i = k + 1; i < n; ++i)
            out[i * n + k] = a[i * n + k] / a[k * n + k];
        for (size_t i = k + 1; i < n; ++i)
            for (size_t j = k + 1; j < n; ++j)
                a[i * n + j] = std::fma(-out[i * n + k], out[k * n + j], a[i * n + j]);
    }
    return out;
}

inline std::vector<float> design_row(uint32_t x, uint32_t y)
{
    const float fx = float(x), fy = float(y), x2 = float(x * x), y2 = float(y * y),
                x3 = float(x * x * x), y3 = float(y * y * y);
    return {1, fx, fy, x2, fx * fy, y2, x3, x2 * fy, fx * y2, y3, fx * x3, x3 * fy, x2 * y2,
            fx * y3, fy * y3};
}

inline Matrix design(int width, int height)
{
    Matrix d;
    for (int y = 1; y <= height; ++y)
        for (int x = 1; x <= width; ++x)
            for (float v : design_row(uint32_t(x), uint32_t(y)))
                d.push_back(v);
    return d;
}

inline Matrix transpose(const Matrix &a, size_t rows, size_t cols)
{
    Matrix t(a.size());
    for (size_t r = 0; r < rows; ++r)
        for (size_t c = 0; c < cols; ++c)
            t[c * rows + r] = a[r * cols + c];
    return t;
}

// Coefficients of the fit of z (a width x height plane) over the given
// samples: normal matrix and right-hand side over those samples, LU, then
// the two substitutions.
inline std::vector<float> solve(const std::vector<float> &z, int width, int height,
                                const std::vector<size_t> &over)
{
    const size_t m = size_t(width) * height, n = 15;
    const Matrix d = design(width, height), dt = transpose(d, m, n);
    const Matrix f = lu(mul(dt, d, n, m, n, over), n);
    const Matrix b = mul(dt, z, n, m, 1, over);
    std::vector<float> t(n), c(n);
    for (size_t i = 0; i < n; ++i) {
        float acc = 0.0f;
        for (size_t j = 0; j < i; ++j)
            acc = std::fma(f[i * n + j], t[j], acc);
        t[i] = b[i] - acc;
    }
    for (size_t i = n; i-- > 0;) {
        float acc = 0.0f;
        for (size_t j = i + 1; j < n; ++j)
            acc = std::fma(f[i * n + j], c[j], acc);
        c[i] = (t[i] - acc) / f[i * n + i];
    }
    return c;
}

inline float evaluate(const std::vector<float> &c, float x, float y)
{
    const float x2 = x * x, x3 = x * x2, y2 = y * y, y3 = y * y2;
    const float terms[15] = {1, x, y, x2, x * y, y2, x3, x2 * y, x * y2, y3, x * x3, x3 * y,
                             x2 * y2, x * y3, y * y3};
    float acc = 0.0f;
    for (int i = 0; i < 15; ++i)
        acc = std::fma(c[size_t(i)], terms[i], acc);
    return acc;
}

// The fitted plane on a corner-aligned dw x dh grid (dw, dh >= 2).
inline std::vector<float> upscale(const std::vector<float> &c, int sw, int sh, int dw, int dh)
{
    const float sx = (float(sw) - 1.0f) / (float(dw) - 1.0f);
    const float sy = (float(sh) - 1.0f) / (float(dh) - 1.0f);
    std::vector<float> out;
    for (int j = 0; j < dh; ++j)
        for (int i = 0; i < dw; ++i)
            out.push_back(evaluate(c, std::fma(float(i), sx, 1.0f), std::fma(float(j), sy, 1.0f)));
    return out;
}

} // namespace ejtest::lscref

#endif // EJTEST_LSC_REFERENCE_H
