// Map record (id 30, slot 51): items, a map of 32-bit values and an auxiliary
// block; with the module's NVM map calibration the map is recomputed at the
// calibration's grid size, blended with the centre of the record's table.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "decoder_support.h"
#include "decoders.h"
#include "ej_nvm.h"
#include "record_release.h"

namespace {

constexpr uint32_t kHeadBytes = 30;
constexpr uint32_t kMinSize = 32;
constexpr uint32_t kItemBytes = 6;
constexpr float kDefaultBlendFactor = 0.6f;

// The NVM map calibration when the NVM data holds one, else null.
const nvm_map_calibration *map_calibration(const ej_nvm_data *nvm)
{
    if (nvm == nullptr || nvm->map_calibration_present == 0)
        return nullptr;
    return nvm->map_calibration;
}

// Flip mode of the id-17 record (u16 at 12). Without an id-17 record decoded
// earlier in the walk there is no flip mode to read: the map is not mirrored.
uint32_t flip_mode(const cmc_parsed_data *parsed)
{
    return parsed->rec_17 != nullptr ? load_u16(parsed->rec_17 + 12) : 0;
}

// trunc(x) as a signed 32-bit integer where it is one; values beyond the
// range saturate and NaN gives 0 (a float conversion out of range has no
// defined result; this happens only with a non-finite or huge blend factor
// or an extreme calibration).
int32_t trunc_i32(float x)
{
    if (std::isnan(x))
        return 0;
    if (x >= 0x1p31f)
        return INT32_MAX;
    if (x < -0x1p31f)
        return INT32_MIN;
    return int32_t(x);
}

// trunc(x) in 64 bits: the acceptance band of a mean of 32-bit values (at
// most 1.5 * 2^31 in magnitude) always fits, so the band is the exact
// truncation that the comparisons with the 32-bit values need.
int64_t trunc_i64(float x)
{
    return std::isnan(x) ? 0 : int64_t(x);
}

struct Blend {
    float f;   // blend factor
    int32_t c; // centre value of the record's table
    uint32_t flip;
};

/*
 * The map from the NVM calibration. Returns false when the calibration has no
 * interior (n = 0), leaving map untouched (zero). Sums wrap around in 32 bits
 * as the calibration's values define them; they are formed in unsigned
 * arithmetic to keep that wrap-around defined.
 */
bool compute_map(const nvm_map_calibration &cal, const Blend &b, int32_t *map)
{
    const int32_t w = cal.cal_map_width;
    const int32_t h = cal.cal_map_height;
    const int32_t *v = cal.cal_map_values;
    const int32_t n = (w - 6) * (h - 4); // both factors can be negative
    if (n == 0)
        return false;
    uint32_t interior = 0;
    for (int32_t r = 2; r <= h - 3; ++r)
        for (int32_t c = 3; c <= w - 4; ++c)
            interior += uint32_t(v[r * w + c]);
    const float mean = float(int32_t(interior)) / float(n);

    const int64_t a = trunc_i64(0.5f * mean);
    const int64_t bnd = trunc_i64(1.5f * mean);
    const int64_t lo = a < bnd ? a : bnd;
    const int64_t hi = a < bnd ? bnd : a;

    // The scale 2^s with s taken modulo 32, as an unsigned power: a shift of
    // 31 gives 2^-31, never a negative scale.
    const float inv = 1.0f / float(uint32_t(1) << (cal.cal_map_shift & 31u));
    const float d = (b.flip == 1 || b.flip == 3) ? -1.0f : 1.0f;
    const float base = (1.0f - b.f) * float(b.c);
    const float fallback = (mean * b.f * inv) * d + base;

    for (int32_t r = 0; r < h; ++r) {
        for (int32_t c = 0; c < w; ++c) {
            uint32_t sum = 0;
            int32_t count = 0;
            for (int32_t y = r - 3; y <= r + 3; ++y) {
                if (y < 0 || y >= h)
                    continue;
                for (int32_t x = c - 3; x <= c + 3; ++x) {
                    if (x < 0 || x >= w)
                        continue;
                    const int32_t value = v[y * w + x];
                    if (lo < value && value < hi) {
                        sum += uint32_t(value);
                        ++count;
                    }
                }
            }
            const float x = count > 0
                                ? float(int32_t(sum)) * b.f * inv * d / float(count) + base
                                : fallback;
            const int32_t out_r = (b.flip == 2 || b.flip == 3) ? h - 1 - r : r;
            const int32_t out_c = (b.flip == 1 || b.flip == 3) ? w - 1 - c : c;
            map[out_r * w + out_c] = trunc_i32(x + 0.5f);
        }
    }
    return true;
}

/*
 * The record's own table into map. It holds `values` entries (the record's
 * w * h, or the calibration's W * H when NVM data without map values is
 * present); only the entries both hold are copied, the rest of map stays
 * zero. Version 101 and later store 32-bit values, older versions u16
 * values, widened with zeros.
 */
void copy_table(const uint8_t *table, uint64_t record_values, bool wide, int32_t *map,
                uint64_t values)
{
    const uint64_t count = record_values < values ? record_values : values;
    for (uint64_t i = 0; i < count; ++i)
        map[i] = wide ? load_i32(table + 4 * i) : int32_t(load_u16(table + 2 * i));
}

} // namespace

void release_nvm_map_table(cmc_nvm_map_table *table)
{
    if (table == nullptr)
        return;
    std::free(table->items);
    std::free(table->map);
    std::free(table->aux);
    std::free(table);
}

/*
 * Id 30. The record copy is always released and 0 returned; a failed check
 * or allocation leaves the structure with what it holds so far. The size
 * tests: at least 32 bytes, a non-zero item count and the items (rounded up
 * to 8); then the table counted at 4 bytes a value for every version, plus
 * the 4-byte blend factor from version 102 on, so that no read passes the
 * record; then the auxiliary block.
 */
uint32_t decode_nvm_map_record(uint8_t *record, cmc_parsed_data *parsed,
                               const struct ej_nvm_data *nvm)
{
    note_replacement(parsed->nvm_map_table, record);
    release_nvm_map_table(parsed->nvm_map_table);
    parsed->nvm_map_table = nullptr;

    auto *table = alloc_array<cmc_nvm_map_table>(1);
    if (table == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    parsed->nvm_map_table = table;
    // A record shorter than the head leaves the bytes past its end zero.
    const uint32_t size = record_size(record);
    const uint32_t head_bytes = size < kHeadBytes ? size : kHeadBytes;
    memcpy_s(table->head, sizeof table->head, record, head_bytes);

    if (size < kMinSize)
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    const uint64_t items = load_u16(record + CMC_NVM_MAP_HEAD_NUM_ITEMS);
    if (items == 0)
        return drop_record(record, CMC_DIAG_BAD_COUNT);
    const uint64_t items_end = kHeadBytes + kItemBytes * items;
    if (!fits_rounded(record, items_end))
        return drop_record(record, CMC_DIAG_TOO_SHORT);
    table->items = copy_out<uint8_t>(record + kHeadBytes, kItemBytes * items);
    if (table->items == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);

    const uint8_t version = record_version(record);
    const uint64_t w = load_u16(record + CMC_NVM_MAP_HEAD_TABLE_WIDTH);
    const uint64_t h = load_u16(record + CMC_NVM_MAP_HEAD_TABLE_HEIGHT);
    const uint64_t factor_bytes = version >= 102 ? 4 : 0;
    const uint64_t table_start = items_end + factor_bytes;
    if (!fits_rounded(record, table_start + 4 * w * h))
        return drop_record(record, CMC_DIAG_TOO_SHORT);

    const nvm_map_calibration *cal = map_calibration(nvm);
    const uint64_t values = cal != nullptr ? uint64_t(cal->cal_map_width) * cal->cal_map_height
                                           : w * h;
    table->map = alloc_array<int32_t>(values);
    if (table->map == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);

    const bool wide = version >= 101;
    if (cal != nullptr) {
        // map has the calibration's size whatever it holds; head says so.
        store_u16(table->head + CMC_NVM_MAP_HEAD_TABLE_WIDTH, cal->cal_map_width);
        store_u16(table->head + CMC_NVM_MAP_HEAD_TABLE_HEIGHT, cal->cal_map_height);
    }
    if (cal == nullptr || cal->cal_map_values == nullptr) {
        // Calibration without values: the record's table in a map of the
        // calibration's size, as far as both reach (the rest stays zero).
        copy_table(record + table_start, w * h, wide, table->map, values);
    } else if (wide && w * h != 0) {
        // An empty record table has no centre: it counts as a centre of 0,
        // which leaves the map zero as a centre of 0 does.
        Blend blend;
        blend.f = version >= 102 ? load_f32(record + items_end) : kDefaultBlendFactor;
        blend.c = load_i32(record + table_start + 4 * ((h / 2) * w + w / 2));
        blend.flip = flip_mode(parsed);
        if (blend.c != 0)
            (void)compute_map(*cal, blend, table->map);
    }
    // Version 100 and earlier with calibration values: the map stays zero.

    const uint64_t aux_start = table_start + (wide ? 4 : 2) * w * h;
    const uint64_t aux_bytes = 4 * uint64_t(load_u16(record + CMC_NVM_MAP_HEAD_AUX_WIDTH)) *
                               load_u16(record + CMC_NVM_MAP_HEAD_AUX_HEIGHT);
    if (!fits_rounded(record, aux_start + aux_bytes))
        return drop_record(record, CMC_DIAG_PART_TOO_SHORT);
    table->aux = copy_out<uint8_t>(record + aux_start, aux_bytes);
    if (table->aux == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    std::free(record);
    return 0;
}
