// Heatmap pictures of sample grids for cmc-inspect --png: one cell per
// sample, a colour bar beside the grid, and the value range written at the
// bar's ends with a small built-in digit font.
#ifndef EJ_TOOL_HEATMAP_PNG_H
#define EJ_TOOL_HEATMAP_PNG_H

#include <string>
#include <vector>

namespace ejtool {

struct Grid {
    unsigned width = 0;
    unsigned height = 0;
    std::vector<double> values; // width * height, row-major; NaN draws grey
};

// Writes an 8-bit RGB PNG; throws ToolError (kExitPicture) when the file
// cannot be written or the grid is empty.
void write_heatmap_png(const std::string &path, const Grid &grid);

} // namespace ejtool

#endif // EJ_TOOL_HEATMAP_PNG_H
