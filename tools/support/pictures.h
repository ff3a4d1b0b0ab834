// cmc-inspect --png: the heatmaps of one inspection, one PNG per grid.
#ifndef EJ_TOOL_PICTURES_H
#define EJ_TOOL_PICTURES_H

#include <string>
#include <vector>

#include "inspect_session.h"

struct computed_lsc_tables;

namespace ejtool {

// Writes into `dir` (created when missing) and returns the file names, in
// writing order:
//   lsc_before_set<S>_pos<R><C>.png  grids as tuned (parse without NVM data)
//   lsc_after_set<S>_pos<R><C>.png   grids after the adaptation (with NVM data)
//   ratio_set<S>_pos<R><C>.png       ratio grids
//   nvm_table<T>_plane<P>.png        NVM tables upscaled to the tuning grid
//   map30.png                        the id-30 map
// `upscaled` (may be null) holds the upscaled NVM tables on the grid of the
// lens-shading structure.
std::vector<std::string> write_pictures(const InspectSession &session,
                                        const computed_lsc_tables *upscaled,
                                        const std::string &dir);

} // namespace ejtool

#endif // EJ_TOOL_PICTURES_H
