// Test support: the 65 slots of a parse result by number and name.
#ifndef EJTEST_SLOTS_H
#define EJTEST_SLOTS_H

#include <vector>

#include "ej_cmc_parser.h"

namespace ejtest {

constexpr int kSlotCount = 65;

// The slot's field name in cmc_parsed_data.
const char *slot_name(int slot);

// Numbers of the slots whose 8 bytes are not all zero, ascending.
std::vector<int> filled_slots(const cmc_parsed_data *parsed);

} // namespace ejtest

#endif // EJTEST_SLOTS_H
