#include "inspect_report.h"

#include "kelb_builder.h"
#include "slot_summary.h"

namespace ejtool {

namespace {

uint32_t u32_at(const uint8_t *p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// The records as the walk meets them: offset, id, version, size; ends where
// the walk stops (a size below 8, or a record past the end).
Json record_list(const std::vector<uint8_t> &c)
{
    Json records = Json::array();
    const uint64_t end = c.size() >= 24 ? std::min<uint64_t>(u32_at(c.data() + 4), c.size()) : 0;
    for (uint64_t off = 24; off + 8 <= end;) {
        const uint32_t size = u32_at(c.data() + off);
        Json r{{"offset", off},
               {"id", uint32_t(c[off + 6] | c[off + 7] << 8)},
               {"version", c[off + 4]},
               {"size", size}};
        if (size < 8 || off + size > end) {
            r["walk_stops"] = true;
            records.push_back(r);
            break;
        }
        records.push_back(r);
        off += size;
    }
    return records;
}

Json container_section(const InspectSession &s, const std::string &name)
{
    const std::vector<uint8_t> &c = s.container();
    Json j{{"file", name}, {"size", c.size()}};
    if (c.size() >= 24) {
        j["size_field"] = u32_at(c.data() + 4);
        const uint32_t stored = u32_at(c.data() + 20);
        Json rules = Json::array();
        if (ejtest::checksum_a(c) == stored)
            rules.push_back("A");
        if (ejtest::checksum_b(c) == stored)
            rules.push_back("B");
        j["checksum_rules"] = rules;
        j["records"] = record_list(c);
    }
    j["accepted"] = s.result() != nullptr;
    const std::string why = rejection_text(s);
    j["rejected_because"] = why.empty() ? Json() : Json(why);
    return j;
}

Json nvm_section(const InspectSession &s, const std::string &name)
{
    if (!s.has_nvm())
        return Json();
    Json j{{"file", name}, {"size", s.nvm_size()}, {"status", s.nvm_status()}};
    const ej_nvm_data *n = s.nvm();
    if (n == nullptr)
        return j;
    Json tables = Json::array();
    for (uint32_t t = 0; n->lsc_tables != nullptr && t < n->lsc_table_count; ++t)
        tables.push_back(Json{{"table", t + 1}, {"frac_bits", n->lsc_tables[t].frac_bits}});
    j["lens_shading"] = Json{{"num_tables", n->lsc_table_count},
                             {"grid_width", n->lsc_grid_width},
                             {"grid_height", n->lsc_grid_height},
                             {"tables", tables}};
    if (n->map_calibration_present && n->map_calibration != nullptr) {
        const nvm_map_calibration &m = *n->map_calibration;
        Json mj{{"width", m.cal_map_width}, {"height", m.cal_map_height}, {"shift", m.cal_map_shift}};
        const size_t count = size_t(m.cal_map_width) * m.cal_map_height;
        if (m.cal_map_values != nullptr && count > 0) {
            int32_t lo = m.cal_map_values[0], hi = lo;
            for (size_t i = 1; i < count; ++i) {
                lo = std::min(lo, m.cal_map_values[i]);
                hi = std::max(hi, m.cal_map_values[i]);
            }
            mj["min"] = lo;
            mj["max"] = hi;
        } else {
            mj["values"] = nullptr;
        }
        j["map_calibration"] = mj;
    } else {
        j["map_calibration"] = nullptr;
    }
    return j;
}

Json drops_section(const InspectSession &s)
{
    Json drops = Json::array();
    for (const cmc_diag_event &e : s.drops()) {
        drops.push_back(Json{{"offset", e.offset == CMC_DIAG_NO_OFFSET ? Json() : Json(e.offset)},
                             {"id", e.id},
                             {"version", e.version},
                             {"size", e.size},
                             {"reason", diag_reason_name(e.reason)},
                             {"text", cmc_diag_reason_text(e.reason)}});
    }
    return drops;
}

bool scalar_list(const Json &a)
{
    for (const Json &e : a)
        if (e.is_structured())
            return false;
    return true;
}

std::string scalar(const Json &v)
{
    if (v.is_string())
        return v.get<std::string>();
    if (v.is_null())
        return "-";
    if (v.is_array()) {
        std::string s = "[";
        for (size_t i = 0; i < v.size(); ++i)
            s.append(i ? ", " : "").append(scalar(v[i]));
        return s + "]";
    }
    return v.dump();
}

void render(const Json &v, int indent, std::string &out);

// A small flat object fits on one line: "id 28, version 100, size 14400";
// a pair of numbers as a value keeps it flat ("position [0, 1]").
bool inline_object(const Json &v)
{
    if (!v.is_object() || v.empty() || v.size() > 7)
        return false;
    for (const Json &e : v)
        if (e.is_object() || (e.is_array() && (e.size() > 2 || !scalar_list(e))))
            return false;
    return true;
}

std::string inline_text(const Json &v)
{
    std::string s;
    for (auto it = v.begin(); it != v.end(); ++it)
        s.append(it == v.begin() ? "" : ", ").append(it.key()).append(" ").append(scalar(it.value()));
    return s;
}

void render_entry(const std::string &key, const Json &v, int indent, std::string &out)
{
    out.append(size_t(indent), ' ').append(key).append(":");
    if (!v.is_structured()) {
        out.append(" ").append(scalar(v)).append("\n");
    } else if (v.is_array() && scalar_list(v)) {
        out.append(" [");
        for (size_t i = 0; i < v.size(); ++i)
            out.append(i ? ", " : "").append(scalar(v[i]));
        out.append("]\n");
    } else if (inline_object(v)) {
        out.append(" ").append(inline_text(v)).append("\n");
    } else if (v.empty()) {
        out.append(v.is_array() ? " none\n" : " -\n");
    } else {
        out.append("\n");
        render(v, indent + 2, out);
    }
}

void render(const Json &v, int indent, std::string &out)
{
    if (v.is_object()) {
        for (auto it = v.begin(); it != v.end(); ++it)
            render_entry(it.key(), it.value(), indent, out);
        return;
    }
    // An array of objects: each element opens with "- ".
    for (const Json &e : v) {
        if (inline_object(e)) {
            out.append(size_t(indent), ' ').append("- ").append(inline_text(e)).append("\n");
            continue;
        }
        std::string item;
        render(e, indent + 2, item);
        if (item.size() > size_t(indent) + 2)
            item.replace(size_t(indent), 2, "- ");
        out += item;
    }
}

} // namespace

std::string rejection_text(const InspectSession &s)
{
    if (s.result() != nullptr)
        return "";
    for (const cmc_diag_event &e : s.drops()) {
        switch (e.reason) {
        case CMC_DIAG_CONTAINER_SIZE_FIELD:
            return "size field: the header's size field differs from the file size, or the file "
                   "is shorter than the 24-byte header";
        case CMC_DIAG_CONTAINER_CHECKSUM:
            return "checksum: neither rule A (every word) nor rule B (record words) gives the "
                   "stored checksum";
        case CMC_DIAG_CONTAINER_NULL:
            return "empty container";
        case CMC_DIAG_CONTAINER_NO_MEMORY:
            return "out of memory";
        default:
            break;
        }
    }
    return "rejected by the parser";
}

Json build_report(const InspectSession &session, const std::string &container_name,
                  const std::string &nvm_name, const Json &adaptation)
{
    Json j{{"schema", "cmc-inspect"}, {"schema_version", kInspectSchemaVersion}};
    j["container"] = container_section(session, container_name);
    j["nvm"] = nvm_section(session, nvm_name);
    j["slots"] = session.result() != nullptr ? summarize_slots(session.result()) : Json::array();
    j["drops"] = drops_section(session);
    j["lens_shading_adaptation"] = adaptation;
    return j;
}

std::string render_text(const Json &report)
{
    std::string out;
    render(report, 0, out);
    return out;
}

} // namespace ejtool
