/*
 * decoder_support.h - conventions shared by the record decoders (internal).
 */
#ifndef CMC_DECODER_SUPPORT_H
#define CMC_DECODER_SUPPORT_H

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "allocation.h"
#include "byte_io.h"
#include "cmc_diag.h"
#include "memcpy_s.h"

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

/* Signed and float fields, read at any alignment like the others. */
inline int16_t load_i16(const uint8_t *p) { return int16_t(load_u16(p)); }
inline int32_t load_i32(const uint8_t *p) { return int32_t(load_u32(p)); }
inline float load_f32(const uint8_t *p)
{
    const uint32_t bits = load_u32(p);
    float v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

/*
 * Length arithmetic of the records whose counts multiply past 32 bits
 * (16-bit extents times 16-bit counts, signed products, 32-bit counts): done
 * in 64 bits, where no record's announced length can wrap.
 */
constexpr uint64_t required_size64(uint64_t end)
{
    return (end + 7u) & ~uint64_t(7);
}

/* The size test of a record whose format gives one: end rounded up to 8. */
inline bool fits_rounded(const uint8_t *record, uint64_t end)
{
    return required_size64(end) <= record_size(record);
}

/*
 * The one rule for records whose format gives no size test of their own:
 * a decoder never reads past the record. Such a record must reach the exact
 * end of the last field that its counts announce (not rounded up to 8: only
 * the records with a size test get the rounding). A record that does not is
 * dropped whole: its slots emptied, the copy released, status 0, reason
 * CMC_DIAG_TOO_SHORT. The announced length is checked before anything is
 * allocated, so a count that would make an allocation absurd never reaches
 * the allocator.
 */
inline bool reaches(const uint8_t *record, uint64_t end)
{
    return end <= record_size(record);
}

/*
 * A zero-filled array of count elements. A zero-length array is still a
 * distinct block (one element is asked for), so that a null pointer always
 * means a failed allocation.
 */
template <typename T> inline T *alloc_array(uint64_t count)
{
    if (count > SIZE_MAX / sizeof(T))
        return nullptr;
    return static_cast<T *>(cmc_calloc(count != 0 ? size_t(count) : 1, sizeof(T)));
}

/*
 * A new array holding count elements copied from the record at src (through
 * the bounded copy), or null when the allocation fails. The caller has
 * checked that the record holds them.
 */
template <typename T> inline T *copy_out(const uint8_t *src, uint64_t count)
{
    T *dest = alloc_array<T>(count);
    if (dest != nullptr)
        memcpy_s(dest, size_t(count * sizeof(T)), src, size_t(count * sizeof(T)));
    return dest;
}

#endif /* CMC_DECODER_SUPPORT_H */
