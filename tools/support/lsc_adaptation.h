// cmc-inspect: how the parse adapted the lens shading to the module's NVM
// tables. The tool repeats the adaptation's inputs itself: it upscales the
// NVM tables with the exported polynomial driver, with the arguments the
// parse takes from the id-17 record, and maps the planes onto the pattern
// positions as the ratio-based correction does. For every set and position
// it reports the range of gains applied and how many products exceeded
// 65535 and wrapped (the correction does not saturate), and checks the
// predicted samples against the grids the parse produced.
#ifndef EJ_TOOL_LSC_ADAPTATION_H
#define EJ_TOOL_LSC_ADAPTATION_H

#include <array>
#include <memory>

#include "ej_cmc_lsc.h"
#include "ej_cmc_parser.h"
#include "ej_nvm.h"
#include "json_number.h"

namespace ejtool {

struct UpscaledFree {
    void operator()(computed_lsc_tables *t) const { deinit_computed_upscale_lsc_tables(t); }
};
using UpscaledPtr = std::unique_ptr<computed_lsc_tables, UpscaledFree>;

struct LscAdaptation {
    Json report;          // the "lens_shading_adaptation" section of the inspect schema
    UpscaledPtr upscaled; // the NVM tables on the tuning grid, as the driver returned them
};

// `before` is the parse without NVM data, `after` the parse with it (either
// may be null after a rejected container).
LscAdaptation adapt_lens_shading(const cmc_parsed_data *before, const cmc_parsed_data *after,
                                 const ej_nvm_data *nvm);

// Plane (0..3, P-numbering of the computed tables) at each position of the
// 4 x 4 pattern, -1 where a position has none; all -1 for an unsupported
// pattern or channel order. Positions follow the correction's pattern tables.
std::array<int, 16> pattern_planes(uint32_t cfa_pattern, uint32_t channel_order);

} // namespace ejtool

#endif // EJ_TOOL_LSC_ADAPTATION_H
