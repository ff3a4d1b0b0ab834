// Test support: one valid, non-trivial record of every id decoded into a
// structure of its own (grids, ratios, distortion, curves, cbd, tables),
// with the length each needs and the slots it fills, for the sweeps that
// apply the same checks to all of them.
#ifndef EJTEST_RECORD_SAMPLES_H
#define EJTEST_RECORD_SAMPLES_H

#include <ostream>
#include <vector>

#include "allocation.h"
#include "failure_injection.h"
#include "kelb_builder.h"

namespace ejtest {

struct FilledSlot {
    int slot;
    uint32_t min_len; // shorter accepted records leave this slot empty
};

struct SampleRecord {
    const char *name;
    uint16_t id;
    uint8_t version;
    Bytes payload;     // from offset 8
    uint32_t full;     // length of the complete record
    uint32_t min_len;  // shortest length that is decoded
    std::vector<FilledSlot> slots;
    uint32_t short_status = 0; // status of a record below min_len (8 for id 24)
    uint32_t full_note = 0;    // drop reason the complete record still reports, if any
};

inline void PrintTo(const SampleRecord &s, std::ostream *os) { *os << s.name; }

const std::vector<SampleRecord> &sample_structured_records();

// A record of the sample at a given length (payload padded with zeros or cut).
Bytes sample_at(const SampleRecord &s, uint32_t len);

// Grid sample values used by the lens-shading builders: distinct per set,
// grid and sample.
uint16_t grid_sample(uint32_t set, uint32_t grid, uint32_t index);

// 22-byte set headers of the pattern forms: id 28 (set_id, parameters p0,
// -p0, 0.25, 4.0, stored grid bits) and id 33 (set_id, 0-based NVM table
// number, parameters p0, 2·p0, 3·p0, 4·p0, stored grid bits).
Bytes header28(uint32_t set_id, float p0, uint16_t stored_bits);
Bytes header33(uint16_t set_id, uint16_t table, float p0, uint16_t stored_bits);

// The payload (from offset 8) of a pattern-form record (ids 28 and 33): map,
// counts, then num_sets sets of
// set_header (22 bytes, built by the caller per set) and G grids of
// grid_sample values.
Bytes pattern_payload(const std::vector<int8_t> &map, uint16_t num_sets, uint16_t w,
                      uint16_t h, const std::vector<Bytes> &set_headers);
// The payload of a 2 x 2 record (id 10: an unread u16 before the counts, set
// headers of 8 bytes; id 11: set headers of 10 bytes), then the param pairs.
Bytes payload_2x2(uint16_t id, uint16_t w, uint16_t h, const std::vector<Bytes> &set_headers,
                  const std::vector<uint16_t> &pairs);

} // namespace ejtest

#endif // EJTEST_RECORD_SAMPLES_H
