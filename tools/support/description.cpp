#include "description.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "kelb_builder.h"
#include "nvm_writer.h"
#include "tool_status.h"

namespace ejtool {

namespace {

using nlohmann::json;

// A JSON value with the path that leads to it, so that every complaint can
// say where it is ("$.records[3].fields[1].u16[7]").
struct Node {
    const json &v;
    std::string path;
    const std::string &file;

    [[noreturn]] void fail(const std::string &expected) const
    {
        std::string found = v.is_null() ? "nothing" : v.dump();
        if (found.size() > 40)
            found = found.substr(0, 37) + "...";
        throw ToolError(kExitBadDescription,
                        file + ": " + path + ": expected " + expected + ", found " + found);
    }
    Node at(const char *key) const
    {
        static const json kMissing;
        if (!v.is_object())
            fail("an object");
        const auto it = v.find(key);
        return Node{it == v.end() ? kMissing : *it, path + "." + key, file};
    }
    Node at(size_t i) const { return Node{v[i], path + "[" + std::to_string(i) + "]", file}; }
    bool has(const char *key) const { return v.is_object() && v.contains(key); }
    bool missing() const { return v.is_null(); }

    const json &object(const char *what) const
    {
        if (!v.is_object())
            fail(what);
        return v;
    }
    const json &array(const char *what) const
    {
        if (!v.is_array())
            fail(what);
        return v;
    }
    std::string str(const char *what) const
    {
        if (!v.is_string())
            fail(what);
        return v.get<std::string>();
    }
    // An integer in [lo, hi].
    int64_t integer(int64_t lo, int64_t hi) const
    {
        const std::string range = "an integer " + std::to_string(lo) + ".." + std::to_string(hi);
        if (v.is_number_unsigned()) {
            const uint64_t u = v.get<uint64_t>();
            if (u > uint64_t(hi))
                fail(range);
            return int64_t(u);
        }
        if (!v.is_number_integer())
            fail(range);
        const int64_t i = v.get<int64_t>();
        if (i < lo || i > hi)
            fail(range);
        return i;
    }
    double number() const
    {
        if (!v.is_number())
            fail("a number");
        return v.get<double>();
    }
    // Keys outside `known` are typing errors in a hand-written file.
    void only_keys(std::initializer_list<const char *> known) const
    {
        for (auto it = v.begin(); it != v.end(); ++it) {
            bool ok = false;
            for (const char *k : known)
                ok = ok || it.key() == k;
            if (!ok)
                Node{it.value(), path + "." + it.key(), file}.fail("no such key here");
        }
    }
};

json parse_json(const std::string &text, const std::string &file)
{
    try {
        return json::parse(text);
    } catch (const json::parse_error &e) {
        // "[json.exception.parse_error.101] parse error at line 3, column 5: ..."
        std::string what = e.what();
        const size_t at = what.find("parse error");
        throw ToolError(kExitBadDescription,
                        file + ": not valid JSON: " + (at == std::string::npos ? what : what.substr(at)));
    }
}

void expect_format(const Node &root, const char *format)
{
    root.object("an object at the top level");
    if (!root.at("format").v.is_string() || root.at("format").v.get<std::string>() != format)
        root.at("format").fail(std::string("\"") + format + "\"");
    if (root.at("format_version").integer(1, 1) != 1)
        root.at("format_version").fail("1");
}

// Scalar field types: name, byte width, range of integers (floats: f32).
struct ScalarType {
    const char *name;
    int width;
    int64_t lo;
    int64_t hi;
};
const ScalarType kScalarTypes[] = {
    {"u8", 1, 0, 0xff},         {"i8", 1, -0x80, 0x7f},
    {"u16", 2, 0, 0xffff},      {"i16", 2, -0x8000, 0x7fff},
    {"u32", 4, 0, 0xffffffff},  {"i32", 4, -0x80000000LL, 0x7fffffff},
    {"u64", 8, 0, std::numeric_limits<int64_t>::max()},
    {"f32", 4, 0, 0},
};

void put_scalar(ejtest::ByteWriter &w, const ScalarType &t, const Node &n)
{
    if (std::strcmp(t.name, "f32") == 0) {
        const double d = n.number();
        if (std::isfinite(d) && std::fabs(d) > double(std::numeric_limits<float>::max()))
            n.fail("a number in the single-precision range");
        w.f32(float(d));
        return;
    }
    const uint64_t u = uint64_t(n.integer(t.lo, t.hi));
    for (int i = 0; i < t.width; ++i)
        w.u8(uint8_t(u >> (8 * i)));
}

// A number, or arrays of numbers nested to any depth (rows of a grid), written
// in order.
void put_values(ejtest::ByteWriter &w, const ScalarType &t, const Node &n)
{
    if (!n.v.is_array()) {
        put_scalar(w, t, n);
        return;
    }
    for (size_t i = 0; i < n.v.size(); ++i)
        put_values(w, t, n.at(i));
}

ejtest::Bytes hex_bytes(const Node &n)
{
    const std::string s = n.str("a string of hex digits");
    ejtest::Bytes out;
    int high = -1;
    for (char ch : s) {
        if (ch == ' ' || ch == '\n')
            continue;
        int d;
        if (ch >= '0' && ch <= '9')
            d = ch - '0';
        else if (ch >= 'a' && ch <= 'f')
            d = ch - 'a' + 10;
        else if (ch >= 'A' && ch <= 'F')
            d = ch - 'A' + 10;
        else
            n.fail("hex digits (0-9, a-f) and spaces only");
        if (high < 0) {
            high = d;
        } else {
            out.push_back(uint8_t(high << 4 | d));
            high = -1;
        }
    }
    if (high >= 0)
        n.fail("an even number of hex digits");
    return out;
}

// One field of a record's payload. `w` holds the record from offset 8.
void put_field(ejtest::ByteWriter &w, const Node &f)
{
    f.object("a field object {\"name\": ..., <type>: <value>}");
    f.at("name").str("a field name (string)");
    if (f.has("at")) {
        const int64_t at = f.at("at").integer(8, 0xffffffff);
        if (uint64_t(at) != w.size() + 8)
            f.at("at").fail("the field's record offset, which is " + std::to_string(w.size() + 8));
    }
    int kinds = 0;
    for (const ScalarType &t : kScalarTypes) {
        if (f.has(t.name)) {
            ++kinds;
            put_values(w, t, f.at(t.name));
        }
    }
    if (f.has("str")) {
        ++kinds;
        w.cstr(f.at("str").str("a string (written with its terminating zero)"));
    }
    if (f.has("hex")) {
        ++kinds;
        w.bytes(hex_bytes(f.at("hex")));
    }
    if (f.has("zeros")) {
        ++kinds;
        w.zeros(size_t(f.at("zeros").integer(0, 1 << 24)));
    }
    if (f.has("pad_to")) {
        ++kinds;
        const Node p = f.at("pad_to");
        const int64_t to = p.integer(8, 1 << 28);
        if (uint64_t(to) < w.size() + 8)
            p.fail("a record offset at or beyond " + std::to_string(w.size() + 8));
        w.pad_to(size_t(to) - 8);
    }
    if (kinds != 1)
        f.fail("exactly one of u8, i8, u16, i16, u32, i32, u64, f32, str, hex, zeros, pad_to");
    f.only_keys({"name", "at", "u8", "i8", "u16", "i16", "u32", "i32", "u64", "f32", "str", "hex",
                 "zeros", "pad_to"});
}

ejtest::Bytes record_bytes(const Node &r)
{
    r.object("a record object");
    r.only_keys({"id", "version", "comment", "fields", "hex", "length", "size_field"});
    const uint16_t id = uint16_t(r.at("id").integer(0, 0xffff));
    const uint8_t version = uint8_t(r.at("version").integer(0, 0xff));
    if (r.has("fields") == r.has("hex"))
        r.fail("either \"fields\" or \"hex\" for the payload");
    ejtest::ByteWriter payload;
    if (r.has("hex")) {
        payload.bytes(hex_bytes(r.at("hex")));
    } else {
        const Node fields = r.at("fields");
        fields.array("an array of fields");
        for (size_t i = 0; i < fields.v.size(); ++i)
            put_field(payload, fields.at(i));
    }
    if (r.has("length")) {
        const Node n = r.at("length");
        const int64_t length = n.integer(8, 1 << 28);
        if (uint64_t(length) < payload.size() + 8)
            n.fail("a record length of at least " + std::to_string(payload.size() + 8) +
                   " (header and fields)");
        payload.pad_to(size_t(length) - 8);
    }
    if (r.has("size_field"))
        return ejtest::make_record_with_size(id, version, payload.data(),
                                             uint32_t(r.at("size_field").integer(0, 0xffffffff)));
    return ejtest::make_record(id, version, payload.data());
}

} // namespace

std::vector<uint8_t> pack_container(const std::string &json_text, const std::string &file)
{
    const json doc = parse_json(json_text, file);
    const Node root{doc, "$", file};
    expect_format(root, "kelb-container");
    root.only_keys({"format", "format_version", "comment", "checksum", "size_field", "trailing", "records"});
    // "A" (default) or "B" seal the container by that rule; a number is
    // stored as the checksum word as it stands (to build rejected containers).
    ejtest::Checksum rule = ejtest::Checksum::RuleA;
    std::optional<uint32_t> checksum_word;
    if (root.has("checksum")) {
        const Node c = root.at("checksum");
        if (c.v.is_number()) {
            checksum_word = uint32_t(c.integer(0, 0xffffffff));
        } else if (c.v.is_string() && (c.v == "A" || c.v == "B")) {
            rule = c.v == "A" ? ejtest::Checksum::RuleA : ejtest::Checksum::RuleB;
        } else {
            c.fail("\"A\" (every word), \"B\" (record words) or a checksum word");
        }
    }
    const Node records = root.at("records");
    records.array("an array of records");
    std::vector<ejtest::Bytes> parts;
    uint64_t total = 24;
    for (size_t i = 0; i < records.v.size(); ++i) {
        parts.push_back(record_bytes(records.at(i)));
        total += parts.back().size();
    }
    ejtest::Bytes trailing;
    if (root.has("trailing"))
        trailing = hex_bytes(root.at("trailing"));
    if (total + trailing.size() > std::numeric_limits<uint32_t>::max())
        records.fail("records that fit a container of at most 4 GiB");
    ejtest::Bytes out = ejtest::make_container(parts, rule, trailing);
    // A size field other than the length, then the checksum over it.
    if (root.has("size_field")) {
        const uint32_t size = uint32_t(root.at("size_field").integer(0, 0xffffffff));
        for (int i = 0; i < 4; ++i)
            out[4 + i] = uint8_t(size >> (8 * i));
        ejtest::seal(out, rule);
    }
    if (checksum_word) {
        for (int i = 0; i < 4; ++i)
            out[20 + i] = uint8_t(*checksum_word >> (8 * i));
    }
    return out;
}

namespace {

// width * height values of a grid: a flat array or rows.
template <typename T>
std::vector<T> grid_values(const Node &n, size_t count, int64_t lo, int64_t hi)
{
    std::vector<T> out;
    n.array("an array of values (flat or in rows)");
    for (size_t i = 0; i < n.v.size(); ++i) {
        const Node e = n.at(i);
        if (e.v.is_array()) {
            for (size_t j = 0; j < e.v.size(); ++j)
                out.push_back(T(e.at(j).integer(lo, hi)));
        } else {
            out.push_back(T(e.integer(lo, hi)));
        }
    }
    if (out.size() != count)
        n.fail(std::to_string(count) + " values (width x height), not " +
               std::to_string(out.size()));
    return out;
}

} // namespace

std::vector<uint8_t> pack_nvm(const std::string &json_text, const std::string &file)
{
    const json doc = parse_json(json_text, file);
    const Node root{doc, "$", file};
    expect_format(root, "nvm-blob");
    root.only_keys({"format", "format_version", "comment", "lens_shading", "map_calibration"});
    ejnvm::NvmBlob blob;
    if (root.has("lens_shading")) {
        const Node ls = root.at("lens_shading");
        ls.object("an object");
        ls.only_keys({"grid_width", "grid_height", "tables"});
        ejnvm::LscSection section;
        section.width = uint8_t(ls.at("grid_width").integer(0, 255));
        section.height = uint8_t(ls.at("grid_height").integer(0, 255));
        const size_t n = size_t(section.width) * section.height;
        const Node tables = ls.at("tables");
        tables.array("an array of tables");
        if (tables.v.size() > 255)
            tables.fail("at most 255 tables");
        for (size_t t = 0; t < tables.v.size(); ++t) {
            const Node tn = tables.at(t);
            tn.object("a table object");
            tn.only_keys({"comment", "frac_bits", "channels"});
            ejnvm::LscTable table;
            table.frac_bits = uint8_t(tn.at("frac_bits").integer(0, 255));
            const Node ch = tn.at("channels");
            if (!ch.v.is_array() || ch.v.size() != 4)
                ch.fail("an array of 4 channel tables");
            const int64_t hi = table.frac_bits <= 8 ? 0xff : 0xffff; // u8 samples up to 8 bits
            for (size_t c = 0; c < 4; ++c)
                table.channels[c] = grid_values<uint16_t>(ch.at(c), n, 0, hi);
            section.tables.push_back(std::move(table));
        }
        blob.lsc = std::move(section);
    }
    if (root.has("map_calibration")) {
        const Node m = root.at("map_calibration");
        m.object("an object");
        m.only_keys({"width", "height", "shift", "values"});
        ejnvm::MapSection map;
        map.width = uint8_t(m.at("width").integer(0, 255));
        map.height = uint8_t(m.at("height").integer(0, 255));
        map.shift = uint8_t(m.at("shift").integer(0, 255));
        if (m.has("values") && !m.at("values").missing()) {
            map.has_values = true;
            map.values = grid_values<int32_t>(m.at("values"), size_t(map.width) * map.height,
                                              INT32_MIN, INT32_MAX);
        }
        blob.map = std::move(map);
    }
    return ejnvm::write_nvm(blob);
}

} // namespace ejtool
