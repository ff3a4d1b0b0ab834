#include "sample_module.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "derived_array_records.h"
#include "kelb_refs_writer.h"
#include "nvm_writer.h"
#include "record_samples.h"
#include "slots.h"

namespace ejtest {

namespace {

// The structured sample of that name, whole.
Bytes structured(const char *name)
{
    for (const SampleRecord &s : sample_structured_records()) {
        if (std::strcmp(s.name, name) == 0)
            return sample_at(s, s.full);
    }
    std::fprintf(stderr, "sample module: no structured sample named %s\n", name);
    std::abort();
}

uint32_t f32_bits(float v)
{
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return bits;
}

// The lens-shading sets: one per NVM table, named after the illuminant they
// were tuned under. Both pattern records use the 2 x 2 positions of the
// colour-filter pattern and 17 x 13 grids in 12-bit fixed point (stored 4).
constexpr uint16_t kIlluminants[kLensShadingSets] = {2856, 4000, 5003, 6504};

// Illuminant of set k: the four above, then further colour temperatures.
uint16_t illuminant(uint16_t k)
{
    return k < kLensShadingSets ? kIlluminants[k] : uint16_t(6504 + 100 * (k - 3));
}
const std::vector<int8_t> kBayerMap = {0, 1, -1, -1, 2, 3, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};

Bytes lens_shading_grids(uint16_t sets = kLensShadingSets)
{
    std::vector<Bytes> headers;
    for (uint16_t k = 0; k < sets; ++k)
        headers.push_back(header28(illuminant(k), 1.0f + 0.25f * (k % 4), 4));
    return make_record(28, 100, pattern_payload(kBayerMap, sets, kLensShadingWidth,
                                                kLensShadingHeight, headers));
}

// Set k multiplies NVM table k (stored 0-based).
Bytes lens_shading_ratio(uint16_t sets = kLensShadingSets)
{
    std::vector<Bytes> headers;
    for (uint16_t k = 0; k < sets; ++k)
        headers.push_back(header33(illuminant(k), k % 4, 0.5f + 0.125f * (k % 4), 4));
    return make_record(33, 100, pattern_payload(kBayerMap, sets, kLensShadingWidth,
                                                kLensShadingHeight, headers));
}

// Id 31: two 72-byte entries, an identifier then float fields.
Bytes rec_31()
{
    std::vector<Rec31Entry> entries;
    for (uint32_t i = 0; i < 2; ++i) {
        Rec31Entry e{};
        e[0] = 0x3100 + i;
        e[1] = f32_bits(1.0f + i);
        e[2] = f32_bits(0.5f * (i + 1));
        e[3] = f32_bits(2.0f);
        entries.push_back(e);
    }
    return make_rec_31(entries);
}

} // namespace

std::vector<Bytes> sample_records()
{
    return sample_records_with_sets(kLensShadingSets);
}

std::vector<Bytes> sample_records_with_sets(uint16_t sets)
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
    // Id 15: three rows in tables a, b, c, two in d; three curves.
    const std::vector<Curve> curves = {{7, {0, 512, 1023}, {0, 2048, 4095}}, {8, {}, {}},
                                       {9, {256}, {1024}}};
    // In ascending id order, except id 10 (older lens-shading form, kept for
    // its raw views in slots 13 to 16): after id 28 it is only noted as
    // superseded, where before it it would build a slot-53 structure that
    // the id-28 record then replaces. No id-34 record: slot 57 is built from
    // ids 19 and 20 after the walk. No id-3 record: id 31 fills slot 54.
    return {make_record(1, 101, name.data()),
            make_record(2, 103, rec2.data()),
            make_record(5, 100, Bytes(8, 5)),
            make_record(6, 100, rec6.data()),
            make_record(7, 100, Bytes(8, 7)),
            make_record(8, 100, {}),
            make_record(9, 100, Bytes(24, 9)),
            rec_13(102, 88),
            rec_14(0, 10, 5, 40),
            rec_15(3, 2, curves),
            make_record(16, 100, rec16.data()),
            make_record(17, 101, rec17.data()),
            make_record(18, 101, rec18.data()),
            make_record(19, 100, rec19.data()),
            make_record(20, 102, rec20.data()),
            make_record(21, 100, Bytes(8, 21)),
            structured("id22_v102"),
            make_record(23, 100, Bytes(16, 23)),
            structured("id24"),
            structured("id25_v101"),
            structured("id26_v101"),
            structured("id27_v101"),
            lens_shading_grids(sets),
            structured("id10_v101"),
            structured("id29"),
            rec_31(),
            make_record(32, 101, Bytes(8, 32)),
            lens_shading_ratio(sets),
            structured("id35"),
            structured("id36"),
            make_record(37, 100, Bytes(8, 37)),
            structured("id38"),
            make_record(722, 100, ByteWriter().u32(1).u32(1).u64(2).take())};
}

std::vector<int> sample_filled_slots()
{
    // Every slot but the reserved 5, 6 and 24, slot 51 (id 30 has no decoder)
    // and slot 63 (filled by ej_kelb_others_parser_init, not by the parse).
    // Slot 57: the id-34 form built from the id-19 and id-20 records.
    std::vector<int> slots;
    for (int slot = 0; slot < kSlotCount; ++slot) {
        if (slot != 5 && slot != 6 && slot != 24 && slot != 51 && slot != 63)
            slots.push_back(slot);
    }
    return slots;
}

Bytes sample_nvm()
{
    constexpr uint8_t kW = 17, kH = 13; // as the lens-shading grids of the container
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
