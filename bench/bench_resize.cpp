// Nearest-neighbour, bilinear and area-averaging kernels on camera-sized
// planes: 1920 x 1080 <-> 3840 x 2160 (up and down), one plane per call.
// Items processed are destination samples.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "ej_cmc_resample.h"

namespace {

struct Size {
    uint32_t w, h;
};

constexpr Size kHd = {1920, 1080};
constexpr Size kUhd = {3840, 2160};

// Argument 0: enlarge HD to UHD; 1: reduce UHD to HD.
Size src_of(const benchmark::State &state) { return state.range(0) == 0 ? kHd : kUhd; }
Size dst_of(const benchmark::State &state) { return state.range(0) == 0 ? kUhd : kHd; }

template <typename T>
std::vector<T> plane(Size s)
{
    std::mt19937 gen(1234);
    std::vector<T> v(size_t(s.w) * s.h);
    for (T &x : v)
        x = T(gen() % 4096);
    return v;
}

template <typename T, typename Call>
void run(benchmark::State &state, size_t dst_elements_per_sample, Call call)
{
    const Size s = src_of(state), d = dst_of(state);
    const std::vector<T> src = plane<T>(s);
    std::vector<T> dst(size_t(d.w) * d.h * dst_elements_per_sample);
    for (auto _ : state) {
        benchmark::DoNotOptimize(call(src.data(), s, dst.data(), d));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * d.w * d.h);
}

void direction_args(benchmark::internal::Benchmark *b)
{
    b->ArgName("down")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
}

// --- Nearest neighbour.

void BM_NearestUint32(benchmark::State &state)
{
    run<uint32_t>(state, 1, [](const uint32_t *src, Size s, uint32_t *dst, Size d) {
        return image_nearest_neighbor_scale_uint32(src, int32_t(s.w), int32_t(s.h), dst,
                                                   int32_t(d.w), int32_t(d.h));
    });
}
BENCHMARK(BM_NearestUint32)->Apply(direction_args);

void BM_NearestInterleavedInt32x3(benchmark::State &state)
{
    const Size s = src_of(state), d = dst_of(state);
    std::vector<int32_t> src(size_t(s.w) * s.h * 3, 7);
    std::vector<int32_t> dst(size_t(d.w) * d.h * 3);
    for (auto _ : state) {
        benchmark::DoNotOptimize(image_nearest_neighbor_scale_interleaved_int32(
            src.data(), s.w, s.h, 3, dst.data(), d.w, d.h));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * d.w * d.h);
}
BENCHMARK(BM_NearestInterleavedInt32x3)->Apply(direction_args);

void BM_NearestUint16(benchmark::State &state)
{
    run<uint16_t>(state, 1, [](const uint16_t *src, Size s, uint16_t *dst, Size d) {
        return image_upscale_nearest_neighbor_uint16(src, dst, uint16_t(s.w), uint16_t(s.h),
                                                     uint16_t(d.w), uint16_t(d.h));
    });
}
BENCHMARK(BM_NearestUint16)->Apply(direction_args);

void BM_NearestInt32(benchmark::State &state)
{
    run<int32_t>(state, 1, [](const int32_t *src, Size s, int32_t *dst, Size d) {
        return image_downscale_nearest_neighbor_int32(src, dst, uint16_t(s.w), uint16_t(s.h),
                                                      uint16_t(d.w), uint16_t(d.h), 0);
    });
}
BENCHMARK(BM_NearestInt32)->Apply(direction_args);

void BM_NearestInt32BlockMax(benchmark::State &state)
{
    run<int32_t>(state, 1, [](const int32_t *src, Size s, int32_t *dst, Size d) {
        return image_downscale_nearest_neighbor_int32(src, dst, uint16_t(s.w), uint16_t(s.h),
                                                      uint16_t(d.w), uint16_t(d.h), 1);
    });
}
BENCHMARK(BM_NearestInt32BlockMax)->Apply(direction_args);

// --- Bilinear resize.

template <typename T, uint32_t (*Resize)(const T *, int32_t, int32_t, T *, int32_t, int32_t)>
void BM_Bilinear(benchmark::State &state)
{
    run<T>(state, 1, [](const T *src, Size s, T *dst, Size d) {
        return Resize(src, int32_t(s.w), int32_t(s.h), dst, int32_t(d.w), int32_t(d.h));
    });
}
BENCHMARK(BM_Bilinear<uint8_t, resize_2d_array_uint8>)->Apply(direction_args);
BENCHMARK(BM_Bilinear<uint16_t, resize_2d_array_uint16>)->Apply(direction_args);
BENCHMARK(BM_Bilinear<int32_t, resize_2d_array_int32>)->Apply(direction_args);
BENCHMARK(BM_Bilinear<uint32_t, resize_2d_array_uint32>)->Apply(direction_args);

void BM_BilinearUint16Step4(benchmark::State &state)
{
    run<uint16_t>(state, 4, [](const uint16_t *src, Size s, uint16_t *dst, Size d) {
        return resize_2d_array_uint16_v1(src, int32_t(s.w), int32_t(s.h), dst, int32_t(d.w),
                                         int32_t(d.h), 4);
    });
}
BENCHMARK(BM_BilinearUint16Step4)->Apply(direction_args);

void BM_BilinearFloat(benchmark::State &state)
{
    run<float>(state, 1, [](const float *src, Size s, float *dst, Size d) {
        return resize_2d_array_float(src, uint16_t(s.w), int32_t(s.h), dst, uint16_t(d.w),
                                     int32_t(d.h));
    });
}
BENCHMARK(BM_BilinearFloat)->Apply(direction_args);

void BM_CropResizeUint16(benchmark::State &state)
{
    run<uint16_t>(state, 1, [](const uint16_t *src, Size s, uint16_t *dst, Size d) {
        return crop_resize_2d_array_uint16(src, s.w, s.h, {16, 8}, {16, 8}, dst, d.w, d.h);
    });
}
BENCHMARK(BM_CropResizeUint16)->Apply(direction_args);

// --- Area downscale (reductions only): UHD -> HD (ratio 2) and HD -> 640 x 360
// (ratio 3).

void area_args(benchmark::internal::Benchmark *b)
{
    b->ArgName("from_uhd")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
}

Size area_dst(const benchmark::State &state)
{
    return state.range(0) == 1 ? kHd : Size{640, 360};
}

template <typename T, typename Call>
void run_area(benchmark::State &state, Call call)
{
    const Size s = state.range(0) == 1 ? kUhd : kHd, d = area_dst(state);
    const std::vector<T> src = plane<T>(s);
    std::vector<uint16_t> dst(size_t(d.w) * d.h);
    const T *src_planes[1] = {src.data()};
    uint16_t *dst_planes[1] = {dst.data()};
    for (auto _ : state) {
        benchmark::DoNotOptimize(call(src_planes, s, dst_planes, d));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * d.w * d.h);
}

void BM_AreaFloatToU16p10(benchmark::State &state)
{
    run_area<float>(state, [](const float *const *src, Size s, uint16_t *const *dst, Size d) {
        return image_downscale_32f_to_u16p10(src, dst, uint16_t(s.w), uint16_t(s.h), uint16_t(d.w),
                                             uint16_t(d.h), 1, nullptr);
    });
}
BENCHMARK(BM_AreaFloatToU16p10)->Apply(area_args);

void BM_AreaU16ToU16(benchmark::State &state)
{
    run_area<uint16_t>(state, [](const uint16_t *const *src, Size s, uint16_t *const *dst, Size d) {
        return image_downscale_u16_to_u16(src, dst, uint16_t(s.w), uint16_t(s.h), 12, uint16_t(d.w),
                                          uint16_t(d.h), 10, 1, nullptr);
    });
}
BENCHMARK(BM_AreaU16ToU16)->Apply(area_args);

} // namespace
