// Test support: writes id-31 and id-34 records in the container form that
// ej_kelb_parse_record completes (docs/kelb-references.md): every pointer
// field holds a u64 byte offset from the record's start, 0 for none.
#ifndef EJTEST_KELB_REFS_WRITER_H
#define EJTEST_KELB_REFS_WRITER_H

#include <array>
#include <cstdint>
#include <vector>

#include "kelb_builder.h"

namespace ejtest {

// Id 31: 72-byte entries (18 four-byte fields, written as u32 bits) from
// offset 24; the reference at 16 is 24, or 0 without entries.
using Rec31Entry = std::array<uint32_t, 18>;
Bytes make_rec_31(const std::vector<Rec31Entry> &entries, uint8_t version = 100);

// One id-34 element. Kind 0 uses word4, entries and values; kind 1 uses
// word4 as its sub-type: 2 (list of values) or 3 (fixed block of four u16).
struct Rec34Entry {
    float a = 0, b = 0;
    std::array<uint8_t, 20> rest{};
};
struct Rec34Value {
    float value = 0;
    uint32_t word = 0;
};
struct Rec34Element {
    uint32_t kind = 0;
    uint32_t word4 = 0;
    std::vector<Rec34Entry> entries;
    std::vector<Rec34Value> values;
    std::array<uint16_t, 4> fixed{};
};

// Id 34: header, elements of 40 bytes from offset 32, then every element's
// arrays in element order (entries, values, fixed block), 8-byte aligned.
Bytes make_rec_34(const std::vector<Rec34Element> &elements, uint8_t version = 100);

// Offset of element i's first byte in a record from make_rec_34.
constexpr uint32_t rec_34_element_offset(uint32_t i)
{
    return 32 + 40 * i;
}

void put_u32(Bytes &b, size_t offset, uint32_t v);
void put_u64(Bytes &b, size_t offset, uint64_t v);
uint64_t get_u64(const uint8_t *p);

} // namespace ejtest

#endif // EJTEST_KELB_REFS_WRITER_H
