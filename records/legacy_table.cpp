// Legacy table (id 3): the older, compact form of the id-31 table. It is
// converted into the id-31 form (slot 54) so that users read one layout
// whatever the container carried: 16-byte legacy entries become 72-byte
// entries with the fixed-point values as floats.
//
// An id-31 table already in slot 54, native or converted, takes precedence;
// a later id-31 record replaces a converted block (ids 9/31/32/34 decoder).
#include <cstddef>

#include "decoder_support.h"
#include "decoders.h"

namespace {

constexpr uint32_t kCountOffset = 8;
constexpr uint32_t kEntriesOffset = 12;
constexpr uint32_t kLegacyEntry = 16;
constexpr uint32_t kConvertedHeader = 24;
constexpr uint64_t kConvertedEntry = sizeof(cmc_rec_31_entry);

// Unsigned fixed point to the nearest float: the integer converts with one
// rounding, and the division by a power of two is exact.
float from_q16_16(uint32_t v)
{
    return static_cast<float>(v) / 65536.0f;
}
float from_q8_8(uint16_t v)
{
    return static_cast<float>(v) / 256.0f;
}

void convert_entry(const uint8_t *legacy, cmc_rec_31_entry *entry)
{
    entry->field0 = load_u32(legacy);
    entry->field1 = from_q16_16(load_u32(legacy + 4));
    entry->field2 = from_q8_8(load_u16(legacy + 8));
    entry->field3 = from_q8_8(load_u16(legacy + 10));
    entry->field6 = from_q8_8(load_u16(legacy + 12));
    entry->field7 = from_q8_8(load_u16(legacy + 14));
}

} // namespace

uint32_t decode_legacy_table(uint8_t *record, cmc_parsed_data *parsed)
{
    if (parsed->rec_31 != nullptr)
        return drop_record(record, CMC_DIAG_SUPERSEDED);
    if (!holds(record, kEntriesOffset))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint32_t n = load_u32(record + kCountOffset);
    // 16 + 16·n bytes: the legacy entries end at 12 + 16·n, rounded up to 8.
    // Computed in 64 bits: a count that would wrap in 32 bits must not pass.
    if (record_size(record) < 16 + uint64_t(kLegacyEntry) * n)
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint64_t block_size = kConvertedHeader + kConvertedEntry * n;
    if (block_size > UINT32_MAX) // the size field could not describe the block
        return drop_record(record, CMC_DIAG_BAD_FIELD);

    auto *block = static_cast<cmc_rec_31 *>(cmc_calloc(1, static_cast<size_t>(block_size)));
    if (block == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    block->header.size = static_cast<uint32_t>(block_size);
    block->header.version = 100;
    block->header.id = 31;
    block->count = n;
    block->entries = reinterpret_cast<cmc_rec_31_entry *>(reinterpret_cast<uint8_t *>(block) +
                                                          kConvertedHeader);
    for (uint32_t i = 0; i < n; ++i)
        convert_entry(record + kEntriesOffset + kLegacyEntry * i, &block->entries[i]);

    parsed->rec_31 = reinterpret_cast<uint8_t *>(block);
    std::free(record);
    return 0;
}
