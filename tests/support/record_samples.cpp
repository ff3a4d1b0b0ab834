#include "record_samples.h"

#include <algorithm>

#include "cmc_diag.h"

namespace ejtest {

uint16_t grid_sample(uint32_t set, uint32_t grid, uint32_t index)
{
    return uint16_t(1000 * (set + 1) + 100 * grid + index);
}

namespace {

void add_grid(ByteWriter &w, uint32_t set, uint32_t grid, uint32_t samples)
{
    for (uint32_t i = 0; i < samples; ++i)
        w.u16(grid_sample(set, grid, i));
}

int grid_count(const std::vector<int8_t> &map)
{
    int g = 0;
    for (int8_t m : map)
        g = std::max(g, m + 1);
    return g;
}

Bytes wfov_payload()
{
    ByteWriter w;
    w.u32(0xa1a2a3a4).u16(2).u16(1).u32(0xb1b2b3b4).u16(2); // W = 2, two maps
    for (uint16_t k = 0; k < 2; ++k) {
        w.u16(uint16_t(0x70 + k));
        for (uint32_t i = 0; i < 4; ++i)
            w.u32(0x1000 * (k + 1) + i);
    }
    w.u32(0xe0e0e0e0).i32(1).fill(1040, 0x55).fill(1024, 0x66).u32(1).u32(2).u32(3).u32(4);
    w.f32(2.5f).i32(2);
    w.f32(1.0f).f32(2.0f).u32(7).u32(2).u32(11).u32(12);
    w.f32(3.0f).f32(4.0f).u32(8).u32(1).u32(13);
    w.fill(48, 0x77);
    return w.take();
}

std::vector<SampleRecord> build_samples()
{
    std::vector<SampleRecord> all;
    const std::vector<int8_t> map28 = {0, 1, -1, -1, 2, 3, -1, -1, -1, -1, -1, -1, -1, -1, -1, 1};
    all.push_back({"id28", 28, 100,
                   pattern_payload(map28, 2, 3, 2,
                                  {header28(0x11223344, 1.5f, 4), header28(7, -2.0f, 0)}),
                   176, 176, {{53, 0}}});
    const std::vector<int8_t> map33 = {0, 1, -1, -1, 1, 0, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
    all.push_back({"id33", 33, 100,
                   pattern_payload(map33, 2, 2, 2,
                                  {header33(5, 0, 0.5f, 6), header33(6, 3, 1.0f, 4)}),
                   112, 112, {{56, 0}}});
    // Id 10: sets end at 128, the pairs need 136.
    const std::vector<Bytes> h10 = {ByteWriter().u16(21).u16(0).u16(0x8000).u16(0x4000).take(),
                                    ByteWriter().u16(22).u16(0).u16(1).u16(0xffff).take()};
    all.push_back({"id10_v101", 10, 101, payload_2x2(10, 3, 2, h10, {0x0180, 0x0040, 256, 0}),
                   136, 128, {{13, 0}, {14, 0}, {15, 0}, {16, 136}, {53, 0}}});
    all.push_back({"id10_v100", 10, 100, payload_2x2(10, 3, 2, h10, {}), 128, 128,
                   {{13, 0}, {14, 0}, {15, 0}, {53, 0}}});
    const std::vector<Bytes> h11 = {ByteWriter().u16(1).u16(31).u16(0).u16(0x8000).u16(2).take(),
                                    ByteWriter().u16(2).u16(32).u16(0).u16(3).u16(4).take(),
                                    ByteWriter().u16(0).u16(33).u16(0).u16(5).u16(6).take()};
    all.push_back({"id11_v101", 11, 101,
                   payload_2x2(11, 2, 1, h11, {0x0100, 0x0200, 0x0300, 0x0400, 0x0500, 0x0600}),
                   104, 104, {{56, 0}}});
    all.push_back({"id22_v102", 22, 102, wfov_payload(), 2246, 2246, {{42, 0}}});
    all.push_back({"id22_v101", 22, 101,
                   ByteWriter().u32(1).u16(1).u16(1).u32(2).u16(1).u16(9).u32(0xabc).u32(5).u32(0xe1).i32(0)
                       .fill(1040, 0x31).take(),
                   1080, 1080, {{42, 0}}});
    all.push_back({"id24", 24, 100,
                   ByteWriter().fill(6, 0x24).u16(2).fill(2, 0xe0).u16(2).fill(12, 0xe1).u32(101)
                       .u32(102).fill(2, 0xe2).u16(3).fill(12, 0xe3).u32(201).u32(202).u32(203).take(),
                   68, 56, {{44, 0}}, CMC_PARSE_BAD_DATA});
    {
        ByteWriter w; // n = 2 entries, m = 1 tail block, 24-byte heads
        w.u16(2).u16(1).u32(0xdeadbeef);
        for (uint8_t e = 0; e < 2; ++e)
            w.fill(24, uint8_t(0x40 + e)).fill(36, uint8_t(0x50 + e)).fill(36, uint8_t(0x60 + e));
        all.push_back({"id25_v101", 25, 101, w.take(), 208, 208, {{46, 0}, {47, 0}, {48, 0}}});
    }
    all.push_back({"id26_v101", 26, 101,
                   ByteWriter().fill(8, 0x26).fill(8, 0xb1).f32(0.5f).f32(1.5f).f32(2.5f).f32(3.5f)
                       .fill(8, 0xb2).f32(4.5f).f32(5.5f).f32(6.5f).f32(7.5f).take(),
                   64, 16, {{49, 0}}});
    {
        ByteWriter w; // n = 2, c = 2, a = 2, b = 1, trailer of 32 bytes
        w.fill(16, 0x27).u16(2).u16(2).u16(2).u16(1);
        for (uint16_t e = 0; e < 2; ++e) {
            w.fill(20, uint8_t(0x90 + e));
            for (uint16_t s = 0; s < 4; ++s)
                w.u16(uint16_t(100 * e + s));
        }
        w.fill(32, 0x7e);
        all.push_back({"id27_v101", 27, 101, w.take(), 120, 120, {{50, 0}}});
    }
    {
        ByteWriter w; // n = 1, c = 4 planes of a = 1, b = 2
        w.fill(16, 0x27).u16(1).u16(4).u16(1).u16(2).fill(20, 0x91);
        for (uint16_t s = 0; s < 8; ++s)
            w.u16(uint16_t(500 + s));
        all.push_back({"id27_v100_4planes", 27, 100, w.take(), 68, 68, {{50, 0}}, 0,
                       CMC_DIAG_BAD_COUNT});
    }
    {
        ByteWriter w; // a = 2, b = 1: 20 + 32 bytes, rounded to 56
        w.u32(0x29292929).u16(2).u16(1).u32(0x2a2a2a2a);
        for (uint32_t i = 0; i < 8; ++i)
            w.u32(0x29000000 + i);
        all.push_back({"id29", 29, 100, w.take(), 56, 56, {{52, 0}}});
    }
    all.push_back({"id35", 35, 100,
                   ByteWriter().u8(0x35).u32(0x01020304).u8(2).u32(0).u32(1000).u32(65535)
                       .u16(0).u16(100).u16(4095).u16(25).u16(30).u32(40).u32(50).take(),
                   44, 44, {{58, 0}, {59, 0}}});
    all.push_back({"id36", 36, 100,
                   ByteWriter().u8(0x36).u32(0x0a0b0c0d).u8(2).u16(10).u16(20).u32(1000).u32(2000)
                       .take(),
                   26, 26, {{60, 0}}});
    all.push_back({"id38", 38, 100,
                   ByteWriter().u8(0x38).u8(2).u32(1).u32(2).u32(3).u32(4).take(), 26, 26, {{62, 0}}});
    return all;
}

} // namespace

Bytes header28(uint32_t set_id, float p0, uint16_t stored_bits)
{
    return ByteWriter().u32(set_id).f32(p0).f32(-p0).f32(0.25f).f32(4.0f).u16(stored_bits).take();
}

Bytes header33(uint16_t set_id, uint16_t table, float p0, uint16_t stored_bits)
{
    return ByteWriter().u16(set_id).u16(table).f32(p0).f32(2 * p0).f32(3 * p0).f32(4 * p0)
        .u16(stored_bits).take();
}

Bytes pattern_payload(const std::vector<int8_t> &map, uint16_t num_sets, uint16_t w,
                      uint16_t h, const std::vector<Bytes> &set_headers)
{
    ByteWriter p;
    for (int8_t m : map)
        p.u8(uint8_t(m));
    p.u16(num_sets).u16(0xeeee).u16(w).u16(h);
    const int g = grid_count(map);
    for (uint32_t k = 0; k < num_sets; ++k) {
        p.bytes(set_headers.at(k));
        for (int grid = 0; grid < g; ++grid)
            add_grid(p, k, uint32_t(grid), uint32_t(w) * h);
    }
    return p.take();
}

Bytes payload_2x2(uint16_t id, uint16_t w, uint16_t h, const std::vector<Bytes> &set_headers,
                  const std::vector<uint16_t> &pairs)
{
    ByteWriter p;
    if (id == 10)
        p.u16(0xeeee);
    p.u16(uint16_t(set_headers.size())).u16(w).u16(h);
    for (uint32_t k = 0; k < set_headers.size(); ++k) {
        p.bytes(set_headers[k]);
        for (uint32_t grid = 0; grid < 4; ++grid)
            add_grid(p, k, grid, uint32_t(w) * h);
    }
    for (uint16_t v : pairs)
        p.u16(v);
    return p.take();
}

const std::vector<SampleRecord> &sample_structured_records()
{
    static const std::vector<SampleRecord> all = build_samples();
    return all;
}

Bytes sample_at(const SampleRecord &s, uint32_t len)
{
    return make_record_sized(s.id, s.version, s.payload, len);
}

} // namespace ejtest
