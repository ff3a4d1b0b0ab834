// Cbd record (id 38, slot 62): a byte, a count N and two parallel arrays of
// N 32-bit values, copied out as stored. The record copy is always released.
//
// The format has no size test of its own; the record follows the one rule
// of decoder_support.h: it must reach the end of its second array
// (10 + 8N bytes) or it is dropped.
#include "decoder_support.h"
#include "decoders.h"

namespace {
constexpr uint32_t kCountOffset = 9;
constexpr uint32_t kArraysOffset = 10;
} // namespace

void cmc_cbd_deinit(cmc_cbd *cbd)
{
    if (cbd == nullptr)
        return;
    std::free(cbd->first_values);
    std::free(cbd->second_values);
    std::free(cbd);
}

uint32_t decode_cbd(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->cbd, record);
    cmc_cbd_deinit(parsed->cbd);
    parsed->cbd = nullptr;

    if (!reaches(record, kCountOffset + 1))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint64_t n = record[kCountOffset];
    if (!reaches(record, kArraysOffset + 8 * n))
        return drop_record(record, CMC_DIAG_TOO_SHORT);

    auto *cbd = alloc_array<cmc_cbd>(1);
    if (cbd == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    memcpy_s(&cbd->header, sizeof cbd->header, record, 8);
    cbd->cbd_byte = record[8];
    cbd->num_entries = uint8_t(n);
    cbd->first_values = copy_out<uint32_t>(record + kArraysOffset, n);
    cbd->second_values = cbd->first_values != nullptr
                             ? copy_out<uint32_t>(record + kArraysOffset + 4 * n, n)
                             : nullptr;
    if (cbd->second_values == nullptr) {
        cmc_cbd_deinit(cbd);
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    }
    parsed->cbd = cbd;
    std::free(record);
    return 0;
}
