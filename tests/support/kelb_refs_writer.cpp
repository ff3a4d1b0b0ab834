#include "kelb_refs_writer.h"

#include <cstring>

namespace ejtest {

void put_u32(Bytes &b, size_t offset, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        b.at(offset + i) = uint8_t(v >> (8 * i));
}

void put_u64(Bytes &b, size_t offset, uint64_t v)
{
    put_u32(b, offset, uint32_t(v));
    put_u32(b, offset + 4, uint32_t(v >> 32));
}

uint64_t get_u64(const uint8_t *p)
{
    return uint64_t(get_u32(p)) | uint64_t(get_u32(p + 4)) << 32;
}

Bytes make_rec_31(const std::vector<Rec31Entry> &entries, uint8_t version)
{
    ByteWriter w;
    w.u32(uint32_t(entries.size())).zeros(4).u64(entries.empty() ? 0 : 24);
    for (const Rec31Entry &e : entries)
        for (uint32_t field : e)
            w.u32(field);
    return make_record(31, version, w.take());
}

Bytes make_rec_34(const std::vector<Rec34Element> &elements, uint8_t version)
{
    const uint32_t count = uint32_t(elements.size());
    // Element fields first, with the arrays laid out behind the elements.
    ByteWriter arrays;
    uint64_t next = rec_34_element_offset(count);
    const auto place = [&](size_t bytes) {
        const uint64_t at = bytes == 0 ? 0 : next;
        next += bytes;
        return at;
    };
    ByteWriter body; // from offset 8
    body.u32(count).zeros(4).u64(count == 0 ? 0 : 32).zeros(8);
    for (const Rec34Element &e : elements) {
        const bool fixed = e.kind == 1 && e.word4 == 3;
        const uint64_t entries_at = place(32 * e.entries.size());
        const uint64_t values_at = place(8 * e.values.size());
        const uint64_t fixed_at = fixed ? place(8) : 0;
        const uint32_t count_b = uint32_t(e.values.size());
        body.u32(e.kind).u32(e.word4).u32(e.kind == 0 ? uint32_t(e.entries.size()) : 0).u32(count_b)
            .u64(entries_at).u64(values_at).u64(fixed_at);
        for (const Rec34Entry &x : e.entries) {
            arrays.f32(x.a).f32(x.b);
            for (uint8_t byte : x.rest)
                arrays.u8(byte);
            arrays.zeros(4);
        }
        for (const Rec34Value &v : e.values)
            arrays.f32(v.value).u32(v.word);
        if (fixed)
            for (uint16_t v : e.fixed)
                arrays.u16(v);
    }
    body.bytes(arrays.data());
    return make_record(34, version, body.take());
}

} // namespace ejtest
