// Timings of the bicubic kernels on camera-sized planes.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "ej_cmc_lsc.h"
#include "ej_cmc_resample.h"
#include "ej_nvm.h"

namespace {

template <typename T>
std::vector<T> random_plane(size_t n, int max_value, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> value(0, max_value);
    std::vector<T> plane(n);
    for (auto &v : plane)
        v = static_cast<T>(value(rng));
    return plane;
}

// Four planes of a small grid upscaled to a full frame, as for a lens-shading
// grid brought to sensor resolution. Arguments: source w, h, destination w, h.
template <typename Sample>
void BM_BicubicUpscaleToFloat(benchmark::State &state)
{
    const auto sw = static_cast<uint16_t>(state.range(0)), sh = static_cast<uint16_t>(state.range(1));
    const auto dw = static_cast<uint16_t>(state.range(2)), dh = static_cast<uint16_t>(state.range(3));
    std::vector<std::vector<Sample>> src;
    std::vector<std::vector<float>> dst;
    src.reserve(4);
    dst.reserve(4);
    const Sample *in[4];
    float *out[4];
    for (int p = 0; p < 4; ++p) {
        src.push_back(random_plane<Sample>(size_t(sw) * sh, sizeof(Sample) == 1 ? 255 : 4095, p));
        dst.emplace_back(size_t(dw) * dh);
        in[p] = src.back().data();
        out[p] = dst.back().data();
    }
    for (auto _ : state) {
        uint32_t status;
        if constexpr (sizeof(Sample) == 1)
            status = image_bicubic_upscale_uint8_to_float(in, out, sw, sh, dw, dh, 4);
        else
            status = image_bicubic_upscale_uint16_to_float(in, out, sw, sh, dw, dh, 4);
        benchmark::DoNotOptimize(status);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * 4 * int64_t(dw) * dh);
}
BENCHMARK_TEMPLATE(BM_BicubicUpscaleToFloat, uint8_t)->Args({64, 48, 1920, 1080})->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_BicubicUpscaleToFloat, uint16_t)->Args({64, 48, 1920, 1080})->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_BicubicUpscaleToFloat, uint16_t)->Args({17, 13, 64, 48})->Unit(benchmark::kMicrosecond);

// One plane resized to u16p10. Arguments: source w, h, destination w, h.
void BM_BicubicResize32f(benchmark::State &state)
{
    const auto sw = static_cast<uint16_t>(state.range(0)), sh = static_cast<uint16_t>(state.range(1));
    const auto dw = static_cast<uint16_t>(state.range(2)), dh = static_cast<uint16_t>(state.range(3));
    std::vector<float> src(size_t(sw) * sh);
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> value(0.0f, 60.0f);
    for (auto &v : src)
        v = value(rng);
    std::vector<uint16_t> dst(size_t(dw) * dh);
    for (auto _ : state) {
        benchmark::DoNotOptimize(bicubic_resize_32f_to_u16p10(src.data(), sh, sw, dst.data(), dh, dw));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * int64_t(dw) * dh);
}
BENCHMARK(BM_BicubicResize32f)->Args({1920, 1080, 1280, 720})->Args({64, 48, 1920, 1080})->Unit(benchmark::kMillisecond);

void BM_BicubicResizeU16(benchmark::State &state)
{
    const auto sw = static_cast<uint16_t>(state.range(0)), sh = static_cast<uint16_t>(state.range(1));
    const auto dw = static_cast<uint16_t>(state.range(2)), dh = static_cast<uint16_t>(state.range(3));
    const std::vector<uint16_t> src = random_plane<uint16_t>(size_t(sw) * sh, 65535, 2);
    std::vector<uint16_t> dst(size_t(dw) * dh);
    for (auto _ : state) {
        benchmark::DoNotOptimize(bicubic_resize_u16_to_u16(src.data(), sh, sw, 10, dst.data(), dh, dw));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * int64_t(dw) * dh);
}
BENCHMARK(BM_BicubicResizeU16)->Args({1920, 1080, 1280, 720})->Unit(benchmark::kMillisecond);

// Four NVM tables of a 17 x 13 grid (u16 samples, 10 fractional bits) brought
// to a target grid. Arguments: destination w, h.
void BM_LscTablesBicubic(benchmark::State &state)
{
    const auto dw = static_cast<uint16_t>(state.range(0)), dh = static_cast<uint16_t>(state.range(1));
    std::vector<std::vector<uint16_t>> samples;
    samples.reserve(16);
    std::vector<nvm_lsc_table> tables(4);
    for (int t = 0; t < 4; ++t) {
        tables[t].frac_bits = 10;
        for (int c = 0; c < 4; ++c) {
            samples.push_back(random_plane<uint16_t>(17 * 13, 2047, 4 * t + c));
            tables[t].channel_tables[c] = samples.back().data();
        }
    }
    ej_nvm_data nvm{};
    nvm.lsc_table_count = 4;
    nvm.lsc_grid_width = 17;
    nvm.lsc_grid_height = 13;
    nvm.lsc_tables = tables.data();
    for (auto _ : state) {
        computed_lsc_tables *result = compute_upscaled_lsc_tables_bicubic(dw, dh, &nvm, 3);
        benchmark::DoNotOptimize(result);
        deinit_computed_upscale_lsc_tables(result);
    }
    state.SetItemsProcessed(state.iterations() * 16 * int64_t(dw) * dh);
}
BENCHMARK(BM_LscTablesBicubic)->Args({64, 48})->Args({1920, 1080})->Unit(benchmark::kMillisecond);

} // namespace
