// Lens-shading tables: four NVM tables of a 17 x 13 grid (u16 samples, 10
// fractional bits) brought to a 64 x 48 tuning grid, next to the same work
// done with a general-purpose library: OpenCV's bicubic resize for the
// bicubic tables, an Eigen double-precision least-squares fit (Householder
// QR) and evaluation for the polynomial tables.
#include <cstdint>
#include <random>
#include <vector>

#include "bench_support.h"
#include "ej_cmc_lsc.h"
#include "ej_nvm.h"

#if defined(EJ_BENCH_HAVE_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif
#if defined(EJ_BENCH_HAVE_EIGEN)
#include <Eigen/Dense>
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

#if defined(EJ_BENCH_HAVE_EIGEN)
// The 15 terms 1, x, y, x^2, xy, y^2, x^3, x^2 y, x y^2, y^3, x^4, x^3 y,
// x^2 y^2, x y^3, y^4 at (x, y), into row r of m.
void terms(Eigen::MatrixXd &m, Eigen::Index r, double x, double y)
{
    const double x2 = x * x, y2 = y * y;
    const double t[15] = {1, x, y, x2, x * y, y2, x2 * x, x2 * y, x * y2, y2 * y,
                          x2 * x2, x2 * x * y, x2 * y2, x * y2 * y, y2 * y2};
    for (int k = 0; k < 15; ++k)
        m(r, k) = t[k];
}

// The same 16 planes with Eigen in double precision, done the efficient way:
// one Householder QR of the design matrix solves all 16 right-hand sides;
// one matrix product evaluates all 16 fits on the target grid; then each
// plane is normalised to its minimum and flipped.
void eigen_tables(const NvmTables &in, Eigen::MatrixXd &out)
{
    const Eigen::Index w = kNvmGrid.w, h = kNvmGrid.h, m = w * h;
    Eigen::MatrixXd design(m, 15);
    for (Eigen::Index r = 0; r < h; ++r)
        for (Eigen::Index c = 0; c < w; ++c)
            terms(design, r * w + c, double(c + 1), double(r + 1));
    Eigen::MatrixXd z(m, kTables * kChannels);
    for (Eigen::Index p = 0; p < z.cols(); ++p)
        for (Eigen::Index k = 0; k < m; ++k)
            z(k, p) = in.samples[size_t(p)][size_t(k)] / 1024.0 + 1.0;
    const Eigen::MatrixXd coefficients = design.householderQr().solve(z);
    const Eigen::Index dw = kTuningGrid.w, dh = kTuningGrid.h;
    Eigen::MatrixXd grid(dw * dh, 15);
    const double sx = double(w - 1) / double(dw - 1), sy = double(h - 1) / double(dh - 1);
    for (Eigen::Index j = 0; j < dh; ++j)
        for (Eigen::Index i = 0; i < dw; ++i)
            terms(grid, (dh - 1 - j) * dw + (dw - 1 - i), 1.0 + double(i) * sx, 1.0 + double(j) * sy);
    out.noalias() = grid * coefficients;
    for (Eigen::Index p = 0; p < out.cols(); ++p) {
        const double lowest = out.col(p).minCoeff();
        out.col(p) = (out.col(p) / lowest).cwiseMax(1.0);
    }
}
#endif

// The linear-algebra kernels on the fit's own shapes: the design matrix of a
// 17 x 13 grid (221 x 15), its transpose, the normal matrix, one right-hand
// side, the 15 x 15 decomposition; Eigen in single precision alongside.
constexpr int32_t kRows = int32_t(kNvmGrid.w * kNvmGrid.h), kTerms = 15;

std::vector<float> random_matrix(size_t n, uint32_t seed)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> dist(0.5f, 2.0f);
    std::vector<float> v(n);
    for (float &x : v)
        x = dist(gen);
    return v;
}

void register_linear_algebra()
{
    add("linalg/transpose_221x15/ej", [](benchmark::State &state) {
        const auto a = random_matrix(size_t(kRows) * kTerms, 1);
        std::vector<float> t(a.size());
        loop(state, a.size(), [&] {
            transpose_m(a.data(), 4 * kTerms, 4, kTerms, kRows, t.data(), 4 * kRows, 4);
        });
    }, benchmark::kMicrosecond);
    add("linalg/normal_matrix_15x221x15/ej", [](benchmark::State &state) {
        const auto a = random_matrix(size_t(kRows) * kTerms, 2);
        std::vector<float> t(a.size()), n(size_t(kTerms) * kTerms);
        transpose_m(a.data(), 4 * kTerms, 4, kTerms, kRows, t.data(), 4 * kRows, 4);
        loop(state, n.size(), [&] {
            mul_mm(t.data(), 4 * kRows, 4, kRows, kTerms, a.data(), 4 * kTerms, 4, kTerms, kRows,
                   n.data(), 4 * kTerms, 4);
        });
    }, benchmark::kMicrosecond);
    add("linalg/rhs_15x221/ej", [](benchmark::State &state) {
        const auto a = random_matrix(size_t(kRows) * kTerms, 3), z = random_matrix(size_t(kRows), 4);
        std::vector<float> t(a.size()), b(kTerms);
        transpose_m(a.data(), 4 * kTerms, 4, kTerms, kRows, t.data(), 4 * kRows, 4);
        loop(state, b.size(), [&] {
            mul_mv(t.data(), 4 * kRows, 4, kRows, kTerms, z.data(), 4, kRows, b.data(), 4);
        });
    }, benchmark::kMicrosecond);
    add("linalg/lu_15x15/ej", [](benchmark::State &state) {
        auto m = random_matrix(size_t(kTerms) * kTerms, 5);
        for (int32_t i = 0; i < kTerms; ++i)
            m[size_t(i) * kTerms + i] += 30.0f; // diagonally dominant
        std::vector<float> lu(m.size());
        uint32_t pivot[kTerms];
        loop(state, m.size(), [&] {
            lu_decomposition_m(m.data(), 4 * kTerms, 4, pivot, lu.data(), 4 * kTerms, 4, kTerms);
        });
    }, benchmark::kMicrosecond);
#if defined(EJ_BENCH_HAVE_EIGEN)
    using MatrixF = Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    add("linalg/transpose_221x15/eigen", [](benchmark::State &state) {
        const auto a = random_matrix(size_t(kRows) * kTerms, 1);
        const Eigen::Map<const MatrixF> am(a.data(), kRows, kTerms);
        MatrixF t(kTerms, kRows);
        loop(state, a.size(), [&] { t.noalias() = am.transpose(); });
    }, benchmark::kMicrosecond);
    add("linalg/normal_matrix_15x221x15/eigen", [](benchmark::State &state) {
        const auto a = random_matrix(size_t(kRows) * kTerms, 2);
        const Eigen::Map<const MatrixF> am(a.data(), kRows, kTerms);
        const MatrixF t = am.transpose();
        MatrixF n(kTerms, kTerms);
        loop(state, size_t(kTerms) * kTerms, [&] { n.noalias() = t * am; });
    }, benchmark::kMicrosecond);
    add("linalg/rhs_15x221/eigen", [](benchmark::State &state) {
        const auto a = random_matrix(size_t(kRows) * kTerms, 3), z = random_matrix(size_t(kRows), 4);
        const Eigen::Map<const MatrixF> am(a.data(), kRows, kTerms);
        const MatrixF t = am.transpose();
        const Eigen::Map<const Eigen::VectorXf> zv(z.data(), kRows);
        Eigen::VectorXf b(kTerms);
        loop(state, size_t(kTerms), [&] { b.noalias() = t * zv; });
    }, benchmark::kMicrosecond);
    add("linalg/lu_15x15/eigen", [](benchmark::State &state) {
        auto m = random_matrix(size_t(kTerms) * kTerms, 5);
        for (int32_t i = 0; i < kTerms; ++i)
            m[size_t(i) * kTerms + i] += 30.0f;
        const Eigen::Map<const MatrixF> mm(m.data(), kTerms, kTerms);
        Eigen::PartialPivLU<MatrixF> lu(kTerms);
        loop(state, m.size(), [&] {
            lu.compute(mm);
            benchmark::DoNotOptimize(lu.matrixLU().data());
        });
    }, benchmark::kMicrosecond);
#endif
}

constexpr uint64_t kPlaneSamples = uint64_t(kTables) * kChannels * kTuningGrid.w * kTuningGrid.h;

const bool registered = [] {
    register_linear_algebra();
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
    add("lsc/polynomial_17x13_to_64x48x16/ej", [](benchmark::State &state) {
        NvmTables in;
        loop(state, kPlaneSamples, [&] {
            computed_lsc_tables *result = compute_upscaled_lsc_tables_polynom4th(
                uint16_t(kTuningGrid.w), uint16_t(kTuningGrid.h), &in.nvm, 3, 0);
            benchmark::DoNotOptimize(result);
            deinit_computed_upscale_lsc_tables(result);
        });
    }, benchmark::kMicrosecond);
#if defined(EJ_BENCH_HAVE_EIGEN)
    add("lsc/polynomial_17x13_to_64x48x16/eigen", [](benchmark::State &state) {
        NvmTables in;
        Eigen::MatrixXd out;
        loop(state, kPlaneSamples, [&] {
            eigen_tables(in, out);
            benchmark::DoNotOptimize(out.data());
        });
    }, benchmark::kMicrosecond);
#endif
    return true;
}();

} // namespace
