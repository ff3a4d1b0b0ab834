// Accuracy of the single-precision polynomial upscaling on a realistic
// module, against a double-precision least-squares solution of the same
// problem (same design, samples and normalisation) solved by a
// column-pivoting QR decomposition. Prints the figures recorded in
// docs/lsc-accuracy.md.
#include <gtest/gtest.h>

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include "ej_cmc_lsc.h"
#include "lsc_fake_nvm.h"

namespace {

constexpr int kGridW = 17, kGridH = 13, kDstW = 64, kDstH = 48, kTables = 4;
constexpr int kFracBits = 10;

// Vignetting gain of table t, channel c at grid sample (row r, column i):
// 1.0 at the optical centre (slightly off the grid centre), rising with the
// squared and fourth-power radius to about 2 to 3 in the corners, with mild
// multiplicative noise.
double module_gain(int t, int c, int r, int i, std::mt19937 &rng)
{
    std::normal_distribution<double> noise(0.0, 0.004);
    const double cx = (kGridW - 1) * (0.5 + 0.02 * (t - 1.5)), cy = (kGridH - 1) * (0.5 - 0.015 * c);
    const double u = (i - cx) / ((kGridW - 1) / 2.0), v = (r - cy) / ((kGridH - 1) / 2.0);
    const double rho2 = (u * u + v * v) / 2.0; // about 1 in the corners
    const double corner = 2.0 + 0.25 * t + 0.1 * c; // 2.0 ... 3.05
    const double g = 1.0 + (corner - 1.0) * (0.7 * rho2 + 0.3 * rho2 * rho2);
    return g * (1.0 + noise(rng));
}

// The planes the double-precision reference gives for one channel table.
std::vector<double> reference_plane(const std::vector<double> &gains, int margin)
{
    std::vector<int> rows;
    for (int y = 1; y <= kGridH; ++y)
        for (int x = 1; x <= kGridW; ++x)
            if (x > margin && x <= kGridW - margin && y > margin && y <= kGridH - margin)
                rows.push_back((y - 1) * kGridW + (x - 1));
    auto terms = [](double x, double y) {
        return std::vector<double>{1, x, y, x * x, x * y, y * y, x * x * x, x * x * y, x * y * y, y * y * y,
                                   x * x * x * x, x * x * x * y, x * x * y * y, x * y * y * y, y * y * y * y};
    };
    Eigen::MatrixXd d(rows.size(), 15);
    Eigen::VectorXd z(rows.size());
    for (size_t k = 0; k < rows.size(); ++k) {
        const auto row = terms(rows[k] % kGridW + 1, rows[k] / kGridW + 1);
        for (int j = 0; j < 15; ++j)
            d(Eigen::Index(k), j) = row[size_t(j)];
        z(Eigen::Index(k)) = gains[size_t(rows[k])];
    }
    const Eigen::VectorXd c = d.colPivHouseholderQr().solve(z);
    std::vector<double> out;
    const double sx = (kGridW - 1.0) / (kDstW - 1.0), sy = (kGridH - 1.0) / (kDstH - 1.0);
    for (int j = 0; j < kDstH; ++j)
        for (int i = 0; i < kDstW; ++i) {
            const auto row = terms(1 + i * sx, 1 + j * sy);
            double p = 0;
            for (int k = 0; k < 15; ++k)
                p += c(k) * row[size_t(k)];
            out.push_back(p);
        }
    const double min = *std::min_element(out.begin(), out.end());
    for (double &v : out)
        v = std::max(v / min, 1.0);
    return out;
}

} // namespace

TEST(LscAccuracy, SinglePrecisionFitAgainstDoubleLeastSquares)
{
    std::mt19937 rng(2024);
    ejtest::LscFakeNvm nvm(kGridW, kGridH);
    std::vector<std::vector<double>> gains; // per table and channel, as converted
    for (int t = 0; t < kTables; ++t) {
        std::vector<std::vector<int>> samples(4, std::vector<int>(kGridW * kGridH));
        for (int c = 0; c < 4; ++c) {
            std::vector<double> g;
            for (int r = 0; r < kGridH; ++r)
                for (int i = 0; i < kGridW; ++i) {
                    // Samples are unsigned: a gain below 1.0 (noise at the
                    // centre) is stored as 1.0.
                    const int v = std::max(
                        0, int(std::lround((module_gain(t, c, r, i, rng) - 1.0) * (1 << kFracBits))));
                    samples[size_t(c)][size_t(r * kGridW + i)] = v;
                    g.push_back(1.0 + v / double(1 << kFracBits));
                }
            gains.push_back(g);
        }
        nvm.add(kFracBits, [&](int c, int r, int i) { return samples[size_t(c)][size_t(r * kGridW + i)]; });
    }

    for (uint8_t exclude : {0, 1}) {
        computed_lsc_tables *got = compute_upscaled_lsc_tables_polynom4th(kDstW, kDstH, &nvm.data, 0, exclude);
        ASSERT_NE(nullptr, got);
        double worst = 0, worst_fitted = 0, sum = 0, max_gain = 0;
        const int margin = exclude ? 2 : 0;
        size_t count = 0;
        for (int t = 0; t < kTables; ++t)
            for (int c = 0; c < 4; ++c) {
                const auto want = reference_plane(gains[size_t(t * 4 + c)], margin);
                const float *plane = got->tables[t] + size_t(c) * kDstW * kDstH;
                for (size_t k = 0; k < want.size(); ++k) {
                    const double rel = std::fabs(plane[k] - want[k]) / want[k];
                    worst = std::max(worst, rel);
                    // Output points inside the sampled area of the fit (not
                    // extrapolated into the excluded border).
                    const double x = 1 + double(k % kDstW) * (kGridW - 1) / (kDstW - 1);
                    const double y = 1 + double(k / kDstW) * (kGridH - 1) / (kDstH - 1);
                    if (x >= 1 + margin && x <= kGridW - margin && y >= 1 + margin && y <= kGridH - margin)
                        worst_fitted = std::max(worst_fitted, rel);
                    sum += rel;
                    ++count;
                    max_gain = std::max(max_gain, want[k]);
                }
            }
        deinit_computed_upscale_lsc_tables(got);
        std::printf("exclude_border=%d: relative difference largest %.3g, mean %.3g, largest inside "
                    "the fitted samples %.3g (largest normalised gain %.3f)\n",
                    int(exclude), worst, sum / double(count), worst_fitted, max_gain);
        // Generous bounds, about three times the measured figures: they catch
        // a broken fit, not the rounding of the single-precision arithmetic.
        EXPECT_LT(worst, exclude ? 5e-2 : 1e-2);
    }
}
