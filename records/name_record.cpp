// Name record (id 1): a name string at offset 24 and, from version 101, a u16
// pair count followed by that many key/value string pairs. The record is kept
// (slot 0) and indexed: slot 1 points at the name, slots 2 and 3 hold the
// count and a heap array of pointers to the strings inside the copy.
//
// Every string must end inside the record; the scans are bounded by the
// record's size, so an unterminated string is found without reading past it.
#include <cstring>

#include "decoder_support.h"
#include "decoders.h"

namespace {

constexpr uint32_t kNameOffset = 24;

// Offset just past the terminator of the string starting at offset, or 0 when
// the string does not end inside the record.
uint32_t string_end(const uint8_t *record, uint32_t offset)
{
    const uint32_t size = record_size(record);
    if (offset >= size)
        return 0;
    const void *nul = std::memchr(record + offset, 0, size - offset);
    if (nul == nullptr)
        return 0;
    return static_cast<uint32_t>(static_cast<const uint8_t *>(nul) - record) + 1;
}

void empty_group(cmc_parsed_data *parsed)
{
    release_slot(parsed->rec_1_pairs);
    release_slot(parsed->rec_1);
    parsed->rec_1_name = nullptr;
    parsed->rec_1_pair_count = 0;
}

uint32_t fail(uint8_t *record, rec_1_pair *pairs, cmc_diag_reason reason)
{
    std::free(pairs);
    return drop_record(record, reason);
}

void keep(cmc_parsed_data *parsed, uint8_t *record, rec_1_pair *pairs, uint16_t count)
{
    parsed->rec_1 = record;
    parsed->rec_1_name = reinterpret_cast<const char *>(record + kNameOffset);
    parsed->rec_1_pair_count = count;
    parsed->rec_1_pairs = pairs;
}

} // namespace

uint32_t decode_name_record(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->rec_1, record);
    empty_group(parsed);

    const uint32_t name_end = string_end(record, kNameOffset);
    if (name_end == 0)
        return fail(record, nullptr, CMC_DIAG_BAD_STRING);
    if (record_version(record) <= 100) {
        keep(parsed, record, nullptr, 0);
        return 0;
    }

    if (!holds(record, name_end + 2))
        return fail(record, nullptr, CMC_DIAG_TOO_SHORT);
    const uint16_t count = load_u16(record + name_end);
    // A record without pairs gets no array: slot 3 stays empty with count 0.
    rec_1_pair *pairs = nullptr;
    if (count != 0) {
        pairs = static_cast<rec_1_pair *>(cmc_calloc(count, sizeof(rec_1_pair)));
        if (pairs == nullptr) {
            // The name is still worth having without the pairs.
            cmc_diag_record(record, CMC_DIAG_NO_MEMORY);
            keep(parsed, record, nullptr, 0);
            return 0;
        }
    }

    uint32_t offset = name_end + 2;
    for (uint16_t i = 0; i < count; ++i) {
        const uint32_t key_end = string_end(record, offset);
        if (key_end == 0)
            return fail(record, pairs, CMC_DIAG_BAD_STRING);
        const uint32_t value_end = string_end(record, key_end);
        if (value_end == 0)
            return fail(record, pairs, CMC_DIAG_BAD_STRING);
        pairs[i].key = reinterpret_cast<const char *>(record + offset);
        pairs[i].value = reinterpret_cast<const char *>(record + key_end);
        offset = value_end;
    }
    keep(parsed, record, pairs, count);
    return 0;
}
