// Lens-shading tables: four NVM tables of a 17 x 13 grid (u16 samples, 10
// fractional bits) brought to a 64 x 48 tuning grid, next to the same work
// done with a general-purpose library.
#include <cstdint>
#include <vector>

#include "bench_support.h"
#include "ej_cmc_lsc.h"
#include "ej_nvm.h"

#if defined(EJ_BENCH_HAVE_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace ejbench;

constexpr Size kNvmGrid = {17, 13};
constexpr Size kTuningGrid = {64, 48};
constexpr int kTables = 4;
constexpr int kChannels = 4;

// Four NVM tables of seeded samples, as the NVM library hands them over.
struct NvmTables {
    std::vector<std::vector<uint16_t>> samples;
    std::vector<nvm_lsc_table> tables;
    ej_nvm_data nvm{};

    NvmTables() : tables(kTables)
    {
        for (int t = 0; t < kTables; ++t) {
            tables[size_t(t)].frac_bits = 10;
            for (int c = 0; c < kChannels; ++c)
                samples.push_back(plane<uint16_t>(kNvmGrid, 2047, uint32_t(kChannels * t + c)));
        }
        for (int t = 0; t < kTables; ++t)
            for (int c = 0; c < kChannels; ++c)
                tables[size_t(t)].channel_tables[c] = samples[size_t(kChannels * t + c)].data();
        nvm.lsc_table_count = kTables;
        nvm.lsc_grid_width = uint16_t(kNvmGrid.w);
        nvm.lsc_grid_height = uint16_t(kNvmGrid.h);
        nvm.lsc_tables = tables.data();
    }
};

constexpr uint64_t kPlaneSamples = uint64_t(kTables) * kChannels * kTuningGrid.w * kTuningGrid.h;

const bool registered = [] {
    add("lsc/bicubic_17x13_to_64x48x16/ej", [](benchmark::State &state) {
        NvmTables in;
        loop(state, kPlaneSamples, [&] {
            computed_lsc_tables *result = compute_upscaled_lsc_tables_bicubic(
                uint16_t(kTuningGrid.w), uint16_t(kTuningGrid.h), &in.nvm, 3);
            benchmark::DoNotOptimize(result);
            deinit_computed_upscale_lsc_tables(result);
        });
    }, benchmark::kMicrosecond);
#if defined(EJ_BENCH_HAVE_OPENCV)
    // The same 16 planes: to float, bicubic resize, scale to gains, flip.
    add("lsc/bicubic_17x13_to_64x48x16/opencv", [](benchmark::State &state) {
        cv::setNumThreads(1);
        NvmTables in;
        cv::Mat as_float, resized, gains, flipped;
        loop(state, kPlaneSamples, [&] {
            for (auto &s : in.samples) {
                cv::Mat src(int(kNvmGrid.h), int(kNvmGrid.w), CV_16UC1, s.data());
                src.convertTo(as_float, CV_32F);
                cv::resize(as_float, resized, cv::Size(int(kTuningGrid.w), int(kTuningGrid.h)), 0,
                           0, cv::INTER_CUBIC);
                resized.convertTo(gains, CV_32F, 1.0 / 1024.0, 1.0);
                cv::flip(gains, flipped, -1);
            }
        });
    }, benchmark::kMicrosecond);
#endif
    return true;
}();

} // namespace
