// Generic table records, whose values the library moves without
// interpreting them: id 24 (entries with their own value lists, slot 44),
// id 25 (fixed-size blocks with tail blocks, slots 46 to 48), id 26 (a
// 64-byte block with two sets of four factors, slot 49), id 27 (elements of
// 16-bit planes, slot 50) and id 29 (four 32-bit planes over one grid,
// slot 52).
//
// Ids 25 and 27 (version 100 and below) have no size test of their own; they
// follow the one rule of decoder_support.h (exact end of the last field read,
// or dropped). Every announced length is checked before anything is
// allocated.
#include <cstddef>

#include "decoder_support.h"
#include "decoders.h"
#include "record_release.h"

namespace {

constexpr uint32_t kEntryHead24 = 16;
constexpr uint32_t kBlock25 = 36;
constexpr uint32_t kElementHead27 = 20;
constexpr uint32_t kPlanes27 = 3; // planes an id-27 element buffer holds
constexpr uint32_t kTrailerPerElement27 = 16;
constexpr uint32_t kMinSize29 = 56;

uint16_t value_table_entries(const cmc_value_table *table)
{
    return load_u16(table->head + 14);
}

// Id 24 fails with a status: the slot is emptied, the copy left to the caller.
uint32_t fail_value_table(cmc_parsed_data *parsed, const uint8_t *record,
                          cmc_diag_reason reason, uint32_t status)
{
    cmc_diag_record(record, reason);
    release_value_table(parsed->value_table);
    parsed->value_table = nullptr;
    return status;
}

void release_block_group(cmc_parsed_data *parsed)
{
    release_slot(parsed->block_entries); // the entries before the record they index
    release_slot(parsed->block_record);
    parsed->block_values = nullptr;
}

} // namespace

void release_value_table(cmc_value_table *table)
{
    if (table == nullptr)
        return;
    if (table->entries != nullptr) {
        for (uint32_t i = 0; i < value_table_entries(table); ++i)
            release_slot(table->entries[i].values);
        release_slot(table->entries);
    }
    std::free(table);
}

void release_plane_grid_set(cmc_plane_grid_set *set)
{
    if (set == nullptr)
        return;
    if (set->elements != nullptr) {
        // The element count lives in the kept record, which every stored
        // structure holds.
        const uint16_t n = set->record != nullptr ? load_u16(set->record + 24) : 0;
        for (uint32_t i = 0; i < n; ++i) {
            release_slot(set->elements[i].element_head);
            release_slot(set->elements[i].planes);
        }
        release_slot(set->elements);
    }
    release_slot(set->record);
    std::free(set);
}

void release_four_plane_grid(cmc_four_plane_grid *grid)
{
    if (grid == nullptr)
        return;
    std::free(grid->planes[0]);
    std::free(grid);
}

// Id 24: the first 16 bytes (n at 14), then n entries of a 16-byte head (c at
// offset 2) and c 32-bit values. The heads must all fit (16 * (n + 1) bytes);
// an entry whose values run past the record fails it when it is the first,
// and ends the walk otherwise (the entries before it stay whole, it keeps its
// head without values).
uint32_t decode_value_table(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->value_table, record);
    release_value_table(parsed->value_table);
    parsed->value_table = nullptr;

    if (record_size(record) <= 15)
        return fail_value_table(parsed, record, CMC_DIAG_TOO_SHORT, CMC_PARSE_BAD_DATA);
    auto *table = parsed->value_table = alloc_array<cmc_value_table>(1);
    if (table == nullptr)
        return fail_value_table(parsed, record, CMC_DIAG_NO_MEMORY, CMC_PARSE_NO_MEMORY);
    memcpy_s(table->head, sizeof table->head, record, sizeof table->head);
    const uint16_t n = value_table_entries(table);
    if (n == 0) {
        std::free(record);
        return 0;
    }

    uint64_t required = kEntryHead24 * (uint64_t(n) + 1);
    if (!reaches(record, required))
        return fail_value_table(parsed, record, CMC_DIAG_TOO_SHORT, CMC_PARSE_BAD_DATA);
    table->entries = alloc_array<cmc_value_table_entry>(n);
    if (table->entries == nullptr)
        return fail_value_table(parsed, record, CMC_DIAG_NO_MEMORY, CMC_PARSE_NO_MEMORY);

    uint64_t offset = kEntryHead24;
    for (uint32_t i = 0; i < n; ++i) {
        cmc_value_table_entry &entry = table->entries[i];
        // Inside the record: required covers every head and the values so far.
        memcpy_s(entry.entry_head, sizeof entry.entry_head, record + offset, kEntryHead24);
        const uint16_t count = load_u16(entry.entry_head + 2);
        required += 4 * uint64_t(count);
        if (!reaches(record, required)) {
            if (i == 0)
                return fail_value_table(parsed, record, CMC_DIAG_TOO_SHORT, CMC_PARSE_BAD_DATA);
            cmc_diag_record(record, CMC_DIAG_PART_TOO_SHORT);
            break;
        }
        entry.values = copy_out<uint32_t>(record + offset + kEntryHead24, count);
        if (entry.values == nullptr)
            return fail_value_table(parsed, record, CMC_DIAG_NO_MEMORY, CMC_PARSE_NO_MEMORY);
        offset += kEntryHead24 + 4 * uint64_t(count);
    }
    std::free(record);
    return 0;
}

// Id 25: n at 8, m at 10, m 32-bit values from 12, then n entries of a head
// (20 bytes, 24 above version 100), a 36-byte block and m 36-byte tail
// blocks. The record is kept; only the blocks are copied.
uint32_t decode_block_record(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->block_record, record);
    release_block_group(parsed);

    if (!reaches(record, 12))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint16_t n = load_u16(record + 8);
    const uint64_t m = load_u16(record + 10);
    const uint64_t head = record_version(record) > 100 ? 24 : 20;
    const uint64_t values_end = 12 + 4 * m;
    if (!reaches(record, values_end + n * (head + kBlock25 + kBlock25 * m)))
        return drop_record(record, CMC_DIAG_TOO_SHORT);

    parsed->block_record = record;
    set_view(parsed->block_values, record, 12);
    cmc_block_entry *entries = alloc_array<cmc_block_entry>(n);
    if (entries == nullptr) {
        cmc_diag_record(record, CMC_DIAG_NO_MEMORY); // the record stays without entries
        return 0;
    }
    uint64_t offset = values_end;
    for (uint32_t i = 0; i < n; ++i) {
        entries[i].entry_start = record + offset;
        offset += head;
        memcpy_s(entries[i].block, sizeof entries[i].block, record + offset, kBlock25);
        entries[i].tail_blocks = record + offset + kBlock25;
        offset += kBlock25 + kBlock25 * m;
    }
    parsed->block_entries = entries;
    return 0;
}

// Id 26: header, base_word at 8, then (version above 100, 64 bytes or more)
// two blocks of an 8-byte word and four f32 factors. The short form gives
// each block base_word and factors of 1.0.
uint32_t decode_dual_block(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->dual_block, record);
    release_slot(parsed->dual_block);

    if (record_size(record) <= 15)
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    auto *dual = alloc_array<cmc_dual_block>(1);
    if (dual == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    memcpy_s(dual, offsetof(cmc_dual_block, blocks), record, 16);
    const bool versioned = record_version(record) > 100;
    if (versioned && holds(record, sizeof(cmc_dual_block))) {
        memcpy_s(dual->blocks, sizeof dual->blocks, record + 16, sizeof dual->blocks);
    } else {
        if (versioned)
            cmc_diag_record(record, CMC_DIAG_PART_TOO_SHORT);
        for (cmc_factor_block &block : dual->blocks) {
            memcpy_s(block.block_word, sizeof block.block_word, dual->base_word,
                     sizeof dual->base_word);
            for (float &factor : block.factors)
                factor = 1.0f;
        }
    }
    parsed->dual_block = dual;
    std::free(record);
    return 0;
}

// Id 27: n at 24, c at 26, extents a, b at 28 and 30, then n elements of a
// 20-byte head and c planes of a * b u16, then (version above 100) an
// n * 16-byte trailer. The record is kept; each element gets a copy of its
// head and a buffer of three planes.
//
// An element with more than three planes keeps its first three: the buffer
// holds three, and the walk still steps over all c planes. Plane buffers are
// capped at three times the record's size (a * b * 2 * n <= size), which
// every record with at least one plane per element meets; without the cap a
// plane-less record of a few bytes could ask for gigabytes of zeros. A buffer
// over the cap is refused like a failed allocation: its pointer stays null
// and the record is kept.
uint32_t decode_plane_grid_set(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->plane_grid_set, record);
    release_plane_grid_set(parsed->plane_grid_set);
    parsed->plane_grid_set = nullptr;

    if (!reaches(record, 32))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint16_t n = load_u16(record + 24);
    const uint64_t planes = load_u16(record + 26);
    const uint64_t plane_bytes = 2 * uint64_t(load_u16(record + 28)) * load_u16(record + 30);
    const uint64_t element_bytes = kElementHead27 + planes * plane_bytes;
    // An element longer than the record cannot fit; testing it first keeps
    // n * element_bytes below 2^48 (it could pass 2^64 and wrap otherwise).
    if (n != 0 && element_bytes > record_size(record))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint64_t elements_end = 32 + n * element_bytes;
    const bool versioned = record_version(record) > 100;
    // The trailer's test is the format's own (rounded up to 8).
    if (versioned ? !fits_rounded(record, elements_end + kTrailerPerElement27 * uint64_t(n))
                  : !reaches(record, elements_end))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const bool buffers_capped = n * plane_bytes > record_size(record);
    if (buffers_capped || planes > kPlanes27)
        cmc_diag_record(record, CMC_DIAG_BAD_COUNT); // kept: three planes, or none

    auto *set = alloc_array<cmc_plane_grid_set>(1);
    if (set == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    set->record = record; // owned by the structure from here on
    if (n != 0) {
        set->elements = alloc_array<cmc_plane_grid_element>(n);
        if (set->elements == nullptr) {
            std::free(set);
            return drop_record(record, CMC_DIAG_NO_MEMORY);
        }
    }
    const uint64_t copied = (planes < kPlanes27 ? planes : kPlanes27) * plane_bytes;
    uint64_t offset = 32;
    for (uint32_t i = 0; i < n; ++i, offset += element_bytes) {
        cmc_plane_grid_element &e = set->elements[i];
        // A failed element allocation leaves its pointer null and decoding
        // goes on; the bounded copy reports the null destination.
        e.element_head = alloc_array<uint8_t>(kElementHead27);
        e.planes = buffers_capped ? nullptr : alloc_array<uint16_t>(kPlanes27 * plane_bytes / 2);
        if (e.element_head == nullptr || e.planes == nullptr)
            cmc_diag_record(record, CMC_DIAG_NO_MEMORY);
        memcpy_s(e.element_head, kElementHead27, record + offset, kElementHead27);
        memcpy_s(e.planes, size_t(kPlanes27 * plane_bytes), record + offset + kElementHead27,
                 size_t(copied));
    }
    if (versioned)
        set->trailer = record + elements_end;
    parsed->plane_grid_set = set;
    return 0;
}

// Id 29: a and b at 12 and 14, four planes of a * b 32-bit values from 20.
// The record needs at least 56 bytes, non-zero extents and the planes'
// 20 + 16ab bytes rounded up to 8.
uint32_t decode_four_plane_grid(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->four_plane_grid, record);
    release_four_plane_grid(parsed->four_plane_grid);
    parsed->four_plane_grid = nullptr;

    if (!holds(record, kMinSize29))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint64_t samples = uint64_t(load_u16(record + 12)) * load_u16(record + 14);
    if (samples == 0)
        return drop_record(record, CMC_DIAG_BAD_COUNT);
    if (!fits_rounded(record, 20 + 16 * samples))
        return drop_record(record, CMC_DIAG_TOO_SHORT);

    uint32_t *block = alloc_array<uint32_t>(4 * samples);
    if (block == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    auto *grid = alloc_array<cmc_four_plane_grid>(1);
    if (grid == nullptr) {
        std::free(block);
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    }
    memcpy_s(grid->head, sizeof grid->head, record, sizeof grid->head);
    memcpy_s(block, size_t(16 * samples), record + 20, size_t(16 * samples));
    for (uint32_t i = 0; i < 4; ++i)
        grid->planes[i] = block + i * samples;
    parsed->four_plane_grid = grid;
    std::free(record);
    return 0;
}
