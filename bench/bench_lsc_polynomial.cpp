// Timings of the polynomial lens-shading upscaling: the fit's decomposition
// alone, and the whole driver on a realistic module.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "ej_cmc_lsc.h"
#include "ej_nvm.h"

namespace {

// Decomposition of the normal matrix on a w x h NVM grid.
void BM_LuDecomposition(benchmark::State &state)
{
    const auto w = static_cast<uint16_t>(state.range(0)), h = static_cast<uint16_t>(state.range(1));
    std::vector<float> design(size_t(w) * h * 15), design_t(design.size()), lu(225);
    uint32_t pivot[15];
    for (auto _ : state)
        benchmark::DoNotOptimize(lu_decomposition(design.data(), design_t.data(), lu.data(), pivot, w, h, 15));
}
BENCHMARK(BM_LuDecomposition)->Args({17, 13})->Args({33, 25});

// The driver: 4 NVM tables of 17 x 13 u16 samples (a vignetting bowl) onto a
// tuning grid. Arguments: target w, h, exclude_border.
void BM_PolynomialTables(benchmark::State &state)
{
    const int w = 17, h = 13;
    std::vector<uint16_t> bowl;
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c)
            bowl.push_back(uint16_t(20 + 12 * ((c - 8) * (c - 8) + 2 * (r - 6) * (r - 6))));
    std::vector<nvm_lsc_table> tables(4);
    for (auto &t : tables) {
        t.frac_bits = 10;
        for (auto &channel : t.channel_tables)
            channel = bowl.data();
    }
    ej_nvm_data nvm{};
    nvm.lsc_table_count = 4;
    nvm.lsc_grid_width = w;
    nvm.lsc_grid_height = h;
    nvm.lsc_tables = tables.data();
    const auto dw = static_cast<uint16_t>(state.range(0)), dh = static_cast<uint16_t>(state.range(1));
    const auto exclude = static_cast<uint8_t>(state.range(2));
    for (auto _ : state) {
        computed_lsc_tables *result = compute_upscaled_lsc_tables_polynom4th(dw, dh, &nvm, 0, exclude);
        benchmark::DoNotOptimize(result);
        deinit_computed_upscale_lsc_tables(result);
    }
}
BENCHMARK(BM_PolynomialTables)->Args({64, 48, 0})->Args({64, 48, 1})->Args({128, 96, 0});

} // namespace
