// Test support: builds records, whole kelb containers (checksum rule A or B)
// and owns parse results, so that every test speaks in records and slots.
#ifndef EJTEST_KELB_BUILDER_H
#define EJTEST_KELB_BUILDER_H

#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "cmc_records.h"

namespace ejtest {

using Bytes = std::vector<uint8_t>;

// Appends little-endian fields; the offsets in a test read like the layout.
class ByteWriter {
public:
    ByteWriter &u8(uint8_t v);
    ByteWriter &u16(uint16_t v);
    ByteWriter &u32(uint32_t v);
    ByteWriter &i32(int32_t v) { return u32(static_cast<uint32_t>(v)); }
    ByteWriter &u64(uint64_t v);
    ByteWriter &f32(float v);
    ByteWriter &bytes(const Bytes &b);
    ByteWriter &zeros(size_t n);
    ByteWriter &fill(size_t n, uint8_t v);
    // The string and its terminator.
    ByteWriter &cstr(const std::string &s);
    // Pad with zeros up to an absolute length.
    ByteWriter &pad_to(size_t length);

    size_t size() const { return b_.size(); }
    const Bytes &data() const { return b_; }
    Bytes take() { return std::move(b_); }

private:
    Bytes b_;
};

// A record: the 8-byte header (size, version, one zero byte, id) followed by
// payload. The size field is the record's length unless size_field overrides
// it.
Bytes make_record(uint16_t id, uint8_t version, const Bytes &payload);
Bytes make_record_with_size(uint16_t id, uint8_t version, const Bytes &payload,
                            uint32_t size_field);
// A record whose whole length, header included, is total: the payload (the
// bytes from offset 8) is zero-padded or cut to fit.
Bytes make_record_sized(uint16_t id, uint8_t version, const Bytes &payload, uint32_t total);

enum class Checksum { RuleA, RuleB };

uint32_t checksum_a(const Bytes &container);
uint32_t checksum_b(const Bytes &container);

// A container: 24-byte header (word 0 = 0x6b656c62, size, zeros, checksum),
// the records back to back, then trailing bytes that take no part in either
// checksum rule. The size field covers everything.
Bytes make_container(const std::vector<Bytes> &records, Checksum rule = Checksum::RuleA,
                     const Bytes &trailing = {});
// Recompute the checksum word after a test edited the bytes.
void seal(Bytes &container, Checksum rule = Checksum::RuleA);

uint16_t get_u16(const uint8_t *p);
uint32_t get_u32(const uint8_t *p);

// A malloc'd copy of a record, as cmc_parse expects it.
uint8_t *heap_copy(const Bytes &record);

struct ParsedDeleter {
    void operator()(cmc_parsed_data *p) const { ej_cmc_parser_deinit(p); }
};
using Parsed = std::unique_ptr<cmc_parsed_data, ParsedDeleter>;

// A zero-filled result, as the parse entry allocates it.
Parsed empty_parsed();

// Parse through the public entry point. The descriptors live in the object so
// that slot 64 stays valid as long as the result.
struct ParseRun {
    Bytes container;
    Bytes nvm;
    ej_data_block container_block{};
    ej_data_block nvm_block{};
    Parsed parsed;
};
std::unique_ptr<ParseRun> parse(Bytes container, Bytes nvm = {});

// cmc_parse on a heap copy of record; the copy is released when the status is
// non-zero, as the walk does. *copy receives the copy's address, for
// comparison with the slots only.
uint32_t decode(cmc_parsed_data *parsed, const Bytes &record, const uint8_t **copy = nullptr);

} // namespace ejtest

#endif // EJTEST_KELB_BUILDER_H
