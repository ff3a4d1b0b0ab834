#include "sample_module.h"

#include <cmath>

#include "nvm_writer.h"

namespace ejtest {

std::vector<Bytes> sample_records()
{
    ByteWriter name; // the name at record offset 24, then two pairs
    name.pad_to(16).cstr("sample-module").u16(2).cstr("lens").cstr("L1").cstr("sensor").cstr("S4");
    ByteWriter rec2; // version 103: 36 bytes copied
    rec2.u32(0x01020304).u16(7).u16(1).u16(9).fill(16, 0x22).u16(11).pad_to(32);
    ByteWriter rec6; // counts 1, 1, 0, 0 at 12, values from 16
    rec6.pad_to(4).u8(1).u8(1).u8(0).u8(0).u16(100).u16(200).pad_to(16);
    ByteWriter rec16; // count at 12, 4-byte values from 14
    rec16.pad_to(4).u16(2).u32(0xabcd).u32(0x1234).pad_to(16);
    ByteWriter rec17; // channel order at 10, flip mode at 12, extension at 14
    rec17.pad_to(2).u16(0).u16(1).u16(2).pad_to(8);
    ByteWriter rec18; // one 84-byte entry and trailing data
    rec18.u16(1).fill(84, 0x18).fill(8, 0x81).pad_to(104);
    ByteWriter rec19; // A = 1 entry (1.5, 2.0 in 16.16) and B = 1 value
    rec19.u16(3).u16(0).u16(1).u16(1).u32(98304).u32(131072).fill(20, 0x19).u32(65536).u32(5).pad_to(48);
    ByteWriter rec20; // version 102: list type 1 with L = 2 values
    rec20.u16(4).u16(5).u8(6).u8(7).u16(1).u16(2).u16(0).u32(32768).u32(1).u32(65536).u32(2).pad_to(32);
    return {make_record(1, 101, name.data()),
            make_record(2, 103, rec2.data()),
            make_record(5, 100, Bytes(8, 5)),
            make_record(6, 100, rec6.data()),
            make_record(7, 100, Bytes(8, 7)),
            make_record(8, 100, {}),
            make_record(16, 100, rec16.data()),
            make_record(17, 101, rec17.data()),
            make_record(18, 101, rec18.data()),
            make_record(19, 100, rec19.data()),
            make_record(20, 102, rec20.data()),
            make_record(21, 100, Bytes(8, 21)),
            make_record(23, 100, Bytes(16, 23)),
            make_record(37, 100, Bytes(8, 37)),
            make_record(722, 100, ByteWriter().u32(1).u32(1).u64(2).take())};
}

std::vector<int> sample_filled_slots()
{
    // Slot 57: the id-34 form built from the id-19 and id-20 records.
    return {0,  1,  2,  3,  4,  7,  8,  9,  10, 11, 29, 30, 31, 32,
            33, 34, 35, 36, 37, 38, 39, 40, 41, 43, 45, 57, 61, 64};
}

Bytes sample_nvm()
{
    constexpr uint8_t kW = 17, kH = 13;
    ejnvm::NvmBlob blob;
    blob.lsc.emplace();
    blob.lsc->width = kW;
    blob.lsc->height = kH;
    // Gains rising towards the corners, as a lens's fall-off asks for.
    for (int t = 0; t < 4; ++t) {
        ejnvm::LscTable table;
        table.frac_bits = t < 2 ? 8 : 10;
        const double scale = t < 2 ? 255.0 : 1023.0;
        for (int c = 0; c < 4; ++c) {
            for (int y = 0; y < kH; ++y) {
                for (int x = 0; x < kW; ++x) {
                    const double dx = (x - (kW - 1) / 2.0) / (kW / 2.0);
                    const double dy = (y - (kH - 1) / 2.0) / (kH / 2.0);
                    const double r2 = (dx * dx + dy * dy) / 2.0;
                    table.channels[c].push_back(uint16_t(std::lround(scale * r2 * (0.8 + 0.05 * c))));
                }
            }
        }
        blob.lsc->tables.push_back(table);
    }
    ejnvm::MapSection map;
    map.width = 9;
    map.height = 7;
    map.shift = 4;
    map.has_values = true;
    for (int i = 0; i < 9 * 7; ++i)
        map.values.push_back(1600 + 10 * (i % 9) - 7 * (i / 9));
    blob.map = map;
    return ejnvm::write_nvm(blob);
}

} // namespace ejtest
