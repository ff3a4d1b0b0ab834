#include "slot_summary.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "cmc_records.h"
#include "slots.h"

namespace ejtool {

namespace {

uint16_t u16_at(const uint8_t *p)
{
    return uint16_t(p[0] | p[1] << 8);
}

uint32_t u32_at(const uint8_t *p)
{
    return uint32_t(u16_at(p)) | uint32_t(u16_at(p + 2)) << 16;
}

std::string hex(const uint8_t *p, size_t n)
{
    std::string s;
    char buf[4];
    for (size_t i = 0; i < n; ++i) {
        std::snprintf(buf, sizeof buf, "%02x", p[i]);
        s += buf;
    }
    return s;
}

// A string from the container as printable ASCII: other bytes as \xNN, so
// that the report stays valid UTF-8 and readable on a terminal.
std::string printable(const char *s)
{
    std::string out;
    char buf[8];
    for (; *s != '\0'; ++s) {
        const unsigned char c = static_cast<unsigned char>(*s);
        if (c >= 0x20 && c < 0x7f && c != '\\') {
            out += char(c);
        } else {
            std::snprintf(buf, sizeof buf, "\\x%02x", c);
            out += buf;
        }
    }
    return out;
}

// A record header as stored at p: {"id", "version", "size"}.
Json header_at(const uint8_t *p)
{
    return Json{{"id", u16_at(p + 6)}, {"version", p[4]}, {"size", u32_at(p)}};
}

Json header_of(const kelb_record_header &h)
{
    return Json{{"id", h.id}, {"version", h.version}, {"size", h.size}};
}

template <typename T>
Json list(const T *values, size_t n)
{
    Json a = Json::array();
    for (size_t i = 0; values != nullptr && i < n; ++i)
        a.push_back(values[i]);
    return a;
}

Json float_list(const float *values, size_t n)
{
    Json a = Json::array();
    for (size_t i = 0; i < n; ++i)
        a.push_back(fnum(values[i]));
    return a;
}

// The slot a view points into.
int view_parent(int slot)
{
    switch (slot) {
    case 9: return 8;
    case 14: case 15: case 16: return 13;
    case 21: return 20;
    case 25: case 26: case 27: case 28: return 22;
    case 30: return 29;
    case 32: return 31;
    case 34: case 35: return 33;
    case 37: case 38: return 36;
    case 40: case 41: return 39;
    case 47: return 46;
    default: return -1;
    }
}

const uint8_t *slot_pointer(const cmc_parsed_data *parsed, int slot)
{
    const uint8_t *p;
    std::memcpy(&p, reinterpret_cast<const uint8_t *>(parsed) + 8 * slot, sizeof p);
    return p;
}

bool kept_record(int slot)
{
    static const int kKept[] = {0, 7, 8, 10, 11, 12, 13, 17, 20, 22, 29, 31, 33,
                                36, 39, 43, 45, 46, 54, 55, 57, 61};
    for (int k : kKept)
        if (k == slot)
            return true;
    return false;
}

// Grids of a lens-shading or ratio set, by pattern position.
template <typename Set>
Json set_grids(const Set &set, const int8_t *grid_map, size_t samples)
{
    Json grids = Json::array();
    for (int pos = 0; pos < 16; ++pos) {
        if (set.grids[pos] == nullptr)
            continue;
        Json g{{"position", Json::array({pos / 4, pos % 4})}, {"grid", grid_map[pos]}};
        g.update(u16_range(set.grids[pos], samples));
        grids.push_back(g);
    }
    return grids;
}

template <typename Set>
Json set_head(const Set &set, uint32_t index)
{
    return Json{{"set", index},
                {"set_id", set.set_id},
                {"set_params", float_list(set.set_params, 4)},
                {"grid_bits", set.grid_bits}};
}

template <typename S>
Json pattern_common(const S &s)
{
    Json j{{"record", header_of(s.header)}};
    Json map = Json::array();
    for (int i = 0; i < 16; ++i)
        map.push_back(s.grid_map[i]);
    j["grid_map"] = map;
    j["num_sets"] = s.num_sets;
    j["grid_width"] = s.grid_width;
    j["grid_height"] = s.grid_height;
    return j;
}

Json lens_shading(const cmc_lens_shading4x4 &ls)
{
    Json j = pattern_common(ls);
    const size_t n = size_t(ls.grid_width) * ls.grid_height;
    Json sets = Json::array();
    for (uint32_t i = 0; ls.sets != nullptr && i < ls.num_sets; ++i) {
        Json s = set_head(ls.sets[i], i);
        s["grids"] = set_grids(ls.sets[i], ls.grid_map, n);
        sets.push_back(s);
    }
    j["sets"] = sets;
    return j;
}

Json ratio(const cmc_lens_shading_ratio &r)
{
    Json j = pattern_common(r);
    const size_t n = size_t(r.grid_width) * r.grid_height;
    Json sets = Json::array();
    for (uint32_t i = 0; r.sets != nullptr && i < r.num_sets; ++i) {
        Json s = set_head(r.sets[i], i);
        s["nvm_table_index"] = r.sets[i].nvm_table_index;
        s["grids"] = set_grids(r.sets[i], r.grid_map, n);
        sets.push_back(s);
    }
    j["sets"] = sets;
    return j;
}

Json curves(const rec_15_curve_set &set)
{
    Json list_j = Json::array();
    for (uint32_t i = 0; set.curves != nullptr && i < set.count; ++i) {
        const rec_15_curve &c = set.curves[i];
        list_j.push_back(Json{{"value", c.value},
                              {"count", c.count},
                              {"first", list(c.first, c.count)},
                              {"second", list(c.second, c.count)}});
    }
    return Json{{"count", set.count}, {"curves", list_j}};
}

Json distortion(const cmc_geometric_distortion2_wfov &gd)
{
    Json j{{"map_width", gd.map_width}, {"map_height", gd.map_height}, {"num_maps", gd.num_maps},
           {"ext_value", gd.ext_value},   {"num_units", gd.num_units},   {"ext2_value", fnum(gd.ext2_value)},
           {"num_elements", gd.num_elements}};
    const int64_t w = int64_t(gd.map_width) * gd.map_height;
    Json maps = Json::array();
    for (uint32_t i = 0; gd.maps != nullptr && i < gd.num_maps; ++i) {
        Json m{{"map_id", gd.maps[i].map_id}};
        if (w > 0 && gd.maps[i].plane_a != nullptr) {
            m["plane_a"] = list(gd.maps[i].plane_a, size_t(w));
            m["plane_b"] = list(gd.maps[i].plane_b, size_t(w));
        }
        maps.push_back(m);
    }
    j["maps"] = maps;
    Json elements = Json::array();
    for (int32_t i = 0; gd.elements != nullptr && i < gd.num_elements; ++i) {
        const cmc_gd2_wfov_element &e = gd.elements[i];
        elements.push_back(Json{{"elem_a", fnum(e.elem_a)},
                                {"elem_b", fnum(e.elem_b)},
                                {"elem_c", e.elem_c},
                                {"values", list(e.values, e.num_values)}});
    }
    j["elements"] = elements;
    return j;
}

Json value_table(const cmc_value_table &t)
{
    const uint16_t n = u16_at(t.head + 14);
    Json j{{"record", header_at(t.head)}, {"num_entries", n}};
    Json entries = Json::array();
    for (uint32_t i = 0; t.entries != nullptr && i < n; ++i) {
        const uint16_t c = u16_at(t.entries[i].entry_head + 2);
        Json e{{"count", c}};
        e["values"] = t.entries[i].values != nullptr ? list(t.entries[i].values, c) : Json();
        entries.push_back(e);
    }
    j["entries"] = entries;
    return j;
}

Json block_entries(const cmc_parsed_data *parsed)
{
    const uint8_t *record = parsed->block_record;
    if (record == nullptr)
        return Json{{"entries", nullptr}};
    const uint16_t n = u16_at(record + 8);
    Json entries = Json::array();
    for (uint32_t i = 0; i < n; ++i) {
        const cmc_block_entry &e = parsed->block_entries[i];
        entries.push_back(Json{{"offset", e.entry_start - record}, {"block", hex(e.block, 36)}});
    }
    return Json{{"num_entries", n}, {"entries", entries}};
}

Json dual_block(const cmc_dual_block &d)
{
    Json blocks = Json::array();
    for (const cmc_factor_block &b : d.blocks)
        blocks.push_back(Json{{"block_word", hex(b.block_word, 8)}, {"factors", float_list(b.factors, 4)}});
    return Json{{"record", header_of(d.header)}, {"base_word", hex(d.base_word, 8)}, {"blocks", blocks}};
}

Json plane_grid_set(const cmc_plane_grid_set &s)
{
    if (s.record == nullptr)
        return Json{{"record", nullptr}};
    const uint16_t n = u16_at(s.record + 24);
    const uint16_t a = u16_at(s.record + 28), b = u16_at(s.record + 30);
    const size_t samples = size_t(a) * b;
    Json j{{"record", header_at(s.record)}, {"num_elements", n}, {"plane_width", a}, {"plane_height", b}};
    Json elements = Json::array();
    for (uint32_t i = 0; s.elements != nullptr && i < n; ++i) {
        Json planes = Json::array();
        for (int k = 0; k < 3 && s.elements[i].planes != nullptr; ++k)
            planes.push_back(u16_range(s.elements[i].planes + k * samples, samples));
        elements.push_back(Json{{"planes", planes}});
    }
    j["elements"] = elements;
    j["trailer"] = s.trailer != nullptr;
    return j;
}

Json nvm_map_table(const cmc_nvm_map_table &m)
{
    const uint16_t w = u16_at(m.head + 22), h = u16_at(m.head + 24);
    Json j{{"record", header_at(m.head)}, {"num_items", u16_at(m.head + 16)},
           {"table_width", w}, {"table_height", h}};
    const size_t n = size_t(w) * h;
    if (m.map != nullptr && n > 0) {
        int32_t lo = m.map[0], hi = lo;
        for (size_t i = 1; i < n; ++i) {
            lo = std::min(lo, m.map[i]);
            hi = std::max(hi, m.map[i]);
        }
        j["map"] = Json{{"min", lo}, {"max", hi}};
    } else {
        j["map"] = nullptr;
    }
    j["items"] = m.items != nullptr;
    j["aux"] = m.aux != nullptr;
    return j;
}

Json four_plane_grid(const cmc_four_plane_grid &g)
{
    const uint16_t a = u16_at(g.head + 12), b = u16_at(g.head + 14);
    const size_t samples = size_t(a) * b;
    Json planes = Json::array();
    for (int k = 0; k < 4; ++k) {
        Json p = Json::object();
        if (g.planes[k] != nullptr && samples > 0) {
            uint32_t lo = g.planes[k][0], hi = lo;
            for (size_t i = 1; i < samples; ++i) {
                lo = std::min(lo, g.planes[k][i]);
                hi = std::max(hi, g.planes[k][i]);
            }
            p = Json{{"min", lo}, {"max", hi}};
        }
        planes.push_back(p);
    }
    return Json{{"record", header_at(g.head)}, {"width", a}, {"height", b}, {"planes", planes}};
}

Json summarize(const cmc_parsed_data *parsed, int slot)
{
    const uint8_t *p = slot_pointer(parsed, slot);
    if (kept_record(slot)) {
        Json j{{"record", header_at(p)}};
        if (slot == 31) {
            j["channel_order"] = u16_at(p + 10);
            j["flip_mode"] = u16_at(p + 12);
        }
        return j;
    }
    const int parent = view_parent(slot);
    if (parent >= 0) {
        const uint8_t *base = slot_pointer(parsed, parent);
        Json j{{"view_of", parent}, {"offset", base != nullptr ? Json(p - base) : Json()}};
        if (slot == 32)
            j["value"] = u16_at(p);
        return j;
    }
    switch (slot) {
    case 1: return Json{{"value", printable(parsed->rec_1_name)}};
    case 2: return Json{{"value", parsed->rec_1_pair_count}};
    case 3: {
        Json pairs = Json::array();
        for (uint32_t i = 0; i < parsed->rec_1_pair_count; ++i)
            pairs.push_back(Json{{"key", printable(parsed->rec_1_pairs[i].key)},
                                 {"value", printable(parsed->rec_1_pairs[i].value)}});
        return Json{{"pairs", pairs}};
    }
    case 4: {
        const cmc_rec_2 &r = *parsed->rec_2;
        return Json{{"record", header_at(r.header)},   {"v100_fields", hex(r.v100_fields, 4)},
                    {"v100_value", r.v100_value},      {"cfa_pattern", r.cfa_pattern},
                    {"v101_value", r.v101_value},      {"v102_fields", hex(r.v102_fields, 16)},
                    {"v103_value", r.v103_value}};
    }
    case 18: {
        const uint16_t n = parsed->rec_13 != nullptr ? u16_at(parsed->rec_13 + 70) : 0;
        return Json{{"count", n}, {"values", list(parsed->rec_13_values, n)}};
    }
    case 19: return Json{{"values", list(parsed->rec_13_params, 4)}};
    case 23: return curves(*parsed->rec_15_curves);
    case 42: return distortion(*parsed->geometric_distortion2_wfov);
    case 44: return value_table(*parsed->value_table);
    case 48: return block_entries(parsed);
    case 49: return dual_block(*parsed->dual_block);
    case 50: return plane_grid_set(*parsed->plane_grid_set);
    case 51: return nvm_map_table(*parsed->nvm_map_table);
    case 52: return four_plane_grid(*parsed->four_plane_grid);
    case 53: return lens_shading(*parsed->lens_shading4x4);
    case 56: return ratio(*parsed->lens_shading_ratio);
    case 58: {
        const cmc_pipe_compand &c = *parsed->pipe_compand;
        return Json{{"record", header_of(c.header)}, {"ctrl_byte", c.ctrl_byte}, {"ctrl_word", c.ctrl_word},
                    {"num_segments", c.num_segments}, {"x_points", list(c.x_points, c.num_segments + 1u)},
                    {"y_points", list(c.y_points, c.num_segments + 1u)},
                    {"slopes", list(c.slopes, c.num_segments)}};
    }
    case 59: {
        const cmc_pipe_decompand &c = *parsed->pipe_decompand;
        return Json{{"record", header_of(c.header)}, {"ctrl_byte", c.ctrl_byte}, {"ctrl_word", c.ctrl_word},
                    {"num_segments", c.num_segments}, {"x_points", list(c.x_points, c.num_segments + 1u)},
                    {"y_points", list(c.y_points, c.num_segments + 1u)},
                    {"slopes", list(c.slopes, c.num_segments)}};
    }
    case 60: {
        const cmc_sensor_decompand &s = *parsed->sensor_decompand;
        return Json{{"record", header_of(s.header)}, {"ctrl_byte", s.ctrl_byte}, {"ctrl_word", hex(s.ctrl_word, 4)},
                    {"num_points", s.num_points}, {"x_points", list(s.x_points, s.num_points)},
                    {"y_points", list(s.y_points, s.num_points)}};
    }
    case 62: {
        const cmc_cbd &c = *parsed->cbd;
        return Json{{"record", header_of(c.header)}, {"cbd_byte", c.cbd_byte}, {"num_entries", c.num_entries},
                    {"first_values", list(c.first_values, c.num_entries)},
                    {"second_values", list(c.second_values, c.num_entries)}};
    }
    case 63: {
        const others_data &o = *parsed->others;
        Json entries = Json::array();
        for (uint32_t i = 0; i < o.count && i < 16; ++i)
            entries.push_back(hex(o.entries[i], 8));
        return Json{{"value", o.value}, {"count", o.count}, {"entries", entries}};
    }
    case 64: return Json{{"size", parsed->container->size}};
    default: return Json{{"summary", "not interpreted"}};
    }
}

} // namespace

Json u16_range(const uint16_t *samples, size_t count)
{
    if (samples == nullptr || count == 0)
        return Json{{"min", nullptr}, {"max", nullptr}, {"mean", nullptr}};
    uint16_t lo = samples[0], hi = samples[0];
    double sum = 0;
    for (size_t i = 0; i < count; ++i) {
        lo = std::min(lo, samples[i]);
        hi = std::max(hi, samples[i]);
        sum += samples[i];
    }
    return Json{{"min", lo}, {"max", hi}, {"mean", fnum(float(sum / double(count)))}};
}

Json summarize_slots(const cmc_parsed_data *parsed)
{
    Json slots = Json::array();
    for (int slot : ejtest::filled_slots(parsed)) {
        Json j{{"slot", slot}, {"name", ejtest::slot_name(slot)}};
        j.update(summarize(parsed, slot));
        slots.push_back(j);
    }
    return slots;
}

} // namespace ejtool
