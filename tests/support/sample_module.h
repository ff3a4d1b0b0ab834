// Test support: a sample module whose container carries one valid record of
// every decoded id, so that one parse fills every slot a real module's
// container fills, and a realistic NVM blob that matches its lens-shading
// records.
#ifndef EJTEST_SAMPLE_MODULE_H
#define EJTEST_SAMPLE_MODULE_H

#include <cstdint>
#include <vector>

#include "kelb_builder.h"

namespace ejtest {

// The lens-shading records of the sample (id 28 grids, id 33 ratios): four
// sets of 17 x 13 grids, ratio set k naming NVM table k, the NVM blob's
// tables being 17 x 13 as well.
constexpr uint16_t kLensShadingSets = 4;
constexpr uint16_t kLensShadingWidth = 17;
constexpr uint16_t kLensShadingHeight = 13;

// Records of ids 1, 2, 5 to 10, 13 to 29, 31 to 33 and 35 to 38 (none of
// the legacy id 3, the older ratio form id 11, id 30 or id 34), plus a
// record of another consumer (id 722) that the walk steps over. The id-10
// record (older lens-shading form) adds its raw views only: slot 53 holds
// the id-28 grids.
std::vector<Bytes> sample_records();

// The same records with `sets` lens-shading sets in the id-28 and id-33
// records (set k >= 4 repeats the settings of set k mod 4 under another
// illuminant), so that containers of several sizes differ in those sets only.
std::vector<Bytes> sample_records_with_sets(uint16_t sets);

// The slots sample_records() fills: all but the reserved slots 5, 6 and 24,
// slot 51 (id 30) and slot 63 (filled by ej_kelb_others_parser_init).
std::vector<int> sample_filled_slots();

// An NVM blob with 4 lens-shading tables on a 17 x 13 grid and a 9 x 7 map
// calibration.
Bytes sample_nvm();

} // namespace ejtest

#endif // EJTEST_SAMPLE_MODULE_H
