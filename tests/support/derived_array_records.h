// Test support: builders of the table records with derived arrays (ids 13,
// 14 and 15), shared by their decoder tests and the sample module.
#ifndef EJTEST_DERIVED_ARRAY_RECORDS_H
#define EJTEST_DERIVED_ARRAY_RECORDS_H

#include <cstdint>
#include <vector>

#include "kelb_builder.h"

namespace ejtest {

// Id 13 with n = 3 values 11, 12, 13 at 72, then the u16 5, 6, 7, 8 at 78,
// cut or padded to total bytes.
Bytes rec_13(uint8_t version, uint32_t total);

// Id 14: start, end and step at 8, then a 64-byte table, cut or padded to
// total bytes.
Bytes rec_14(uint16_t start, uint16_t end, uint16_t step, uint32_t total);

struct Curve {
    uint16_t value;
    std::vector<uint16_t> first, second;
};
// Id 15: A rows in each of tables a, b, c, B rows in d (row i of table t
// filled with 0x10·t + i), then k and the curves.
Bytes rec_15(uint16_t a, uint16_t b, const std::vector<Curve> &curves);

} // namespace ejtest

#endif // EJTEST_DERIVED_ARRAY_RECORDS_H
