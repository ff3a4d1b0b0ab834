#include "pictures.h"

#include <filesystem>
#include <system_error>

#include "cmc_records.h"
#include "ej_cmc_lsc.h"
#include "heatmap_png.h"
#include "tool_status.h"

namespace ejtool {

namespace {

class Writer {
public:
    explicit Writer(std::string dir) : dir_(std::move(dir)) {}
    template <typename T>
    void grid(const std::string &name, const T *values, unsigned w, unsigned h)
    {
        if (values == nullptr || w == 0 || h == 0)
            return;
        Grid g{w, h, std::vector<double>(values, values + size_t(w) * h)};
        write_heatmap_png(dir_ + "/" + name, g);
        written_.push_back(name);
    }
    std::vector<std::string> take() { return std::move(written_); }

private:
    std::string dir_;
    std::vector<std::string> written_;
};

std::string position_name(const char *prefix, uint32_t set, int pos)
{
    return std::string(prefix) + "_set" + std::to_string(set) + "_pos" + std::to_string(pos / 4) +
           std::to_string(pos % 4) + ".png";
}

template <typename S>
void pattern_grids(Writer &w, const char *prefix, const S *s)
{
    if (s == nullptr || s->sets == nullptr)
        return;
    for (uint32_t i = 0; i < s->num_sets; ++i)
        for (int pos = 0; pos < 16; ++pos)
            w.grid(position_name(prefix, i, pos), s->sets[i].grids[pos], s->grid_width, s->grid_height);
}

} // namespace

std::vector<std::string> write_pictures(const InspectSession &session,
                                        const computed_lsc_tables *upscaled,
                                        const std::string &dir)
{
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec)
        throw ToolError(kExitPicture, "cannot create directory " + dir + ": " + ec.message());
    Writer w(dir);
    if (session.before() != nullptr)
        pattern_grids(w, "lsc_before", session.before()->lens_shading4x4);
    if (session.has_nvm() && session.result() != nullptr)
        pattern_grids(w, "lsc_after", session.result()->lens_shading4x4);
    if (session.result() != nullptr)
        pattern_grids(w, "ratio", session.result()->lens_shading_ratio);
    const cmc_lens_shading4x4 *ls = session.result() != nullptr ? session.result()->lens_shading4x4 : nullptr;
    if (upscaled != nullptr && ls != nullptr) {
        const size_t n = size_t(ls->grid_width) * ls->grid_height;
        for (uint32_t t = 0; t < upscaled->num_tables; ++t)
            for (int c = 0; c < 4 && upscaled->tables[t] != nullptr; ++c)
                w.grid("nvm_table" + std::to_string(t + 1) + "_plane" + std::to_string(c) + ".png",
                       upscaled->tables[t] + c * n, ls->grid_width, ls->grid_height);
    }
    if (const cmc_nvm_map_table *m = session.result() != nullptr ? session.result()->nvm_map_table : nullptr) {
        // The map's extent is the one its head gives (the NVM map's with
        // calibration data).
        const uint16_t mw = uint16_t(m->head[22] | m->head[23] << 8);
        const uint16_t mh = uint16_t(m->head[24] | m->head[25] << 8);
        w.grid("map30.png", m->map, mw, mh);
    }
    return w.take();
}

} // namespace ejtool
