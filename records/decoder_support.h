/*
 * decoder_support.h - conventions shared by the record decoders (internal).
 */
#ifndef CMC_DECODER_SUPPORT_H
#define CMC_DECODER_SUPPORT_H

#include <cstdint>
#include <cstdlib>

#include "allocation.h"
#include "byte_io.h"
#include "cmc_diag.h"

/*
 * Size a record needs so that its last field read ends inside it: the end of
 * that field rounded up to a multiple of 8, in 32-bit arithmetic as the
 * container format defines it.
 */
constexpr uint32_t required_size(uint32_t end)
{
    return (end + 7u) & ~7u;
}

/*
 * Whether the record's bytes reach end. Count fields are read only once this
 * holds: a record too short to carry its counts fails its size test anyway,
 * since every required size covers the counts.
 */
inline bool holds(const uint8_t *record, uint32_t end)
{
    return record_size(record) >= end;
}

/* Release what a slot owns and empty it. */
template <typename T> inline void release_slot(T *&slot)
{
    std::free(slot);
    slot = nullptr;
}

/* Point a view slot at offset bytes into a kept copy. */
template <typename T> inline void set_view(T *&slot, uint8_t *record, uint32_t offset)
{
    slot = reinterpret_cast<T *>(record + offset);
}

/* A decoder that keeps nothing of the copy names the reason and releases it. */
inline uint32_t drop_record(uint8_t *record, cmc_diag_reason reason)
{
    cmc_diag_record(record, reason);
    std::free(record);
    return 0;
}

/* Note that a record replaces earlier contents of its slots. */
inline void note_replacement(const void *earlier, const uint8_t *record)
{
    if (earlier != nullptr)
        cmc_diag_record(record, CMC_DIAG_REPLACED_EARLIER);
}

#endif /* CMC_DECODER_SUPPORT_H */
