#include "lsc_adaptation.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "cmc_records.h"

namespace ejtool {

namespace {

uint16_t u16_at(const uint8_t *p)
{
    return uint16_t(p[0] | p[1] << 8);
}

// Which plane Q (0..3) sits at each position of the 4 x 4 patterns
// (codes 256..263); '-' marks a position without a plane.
const char *const kQuadPatterns[8] = {
    "1323" "0-0-" "2313" "0-0-", "3231" "-0-0" "3132" "-0-0",
    "2313" "0-0-" "1323" "0-0-", "3132" "-0-0" "3231" "-0-0",
    "0-0-" "2313" "0-0-" "1323", "-0-0" "3132" "-0-0" "3231",
    "0-0-" "1323" "0-0-" "2313", "-0-0" "3231" "-0-0" "3132"};

bool quad_pattern(uint32_t cfa)
{
    return cfa >= 256 && cfa <= 263;
}

Json skipped(const char *why)
{
    return Json{{"ran", false}, {"skipped_because", why}};
}

} // namespace

std::array<int, 16> pattern_planes(uint32_t cfa, uint32_t order)
{
    std::array<int, 16> q;
    q.fill(-1);
    if (order > 3)
        return q;
    if (cfa <= 3) {
        for (int r = 0; r < 2; ++r)
            for (int c = 0; c < 2; ++c)
                q[r * 4 + c] = int((2 * r + c) ^ (3 - cfa));
    } else if (cfa >= 128 && cfa <= 131) {
        for (int r = 0; r < 2; ++r)
            for (int c = 0; c < 4; ++c)
                q[r * 4 + c] = int((2 * r + c / 2) ^ (3 - (cfa - 128)));
    } else if (quad_pattern(cfa)) {
        for (int pos = 0; pos < 16; ++pos) {
            const char ch = kQuadPatterns[cfa - 256][pos];
            q[pos] = ch == '-' ? -1 : ch - '0';
        }
    } else {
        return q;
    }
    // Q j is plane P (j XOR (3 - channel order)).
    for (int &plane : q)
        if (plane >= 0)
            plane ^= int(3 - order);
    return q;
}

LscAdaptation adapt_lens_shading(const cmc_parsed_data *before, const cmc_parsed_data *after,
                                 const ej_nvm_data *nvm)
{
    LscAdaptation out;
    if (before == nullptr || after == nullptr || nvm == nullptr) {
        out.report = skipped("no parse result or no NVM data");
        return out;
    }
    const cmc_lens_shading4x4 *ls = before->lens_shading4x4;
    const cmc_lens_shading4x4 *ls_after = after->lens_shading4x4;
    const cmc_lens_shading_ratio *ratio = after->lens_shading_ratio;
    if (ls == nullptr || ratio == nullptr || ls_after == nullptr) {
        out.report = skipped("no lens-shading grids (ids 10, 28) or no ratio grids (ids 11, 33)");
        return out;
    }
    // The parse skips the step without these, as the tool does.
    if (after->rec_17 == nullptr || after->rec_17_ext == nullptr || after->rec_2 == nullptr) {
        out.report = skipped("no id-2 record, or no id-17 record of version above 100, to take "
                             "the pattern, channel order, flip mode and border flag from");
        return out;
    }
    const uint32_t flip_mode = u16_at(after->rec_17 + 12);
    const uint8_t exclude_border = u16_at(after->rec_17_ext) == 2;
    const uint32_t cfa = after->rec_2->cfa_pattern;
    const uint32_t order = u16_at(after->rec_17 + 10);
    Json j{{"ran", true},
           {"flip_mode", flip_mode},
           {"exclude_border", exclude_border},
           {"cfa_pattern", cfa},
           {"channel_order", order}};

    out.upscaled.reset(compute_upscaled_lsc_tables_polynom4th(ls->grid_width, ls->grid_height, nvm,
                                                              flip_mode, exclude_border));
    if (!out.upscaled) {
        j["ran"] = false;
        j["skipped_because"] = "the NVM tables could not be upscaled to the tuning grid";
        out.report = j;
        return out;
    }
    const computed_lsc_tables &up = *out.upscaled;
    const size_t n = size_t(ls->grid_width) * ls->grid_height;
    Json tables = Json::array();
    for (uint32_t t = 0; t < up.num_tables; ++t) {
        Json planes = Json::array();
        for (int c = 0; c < 4; ++c) {
            const float *p = up.tables[t] + c * n;
            const auto [lo, hi] = std::minmax_element(p, p + n);
            planes.push_back(Json{{"plane", c}, {"min", fnum(n ? *lo : 0.0f)}, {"max", fnum(n ? *hi : 0.0f)}});
        }
        tables.push_back(Json{{"table", t + 1}, {"planes", planes}});
    }
    j["upscaled_tables"] = tables;

    const std::array<int, 16> planes = pattern_planes(cfa, order);
    if (ls->num_sets != ratio->num_sets || std::all_of(planes.begin(), planes.end(), [](int p) { return p < 0; })) {
        j["ran"] = false;
        j["skipped_because"] = ls->num_sets != ratio->num_sets
                                   ? "the lens-shading and ratio records have different set counts"
                                   : "unsupported colour-filter pattern or channel order";
        out.report = j;
        return out;
    }
    // The correction averages planes 0 and 3 of the Q-order in place for the
    // 4 x 4 patterns; a private copy of the planes takes the same steps.
    std::vector<std::vector<float>> work(up.num_tables);
    for (uint32_t t = 0; t < up.num_tables; ++t)
        work[t].assign(up.tables[t], up.tables[t] + 4 * n);

    Json sets = Json::array();
    for (uint32_t i = 0; i < ls->num_sets; ++i) {
        const cmc_lens_shading_ratio_set &rs = ratio->sets[i];
        Json s{{"set", i}, {"nvm_table", rs.nvm_table_index}};
        if (rs.nvm_table_index == 0 || rs.nvm_table_index > up.num_tables) {
            // The correction stops here: this set and the later ones keep
            // their tuned grids.
            s["corrected"] = false;
            sets.push_back(s);
            break;
        }
        std::vector<float> &tab = work[rs.nvm_table_index - 1];
        if (quad_pattern(cfa)) {
            float *q0 = tab.data() + size_t(0 ^ (3 - order)) * n;
            float *q3 = tab.data() + size_t(3 ^ (3 - order)) * n;
            for (size_t k = 0; k < n; ++k)
                q0[k] = q3[k] = (q3[k] + q0[k]) * 0.5f;
        }
        s["corrected"] = true;
        Json positions = Json::array();
        for (int pos = 0; pos < 16; ++pos) {
            const uint16_t *d = ls_after->sets[i].grids[pos];
            const uint16_t *a = rs.grids[pos];
            if (planes[pos] < 0 || d == nullptr || a == nullptr || n == 0)
                continue;
            const float *g = tab.data() + size_t(planes[pos]) * n;
            uint32_t wrapped = 0, mismatches = 0;
            for (size_t k = 0; k < n; ++k) {
                const float product = float(a[k]) * g[k];
                if (product >= 65536.0f)
                    ++wrapped;
                const uint16_t predicted =
                    product < 2147483648.0f ? uint16_t(int64_t(product) & 0xffff) : 0;
                mismatches += predicted != d[k];
            }
            const auto [lo, hi] = std::minmax_element(g, g + n);
            positions.push_back(Json{{"position", Json::array({pos / 4, pos % 4})},
                                     {"plane", planes[pos]},
                                     {"gain_min", fnum(*lo)},
                                     {"gain_max", fnum(*hi)},
                                     {"samples", n},
                                     {"wrapped", wrapped},
                                     {"differs_from_parse", mismatches}});
        }
        s["positions"] = positions;
        sets.push_back(s);
    }
    j["sets"] = sets;
    out.report = j;
    return out;
}

} // namespace ejtool
