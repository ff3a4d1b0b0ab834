// The record walk. Records follow each other back to back from offset 24; each
// record's size field says where the next one starts.
//
// The walk stops at a record whose size field is below its 8-byte header
// (the walk would not advance, or would step inside a header) and at a record
// that runs past the container's end (its bytes are not all there). Both are
// reported as drop reasons; the records before them stay decoded.
#include "record_walk.h"

#include <cstdlib>
#include <cstring>

#include "allocation.h"
#include "byte_io.h"
#include "cmc_diag.h"

namespace {

constexpr uint16_t kFirstForeignId = 64; // ids from 64 on belong to other consumers

// Copy a record into a heap block of its own and hand it to cmc_parse.
void decode_copy(const uint8_t *rec, uint32_t rec_size, cmc_parsed_data *parsed,
                 const struct ej_nvm_data *nvm)
{
    uint8_t *copy = static_cast<uint8_t *>(cmc_malloc(rec_size));
    if (copy == nullptr) {
        cmc_diag_record(rec, CMC_DIAG_COPY_NO_MEMORY);
        return;
    }
    std::memcpy(copy, rec, rec_size);
    if (cmc_parse(copy, parsed, nvm) != CMC_PARSE_OK)
        std::free(copy);
}

} // namespace

void walk_records(const uint8_t *data, uint32_t size, cmc_parsed_data *parsed,
                  const struct ej_nvm_data *nvm)
{
    uint32_t offset = kContainerHeaderSize;
    while (offset < size) {
        const uint8_t *rec = data + offset;
        cmc_diag_set_record_offset(offset);
        if (size - offset < kRecordHeaderSize) {
            // Fewer bytes than a header are left: nothing here is readable.
            cmc_diag_leftover(size - offset, CMC_DIAG_WALK_RECORD_PAST_END);
            break;
        }
        const uint32_t rec_size = record_size(rec);
        if (rec_size < kRecordHeaderSize) {
            cmc_diag_record(rec, CMC_DIAG_WALK_RECORD_TOO_SMALL);
            break;
        }
        if (rec_size > size - offset) {
            cmc_diag_record(rec, CMC_DIAG_WALK_RECORD_PAST_END);
            break;
        }
        if (record_id(rec) < kFirstForeignId)
            decode_copy(rec, rec_size, parsed, nvm);
        offset += rec_size;
    }
    cmc_diag_set_record_offset(CMC_DIAG_NO_OFFSET);
}
