/*
 * byte_io.h - little-endian reads at any alignment, and record header access
 * (internal).
 *
 * Containers and records are little-endian and their fields sit at arbitrary
 * byte offsets, so every multi-byte read goes through memcpy.
 */
#ifndef EJ_BYTE_IO_H
#define EJ_BYTE_IO_H

#include <cstdint>
#include <cstring>

inline uint16_t load_u16(const uint8_t *p)
{
    uint8_t b[2];
    std::memcpy(b, p, 2);
    return static_cast<uint16_t>(b[0] | b[1] << 8);
}

inline uint32_t load_u32(const uint8_t *p)
{
    uint8_t b[4];
    std::memcpy(b, p, 4);
    return uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
}

inline void store_u16(uint8_t *p, uint16_t v)
{
    const uint8_t b[2] = {uint8_t(v), uint8_t(v >> 8)};
    std::memcpy(p, b, 2);
}

inline void store_u32(uint8_t *p, uint32_t v)
{
    const uint8_t b[4] = {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
    std::memcpy(p, b, 4);
}

/* Record header: u32 size at 0, u8 version at 4, u16 id at 6. */
inline uint32_t record_size(const uint8_t *rec) { return load_u32(rec); }
inline uint8_t record_version(const uint8_t *rec) { return rec[4]; }
inline uint16_t record_id(const uint8_t *rec) { return load_u16(rec + 6); }

constexpr uint32_t kRecordHeaderSize = 8;
constexpr uint32_t kContainerHeaderSize = 24;

#endif /* EJ_BYTE_IO_H */
