/*
 * cmc_diag.h - drop-reason diagnostics (internal).
 *
 * Every path where the walk or a decoder drops or cuts a record names its
 * reason here. The hook is off by default and per thread; the library never
 * prints the events and exports nothing for them. Tools that link the internal
 * static archive install a hook to tell a tuning engineer which record was
 * dropped and why.
 */
#ifndef CMC_DIAG_H
#define CMC_DIAG_H

#include <cstdint>

#include "ej_cmc_parser.h"

enum cmc_diag_reason : uint32_t {
    /* The container as a whole (ej_cmc_parser_init_v1 returns null). */
    CMC_DIAG_CONTAINER_NULL = 1,       // null descriptor or null data
    CMC_DIAG_CONTAINER_SIZE_FIELD,     // size field differs from the block size or is below 24
    CMC_DIAG_CONTAINER_CHECKSUM,       // neither checksum rule holds
    CMC_DIAG_CONTAINER_NO_MEMORY,      // the result could not be allocated
    /* The walk. */
    CMC_DIAG_WALK_RECORD_TOO_SMALL,    // size field below the 8-byte header: walk stops
    CMC_DIAG_WALK_RECORD_PAST_END,     // record runs past the container: walk stops
    CMC_DIAG_COPY_NO_MEMORY,           // record copy could not be allocated: record skipped
    /* Decoders. */
    CMC_DIAG_NO_DECODER,               // no decoder for the id: status 8
    CMC_DIAG_PARSER_REJECTED,          // the container-parser library rejected the record
    CMC_DIAG_TOO_SHORT,                // shorter than its counts require: dropped
    CMC_DIAG_PART_TOO_SHORT,           // kept, but an optional trailing part does not fit
    CMC_DIAG_UNSUPPORTED_VERSION,      // version below 100
    CMC_DIAG_NO_MEMORY,                // a decoder allocation failed
    CMC_DIAG_BAD_STRING,               // a string runs past the end of the record
    CMC_DIAG_SUPERSEDED,               // an earlier record of a shared slot takes precedence
    CMC_DIAG_REPLACED_EARLIER,         // this record replaced an earlier one of the same slots
    CMC_DIAG_BAD_FIELD,                // a field holds a value its layout forbids: dropped
    CMC_DIAG_BAD_COUNT,                // a count is zero where one is needed, negative, or more than the structure holds
};

/* Offset value of an event for a record that did not come from the walk. */
constexpr uint32_t CMC_DIAG_NO_OFFSET = UINT32_MAX;

struct cmc_diag_event {
    uint32_t offset;       // record offset in the container, or CMC_DIAG_NO_OFFSET
    uint32_t size;         // record size field (container events: the block size)
    uint16_t id;           // record id (container events: 0)
    uint8_t version;       // record version (container events: 0)
    cmc_diag_reason reason;
};

typedef void (*cmc_diag_hook)(const cmc_diag_event *event, void *user);

/* Install a hook for the calling thread; null turns diagnostics off. */
void cmc_diag_set_hook(cmc_diag_hook hook, void *user);

/* A short English description of a reason, for tools. */
const char *cmc_diag_reason_text(cmc_diag_reason reason);

/* Library side. All are no-ops while no hook is installed. */
void cmc_diag_container(const ej_data_block *container, cmc_diag_reason reason);
void cmc_diag_record(const void *record, cmc_diag_reason reason);
/* Bytes at the current offset too few for a record header (size = their count). */
void cmc_diag_leftover(uint32_t bytes, cmc_diag_reason reason);
/* Set by the walk around each record it hands on (CMC_DIAG_NO_OFFSET after). */
void cmc_diag_set_record_offset(uint32_t offset);

#endif /* CMC_DIAG_H */
