// Writes the seed corpus of every fuzz target, in the input layout each
// target documents, from the test-support builders: the sample module and
// its NVM blob, every structured sample record at every version, the records
// the container parser completes, NVM blobs of each section shape, and
// in-domain calls of every kernel.
//
//   ej_make_corpus DIR     writes DIR/<target>/<name> (existing files of the
//                          same name are replaced; others are left alone)
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "kelb_builder.h"
#include "kelb_refs_writer.h"
#include "nvm_writer.h"
#include "record_samples.h"
#include "sample_module.h"

namespace fs = std::filesystem;
using ejtest::Bytes;
using ejtest::ByteWriter;

namespace {

fs::path g_root;

void emit(const std::string &target, const std::string &name, const Bytes &bytes)
{
    const fs::path dir = g_root / target;
    fs::create_directories(dir);
    std::ofstream out(dir / name, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
}

Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes &p : parts)
        all.insert(all.end(), p.begin(), p.end());
    return all;
}

Bytes block(const Bytes &b)
{
    return concat({ByteWriter().u32(uint32_t(b.size())).take(), b});
}

uint16_t record_id(const Bytes &r) { return ejtest::get_u16(r.data() + 6); }

// Records the sample module does not carry: the legacy id-3 table, an id-31
// table, an id-34 record with one element of each kind.
Bytes legacy_3()
{
    ByteWriter w;
    w.u32(2);
    w.u32(5).u32(65536).u16(256).u16(128).u16(7).u16(9);
    w.u32(6).u32(131072).u16(512).u16(64).u16(1).u16(2);
    w.zeros(4);
    return ejtest::make_record(3, 100, w.take());
}

Bytes rec_31()
{
    ejtest::Rec31Entry a{}, b{};
    for (uint32_t i = 0; i < a.size(); ++i) {
        a[i] = i * 0x01010101u;
        b[i] = 0x3f800000u + i;
    }
    return ejtest::make_rec_31({a, b});
}

Bytes rec_34()
{
    ejtest::Rec34Element table;
    table.kind = 0;
    table.word4 = 1;
    table.entries.push_back({0.5f, 1.5f, {}});
    table.values.push_back({2.0f, 3});
    ejtest::Rec34Element list;
    list.kind = 1;
    list.word4 = 2;
    list.values.push_back({1.0f, 1});
    list.values.push_back({4.0f, 2});
    ejtest::Rec34Element fixed;
    fixed.kind = 1;
    fixed.word4 = 3;
    fixed.fixed = {1, 2, 3, 4};
    return ejtest::make_rec_34({table, list, fixed});
}

// An id-30 map record: k items, a w x h table (u16 up to version 100, 32-bit
// values from 101, after a blend factor from 102) and a w2 x h2 block.
Bytes rec_30(uint8_t version, uint16_t w, uint16_t h, int32_t centre)
{
    ByteWriter p;
    p.zeros(8).u16(2).zeros(4).u16(w).u16(h).u16(2).u16(1);
    p.u16(1).u16(2).u16(3).u16(4).u16(5).u16(6); // two items
    if (version >= 102)
        p.f32(0.75f);
    for (uint32_t i = 0; i < uint32_t(w) * h; ++i) {
        const int32_t v = i == uint32_t(h / 2) * w + w / 2 ? centre : int32_t(100 + i);
        if (version >= 101)
            p.i32(v);
        else
            p.u16(uint16_t(v));
    }
    p.u32(0x11223344).u32(0x55667788);
    p.pad_to((p.size() + 8 + 7) / 8 * 8 - 8);
    return ejtest::make_record(30, version, p.take());
}

std::vector<Bytes> extra_records() { return {legacy_3(), rec_31(), rec_34()}; }

ejnvm::LscSection lsc(uint8_t w, uint8_t h, std::vector<uint8_t> frac_bits)
{
    ejnvm::LscSection s{w, h, {}};
    for (uint8_t bits : frac_bits) {
        ejnvm::LscTable t{bits, {}};
        for (auto &channel : t.channels)
            for (uint32_t i = 0; i < uint32_t(w) * h; ++i)
                channel.push_back(uint16_t(bits > 8 ? 900 + (i * 37) % 400 : 100 + (i * 7) % 100));
        s.tables.push_back(t);
    }
    return s;
}

ejnvm::MapSection map(uint8_t w, uint8_t h, bool values)
{
    ejnvm::MapSection m{w, h, 3, values, {}};
    for (uint32_t i = 0; values && i < uint32_t(w) * h; ++i)
        m.values.push_back(int32_t(i * 97) - 300);
    return m;
}

std::vector<std::pair<std::string, Bytes>> nvm_blobs()
{
    std::vector<std::pair<std::string, Bytes>> blobs;
    blobs.push_back({"sample", ejtest::sample_nvm()});
    blobs.push_back({"empty", ejnvm::write_nvm({})});
    blobs.push_back({"lsc_u8_small", ejnvm::write_nvm({lsc(3, 2, {6}), std::nullopt})});
    blobs.push_back({"lsc_u16_two_tables", ejnvm::write_nvm({lsc(5, 4, {10, 12}), std::nullopt})});
    blobs.push_back({"lsc_zero_grid", ejnvm::write_nvm({lsc(0, 3, {8}), std::nullopt})});
    blobs.push_back({"map_only", ejnvm::write_nvm({std::nullopt, map(4, 3, true)})});
    blobs.push_back({"map_without_values", ejnvm::write_nvm({std::nullopt, map(4, 3, false)})});
    return blobs;
}

void init_corpus()
{
    const std::vector<Bytes> sample = ejtest::sample_records();
    const Bytes nvm = ejtest::sample_nvm();
    const Bytes module = ejtest::make_container(sample);
    auto run = [](uint8_t flags, uint8_t fail_at, const Bytes &nvm_blob, const Bytes &container) {
        Bytes in{flags, fail_at};
        if ((flags & 2) != 0)
            in = concat({in, block(nvm_blob)});
        return concat({in, container});
    };
    emit("init", "sample_module_nvm_others", run(0x07, 0, nvm, module));
    emit("init", "sample_module_without_nvm", run(0x01, 0, {}, module));
    emit("init", "sample_module_rule_b", run(0x0a, 0, nvm,
                                             ejtest::make_container(sample, ejtest::Checksum::RuleB)));
    for (uint8_t k : {1, 2, 7, 40, 120})
        emit("init", "sample_module_fail_alloc_" + std::to_string(k), run(0x07, k, nvm, module));
    emit("init", "extra_records", run(0x07, 0, nvm, ejtest::make_container(extra_records())));
    {
        std::vector<Bytes> with_map = sample;
        with_map.push_back(rec_30(102, 5, 3, 1000));
        emit("init", "sample_module_with_id30", run(0x07, 0, nvm, ejtest::make_container(with_map)));
    }
    // The lens-shading step against NVM tables of other shapes (other
    // grids, u8 and u16 samples, an empty grid, no tables at all).
    for (const auto &[name, blob] : nvm_blobs())
        if (name != "sample")
            emit("init", "sample_module_nvm_" + name, run(0x03, 0, blob, module));
    emit("init", "empty_container", run(0x01, 0, {}, ejtest::make_container({})));
    // One container per record of the sample, so that mutations of a
    // small input reach each decoder through the walk.
    for (const Bytes &r : sample)
        emit("init", "record_" + std::to_string(record_id(r)) + "_v" + std::to_string(r[4]),
             run(0x03, 0, nvm, ejtest::make_container({r})));
}

void record_corpus()
{
    const Bytes nvm = ejtest::sample_nvm();
    auto run = [&](const Bytes &record, uint8_t version, uint8_t flags) {
        Bytes in{uint8_t(record_id(record)), version, flags, 0};
        if ((flags & 1) != 0)
            in = concat({in, block(nvm)});
        return concat({in, Bytes(record.begin() + 8, record.end())});
    };
    std::vector<Bytes> records = ejtest::sample_records();
    for (const Bytes &r : extra_records())
        records.push_back(r);
    for (const auto &s : ejtest::sample_structured_records())
        records.push_back(ejtest::sample_at(s, s.full));
    for (const Bytes &r : records) {
        const uint16_t id = record_id(r);
        if (id >= 64)
            continue;
        // Each record at its own version and at every other one.
        for (uint8_t v = 100; v <= 103; ++v) {
            const std::string name = "id" + std::to_string(id) + "_len" + std::to_string(r.size()) +
                                     "_v" + std::to_string(r[4]) + "_as" + std::to_string(v);
            emit("record", name, run(r, v, 0));
        }
        emit("record", "id" + std::to_string(id) + "_len" + std::to_string(r.size()) + "_twice",
             run(r, r[4], 2));
    }
    // Records that read an earlier one: id 30 (flip mode of id 17, NVM map),
    // id 3 after id 31, id 10 after id 28, id 11 after id 33.
    auto with_earlier = [&](const Bytes &earlier, const Bytes &record, uint8_t flags) {
        Bytes in{uint8_t(record_id(record)), record[4], uint8_t(flags | 4), 0};
        if ((flags & 1) != 0)
            in = concat({in, block(nvm)});
        return concat({in, block(earlier), Bytes(record.begin() + 8, record.end())});
    };
    auto sample_of = [&](uint16_t id) {
        for (const Bytes &r : records)
            if (record_id(r) == id)
                return r;
        return Bytes{};
    };
    const Bytes rec17 = sample_of(17);
    for (uint8_t v = 100; v <= 102; ++v) {
        const std::string name = "id30_v" + std::to_string(v);
        emit("record", name, run(rec_30(v, 5, 3, 1000), v, 0));
        emit("record", name + "_nvm", run(rec_30(v, 5, 3, 1000), v, 1));
        emit("record", name + "_after_id17_nvm", with_earlier(rec17, rec_30(v, 5, 3, 1000), 1));
    }
    emit("record", "id30_v101_zero_centre_nvm", with_earlier(rec17, rec_30(101, 3, 3, 0), 1));
    emit("record", "id3_after_id31", with_earlier(sample_of(31), legacy_3(), 0));
    emit("record", "id10_after_id28", with_earlier(sample_of(28), sample_of(10), 0));
    for (const auto &s : ejtest::sample_structured_records())
        if (s.id == 11)
            emit("record", "id11_after_id33", with_earlier(sample_of(33), ejtest::sample_at(s, s.full), 0));
    for (uint16_t id : {0, 4, 12, 39, 63})
        emit("record", "id" + std::to_string(id) + "_nvm",
             run(ejtest::make_record(id, 100, Bytes(64, 1)), 100, 1));
}

void kelb_record_corpus()
{
    std::vector<Bytes> records = extra_records();
    for (const Bytes &r : ejtest::sample_records())
        if (record_id(r) == 9 || record_id(r) == 32)
            records.push_back(r);
    for (const Bytes &r : records) {
        emit("kelb_record", "id" + std::to_string(record_id(r)), concat({Bytes{0}, r}));
        emit("kelb_record", "id" + std::to_string(record_id(r)) + "_keep_size",
             concat({Bytes{1}, r}));
    }
}

void nvm_corpus()
{
    for (const auto &[name, blob] : nvm_blobs()) {
        emit("nvm", name, concat({Bytes{0}, blob}));
        emit("nvm", name + "_fail_alloc_2", concat({Bytes{2}, blob}));
    }
}

// Extents of the resample target are read with FuzzInput::in_range(0, 256)
// (two bytes each), those of the bicubic kernels with in_range(0, 96) (one
// byte each); signed ones with in_range(0, 258) less 2.
void resample_corpus()
{
    auto ext = [](ByteWriter &w, uint32_t v) { w.u16(uint16_t(v)); };
    auto bext = [](ByteWriter &w, uint32_t v) { w.u8(uint8_t(v)); };
    auto sext = [](ByteWriter &w, int32_t v) { w.u16(uint16_t(v + 2)); };
    const Bytes samples = {0x10, 0x80, 0xff, 0x3f, 0x00, 0x7f, 0x41, 0x20, 0x9c, 0x01, 0xc0, 0x3e};
    auto emit_case = [&](unsigned kernel, const std::string &name, ByteWriter &w) {
        w.bytes(samples);
        emit("resample", "k" + std::to_string(kernel) + "_" + name, concat({Bytes{uint8_t(kernel), 0},
                                                                             w.take()}));
    };
    for (unsigned k : {0u, 1u}) { // bicubic upscale to float: src, dst, planes
        ByteWriter w;
        bext(w, 5); bext(w, 4); bext(w, 17); bext(w, 13); w.u8(2);
        emit_case(k, "upscale", w);
    }
    for (unsigned k : {2u, 3u}) { // bicubic resize: src h, w, dst h, w, frac bits
        ByteWriter up, down;
        bext(up, 4); bext(up, 6); bext(up, 9); bext(up, 11); up.u8(10);
        emit_case(k, "enlarge", up);
        bext(down, 12); bext(down, 16); bext(down, 5); bext(down, 7); down.u8(8);
        emit_case(k, "shrink", down);
    }
    { // nearest, interleaved: src w, h, dst w, h, channels
        ByteWriter w;
        ext(w, 7); ext(w, 5); ext(w, 12); ext(w, 3); w.u8(3);
        emit_case(4, "interleaved", w);
    }
    { // nearest uint32: signed extents
        ByteWriter w;
        sext(w, 9); sext(w, 4); sext(w, 4); sext(w, 11);
        emit_case(5, "scale", w);
    }
    for (unsigned k : {6u, 7u}) { // float-ratio nearest: extents, use_max
        ByteWriter w;
        ext(w, 16); ext(w, 9); ext(w, 5); ext(w, 3); w.u8(1);
        emit_case(k, "ratio", w);
    }
    for (unsigned k : {8u, 9u, 10u, 11u, 12u, 13u}) { // bilinear: signed extents [, step]
        ByteWriter w;
        sext(w, 6); sext(w, 5); sext(w, 11); sext(w, 3);
        if (k == 9 || k == 11)
            w.u8(3); // step 2
        emit_case(k, "bilinear", w);
    }
    { // float bilinear
        ByteWriter w;
        ext(w, 6); sext(w, 5); ext(w, 4); sext(w, 9);
        emit_case(14, "bilinear", w);
    }
    { // crop resize: extents, margins (in_range(0, 260) less 4)
        ByteWriter w;
        ext(w, 10); ext(w, 8); ext(w, 5); ext(w, 4);
        for (int m : {1, 2, 2, 1})
            w.u16(uint16_t(m + 4));
        emit_case(15, "crop", w);
    }
    for (unsigned k : {16u, 17u}) { // area: extents, planes, roi flag, roi, frac bits
        ByteWriter whole, roi;
        ext(whole, 20); ext(whole, 15); ext(whole, 6); ext(whole, 4); whole.u8(2); whole.u8(0);
        for (int v : {0, 0, 0, 0})
            ext(whole, uint32_t(v));
        whole.u8(10 + 8).u8(10 + 8);
        emit_case(k, "whole", whole);
        ext(roi, 20); ext(roi, 15); ext(roi, 5); ext(roi, 4); roi.u8(1); roi.u8(1);
        for (int v : {2, 3, 15, 10})
            ext(roi, uint32_t(v));
        roi.u8(12 + 8).u8(10 + 8);
        emit_case(k, "roi", roi);
    }
}

// Calls of the lsc target: every function on a small, well-formed case.
// Extents are single bytes (in_range over small spans).
void lsc_corpus()
{
    ByteWriter values;
    for (float v : {1.0f, 1.25f, 0.75f, 1.5f, 2.0f, 0.5f, 1.125f, 3.0f})
        values.f32(v);
    const Bytes data = values.take();
    auto emit_case = [&](const std::string &name, Bytes head) {
        emit("lsc", name, concat({head, data}));
    };
    emit_case("transpose", {0, 0, 6, 4, 0, 1});
    emit_case("mul_mm", {1, 0, 0, 0, 0, 0, 4, 3, 5, 1, 0, 1, 0});
    emit_case("mul_mm_lsc", {2, 0, 4, 3, 1, 1, 3, 2, 1, 0, 0, 0});
    emit_case("mul_mv", {3, 0, 0, 0, 0, 0, 6, 4, 1, 1, 0, 0});
    emit_case("mul_mv_lsc", {4, 0, 5, 4, 1, 1, 3, 1, 0, 0, 1});
    emit_case("lu_m", {5, 0, 5, 1, 0, 0});
    emit_case("lu_fit", {6, 0, 17, 13, 0, 0, 0});
    emit_case("lu_fit_lsc", {7, 0, 17, 13, 0, 2, 2});
    emit_case("polynomial_upscale", {8, 0, 9, 7, 17, 13, 1, 1, 0x0f});
    emit_case("tables_polynomial", {9, 0, 17, 13, 0, 1, 9, 7, 2, 10, 8});
    emit_case("tables_bicubic", {10, 0, 17, 13, 1, 0, 9, 7, 2, 10, 6});
    // Ratio correction on a 4 x 4 pattern (code 256): grid_map bytes are
    // the grid number plus one.
    Bytes ratio{11, 0, 4, 3, 2, 1, 10, 0, 2, 0};
    const Bytes map = {1, 2, 3, 4, 2, 1, 4, 3, 1, 2, 3, 4, 2, 1, 4, 3};
    ratio = concat({ratio, map, Bytes{4, 4}, map, Bytes{4, 4}, Bytes{1, 2}});
    emit_case("ratio_correction", ratio);
    ratio[6] = 2; // pattern code 2 (2 x 2)
    emit_case("ratio_correction_2x2", ratio);
    // Ratio grids smaller and larger than the lens-shading grids.
    for (const auto &[name, rw, rh] : {std::tuple{"smaller", 3, 2}, std::tuple{"larger", 6, 4}}) {
        Bytes other{11, 0, 4, 3, 2, 1, 10, 0, 2, 0x38};
        other = concat({other, map, Bytes{4, 4}, Bytes{uint8_t(rw), uint8_t(rh)}, map, Bytes{4, 4},
                        Bytes{1, 2}});
        emit_case(std::string("ratio_correction_") + name + "_ratio_grids", other);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS_DIR\n", argv[0]);
        return 2;
    }
    g_root = argv[1];
    init_corpus();
    record_corpus();
    kelb_record_corpus();
    nvm_corpus();
    resample_corpus();
    lsc_corpus();
    return 0;
}
