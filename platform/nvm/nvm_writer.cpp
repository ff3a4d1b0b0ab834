// Writer of the NVM blob format; see nvm_writer.h and docs/nvm-format.md.
#include "nvm_writer.h"

#include <limits>
#include <stdexcept>
#include <string>

namespace ejnvm {
namespace {

void append_u16(std::vector<uint8_t> &out, uint16_t v)
{
    out.push_back(static_cast<uint8_t>(v));
    out.push_back(static_cast<uint8_t>(v >> 8));
}

void append_u32(std::vector<uint8_t> &out, uint32_t v)
{
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<uint8_t>(v >> shift));
}

void append_table(std::vector<uint8_t> &out, const LscTable &table, size_t samples, size_t index)
{
    out.push_back(table.frac_bits);
    out.insert(out.end(), 3, 0);
    const bool wide = table.frac_bits > 8;
    for (const std::vector<uint16_t> &channel : table.channels) {
        if (channel.size() != samples)
            throw std::invalid_argument("nvm writer: table " + std::to_string(index) +
                                        ": channel size is not width * height");
        for (uint16_t sample : channel) {
            if (wide) {
                append_u16(out, sample);
            } else {
                if (sample > 0xff)
                    throw std::invalid_argument("nvm writer: table " + std::to_string(index) +
                                                ": sample does not fit in 8 bits");
                out.push_back(static_cast<uint8_t>(sample));
            }
        }
    }
}

void append_lsc(std::vector<uint8_t> &out, const LscSection &lsc)
{
    if (lsc.tables.size() > 0xff)
        throw std::invalid_argument("nvm writer: more than 255 lens-shading tables");
    out.push_back(static_cast<uint8_t>(lsc.tables.size()));
    out.push_back(lsc.width);
    out.push_back(lsc.height);
    out.push_back(0);
    const size_t samples = size_t(lsc.width) * lsc.height;
    for (size_t t = 0; t < lsc.tables.size(); ++t)
        append_table(out, lsc.tables[t], samples, t);
}

void append_map(std::vector<uint8_t> &out, const MapSection &map)
{
    const size_t expected = map.has_values ? size_t(map.width) * map.height : 0;
    if (map.values.size() != expected)
        throw std::invalid_argument("nvm writer: map value count does not match");
    out.push_back(map.width);
    out.push_back(map.height);
    out.push_back(map.shift);
    out.push_back(map.has_values ? 1 : 0);
    for (int32_t v : map.values)
        append_u32(out, static_cast<uint32_t>(v));
}

void check_range(const std::vector<uint8_t> &bytes, size_t offset, size_t width)
{
    if (offset > bytes.size() || width > bytes.size() - offset)
        throw std::out_of_range("nvm writer: patch outside the blob");
}

} // namespace

void put_u16(std::vector<uint8_t> &bytes, size_t offset, uint16_t value)
{
    check_range(bytes, offset, 2);
    bytes[offset] = static_cast<uint8_t>(value);
    bytes[offset + 1] = static_cast<uint8_t>(value >> 8);
}

void put_u32(std::vector<uint8_t> &bytes, size_t offset, uint32_t value)
{
    check_range(bytes, offset, 4);
    for (size_t i = 0; i < 4; ++i)
        bytes[offset + i] = static_cast<uint8_t>(value >> (8 * i));
}

void fix_total_size(std::vector<uint8_t> &bytes)
{
    if (bytes.size() > std::numeric_limits<uint32_t>::max())
        throw std::invalid_argument("nvm writer: blob larger than 4 GiB");
    put_u32(bytes, kOffTotalSize, static_cast<uint32_t>(bytes.size()));
}

std::vector<uint8_t> write_nvm(const NvmBlob &blob)
{
    std::vector<uint8_t> out = {'E', 'J', 'N', 'V'};
    append_u16(out, kFormatVersion);
    append_u16(out, static_cast<uint16_t>((blob.lsc ? kFlagLsc : 0) | (blob.map ? kFlagMap : 0)));
    append_u32(out, 0); // total size, set below
    append_u32(out, 0); // reserved
    if (blob.lsc)
        append_lsc(out, *blob.lsc);
    if (blob.map)
        append_map(out, *blob.map);
    fix_total_size(out);
    return out;
}

} // namespace ejnvm
