#include "heatmap_png.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstring>

#include <png.h>

#include "tool_status.h"

namespace ejtool {

namespace {

struct Rgb {
    uint8_t r, g, b;
};

// A perceptually ordered dark-blue-to-yellow scale, linear between stops.
Rgb colour(double t)
{
    static const Rgb kStops[] = {{68, 1, 84}, {59, 82, 139}, {33, 145, 140}, {94, 201, 98}, {253, 231, 37}};
    t = std::clamp(t, 0.0, 1.0) * 4.0;
    const int i = std::min(int(t), 3);
    const double f = t - i;
    auto mix = [f](uint8_t a, uint8_t b) { return uint8_t(std::lround(a + (b - a) * f)); };
    return {mix(kStops[i].r, kStops[i + 1].r), mix(kStops[i].g, kStops[i + 1].g),
            mix(kStops[i].b, kStops[i + 1].b)};
}

// 3 x 5 glyphs, one row per 3 bits (top row first, leftmost pixel the high bit).
const uint8_t *glyph(char ch)
{
    static const uint8_t kDigits[10][5] = {
        {7, 5, 5, 5, 7}, {2, 6, 2, 2, 7}, {7, 1, 7, 4, 7}, {7, 1, 7, 1, 7}, {5, 5, 7, 1, 1},
        {7, 4, 7, 1, 7}, {7, 4, 7, 5, 7}, {7, 1, 1, 1, 1}, {7, 5, 7, 5, 7}, {7, 5, 7, 1, 7}};
    static const uint8_t kDot[5] = {0, 0, 0, 0, 2}, kMinus[5] = {0, 0, 7, 0, 0},
                         kE[5] = {7, 4, 7, 4, 7}, kPlus[5] = {0, 2, 7, 2, 0}, kBlank[5] = {};
    if (ch >= '0' && ch <= '9')
        return kDigits[ch - '0'];
    switch (ch) {
    case '.': return kDot;
    case '-': return kMinus;
    case 'e': return kE;
    case '+': return kPlus;
    default: return kBlank;
    }
}

constexpr int kScale = 2;              // font pixels per glyph pixel
constexpr int kAdvance = 4 * kScale;   // glyph width plus one column of space
constexpr int kMargin = 8;
constexpr int kBarWidth = 16;
constexpr int kLabelChars = 11;

class Canvas {
public:
    Canvas(int w, int h) : w_(w), h_(h), px_(size_t(w) * h, Rgb{255, 255, 255}) {}
    void set(int x, int y, Rgb c)
    {
        if (x >= 0 && y >= 0 && x < w_ && y < h_)
            px_[size_t(y) * w_ + x] = c;
    }
    void fill(int x, int y, int w, int h, Rgb c)
    {
        for (int j = 0; j < h; ++j)
            for (int i = 0; i < w; ++i)
                set(x + i, y + j, c);
    }
    void text(int x, int y, const std::string &s)
    {
        for (size_t k = 0; k < s.size(); ++k) {
            const uint8_t *g = glyph(s[k]);
            for (int row = 0; row < 5; ++row)
                for (int col = 0; col < 3; ++col)
                    if (g[row] >> (2 - col) & 1)
                        fill(x + int(k) * kAdvance + col * kScale, y + row * kScale, kScale, kScale, Rgb{0, 0, 0});
        }
    }
    int width() const { return w_; }
    int height() const { return h_; }
    const Rgb *row(int y) const { return &px_[size_t(y) * w_]; }

private:
    int w_, h_;
    std::vector<Rgb> px_;
};

std::string label(double v, bool integral)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, integral ? "%.0f" : "%.5g", v);
    return buf;
}

void save(const std::string &path, const Canvas &canvas)
{
    std::FILE *f = std::fopen(path.c_str(), "wb");
    if (f == nullptr)
        throw ToolError(kExitPicture, "cannot create " + path + ": " + std::strerror(errno));
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    bool ok = false;
    if (info != nullptr && setjmp(png_jmpbuf(png)) == 0) {
        png_init_io(png, f);
        png_set_IHDR(png, info, png_uint_32(canvas.width()), png_uint_32(canvas.height()), 8,
                     PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                     PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        for (int y = 0; y < canvas.height(); ++y)
            png_write_row(png, reinterpret_cast<png_const_bytep>(canvas.row(y)));
        png_write_end(png, nullptr);
        ok = true;
    }
    png_destroy_write_struct(&png, &info);
    if (std::fclose(f) != 0)
        ok = false;
    if (!ok)
        throw ToolError(kExitPicture, "cannot write " + path);
}

} // namespace

void write_heatmap_png(const std::string &path, const Grid &grid)
{
    static_assert(sizeof(Rgb) == 3, "rows are written as packed RGB");
    if (grid.width == 0 || grid.height == 0 || grid.values.size() != size_t(grid.width) * grid.height)
        throw ToolError(kExitPicture, "no picture for an empty grid: " + path);
    double lo = INFINITY, hi = -INFINITY;
    bool integral = true;
    for (double v : grid.values) {
        if (std::isnan(v))
            continue;
        lo = std::min(lo, v);
        hi = std::max(hi, v);
        integral = integral && v == std::floor(v);
    }
    if (lo > hi)
        lo = hi = 0; // every value NaN
    // Cells of a few pixels for large grids, larger for the small ones.
    const unsigned longest = std::max(grid.width, grid.height);
    const int cell = int(std::clamp(320u / longest, 1u, 24u));
    const int map_w = int(grid.width) * cell, map_h = int(grid.height) * cell;
    const int bar_h = std::max(map_h, 100);
    const int bar_x = kMargin + map_w + 12;
    Canvas canvas(bar_x + kBarWidth + 6 + kLabelChars * kAdvance + kMargin, kMargin + bar_h + kMargin);

    const double span = hi - lo;
    for (unsigned y = 0; y < grid.height; ++y) {
        for (unsigned x = 0; x < grid.width; ++x) {
            const double v = grid.values[size_t(y) * grid.width + x];
            const Rgb c = std::isnan(v) ? Rgb{128, 128, 128} : colour(span > 0 ? (v - lo) / span : 0.5);
            canvas.fill(kMargin + int(x) * cell, kMargin + int(y) * cell, cell, cell, c);
        }
    }
    // The bar: the maximum at the top.
    for (int j = 0; j < bar_h; ++j)
        canvas.fill(bar_x, kMargin + j, kBarWidth, 1, colour(1.0 - double(j) / (bar_h - 1)));
    canvas.text(bar_x + kBarWidth + 6, kMargin, label(hi, integral));
    canvas.text(bar_x + kBarWidth + 6, kMargin + bar_h - 5 * kScale, label(lo, integral));
    save(path, canvas);
}

} // namespace ejtool
