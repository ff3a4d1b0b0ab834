// Stand-in NVM library: parses the small binary format of docs/nvm-format.md
// into an ej_nvm_data.
//
// The walk is a single pass with a bounds-checked cursor. Nothing is allocated
// for a section or table before the bytes it is built from are known to be
// present, so an allocation never exceeds a small multiple of the blob's own
// size. Everything allocated hangs off the ej_nvm_data as soon as it
// exists, so that one release routine frees a complete or a partial result.
#include "ej_nvm.h"

#include <cstdint>
#include <cstdlib>

namespace {

// Tests route the stand-in's allocations through their own counter (see
// ej_nvm_set_calloc); per thread, like the parser's own failure injection.
thread_local ej_nvm_calloc_fn t_calloc = nullptr;

void *nvm_calloc(size_t count, size_t size)
{
    return t_calloc != nullptr ? t_calloc(count, size) : std::calloc(count, size);
}

constexpr uint64_t kHeaderSize = 16;
constexpr uint64_t kLscHeaderSize = 4;
constexpr uint64_t kLscTableHeaderSize = 4;
constexpr uint64_t kMapHeaderSize = 4;
constexpr uint16_t kFormatVersion = 1;
constexpr uint16_t kFlagLsc = 1u << 0;
constexpr uint16_t kFlagMap = 1u << 1;
constexpr uint16_t kKnownFlags = kFlagLsc | kFlagMap;
constexpr uint64_t kChannels = 4;

uint16_t le16(const uint8_t *p)
{
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}

uint32_t le32(const uint8_t *p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// Forward-only cursor over the blob. Lengths and positions are 64-bit, so no
// sum of values taken from the blob can wrap.
struct Cursor {
    const uint8_t *data;
    uint64_t size;
    uint64_t pos;

    uint64_t remaining() const { return size - pos; }

    // The next n bytes, or null (and no move) when fewer than n are left.
    const uint8_t *take(uint64_t n)
    {
        if (n > remaining())
            return nullptr;
        const uint8_t *p = data + pos;
        pos += n;
        return p;
    }
};

bool all_zero(const uint8_t *p, uint64_t n)
{
    for (uint64_t i = 0; i < n; ++i)
        if (p[i] != 0)
            return false;
    return true;
}

// Samples above 8 fractional bits are 16-bit, in the blob and in memory.
uint64_t sample_bytes(uint8_t frac_bits)
{
    return frac_bits > 8 ? 2 : 1;
}

void release_lsc_tables(nvm_lsc_table *tables, uint8_t count)
{
    if (tables == nullptr)
        return;
    for (uint8_t t = 0; t < count; ++t)
        for (void *channel : tables[t].channel_tables)
            std::free(channel);
    std::free(tables);
}

void release_map(nvm_map_calibration *map)
{
    if (map == nullptr)
        return;
    std::free(map->cal_map_values);
    std::free(map);
}

// Checks the fixed header; on success the cursor is past it.
int read_header(Cursor &cur, uint16_t *version, uint16_t *flags)
{
    const uint8_t *h = cur.take(kHeaderSize);
    if (h == nullptr)
        return EJ_NVM_ERR_TRUNCATED;
    if (h[0] != 'E' || h[1] != 'J' || h[2] != 'N' || h[3] != 'V')
        return EJ_NVM_ERR_MAGIC;
    *version = le16(h + 4);
    if (*version != kFormatVersion)
        return EJ_NVM_ERR_VERSION;
    // Compared before the sections are walked: a blob cut short (or padded)
    // in transport is reported as such rather than as a broken section.
    if (le32(h + 8) != cur.size)
        return EJ_NVM_ERR_SIZE;
    *flags = le16(h + 6);
    if ((*flags & ~kKnownFlags) != 0)
        return EJ_NVM_ERR_FORMAT;
    if (!all_zero(h + 12, 4))
        return EJ_NVM_ERR_FORMAT;
    return EJ_NVM_OK;
}

// One channel table of `samples` samples, `width` bytes each, converted from
// little-endian to host order. An empty table stays null.
int read_channel(Cursor &cur, uint64_t samples, uint64_t width, void **out)
{
    const uint8_t *src = cur.take(samples * width);
    if (src == nullptr)
        return EJ_NVM_ERR_TRUNCATED;
    if (samples == 0)
        return EJ_NVM_OK;
    void *dst = nvm_calloc(samples, width);
    if (dst == nullptr)
        return EJ_NVM_ERR_NO_MEMORY;
    *out = dst;
    if (width == 1) {
        uint8_t *d = static_cast<uint8_t *>(dst);
        for (uint64_t i = 0; i < samples; ++i)
            d[i] = src[i];
    } else {
        uint16_t *d = static_cast<uint16_t *>(dst);
        for (uint64_t i = 0; i < samples; ++i)
            d[i] = le16(src + 2 * i);
    }
    return EJ_NVM_OK;
}

int read_lsc_table(Cursor &cur, uint64_t samples, nvm_lsc_table *table)
{
    const uint8_t *h = cur.take(kLscTableHeaderSize);
    if (h == nullptr)
        return EJ_NVM_ERR_TRUNCATED;
    if (!all_zero(h + 1, 3))
        return EJ_NVM_ERR_FORMAT;
    table->frac_bits = h[0];
    const uint64_t width = sample_bytes(table->frac_bits);
    for (void *&channel : table->channel_tables) {
        const int rc = read_channel(cur, samples, width, &channel);
        if (rc != EJ_NVM_OK)
            return rc;
    }
    return EJ_NVM_OK;
}

int read_lsc_section(Cursor &cur, ej_nvm_data *out)
{
    const uint8_t *h = cur.take(kLscHeaderSize);
    if (h == nullptr)
        return EJ_NVM_ERR_TRUNCATED;
    if (h[3] != 0)
        return EJ_NVM_ERR_FORMAT;
    const uint8_t count = h[0];
    out->lsc_grid_width = h[1];
    out->lsc_grid_height = h[2];
    if (count == 0)
        return EJ_NVM_OK;

    // Every table takes at least its header and four tables of u8 samples;
    // a blob too short even for that is rejected before the array exists.
    const uint64_t samples = uint64_t(h[1]) * h[2];
    const uint64_t min_table = kLscTableHeaderSize + kChannels * samples;
    if (count * min_table > cur.remaining())
        return EJ_NVM_ERR_TRUNCATED;

    nvm_lsc_table *tables = static_cast<nvm_lsc_table *>(nvm_calloc(count, sizeof(nvm_lsc_table)));
    if (tables == nullptr)
        return EJ_NVM_ERR_NO_MEMORY;
    out->lsc_tables = tables;
    out->lsc_table_count = count;
    for (uint8_t t = 0; t < count; ++t) {
        const int rc = read_lsc_table(cur, samples, &tables[t]);
        if (rc != EJ_NVM_OK)
            return rc;
    }
    return EJ_NVM_OK;
}

int read_map_section(Cursor &cur, ej_nvm_data *out)
{
    const uint8_t *h = cur.take(kMapHeaderSize);
    if (h == nullptr)
        return EJ_NVM_ERR_TRUNCATED;
    const uint8_t has_values = h[3];
    if (has_values > 1)
        return EJ_NVM_ERR_FORMAT;
    const uint64_t count = has_values ? uint64_t(h[0]) * h[1] : 0;
    const uint8_t *src = cur.take(count * 4);
    if (src == nullptr)
        return EJ_NVM_ERR_TRUNCATED;

    nvm_map_calibration *map =
        static_cast<nvm_map_calibration *>(nvm_calloc(1, sizeof(nvm_map_calibration)));
    if (map == nullptr)
        return EJ_NVM_ERR_NO_MEMORY;
    out->map_calibration = map;
    out->map_calibration_present = 1;
    map->cal_map_width = h[0];
    map->cal_map_height = h[1];
    map->cal_map_shift = h[2];
    // A map without values, or with no room for any, keeps a null pointer:
    // consumers read null as "no values".
    if (count == 0)
        return EJ_NVM_OK;
    int32_t *values = static_cast<int32_t *>(nvm_calloc(count, sizeof(int32_t)));
    if (values == nullptr)
        return EJ_NVM_ERR_NO_MEMORY;
    map->cal_map_values = values;
    for (uint64_t i = 0; i < count; ++i)
        values[i] = static_cast<int32_t>(le32(src + 4 * i));
    return EJ_NVM_OK;
}

// The sections the header's flags announce, in their fixed order, then the
// check that nothing follows them.
int read_sections(Cursor &cur, uint16_t flags, ej_nvm_data *out)
{
    if ((flags & kFlagLsc) != 0) {
        const int rc = read_lsc_section(cur, out);
        if (rc != EJ_NVM_OK)
            return rc;
    }
    if ((flags & kFlagMap) != 0) {
        const int rc = read_map_section(cur, out);
        if (rc != EJ_NVM_OK)
            return rc;
    }
    return cur.remaining() == 0 ? EJ_NVM_OK : EJ_NVM_ERR_TRAILING;
}

} // namespace

extern "C" int ej_nvm_parse(const ej_data_block *nvm, ej_nvm_data **handle)
{
    if (handle == nullptr)
        return EJ_NVM_ERR_ARGUMENT;
    *handle = nullptr;
    if (nvm == nullptr || nvm->data == nullptr)
        return EJ_NVM_ERR_ARGUMENT;

    Cursor cur{nvm->data, nvm->size, 0};
    uint16_t version = 0;
    uint16_t flags = 0;
    int rc = read_header(cur, &version, &flags);
    if (rc != EJ_NVM_OK)
        return rc;

    ej_nvm_data *out = static_cast<ej_nvm_data *>(nvm_calloc(1, sizeof(ej_nvm_data)));
    if (out == nullptr)
        return EJ_NVM_ERR_NO_MEMORY;
    out->format_version = version;
    rc = read_sections(cur, flags, out);
    if (rc != EJ_NVM_OK) {
        ej_nvm_deinit(out);
        return rc;
    }
    *handle = out;
    return EJ_NVM_OK;
}

extern "C" void ej_nvm_deinit(ej_nvm_data *handle)
{
    if (handle == nullptr)
        return;
    release_lsc_tables(handle->lsc_tables, handle->lsc_table_count);
    release_map(handle->map_calibration);
    std::free(handle);
}

extern "C" void ej_nvm_set_calloc(ej_nvm_calloc_fn fn)
{
    t_calloc = fn;
}
