// Tests of the stand-in NVM library (ej_nvm_parse / ej_nvm_deinit) against
// blobs from the NVM writer.
#include "ej_nvm.h"
#include "nvm_writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using namespace ejnvm;

// Deterministic samples and values that exercise every byte of their width.
LscSection make_lsc(uint8_t width, uint8_t height, const std::vector<uint8_t> &frac_bits)
{
    LscSection lsc{width, height, {}};
    for (uint8_t bits : frac_bits) {
        LscTable t{bits, {}};
        const uint64_t n = lsc.tables.size(), limit = bits > 8 ? 0x10000 : 0x100;
        for (uint64_t c = 0; c < 4; ++c)
            for (uint64_t i = 0; i < uint64_t(width) * height; ++i)
                t.channels[c].push_back(uint16_t((i * 2654435761u + c * 9973 + n * 40503) % limit));
        lsc.tables.push_back(t);
    }
    return lsc;
}

MapSection make_map(uint8_t width, uint8_t height, uint8_t shift, bool has_values)
{
    MapSection map{width, height, shift, has_values, {}};
    for (uint32_t i = 0; has_values && i < uint32_t(width) * height; ++i)
        map.values.push_back(static_cast<int32_t>(i * 2246822519u + 12345u));
    return map;
}

const NvmBlob kRealistic{make_lsc(17, 13, {8, 8, 10, 10}), make_map(9, 7, 4, true)};

// Offsets in the realistic blob: two tables of 4 + 4 * 221 bytes (u8 samples)
// precede two of 4 + 8 * 221 (u16); 63 values follow the map header.
constexpr size_t kFirstTable = kHeaderSize + kLscHeaderSize;
constexpr size_t kLastTable = kFirstTable + 2 * (4 + 4 * 221) + (4 + 8 * 221);
constexpr size_t kMapHeader = kLastTable + 4 + 8 * 221;
constexpr size_t kRealisticSize = kMapHeader + kMapHeaderSize + 4 * 63;

template <size_t N> bool zero(const uint8_t (&bytes)[N])
{
    return std::all_of(bytes, bytes + N, [](uint8_t b) { return b == 0; });
}

// Checks every field of a parsed handle against the description it was
// written from; an absent lens-shading section reads as an empty one.
void expect_matches(const ej_nvm_data *h, const NvmBlob &blob)
{
    EXPECT_EQ(h->format_version, 1);
    EXPECT_TRUE(zero(h->reserved0) && zero(h->reserved1) && zero(h->reserved2) &&
                zero(h->reserved3) && zero(h->reserved4));
    const LscSection lsc = blob.lsc.value_or(LscSection{});
    EXPECT_EQ(h->lsc_grid_width, lsc.width);
    EXPECT_EQ(h->lsc_grid_height, lsc.height);
    ASSERT_EQ(h->lsc_table_count, lsc.tables.size());
    ASSERT_EQ(h->lsc_tables == nullptr, lsc.tables.empty());
    const size_t samples = size_t(lsc.width) * lsc.height;
    for (size_t t = 0; t < lsc.tables.size(); ++t) {
        const nvm_lsc_table &got = h->lsc_tables[t];
        const LscTable &want = lsc.tables[t];
        EXPECT_EQ(got.frac_bits, want.frac_bits) << "table " << t;
        EXPECT_TRUE(zero(got.reserved));
        for (size_t c = 0; c < 4; ++c) {
            const void *p = got.channel_tables[c];
            ASSERT_EQ(p == nullptr, samples == 0) << "table " << t << " channel " << c;
            for (size_t i = 0; i < samples; ++i)
                ASSERT_EQ(want.frac_bits > 8 ? static_cast<const uint16_t *>(p)[i]
                                             : static_cast<const uint8_t *>(p)[i],
                          want.channels[c][i])
                    << "table " << t << " channel " << c << " sample " << i;
        }
    }
    EXPECT_EQ(h->map_calibration_present, blob.map ? 1 : 0);
    ASSERT_EQ(h->map_calibration != nullptr, blob.map.has_value());
    if (!blob.map)
        return;
    const nvm_map_calibration &m = *h->map_calibration;
    EXPECT_TRUE(zero(m.reserved) && zero(m.reserved2));
    EXPECT_EQ(m.cal_map_width, blob.map->width);
    EXPECT_EQ(m.cal_map_height, blob.map->height);
    EXPECT_EQ(m.cal_map_shift, blob.map->shift);
    ASSERT_EQ(m.cal_map_values == nullptr, blob.map->values.empty());
    for (size_t i = 0; i < blob.map->values.size(); ++i)
        ASSERT_EQ(m.cal_map_values[i], blob.map->values[i]) << "value " << i;
}

enum Call { kBlock, kNullBlock, kNullData, kNullHandle };

// Parses `len` bytes held in an allocation of exactly that length, so that the
// sanitizer catches any read past the block; compares a result with `want`.
int parse(const Bytes &bytes, size_t len, const NvmBlob *want = nullptr, Call call = kBlock)
{
    std::unique_ptr<uint8_t[]> copy(new uint8_t[len]);
    std::copy_n(bytes.begin(), len, copy.get());
    ej_data_block block{call == kNullData ? nullptr : copy.get(), static_cast<uint32_t>(len)};
    ej_nvm_data *const sentinel = reinterpret_cast<ej_nvm_data *>(uintptr_t{1});
    ej_nvm_data *h = sentinel;
    const int rc =
        ej_nvm_parse(call == kNullBlock ? nullptr : &block, call == kNullHandle ? nullptr : &h);
    if (call == kNullHandle)
        return rc;
    EXPECT_NE(h, sentinel) << "handle left unwritten";
    EXPECT_EQ(h == nullptr, rc != EJ_NVM_OK) << "rc " << rc;
    if (h != sentinel && h != nullptr && want != nullptr)
        expect_matches(h, *want);
    if (h != sentinel)
        ej_nvm_deinit(h);
    return rc;
}

// The realistic blob, the sample width for each kind of frac_bits, and blobs
// whose absent sections or zero extents leave pointers null.
TEST(NvmParse, WrittenBlobsParseBack)
{
    struct Case {
        std::string what;
        NvmBlob blob;
        size_t size;
    };
    std::vector<Case> cases = {
        {"realistic", kRealistic, kRealisticSize},
        {"map without values", {{}, make_map(9, 7, 3, false)}, 20},
        {"lens shading only", {make_lsc(17, 13, {8, 10}), {}}, 20 + 8 + 12 * 221},
        {"map only", {{}, make_map(9, 7, 31, true)}, 20 + 4 * 63},
        {"no sections", {}, 16},
        {"no tables", {make_lsc(5, 4, {}), {}}, 20},
        {"zero width", {make_lsc(0, 6, {8, 12}), {}}, 28},
        {"zero height", {make_lsc(6, 0, {12}), {}}, 24},
        {"zero-extent map with has_values", {{}, make_map(0, 7, 2, true)}, 20},
        {"largest grids", {make_lsc(255, 255, {16}), make_map(255, 255, 0, true)}, 28 + 12 * 65025},
    };
    for (uint8_t bits : {0, 8, 9, 31, 32, 255})
        cases.push_back({"frac_bits " + std::to_string(bits), {make_lsc(3, 2, {bits}), {}},
                         24u + 4 * 6 * (bits > 8 ? 2u : 1u)});
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        const Bytes bytes = write_nvm(c.blob);
        EXPECT_EQ(bytes.size(), c.size);
        EXPECT_EQ(parse(bytes, bytes.size(), &c.blob), EJ_NVM_OK);
    }
}

// Pins the byte layout: a tiny blob written by hand.
TEST(NvmParse, HandWrittenBlob)
{
    const Bytes bytes = {
        'E',  'J',  'N',  'V',  0x01, 0x00, 0x03, 0x00, // magic, version 1, both sections
        0x30, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // total size 48, reserved
        0x01, 0x02, 0x01, 0x00, 0x09, 0x00, 0x00, 0x00, // 1 table, 2 x 1; frac_bits 9: u16
        0x34, 0x12, 0xff, 0xff, 0x01, 0x00, 0x00, 0x80, // channels 0 and 1
        0x00, 0x00, 0x00, 0x00, 0x02, 0x00, 0x03, 0x00, // channels 2 and 3
        0x01, 0x01, 0x05, 0x01, 0xfe, 0xff, 0xff, 0xff, // 1 x 1 map, shift 5: -2
    };
    const NvmBlob blob{LscSection{2, 1, {{9, {{{0x1234, 0xffff}, {1, 0x8000}, {0, 0}, {2, 3}}}}}},
                       MapSection{1, 1, 5, true, {-2}}};
    EXPECT_EQ(write_nvm(blob), bytes);
    EXPECT_EQ(parse(bytes, bytes.size(), &blob), EJ_NVM_OK);
}

// Each case patches (or replaces) the realistic blob and expects one code.
TEST(NvmParse, RejectsMalformedInput)
{
    struct Case {
        const char *what;
        int code;
        std::function<void(Bytes &)> patch;
        Call call = kBlock;
    };
    const auto flip = [](size_t at, unsigned mask) { return [=](Bytes &b) { b[at] ^= mask; }; };
    const NvmBlob many_tables{make_lsc(255, 255, {}), {}}, valueless{{}, make_map(9, 7, 4, false)};
    std::vector<Case> cases = {
        {"null handle", EJ_NVM_ERR_ARGUMENT, nullptr, kNullHandle},
        {"null block", EJ_NVM_ERR_ARGUMENT, nullptr, kNullBlock},
        {"null data", EJ_NVM_ERR_ARGUMENT, nullptr, kNullData},
        {"null data, size 0", EJ_NVM_ERR_ARGUMENT, [](Bytes &b) { b.clear(); }, kNullData},
        {"shorter than the header", EJ_NVM_ERR_TRUNCATED, [](Bytes &b) { b.resize(15); }},
        {"255 tables of 255 x 255 announced, none present", EJ_NVM_ERR_TRUNCATED,
         [&](Bytes &b) { b = write_nvm(many_tables), b[kHeaderSize] = 255; }},
        {"version 0", EJ_NVM_ERR_VERSION, flip(kOffVersion, 1)},
        {"version 2", EJ_NVM_ERR_VERSION, flip(kOffVersion, 3)},
        {"version 0x101", EJ_NVM_ERR_VERSION, flip(kOffVersion + 1, 1)},
        {"lsc header reserved", EJ_NVM_ERR_FORMAT, flip(kHeaderSize + 3, 1)},
        {"has_values 2", EJ_NVM_ERR_FORMAT, flip(kMapHeader + 3, 3)},
        {"has_values 0xff", EJ_NVM_ERR_FORMAT, flip(kMapHeader + 3, 0xfe)},
        {"has_values 2, no values present", EJ_NVM_ERR_FORMAT,
         [&](Bytes &b) { b = write_nvm(valueless), b.back() = 2; }},
        {"map flag cleared", EJ_NVM_ERR_TRAILING, flip(kOffFlags, kFlagMap)},
        // The lsc header (4, 17, 13, 0) then reads as a valueless 4 x 17 map.
        {"lsc flag cleared", EJ_NVM_ERR_TRAILING, flip(kOffFlags, kFlagLsc)},
        {"byte after a header-only blob", EJ_NVM_ERR_TRAILING,
         [](Bytes &b) { b = write_nvm({}), b.push_back(0), fix_total_size(b); }},
    };
    for (size_t n : {1, 4, 100}) {
        cases.push_back({"appended", EJ_NVM_ERR_SIZE, [=](Bytes &b) { b.resize(b.size() + n); }});
        cases.push_back({"appended, size fixed", EJ_NVM_ERR_TRAILING,
                         [=](Bytes &b) { b.resize(b.size() + n), fix_total_size(b); }});
    }
    for (size_t v : {0ul, 16ul, kRealisticSize - 1, kRealisticSize + 1, 0xfffffffful})
        cases.push_back({"size", EJ_NVM_ERR_SIZE, [=](Bytes &b) { put_u32(b, kOffTotalSize, v); }});
    for (unsigned bit = 2; bit < 16; ++bit)
        cases.push_back({"flag bit", EJ_NVM_ERR_FORMAT, flip(kOffFlags + bit / 8, 1u << bit % 8)});
    for (size_t i = 0; i < 4; ++i) {
        cases.push_back({"magic", EJ_NVM_ERR_MAGIC, flip(kOffMagic + i, 0x20)});
        cases.push_back({"header reserved", EJ_NVM_ERR_FORMAT, flip(kOffReserved + i, 0x80)});
    }
    for (size_t table : {kFirstTable, kLastTable})
        for (size_t i = 1; i < 4; ++i)
            cases.push_back({"table reserved", EJ_NVM_ERR_FORMAT, flip(table + i, 0xff)});

    const Bytes good = write_nvm(kRealistic);
    ASSERT_EQ(good[kLastTable], 10);    // frac_bits of the last table
    ASSERT_EQ(good[kMapHeader + 3], 1); // has_values
    ej_nvm_deinit(nullptr); // a no-op
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Bytes bytes = good;
        if (c.patch)
            c.patch(bytes);
        EXPECT_EQ(parse(bytes, bytes.size(), nullptr, c.call), c.code);
    }
}

// With the size field left alone a cut blob fails the size check; with the field
// patched to the cut length the section walk has to notice the missing bytes.
TEST(NvmParse, TruncatedAtEveryLength)
{
    for (const NvmBlob &blob :
         {kRealistic, NvmBlob{make_lsc(0, 6, {8, 9, 10}), make_map(5, 5, 1, false)}}) {
        const Bytes full = write_nvm(blob);
        for (size_t len = 0; len < full.size(); ++len) {
            SCOPED_TRACE(testing::Message() << "cut at " << len << " of " << full.size());
            const bool short_header = len < kHeaderSize;
            EXPECT_EQ(parse(full, len), short_header ? EJ_NVM_ERR_TRUNCATED : EJ_NVM_ERR_SIZE);
            if (short_header)
                continue;
            Bytes cut(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(len));
            fix_total_size(cut);
            EXPECT_EQ(parse(cut, len), EJ_NVM_ERR_TRUNCATED);
        }
    }
}

TEST(NvmWriter, RejectsInconsistentDescriptions)
{
    const std::function<void(NvmBlob &)> breaks[] = {
        [](NvmBlob &b) { b.lsc->tables[1].channels[2].pop_back(); },
        [](NvmBlob &b) { b.lsc->tables[0].channels[0][5] = 256; }, // table 0 has u8 samples
        [](NvmBlob &b) { b.lsc->tables.resize(256, b.lsc->tables[0]); },
        [](NvmBlob &b) { b.map->values.push_back(1); },
        [](NvmBlob &b) { b.map->has_values = false; },
    };
    for (const auto &brk : breaks) {
        NvmBlob blob = kRealistic;
        brk(blob);
        EXPECT_THROW(write_nvm(blob), std::invalid_argument);
    }
}

} // namespace
