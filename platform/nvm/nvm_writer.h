// nvm_writer.h - builds NVM blobs in the format that libej_nvm-vantor reads
// (docs/nvm-format.md), for tests and tools.
//
// Describe the content with NvmBlob and call write_nvm(). The writer produces
// valid blobs only; a test that needs a malformed one writes a valid blob and
// patches its bytes, using the layout constants below.
#ifndef EJ_NVM_WRITER_H
#define EJ_NVM_WRITER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace ejnvm {

// Layout of the format, version 1.
constexpr uint16_t kFormatVersion = 1;
constexpr uint16_t kFlagLsc = 0x0001; // lens-shading section present
constexpr uint16_t kFlagMap = 0x0002; // map-calibration section present
constexpr size_t kHeaderSize = 16;
constexpr size_t kOffMagic = 0;     // "EJNV"
constexpr size_t kOffVersion = 4;   // u16
constexpr size_t kOffFlags = 6;     // u16
constexpr size_t kOffTotalSize = 8; // u32
constexpr size_t kOffReserved = 12; // u32, zero
constexpr size_t kLscHeaderSize = 4;      // count, width, height, reserved
constexpr size_t kLscTableHeaderSize = 4; // frac_bits, 3 reserved
constexpr size_t kMapHeaderSize = 4;      // width, height, shift, has_values

// One lens-shading table. Each channel holds width * height samples,
// row-major. They are written as u8 when frac_bits <= 8 (each must then be
// <= 255) and as u16 otherwise.
struct LscTable {
    uint8_t frac_bits = 0;
    std::array<std::vector<uint16_t>, 4> channels;
};

// The lens-shading section: the grid shared by all tables, and at most 255
// tables.
struct LscSection {
    uint8_t width = 0;
    uint8_t height = 0;
    std::vector<LscTable> tables;
};

// The map-calibration section. With has_values, `values` holds
// width * height values, row-major; without, it must be empty.
struct MapSection {
    uint8_t width = 0;
    uint8_t height = 0;
    uint8_t shift = 0;
    bool has_values = false;
    std::vector<int32_t> values;
};

// A whole blob: each section is written when present.
struct NvmBlob {
    std::optional<LscSection> lsc;
    std::optional<MapSection> map;
};

// The blob's bytes. Throws std::invalid_argument when the description is
// inconsistent (sample or value counts, a u8 sample above 255, more than 255
// tables).
std::vector<uint8_t> write_nvm(const NvmBlob &blob);

// Little-endian stores into an existing blob, for patching. Throw
// std::out_of_range when the field does not lie inside the blob.
void put_u16(std::vector<uint8_t> &bytes, size_t offset, uint16_t value);
void put_u32(std::vector<uint8_t> &bytes, size_t offset, uint32_t value);

// Sets the header's total-size field to the blob's current length.
void fix_total_size(std::vector<uint8_t> &bytes);

} // namespace ejnvm

#endif // EJ_NVM_WRITER_H
