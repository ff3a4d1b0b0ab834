// Test support: an NVM parse result built by hand, with lens-shading tables
// of u8 or u16 samples as frac_bits says.
#ifndef EJTEST_LSC_FAKE_NVM_H
#define EJTEST_LSC_FAKE_NVM_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "ej_nvm.h"

namespace ejtest {

struct LscFakeNvm {
    ej_nvm_data data{};
    std::vector<nvm_lsc_table> tables;
    std::deque<std::vector<uint16_t>> samples; // stable addresses

    LscFakeNvm(int w, int h)
    {
        data.lsc_grid_width = static_cast<uint8_t>(w);
        data.lsc_grid_height = static_cast<uint8_t>(h);
    }
    // Adds a table whose channel c holds sample(c, row, column).
    template <typename F>
    LscFakeNvm &add(uint8_t frac_bits, F sample)
    {
        nvm_lsc_table t{};
        t.frac_bits = frac_bits;
        const int w = data.lsc_grid_width, h = data.lsc_grid_height;
        for (int c = 0; c < 4; ++c) {
            samples.emplace_back(size_t(w) * h);
            auto *narrow = reinterpret_cast<uint8_t *>(samples.back().data());
            for (int r = 0; r < h; ++r)
                for (int i = 0; i < w; ++i) {
                    const auto v = sample(c, r, i);
                    if (frac_bits > 8)
                        samples.back()[size_t(r * w + i)] = static_cast<uint16_t>(v);
                    else
                        narrow[r * w + i] = static_cast<uint8_t>(v);
                }
            t.channel_tables[c] = samples.back().data();
        }
        tables.push_back(t);
        data.lsc_tables = tables.data();
        data.lsc_table_count = static_cast<uint8_t>(tables.size());
        return *this;
    }
};

} // namespace ejtest

#endif // EJTEST_LSC_FAKE_NVM_H
