// Test support: a small sample module, one record of every id that fills
// slots, each with its optional parts, and a realistic NVM blob.
#ifndef EJTEST_SAMPLE_MODULE_H
#define EJTEST_SAMPLE_MODULE_H

#include <vector>

#include "kelb_builder.h"

namespace ejtest {

// Records of ids 1, 2, 5, 6, 7, 8, 16, 17, 18, 19, 20, 21, 23 and 37, plus a
// record of another consumer (id 722) that the walk steps over.
std::vector<Bytes> sample_records();

// The slots sample_records() fills.
std::vector<int> sample_filled_slots();

// An NVM blob with 4 lens-shading tables on a 17 x 13 grid and a 9 x 7 map
// calibration.
Bytes sample_nvm();

} // namespace ejtest

#endif // EJTEST_SAMPLE_MODULE_H
