// Lens-shading grid records (ids 28, 10) and ratio records (ids 33, 11):
// grid maps and G, set lengths, private grid copies, size tests, fixed-point
// conversions, the made-up id-10 header and the precedence between the ids.
#include <gtest/gtest.h>

#include "diag_recorder.h"
#include "record_samples.h"
#include "slots.h"

using namespace ejtest;

namespace {

using Map = std::vector<int8_t>;

Map map_of(std::initializer_list<std::pair<int, int8_t>> entries)
{
    Map m(16, -1);
    for (const auto &[pos, grid] : entries)
        m[pos] = grid;
    return m;
}

Bytes set_header_28(uint32_t set_id, uint16_t stored_bits)
{
    return ByteWriter().u32(set_id).f32(0.5f).f32(-1.25f).f32(3.0f).f32(1e-3f).u16(stored_bits).take();
}
Bytes set_header_33(uint16_t set_id, uint16_t table)
{
    return ByteWriter().u16(set_id).u16(table).f32(1.0f).f32(2.0f).f32(3.0f).f32(4.0f).u16(4).take();
}
std::vector<Bytes> headers_28(uint16_t n)
{
    std::vector<Bytes> h;
    for (uint16_t k = 0; k < n; ++k)
        h.push_back(set_header_28(0x01000000u + k, k));
    return h;
}

uint32_t rounded(uint32_t n) { return (n + 7) & ~7u; }

Bytes pattern(uint16_t id, const Map &map, uint16_t n, uint16_t w, uint16_t h, int64_t delta = 0)
{
    std::vector<Bytes> headers = headers_28(n);
    const Bytes payload = pattern_payload(map, n, w, h, headers);
    return make_record_sized(id, 100, payload, uint32_t(rounded(uint32_t(8 + payload.size())) + delta));
}

void expect_grid(const uint16_t *grid, uint32_t set, uint32_t g, uint32_t samples)
{
    ASSERT_NE(grid, nullptr);
    for (uint32_t i = 0; i < samples; ++i)
        ASSERT_EQ(grid[i], grid_sample(set, g, i)) << "set " << set << " grid " << g << " sample " << i;
}

const SampleRecord &sample(const char *name)
{
    for (const SampleRecord &s : sample_structured_records()) {
        if (std::string(s.name) == name)
            return s;
    }
    throw std::runtime_error(name);
}

// The record decoded into an empty result (status 0 expected).
Parsed decoded(const Bytes &record, const uint8_t **copy = nullptr)
{
    Parsed parsed = empty_parsed();
    EXPECT_EQ(decode(parsed.get(), record, copy), 0u);
    return parsed;
}
Bytes full(const char *name)
{
    const SampleRecord &s = sample(name);
    return sample_at(s, s.full);
}

// Every set of a decoded structure holds, at each position the map names, a
// private copy of that grid of set k (grid_sample values), null elsewhere.
template <typename Structure> void expect_grids(const Structure *st, const Map &map, uint32_t samples)
{
    ASSERT_NE(st, nullptr);
    EXPECT_EQ(Map(st->grid_map, st->grid_map + 16), map);
    for (uint32_t k = 0; k < st->num_sets; ++k) {
        for (int i = 0; i < 16; ++i) {
            SCOPED_TRACE(::testing::Message() << "set " << k << " position " << i);
            if (map[i] < 0) {
                EXPECT_EQ(st->sets[k].grids[i], nullptr);
                continue;
            }
            expect_grid(st->sets[k].grids[i], k, uint32_t(map[i]), samples);
            for (int j = 0; j < i; ++j)
                EXPECT_NE(st->sets[k].grids[i], st->sets[k].grids[j]);
        }
    }
}

const Map kMap2x2 = map_of({{0, 0}, {1, 1}, {4, 2}, {5, 3}});

TEST(LensShadingGrids, Id28TakesHeaderMapCountsAndSets)
{
    Parsed parsed = decoded(full("id28"));
    const cmc_lens_shading4x4 *ls = parsed->lens_shading4x4;
    ASSERT_NE(ls, nullptr);
    EXPECT_EQ(ls->header.size, 176u);
    EXPECT_EQ(ls->header.version, 100);
    EXPECT_EQ(ls->header.id, 28);
    EXPECT_EQ(ls->num_sets, 2);
    EXPECT_EQ(ls->grid_width, 3);
    EXPECT_EQ(ls->grid_height, 2);
    // The second set starts at 32 + 70 = 102: its u32 and floats are unaligned.
    EXPECT_EQ(ls->sets[0].set_id, 0x11223344u);
    EXPECT_EQ(ls->sets[1].set_id, 7u);
    EXPECT_EQ(ls->sets[1].set_params[0], -2.0f);
    EXPECT_EQ(ls->sets[1].set_params[1], 2.0f);
    EXPECT_EQ(ls->sets[1].set_params[2], 0.25f);
    EXPECT_EQ(ls->sets[1].set_params[3], 4.0f);
    EXPECT_EQ(ls->sets[0].grid_bits, 12); // stored 4
    EXPECT_EQ(ls->sets[1].grid_bits, 16); // stored 0
    // Positions 1 and 15 name grid 1: equal, separate copies.
    expect_grids(ls, {0, 1, -1, -1, 2, 3, -1, -1, -1, -1, -1, -1, -1, -1, -1, 1}, 6);
}

TEST(LensShadingGrids, MapsNamingFewGridsStillSpanG)
{
    // Sets of 22 bytes without grids when no position names one; grid 3
    // alone still spans four grids; one grid at three positions gets three
    // copies. Set k's header stores k grid bits (16 - k) and, for id 28, the
    // set id 0x01000000 + k (set 1 read at offset 54).
    struct Case {
        const char *what;
        uint16_t id;
        Map map;
        uint16_t n, w, h;
        uint32_t size;
    };
    const Case cases[] = {
        {"all negative", 28, Map(16, -1), 2, 5, 5, 80},                       // 32 + 2 * 22 = 76
        {"only grid 3", 28, map_of({{6, 3}}), 2, 2, 1, 112},                  // 32 + 2 * (22 + 4 * 4) = 108
        {"grid 0 three times", 33, map_of({{0, 0}, {5, 0}, {10, 0}}), 1, 3, 3, 72}, // 32 + 22 + 18
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Parsed parsed = decoded(pattern(c.id, c.map, c.n, c.w, c.h));
        if (c.id == 33) {
            ASSERT_NO_FATAL_FAILURE(expect_grids(parsed->lens_shading_ratio, c.map, uint32_t(c.w) * c.h));
            EXPECT_EQ(parsed->lens_shading_ratio->header.size, c.size);
            continue;
        }
        const cmc_lens_shading4x4 *ls = parsed->lens_shading4x4;
        ASSERT_NO_FATAL_FAILURE(expect_grids(ls, c.map, uint32_t(c.w) * c.h));
        EXPECT_EQ(ls->header.size, c.size);
        for (uint32_t k = 0; k < c.n; ++k) {
            EXPECT_EQ(ls->sets[k].set_id, 0x01000000u + k);
            EXPECT_EQ(ls->sets[k].grid_bits, 16 - k);
        }
    }
}

struct SizeCase {
    const char *name;
    Map map;
    uint16_t n, w, h;
};
void PrintTo(const SizeCase &c, std::ostream *os) { *os << c.name; }

class PatternSize : public ::testing::TestWithParam<SizeCase> {};

TEST_P(PatternSize, ExactRoundedLengthIsAcceptedOneByteLessIsNot)
{
    const SizeCase &c = GetParam();
    for (uint16_t id : {28, 33}) {
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        ASSERT_EQ(decode(parsed.get(), pattern(id, c.map, c.n, c.w, c.h, -1)), 0u);
        EXPECT_TRUE(filled_slots(parsed.get()).empty()) << id;
        EXPECT_TRUE(diag.saw(CMC_DIAG_TOO_SHORT));
        ASSERT_EQ(decode(parsed.get(), pattern(id, c.map, c.n, c.w, c.h)), 0u);
        ASSERT_EQ(filled_slots(parsed.get()), std::vector<int>{id == 28 ? 53 : 56});
        // No sets still give a set array.
        EXPECT_NE(id == 28 ? (void *)parsed->lens_shading4x4->sets : (void *)parsed->lens_shading_ratio->sets,
                  nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(
    LensShading, PatternSize,
    ::testing::Values(SizeCase{"no_sets", Map(16, -1), 0, 9, 9},         // 32
                      SizeCase{"g0_one_set", Map(16, -1), 1, 9, 9},       // 54 -> 56
                      SizeCase{"g1_odd_extent", map_of({{0, 0}}), 3, 3, 1}, // 32 + 3 * 28 = 116 -> 120
                      SizeCase{"g16", map_of({{15, 15}}), 1, 1, 1},       // 32 + 22 + 32 = 86 -> 88
                      SizeCase{"zero_width", map_of({{0, 2}}), 2, 0, 7}),  // 32 + 44 = 76 -> 80
    [](const ::testing::TestParamInfo<SizeCase> &i) { return i.param.name; });

TEST(LensShadingGrids, LengthsThatWrapIn32BitsAreTooShort)
{
    // 32 + 1 * (22 + 2 * 32769 * 65534) is 2^32 + 50: 56 bytes if it wrapped.
    Bytes payload = ByteWriter().u8(0).fill(15, 0xff).u16(1).u16(0).u16(32769).u16(65534).fill(24, 0).take();
    for (uint16_t id : {28, 33}) {
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        ASSERT_EQ(decode(parsed.get(), make_record_sized(id, 100, payload, 56)), 0u);
        EXPECT_TRUE(filled_slots(parsed.get()).empty());
        EXPECT_TRUE(diag.saw(CMC_DIAG_TOO_SHORT));
    }
}

TEST(LensShadingGrids, StoredGridBitsWrapAround)
{
    Parsed parsed = decoded(make_record_sized(28, 100, pattern_payload(Map(16, -1), 1, 1, 1, {set_header_28(1, 17)}), 56));
    ASSERT_NE(parsed->lens_shading4x4, nullptr);
    EXPECT_EQ(parsed->lens_shading4x4->sets[0].grid_bits, 65535);
}

TEST(LensShadingGrids, Id10IsConvertedToThePatternForm)
{
    const uint8_t *copy = nullptr;
    Parsed parsed = decoded(full("id10_v101"), &copy);
    const cmc_lens_shading4x4 *ls = parsed->lens_shading4x4;
    ASSERT_NO_FATAL_FAILURE(expect_grids(ls, kMap2x2, 6));
    EXPECT_EQ(ls->header.size, 2u * 3 * 2 * 176 + 32);
    EXPECT_EQ(ls->sets[0].set_id, 21u);
    EXPECT_EQ(ls->sets[1].set_id, 22u);
    // Q8.8 pairs and Q0.16 values, converted exactly.
    EXPECT_EQ(ls->sets[0].set_params[0], 1.5f);
    EXPECT_EQ(ls->sets[0].set_params[1], 0.25f);
    EXPECT_EQ(ls->sets[0].set_params[2], 0.5f);
    EXPECT_EQ(ls->sets[0].set_params[3], 0.25f);
    EXPECT_EQ(ls->sets[1].set_params[0], 1.0f);
    EXPECT_EQ(ls->sets[1].set_params[1], 0.0f);
    EXPECT_EQ(ls->sets[1].set_params[2], 1.0f / 65536);
    EXPECT_EQ(ls->sets[1].set_params[3], 65535.0f / 65536);
    for (uint32_t k = 0; k < 2; ++k)
        EXPECT_EQ(ls->sets[k].grid_bits, 12);
    EXPECT_EQ(parsed->lens_shading_record, copy);
    EXPECT_EQ(parsed->lens_shading_first_set, copy + 16);
    EXPECT_EQ(parsed->lens_shading_first_grid, copy + 24);
    EXPECT_EQ(parsed->lens_shading_set_params, copy + 128);
}

TEST(LensShadingGrids, MadeUpHeaderOfTwoSetsOf4By3Is4256Bytes)
{
    // num_sets * w * h * 176 + 32; no sets give 32.
    const std::pair<uint16_t, uint32_t> cases[] = {{2, 4256}, {0, 32}};
    for (const auto &[n, size] : cases) {
        Parsed parsed = decoded(make_record(10, 100, payload_2x2(10, 4, 3, std::vector<Bytes>(n, Bytes(8, 0)), {})));
        ASSERT_NE(parsed->lens_shading4x4, nullptr);
        const kelb_record_header &h = parsed->lens_shading4x4->header;
        EXPECT_EQ(h.size, size);
        EXPECT_EQ(h.version, 100);
        EXPECT_EQ(h.reserved, 0);
        EXPECT_EQ(h.id, 28);
    }
}

TEST(LensShadingGrids, Id10WithoutRoomForItsPairsIsDecodedWithoutThem)
{
    const SampleRecord &s = sample("id10_v101");
    for (uint32_t len = 128; len < 136; ++len) {
        Parsed parsed = empty_parsed();
        DiagRecorder diag;
        ASSERT_EQ(decode(parsed.get(), sample_at(s, len)), 0u);
        ASSERT_NE(parsed->lens_shading4x4, nullptr) << len;
        for (uint32_t k = 0; k < 2; ++k) {
            EXPECT_EQ(parsed->lens_shading4x4->sets[k].set_params[0], 0.0f);
            EXPECT_EQ(parsed->lens_shading4x4->sets[k].set_params[1], 0.0f);
        }
        EXPECT_EQ(parsed->lens_shading4x4->sets[0].set_params[2], 0.5f);
        EXPECT_EQ(parsed->lens_shading_set_params, nullptr);
        EXPECT_TRUE(diag.saw(CMC_DIAG_PART_TOO_SHORT));
    }
}

TEST(LensShadingGrids, Id28AlwaysReplacesId10OnlyFillsAnEmptySlot)
{
    const Bytes old_form = full("id10_v101"), pattern_form = full("id28");
    {
        // Id 10 first: the id-28 structure replaces it, the raw views stay.
        const uint8_t *copy = nullptr;
        Parsed parsed = decoded(old_form, &copy);
        DiagRecorder diag;
        ASSERT_EQ(decode(parsed.get(), pattern_form), 0u);
        EXPECT_TRUE(diag.saw(CMC_DIAG_REPLACED_EARLIER));
        EXPECT_EQ(parsed->lens_shading4x4->header.size, 176u);
        EXPECT_EQ(parsed->lens_shading_record, copy);
        EXPECT_EQ(parsed->lens_shading_set_params, copy + 128);
    }
    // Id 28 first: id 10 sets its raw views and leaves the structure.
    Parsed parsed = decoded(pattern_form);
    const cmc_lens_shading4x4 *first = parsed->lens_shading4x4;
    DiagRecorder diag;
    const uint8_t *copy = nullptr;
    ASSERT_EQ(decode(parsed.get(), old_form, &copy), 0u);
    EXPECT_TRUE(diag.saw(CMC_DIAG_SUPERSEDED));
    EXPECT_EQ(parsed->lens_shading4x4, first);
    EXPECT_EQ(parsed->lens_shading_record, copy);
    EXPECT_EQ(parsed->lens_shading_first_grid, copy + 24);
    // A short id-10 record then empties the raw views only.
    ASSERT_EQ(decode(parsed.get(), sample_at(sample("id10_v101"), 127)), 0u);
    EXPECT_EQ(filled_slots(parsed.get()), std::vector<int>{53});
}

TEST(LensShadingRatio, Id33IndexIsStoredNumberPlusOne)
{
    const Map map = map_of({{0, 0}, {3, 1}});
    const Bytes payload = pattern_payload(
        map, 3, 2, 1, {set_header_33(9, 0), set_header_33(0xfffe, 4), set_header_33(1, 65535)});
    Parsed parsed = decoded(make_record_sized(33, 100, payload, 128)); // 122 rounded
    const cmc_lens_shading_ratio *r = parsed->lens_shading_ratio;
    ASSERT_NO_FATAL_FAILURE(expect_grids(r, map, 2));
    EXPECT_EQ(r->header.id, 33);
    EXPECT_EQ(r->sets[0].nvm_table_index, 1);
    EXPECT_EQ(r->sets[1].nvm_table_index, 5);
    EXPECT_EQ(r->sets[2].nvm_table_index, 0);
    EXPECT_EQ(r->sets[1].set_id, 0xfffeu);
    EXPECT_EQ(r->sets[2].set_params[3], 4.0f);
    EXPECT_EQ(r->sets[2].grid_bits, 12);
}

TEST(LensShadingRatio, Id11KeepsItsHeaderAndIndexAsStored)
{
    Parsed parsed = decoded(full("id11_v101"));
    const cmc_lens_shading_ratio *r = parsed->lens_shading_ratio;
    ASSERT_NO_FATAL_FAILURE(expect_grids(r, kMap2x2, 2));
    EXPECT_EQ(r->header.size, 104u);
    EXPECT_EQ(r->header.version, 101);
    EXPECT_EQ(r->header.id, 11);
    const uint16_t index[3] = {1, 2, 0};
    for (uint32_t k = 0; k < 3; ++k) {
        EXPECT_EQ(r->sets[k].nvm_table_index, index[k]);
        EXPECT_EQ(r->sets[k].set_id, 31u + k);
        EXPECT_EQ(r->sets[k].grid_bits, 12);
        EXPECT_EQ(r->sets[k].set_params[0], float(2 * k + 1));   // Q8.8 pairs 0x0100, 0x0300, ...
        EXPECT_EQ(r->sets[k].set_params[1], float(2 * k + 2));
    }
    EXPECT_EQ(r->sets[0].set_params[2], 0.5f);
    EXPECT_EQ(r->sets[0].set_params[3], 2.0f / 65536);
}

TEST(LensShadingRatio, Id11WithoutRoomForItsPairsIsRejected)
{
    const SampleRecord &s = sample("id11_v101");
    Parsed parsed = empty_parsed();
    DiagRecorder diag;
    // 14 + 3 * 26 = 92 covers the sets (96 rounded), not the 12 bytes of pairs.
    ASSERT_EQ(decode(parsed.get(), sample_at(s, 96)), 0u);
    EXPECT_EQ(parsed->lens_shading_ratio, nullptr);
    EXPECT_TRUE(diag.saw(CMC_DIAG_TOO_SHORT));
    // Version 100 with no sets needs only 14, rounded to 16.
    ASSERT_EQ(decode(parsed.get(), make_record_sized(11, 100, payload_2x2(11, 9, 9, {}, {}), 16)), 0u);
    ASSERT_NE(parsed->lens_shading_ratio, nullptr);
    EXPECT_EQ(parsed->lens_shading_ratio->num_sets, 0);
    EXPECT_NE(parsed->lens_shading_ratio->sets, nullptr);
}

TEST(LensShadingRatio, Id33ReplacesId11FirstId11Wins)
{
    const Bytes old_form = full("id11_v101"), pattern_form = full("id33");
    for (bool old_first : {true, false}) {
        SCOPED_TRACE(old_first ? "id 11 first" : "id 33 first");
        Parsed parsed = decoded(old_first ? old_form : pattern_form);
        DiagRecorder diag;
        ASSERT_EQ(decode(parsed.get(), old_first ? pattern_form : old_form), 0u);
        EXPECT_TRUE(diag.saw(old_first ? CMC_DIAG_REPLACED_EARLIER : CMC_DIAG_SUPERSEDED));
        EXPECT_EQ(parsed->lens_shading_ratio->header.id, 33);
    }
    // Between two id-11 records the first stays.
    Parsed parsed = decoded(old_form);
    const cmc_lens_shading_ratio *first = parsed->lens_shading_ratio;
    ASSERT_EQ(decode(parsed.get(), make_record_sized(11, 100, payload_2x2(11, 1, 1, {}, {}), 16)), 0u);
    EXPECT_EQ(parsed->lens_shading_ratio, first);
    EXPECT_EQ(first->num_sets, 3);
}

TEST(LensShadingRelease, RoutinesAcceptNullAndPartlyBuiltStructures)
{
    cmc_lens_shading4x4_deinit(nullptr);
    cmc_lens_shading_ratio_deinit(nullptr);
    // Sets allocated but no grids yet, and no set array at all.
    auto *ls = static_cast<cmc_lens_shading4x4 *>(calloc(1, sizeof(cmc_lens_shading4x4)));
    ls->num_sets = 3;
    ls->sets = static_cast<cmc_lens_shading4x4_set *>(calloc(3, sizeof(cmc_lens_shading4x4_set)));
    ls->sets[1].grids[7] = static_cast<uint16_t *>(malloc(4));
    cmc_lens_shading4x4_deinit(ls);
    auto *r = static_cast<cmc_lens_shading_ratio *>(calloc(1, sizeof(cmc_lens_shading_ratio)));
    r->num_sets = 5;
    cmc_lens_shading_ratio_deinit(r);
}

} // namespace
