// Records kept whole: a slot takes the record copy itself and, for records
// made of several parts, further slots point at those parts inside it.
//
// A record arriving for slots that are already filled releases the earlier
// copy first, whether or not the new one passes its test; a record that fails
// its test leaves its whole group empty.
#include <cstddef>

#include "decoder_support.h"
#include "decoders.h"

namespace {

// Plain records: one slot, kept when size > min_size_exclusive.
struct plain_record_rule {
    uint16_t id;
    uint8_t *cmc_parsed_data::*slot;
    uint32_t min_size_exclusive; // 0 with always_kept for id 8
    bool always_kept;
};

constexpr plain_record_rule kPlainRules[] = {
    {5, &cmc_parsed_data::rec_5, 15, false},
    {7, &cmc_parsed_data::rec_7, 15, false},
    {8, &cmc_parsed_data::rec_8, 0, true},
    {21, &cmc_parsed_data::rec_21, 15, false},
    {23, &cmc_parsed_data::rec_23, 23, false},
    {37, &cmc_parsed_data::rec_37, 15, false},
};

// Release the earlier contents of a group whose first slot owns the copy
// and whose other slots are views into it.
template <typename... Views>
void release_group(const uint8_t *record, uint8_t *&owner, Views *&...views)
{
    note_replacement(owner, record);
    release_slot(owner);
    ((views = nullptr), ...);
}

// Records whose length follows from count fields: the counts themselves must
// be there (counts_end), then the whole announced content rounded up to 8
// (end(record), read only once the counts are known to be inside). Keeps the
// copy in owner, or drops it.
template <typename EndOf>
bool keep_if_fits(uint8_t *record, uint8_t *&owner, uint32_t counts_end, EndOf end)
{
    if (!holds(record, counts_end) || !holds(record, required_size(end(record)))) {
        drop_record(record, CMC_DIAG_TOO_SHORT);
        return false;
    }
    owner = record;
    return true;
}

} // namespace

uint32_t decode_plain_record(uint8_t *record, cmc_parsed_data *parsed)
{
    const uint16_t id = record_id(record);
    for (const plain_record_rule &rule : kPlainRules) {
        if (rule.id != id)
            continue;
        uint8_t *&slot = parsed->*rule.slot;
        release_group(record, slot);
        if (!rule.always_kept && record_size(record) <= rule.min_size_exclusive)
            return drop_record(record, CMC_DIAG_TOO_SHORT);
        slot = record;
        return 0;
    }
    return drop_record(record, CMC_DIAG_NO_DECODER); // not reached: dispatch filters ids
}

// Id 6: four u8 counts at 12, then c0+c1+c2+c3 u16 values from offset 16.
uint32_t decode_rec_6(uint8_t *record, cmc_parsed_data *parsed)
{
    release_group(record, parsed->rec_6, parsed->rec_6_values);
    const auto end = [](const uint8_t *r) {
        return 16 + 2 * (uint32_t(r[12]) + r[13] + r[14] + r[15]);
    };
    if (keep_if_fits(record, parsed->rec_6, 16, end))
        set_view(parsed->rec_6_values, record, 16);
    return 0;
}

// Id 16: u16 count n at 12, then n 4-byte values from offset 14.
uint32_t decode_rec_16(uint8_t *record, cmc_parsed_data *parsed)
{
    release_group(record, parsed->rec_16, parsed->rec_16_values);
    const auto end = [](const uint8_t *r) { return 14 + 4 * uint32_t(load_u16(r + 12)); };
    if (keep_if_fits(record, parsed->rec_16, 14, end))
        set_view(parsed->rec_16_values, record, 14);
    return 0;
}

// Id 17: channel order at 10, flip mode at 12; from version 101 an
// extension at 14 (the lens-shading step reads its border flag there).
uint32_t decode_rec_17(uint8_t *record, cmc_parsed_data *parsed)
{
    release_group(record, parsed->rec_17, parsed->rec_17_ext);
    if (record_size(record) <= 15)
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    parsed->rec_17 = record;
    if (record_version(record) > 100)
        set_view(parsed->rec_17_ext, record, 14);
    return 0;
}

// Id 18: u16 count n at 8, n 84-byte entries from 10, and from version 101
// trailing data behind them (not covered by the size test).
uint32_t decode_rec_18(uint8_t *record, cmc_parsed_data *parsed)
{
    release_group(record, parsed->rec_18, parsed->rec_18_entries, parsed->rec_18_tail);
    const auto end = [](const uint8_t *r) { return 10 + 84 * uint32_t(load_u16(r + 8)); };
    if (!keep_if_fits(record, parsed->rec_18, 10, end))
        return 0;
    set_view(parsed->rec_18_entries, record, 10);
    if (record_version(record) > 100)
        set_view(parsed->rec_18_tail, record, end(record));
    return 0;
}

// Id 19: counts A at 12 and B at 14, A 28-byte entries from 16, then B
// 8-byte values.
uint32_t decode_rec_19(uint8_t *record, cmc_parsed_data *parsed)
{
    release_group(record, parsed->rec_19, parsed->rec_19_entries, parsed->rec_19_values);
    const auto entries_end = [](const uint8_t *r) { return 16 + 28 * uint32_t(load_u16(r + 12)); };
    const auto end = [&](const uint8_t *r) {
        return entries_end(r) + 8 * uint32_t(load_u16(r + 14));
    };
    if (!keep_if_fits(record, parsed->rec_19, 16, end))
        return 0;
    set_view(parsed->rec_19_entries, record, 16);
    set_view(parsed->rec_19_values, record, entries_end(record));
    return 0;
}

// Id 20: three values at 8..12, a byte at 13 that version 100 records lack
// (it then reads 8), and from version 102 a list header at 14 (type, length L)
// with L 8-byte values from offset 20.
uint32_t decode_rec_20(uint8_t *record, cmc_parsed_data *parsed)
{
    release_group(record, parsed->rec_20, parsed->rec_20_list_header, parsed->rec_20_list);
    const uint32_t size = record_size(record);
    const uint8_t version = record_version(record);
    if (size <= 15)
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    parsed->rec_20 = record;
    if (version <= 100) {
        record[13] = 8;
        return 0;
    }
    if (version == 101)
        return 0;
    if (size <= 19) {
        cmc_diag_record(record, CMC_DIAG_PART_TOO_SHORT);
        return 0;
    }
    set_view(parsed->rec_20_list_header, record, 14);
    const uint32_t length = load_u16(record + 16);
    if (size >= 24 + 8 * length)
        set_view(parsed->rec_20_list, record, 20);
    else
        cmc_diag_record(record, CMC_DIAG_PART_TOO_SHORT);
    return 0;
}
