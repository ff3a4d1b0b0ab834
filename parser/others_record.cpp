// Others record (id 722): a record of another consumer that the walk steps
// over. ej_kelb_others_parser_init, a separate call, summarizes the
// container's first one into slot 63.
//
// The container was validated by the parse; the search still never reads
// past the smaller of its size field and the descriptor's size, and stops at
// a record whose size is below its header or that runs past that end, as the
// walk does.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "allocation.h"
#include "byte_io.h"
#include "cmc_diag.h"
#include "cmc_records.h"

namespace {

constexpr uint16_t kOthersId = 722;
constexpr uint32_t kValue = 8;
constexpr uint32_t kCount = 12;
constexpr uint32_t kEntries = 16;
constexpr uint32_t kEntry = 8;
constexpr uint32_t kMaxEntries = 16;

// Offset of the first id-722 record, or 0 when there is none.
uint32_t find_others(const uint8_t *data, uint32_t limit)
{
    uint32_t offset = kContainerHeaderSize;
    while (offset < limit) {
        cmc_diag_set_record_offset(offset);
        if (limit - offset < kRecordHeaderSize) {
            cmc_diag_leftover(limit - offset, CMC_DIAG_WALK_RECORD_PAST_END);
            return 0;
        }
        const uint8_t *rec = data + offset;
        const uint32_t size = record_size(rec);
        if (size < kRecordHeaderSize) {
            cmc_diag_record(rec, CMC_DIAG_WALK_RECORD_TOO_SMALL);
            return 0;
        }
        if (size > limit - offset) {
            cmc_diag_record(rec, CMC_DIAG_WALK_RECORD_PAST_END);
            return 0;
        }
        if (record_id(rec) == kOthersId)
            return offset;
        offset += size;
    }
    return 0;
}

void summarize(const uint8_t *rec, cmc_parsed_data *parsed)
{
    // The record must hold what is read of it: the value, the count and the
    // entries kept (a record announcing more than 16 needs only 16).
    if (record_size(rec) < kEntries) {
        cmc_diag_record(rec, CMC_DIAG_TOO_SHORT);
        return;
    }
    const uint32_t count = std::min(load_u32(rec + kCount), kMaxEntries);
    if (record_size(rec) < kEntries + kEntry * count) {
        cmc_diag_record(rec, CMC_DIAG_TOO_SHORT);
        return;
    }
    auto *others = static_cast<others_data *>(cmc_calloc(1, sizeof(others_data)));
    if (others == nullptr) {
        cmc_diag_record(rec, CMC_DIAG_NO_MEMORY);
        return;
    }
    others->value = load_u32(rec + kValue);
    others->count = count;
    std::memcpy(others->entries, rec + kEntries, kEntry * size_t(count));
    parsed->others = others;
}

} // namespace

void ej_kelb_others_parser_init(const ej_data_block *container, cmc_parsed_data *parsed)
{
    if (container == nullptr || container->data == nullptr || parsed == nullptr)
        return;
    // Slot 63 summarizes the container of the latest call: an earlier block
    // goes first, whatever this call finds.
    std::free(parsed->others);
    parsed->others = nullptr;

    if (container->size < kContainerHeaderSize)
        return;
    const uint32_t limit = std::min(load_u32(container->data + 4), container->size);
    if (limit <= kContainerHeaderSize)
        return;
    const uint32_t offset = find_others(container->data, limit);
    if (offset != 0)
        summarize(container->data + offset, parsed);
    cmc_diag_set_record_offset(CMC_DIAG_NO_OFFSET);
}
