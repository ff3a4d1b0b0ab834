// Shared pieces of the benchmark programs: camera extents, seeded planes and
// the registration of a case with its counterpart.
//
// Every case is registered twice under one name, "<family>/<case>/ej" for this
// library and "<family>/<case>/<counterpart>" for the reference it is measured
// against; bench/summarise.py pairs them by "<family>/<case>".
#ifndef EJ_BENCH_SUPPORT_H
#define EJ_BENCH_SUPPORT_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace ejbench {

struct Size {
    uint32_t w, h;
};

constexpr Size kGrid = {64, 48};
constexpr Size kHd = {1920, 1080};
constexpr Size kUhd = {3840, 2160};
constexpr Size k720 = {1280, 720};

struct Scaling {
    Size src, dst;
};

inline std::string scaling_name(const Scaling &s)
{
    return std::to_string(s.src.w) + "x" + std::to_string(s.src.h) + "_to_" +
           std::to_string(s.dst.w) + "x" + std::to_string(s.dst.h);
}

// Seeded samples: integers in 0 ... max_value, floats in 0 ... max_value.
template <typename T>
std::vector<T> plane(Size s, uint32_t max_value, uint32_t seed = 1234)
{
    std::mt19937 gen(seed);
    std::vector<T> v(size_t(s.w) * s.h);
    if constexpr (std::is_floating_point_v<T>) {
        std::uniform_real_distribution<float> dist(0.0f, float(max_value));
        for (T &x : v)
            x = dist(gen);
    } else {
        for (T &x : v)
            x = T(gen() % (uint64_t(max_value) + 1));
    }
    return v;
}

using Body = std::function<void(benchmark::State &)>;

// Registers one side of a case. The body prepares its data and runs the
// timed loop; items are destination samples.
inline void add(const std::string &name, Body body, benchmark::TimeUnit unit = benchmark::kMillisecond)
{
    benchmark::RegisterBenchmark(name.c_str(), [body](benchmark::State &state) { body(state); })
        ->Unit(unit);
}

// The timed loop around one call.
template <typename Call>
void loop(benchmark::State &state, uint64_t items, Call call)
{
    for (auto _ : state) {
        call();
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations() * items));
}

} // namespace ejbench

#endif // EJ_BENCH_SUPPORT_H
