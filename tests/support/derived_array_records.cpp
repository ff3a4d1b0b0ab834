#include "derived_array_records.h"

namespace ejtest {

Bytes rec_13(uint8_t version, uint32_t total)
{
    ByteWriter w;
    w.fill(62, 0x13).u16(3).u16(11).u16(12).u16(13).u16(5).u16(6).u16(7).u16(8);
    return make_record_sized(13, version, w.take(), total);
}

Bytes rec_14(uint16_t start, uint16_t end, uint16_t step, uint32_t total)
{
    return make_record_sized(14, 100, ByteWriter().u16(start).u16(end).u16(step).fill(64, 0x14).take(),
                             total);
}

Bytes rec_15(uint16_t a, uint16_t b, const std::vector<Curve> &curves)
{
    ByteWriter w;
    w.u16(a).u16(b);
    for (int t = 0; t < 4; ++t)
        for (int i = 0; i < (t < 3 ? a : b); ++i)
            w.fill(8, uint8_t(0x10 * t + i));
    w.u16(uint16_t(curves.size()));
    for (const Curve &c : curves) {
        w.fill(8, 0xc0).u16(c.value).u16(uint16_t(c.first.size()));
        for (uint16_t v : c.first)
            w.u16(v);
        for (uint16_t v : c.second)
            w.u16(v);
    }
    const size_t length = 8 + w.size();
    w.pad_to(((length + 7) & ~size_t(7)) - 8);
    return make_record(15, 100, w.take());
}

} // namespace ejtest
