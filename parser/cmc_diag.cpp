// Drop-reason diagnostics. The hook lives in thread-local storage so that the
// library has no state shared between callers; with no hook installed every
// report is a single test of a null pointer.
#include "cmc_diag.h"

#include "byte_io.h"

namespace {
struct diag_context {
    cmc_diag_hook hook = nullptr;
    void *user = nullptr;
    uint32_t offset = CMC_DIAG_NO_OFFSET;
};
thread_local diag_context t_diag;
} // namespace

void cmc_diag_set_hook(cmc_diag_hook hook, void *user)
{
    t_diag.hook = hook;
    t_diag.user = user;
    t_diag.offset = CMC_DIAG_NO_OFFSET;
}

void cmc_diag_set_record_offset(uint32_t offset)
{
    t_diag.offset = offset;
}

namespace {
void emit(uint32_t offset, uint32_t size, uint16_t id, uint8_t version, cmc_diag_reason reason)
{
    const cmc_diag_event event{offset, size, id, version, reason};
    t_diag.hook(&event, t_diag.user);
}
} // namespace

void cmc_diag_container(const ej_data_block *container, cmc_diag_reason reason)
{
    if (t_diag.hook != nullptr)
        emit(0, container != nullptr ? container->size : 0, 0, 0, reason);
}

void cmc_diag_leftover(uint32_t bytes, cmc_diag_reason reason)
{
    if (t_diag.hook != nullptr)
        emit(t_diag.offset, bytes, 0, 0, reason);
}

void cmc_diag_record(const void *record, cmc_diag_reason reason)
{
    if (t_diag.hook == nullptr)
        return;
    const uint8_t *rec = static_cast<const uint8_t *>(record);
    emit(t_diag.offset, record_size(rec), record_id(rec), record_version(rec), reason);
}

const char *cmc_diag_reason_text(cmc_diag_reason reason)
{
    switch (reason) {
    case CMC_DIAG_CONTAINER_NULL: return "container descriptor or its data is null";
    case CMC_DIAG_CONTAINER_SIZE_FIELD: return "container size field does not match the block size";
    case CMC_DIAG_CONTAINER_CHECKSUM: return "container checksum fails both rules";
    case CMC_DIAG_CONTAINER_NO_MEMORY: return "parse result could not be allocated";
    case CMC_DIAG_WALK_RECORD_TOO_SMALL: return "record size below its 8-byte header; walk stopped";
    case CMC_DIAG_WALK_RECORD_PAST_END: return "record runs past the end of the container; walk stopped";
    case CMC_DIAG_COPY_NO_MEMORY: return "record copy could not be allocated; record skipped";
    case CMC_DIAG_NO_DECODER: return "no decoder for this record id";
    case CMC_DIAG_PARSER_REJECTED: return "container parser rejected the record";
    case CMC_DIAG_TOO_SHORT: return "record shorter than its counts require; dropped";
    case CMC_DIAG_PART_TOO_SHORT: return "optional trailing part does not fit; left out";
    case CMC_DIAG_UNSUPPORTED_VERSION: return "unsupported record version";
    case CMC_DIAG_NO_MEMORY: return "allocation failed while decoding";
    case CMC_DIAG_BAD_STRING: return "string runs past the end of the record; dropped";
    case CMC_DIAG_SUPERSEDED: return "an earlier record takes precedence; ignored";
    case CMC_DIAG_REPLACED_EARLIER: return "replaced an earlier record of the same id";
    case CMC_DIAG_BAD_FIELD: return "a field holds a value its layout forbids; dropped";
    case CMC_DIAG_BAD_COUNT: return "a count is zero where one is needed, negative, or more than the structure holds";
    }
    return "unknown reason";
}
