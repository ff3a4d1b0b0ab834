// Linear-algebra kernels on strided views: worked values, the interior
// index mapping, strided (transposed) views, bit-exact agreement with the
// test reference on seeded random data, and failure statuses.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "ej_cmc_lsc.h"
#include "failure_injection.h"
#include "lsc_reference.h"

namespace {

namespace ref = ejtest::lscref;
using ejtest::FailureInjection;
using Matrix = std::vector<float>;

constexpr float kSentinel = -12345.0f;

Matrix random_matrix(std::mt19937 &rng, size_t n, float lo = -2.0f, float hi = 2.0f)
{
    std::uniform_real_distribution<float> dist(lo, hi);
    Matrix m(n);
    for (float &v : m)
        v = dist(rng);
    return m;
}

void expect_bits_equal(const Matrix &got, const Matrix &want)
{
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i)
        EXPECT_EQ(0, std::memcmp(&got[i], &want[i], sizeof(float)))
            << "element " << i << ": " << got[i] << " vs " << want[i];
}

// Diagonally dominant, so the elimination without row exchanges is stable.
Matrix dominant_matrix(std::mt19937 &rng, size_t n)
{
    Matrix m = random_matrix(rng, n * n);
    for (size_t i = 0; i < n; ++i)
        m[i * n + i] += float(2 * n);
    return m;
}

} // namespace

TEST(LscLinearAlgebra, LuOfWorkedMatrices)
{
    const float a[4] = {4, 2, 2, 3};
    float lu[4] = {};
    uint32_t pivot[2] = {9, 9};
    EXPECT_EQ(0u, lu_decomposition_m(a, 8, 4, pivot, lu, 8, 4, 2));
    EXPECT_EQ((Matrix{4, 2, 0.5f, 2}), Matrix(lu, lu + 4));
    EXPECT_EQ(0u, pivot[0]);
    EXPECT_EQ(1u, pivot[1]);

    const float one = 7.0f;
    float out = 0.0f;
    EXPECT_EQ(0u, lu_decomposition_m(&one, 4, 4, pivot, &out, 4, 4, 1));
    EXPECT_EQ(7.0f, out);
    EXPECT_EQ(0u, pivot[0]);

    pivot[0] = 9;
    EXPECT_EQ(0u, lu_decomposition_m(a, 0, 0, pivot, lu, 0, 0, 0));
    EXPECT_EQ(0u, lu_decomposition_m(a, 0, 0, pivot, lu, 0, 0, -3));
    EXPECT_EQ(9u, pivot[0]);

    // A null source is a zero matrix: 0 / 0 at the first pivot.
    EXPECT_EQ(0u, lu_decomposition_m(nullptr, 8, 4, pivot, lu, 8, 4, 2));
    EXPECT_EQ(0.0f, lu[0]);
    EXPECT_TRUE(std::isnan(lu[2]));
}

TEST(LscLinearAlgebra, LuMatchesTheReferenceInBothReadings)
{
    std::mt19937 rng(5);
    for (size_t n : {3u, 8u, 15u, 16u}) {
        const Matrix a = dominant_matrix(rng, n);
        const int32_t row = int32_t(4 * n);
        Matrix got(n * n, kSentinel);
        std::vector<uint32_t> pivot(n, 99);
        ASSERT_EQ(0u, lu_decomposition_m(a.data(), row, 4, pivot.data(), got.data(), row, 4, int32_t(n)));
        expect_bits_equal(got, ref::lu(a, n));
        for (size_t i = 0; i < n; ++i)
            EXPECT_EQ(i, pivot[i]);
        // The same block read as its transpose, written column-major.
        Matrix got_t(n * n, kSentinel);
        ASSERT_EQ(0u, lu_decomposition_m(a.data(), 4, row, pivot.data(), got_t.data(), 4, row, int32_t(n)));
        expect_bits_equal(ref::transpose(got_t, n, n), ref::lu(ref::transpose(a, n, n), n));
    }
}

TEST(LscLinearAlgebra, LuRefusesStridesOutsideTheBlockAndMissingOutputs)
{
    const float a[4] = {4, 2, 2, 3};
    float lu[4] = {kSentinel, kSentinel, kSentinel, kSentinel};
    uint32_t pivot[2] = {9, 9};
    EXPECT_EQ(32u, lu_decomposition_m(a, 16, 4, pivot, lu, 8, 4, 2));
    EXPECT_EQ(32u, lu_decomposition_m(a, -8, 4, pivot, lu, 8, 4, 2));
    EXPECT_EQ(32u, lu_decomposition_m(a, 8, 2, pivot, lu, 8, 4, 2));
    EXPECT_EQ(32u, lu_decomposition_m(a, 8, 4, nullptr, lu, 8, 4, 2));
    EXPECT_EQ(32u, lu_decomposition_m(a, 8, 4, pivot, nullptr, 8, 4, 2));
    EXPECT_EQ(kSentinel, lu[0]);
    EXPECT_EQ(9u, pivot[0]);
    FailureInjection fail(1);
    EXPECT_EQ(4u, lu_decomposition_m(a, 8, 4, pivot, lu, 8, 4, 2));
    EXPECT_EQ(kSentinel, lu[0]);
}

TEST(LscLinearAlgebra, TransposeThroughStrides)
{
    std::mt19937 rng(1);
    const Matrix a = random_matrix(rng, 15); // 3 rows x 5 columns
    Matrix t(15, kSentinel);
    EXPECT_EQ(0u, transpose_m(a.data(), 20, 4, 5, 3, t.data(), 12, 4));
    EXPECT_EQ(ref::transpose(a, 3, 5), t);
    // Written column-major, the transpose is the source again.
    EXPECT_EQ(0u, transpose_m(a.data(), 20, 4, 5, 3, t.data(), 4, 20));
    EXPECT_EQ(a, t);
    Matrix untouched(15, kSentinel);
    EXPECT_EQ(0u, transpose_m(a.data(), 20, 4, 0, 3, untouched.data(), 12, 4));
    EXPECT_EQ(0u, transpose_m(a.data(), 20, 4, 5, -1, untouched.data(), 12, 4));
    EXPECT_EQ(Matrix(15, kSentinel), untouched);
}

TEST(LscLinearAlgebra, ProductsMatchTheReferenceBitForBit)
{
    std::mt19937 rng(7);
    for (int round = 0; round < 4; ++round) {
        const size_t r = 3 + round, k = 20 + 7 * round, c = 2 + round;
        const Matrix a = random_matrix(rng, r * k), b = random_matrix(rng, k * c);
        const auto all = ref::all_samples(k);
        const int32_t ir = int32_t(r), ik = int32_t(k), ic = int32_t(c);
        Matrix got(r * c, kSentinel);
        ASSERT_EQ(0u, mul_mm(a.data(), 4 * ik, 4, ik, ir, b.data(), 4 * ic, 4, ic, ik, got.data(), 4 * ic, 4));
        expect_bits_equal(got, ref::mul(a, b, r, k, c, all));

        // a stored transposed (k x r) and read through exchanged strides.
        const Matrix at = ref::transpose(a, r, k);
        std::fill(got.begin(), got.end(), kSentinel);
        ASSERT_EQ(0u, mul_mm(at.data(), 4, 4 * ir, ik, ir, b.data(), 4 * ic, 4, ic, ik, got.data(), 4 * ic, 4));
        expect_bits_equal(got, ref::mul(a, b, r, k, c, all));

        // Grid of k = w x h samples with margins.
        const int w = int(k) / 4, h = 4;
        const Matrix a2 = random_matrix(rng, r * size_t(w * h)), b2 = random_matrix(rng, size_t(w * h) * c);
        const int32_t m = w * h;
        std::fill(got.begin(), got.end(), kSentinel);
        ASSERT_EQ(0u, mul_mm_lsc(a2.data(), 4 * m, 4, m, ir, b2.data(), 4 * ic, 4, ic, m, got.data(), 4 * ic, 4,
                                 uint16_t(h), uint16_t(w), 1, 2));
        expect_bits_equal(got, ref::mul(a2, b2, r, size_t(m), c, ref::interior(w, h, 1, 2)));

        Matrix y(r * 2, kSentinel), x = random_matrix(rng, size_t(m) * 2);
        ASSERT_EQ(0u, mul_mv(a2.data(), 4 * m, 4, m, ir, x.data(), 8, m, y.data(), 8));
        ASSERT_EQ(0u, mul_mv_lsc(a2.data(), 4 * m, 4, m, ir, x.data(), 8, m, y.data() + 1, 8, uint16_t(h),
                                 uint16_t(w), 1, 1));
        Matrix xs(static_cast<size_t>(m)), y0(r), y1(r);
        for (size_t i = 0; i < size_t(m); ++i)
            xs[i] = x[2 * i];
        for (size_t i = 0; i < r; ++i) {
            y0[i] = y[2 * i];
            y1[i] = y[2 * i + 1];
        }
        expect_bits_equal(y0, ref::mul(a2, xs, r, size_t(m), 1, ref::all_samples(size_t(m))));
        expect_bits_equal(y1, ref::mul(a2, xs, r, size_t(m), 1, ref::interior(w, h, 1, 1)));
    }
}

TEST(LscLinearAlgebra, InteriorOfAFiveByFiveGridIsSampleTwelve)
{
    Matrix a(25), b(25);
    for (size_t s = 0; s < 25; ++s) {
        a[s] = float(s + 1);
        b[s] = float(100 + s);
    }
    float out = kSentinel;
    EXPECT_EQ(0u, mul_mm_lsc(a.data(), 100, 4, 25, 1, b.data(), 4, 4, 1, 25, &out, 4, 4, 5, 5, 2, 2));
    EXPECT_EQ(13.0f * 112.0f, out);
    // margin_x 3 leaves an interior width of -1: empty, the product is 0.0.
    out = kSentinel;
    EXPECT_EQ(0u, mul_mm_lsc(a.data(), 100, 4, 25, 1, b.data(), 4, 4, 1, 25, &out, 4, 4, 5, 5, 0, 3));
    EXPECT_EQ(0.0f, out);
    out = kSentinel;
    EXPECT_EQ(0u, mul_mv_lsc(a.data(), 100, 4, 25, 1, b.data(), 4, 25, &out, 4, 5, 5, 3, 0));
    EXPECT_EQ(0.0f, out);
}

TEST(LscLinearAlgebra, InteriorSumFollowsTheSampleOrder)
{
    EXPECT_EQ((std::vector<size_t>{1, 2, 5, 6, 9, 10}), ref::interior(4, 3, 0, 1));
    // 1e8 absorbs the 1 that follows it and is then cancelled: only the
    // order 1, 2, 5, 6, 9, 10 gives 3 (with 2 after 5 the sum would be 4).
    Matrix a(12, 1000.0f);
    const std::pair<size_t, float> row[] = {{1, 1e8f}, {2, 1.0f}, {5, -1e8f}, {6, 3.0f}, {9, 0.0f}, {10, 0.0f}};
    for (auto [s, v] : row)
        a[s] = v;
    const Matrix x(12, 1.0f);
    float y = kSentinel;
    EXPECT_EQ(0u, mul_mv_lsc(a.data(), 48, 4, 12, 1, x.data(), 4, 12, &y, 4, 3, 4, 0, 1));
    EXPECT_EQ(3.0f, y);
}

TEST(LscLinearAlgebra, DimensionMismatchWritesNothing)
{
    const Matrix a(6, 1.0f), b(6, 1.0f);
    Matrix dst(6, kSentinel);
    struct Case {
        int32_t aw, ah, bw, bh;
    };
    for (const Case &c : {Case{2, 3, 3, 3}, Case{2, 0, 3, 3}, Case{3, 2, 0, 2}}) {
        EXPECT_EQ(32u, mul_mm(a.data(), 8, 4, c.aw, c.ah, b.data(), 12, 4, c.bw, c.bh, dst.data(), 12, 4));
        EXPECT_EQ(32u, mul_mm_lsc(a.data(), 8, 4, c.aw, c.ah, b.data(), 12, 4, c.bw, c.bh, dst.data(), 12, 4,
                                  1, 1, 0, 0));
    }
    EXPECT_EQ(32u, mul_mv(a.data(), 8, 4, 2, 3, b.data(), 4, 3, dst.data(), 4));
    EXPECT_EQ(32u, mul_mv_lsc(a.data(), 8, 4, 2, 0, b.data(), 4, 3, dst.data(), 4, 1, 2, 0, 0));
    // An interior reaching past the inner extent, and null operands.
    EXPECT_EQ(32u, mul_mv_lsc(a.data(), 8, 4, 2, 3, b.data(), 4, 2, dst.data(), 4, 2, 2, 0, 0));
    EXPECT_EQ(32u, mul_mm(nullptr, 8, 4, 2, 3, b.data(), 12, 4, 3, 2, dst.data(), 12, 4));
    EXPECT_EQ(32u, mul_mv(a.data(), 8, 4, 2, 3, b.data(), 4, 2, nullptr, 4));
    EXPECT_EQ(Matrix(6, kSentinel), dst);
    // Empty outer extents: 0 and nothing written.
    EXPECT_EQ(0u, mul_mm(a.data(), 8, 4, 2, 0, b.data(), 12, 4, 3, 2, dst.data(), 12, 4));
    EXPECT_EQ(0u, mul_mv(a.data(), 8, 4, 2, 0, b.data(), 4, 2, dst.data(), 4));
    EXPECT_EQ(Matrix(6, kSentinel), dst);
}

TEST(LscPolynomialFit, DesignRowsAndNormalMatrixMatchTheReference)
{
    for (bool interior : {false, true}) {
        const int w = 7, h = 6;
        const size_t m = w * h;
        Matrix design(m * 15, kSentinel), design_t(m * 15, kSentinel), lu(225, kSentinel);
        std::vector<uint32_t> pivot(15, 99);
        const uint32_t status =
            interior ? lu_decomposition_lsc(design.data(), design_t.data(), lu.data(), pivot.data(), w, h, 15, 1, 1)
                     : lu_decomposition(design.data(), design_t.data(), lu.data(), pivot.data(), w, h, 15);
        ASSERT_EQ(0u, status);
        // Sample (2, 3) is row (3 - 1) * 7 + 1.
        EXPECT_EQ((Matrix{1, 2, 3, 4, 6, 9, 8, 12, 18, 27, 16, 24, 36, 54, 81}),
                  Matrix(design.begin() + 15 * 15, design.begin() + 16 * 15));
        const Matrix d = ref::design(w, h), dt = ref::transpose(d, m, 15);
        expect_bits_equal(design, d);
        expect_bits_equal(design_t, dt);
        const auto over = interior ? ref::interior(w, h, 1, 1) : ref::all_samples(m);
        expect_bits_equal(lu, ref::lu(ref::mul(dt, d, 15, m, 15, over), 15));
        for (uint32_t i = 0; i < 15; ++i)
            EXPECT_EQ(i, pivot[i]);
    }
}

TEST(LscPolynomialFit, SingleSampleGridGivesNanWithoutError)
{
    Matrix design(15, kSentinel), design_t(15, kSentinel), lu(225, kSentinel);
    uint32_t pivot[15];
    ASSERT_EQ(0u, lu_decomposition(design.data(), design_t.data(), lu.data(), pivot, 1, 1, 15));
    EXPECT_EQ(Matrix(15, 1.0f), design);
    // Normal matrix of ones: L's first column and U's first row are 1, the
    // rest of the elimination is 0 / 0.
    EXPECT_EQ(1.0f, lu[0]);
    EXPECT_EQ(1.0f, lu[14]);
    EXPECT_EQ(1.0f, lu[15]);
    EXPECT_EQ(0.0f, lu[16]);
    EXPECT_TRUE(std::isnan(lu[2 * 15 + 1]));
}

TEST(LscPolynomialFit, FailureStatuses)
{
    Matrix design(30 * 15), design_t(30 * 15), lu(225);
    uint32_t pivot[15];
    EXPECT_EQ(2u, lu_decomposition(nullptr, design_t.data(), lu.data(), pivot, 5, 6, 15));
    EXPECT_EQ(2u, lu_decomposition_lsc(nullptr, design_t.data(), lu.data(), pivot, 5, 6, 15, 1, 1));
    EXPECT_EQ(2u, lu_decomposition(design.data(), design_t.data(), lu.data(), pivot, 5, 6, 14));
    EXPECT_EQ(2u, lu_decomposition(design.data(), nullptr, lu.data(), pivot, 5, 6, 15));
    // A grid whose transpose stride does not fit 32 bits: refused before
    // anything is allocated or written.
    EXPECT_EQ(2u, lu_decomposition(nullptr, nullptr, nullptr, nullptr, 65535, 65535, 15));
    // An empty grid needs no design matrix: the normal matrix is zero.
    EXPECT_EQ(0u, lu_decomposition(nullptr, nullptr, lu.data(), pivot, 0, 6, 15));
    {
        FailureInjection fail(1); // the normal-matrix scratch
        EXPECT_EQ(4u, lu_decomposition(design.data(), design_t.data(), lu.data(), pivot, 5, 6, 15));
    }
    {
        FailureInjection fail(2); // the working copy of the elimination
        EXPECT_EQ(2u, lu_decomposition_lsc(design.data(), design_t.data(), lu.data(), pivot, 5, 6, 15, 1, 1));
    }
}

TEST(LscPolynomialFit, DesignPowersAreU32ThenFloatProducts)
{
    // On a 1700 x 1 grid x^3 leaves float's exact range at x = 257 and wraps
    // in u32 at x = 1626 (1626^3 mod 2^32 = 3975080); x^4 and x^3*y are the
    // float products x * x^3 and x^3 * y, not powers formed in u32 or double.
    const int w = 1700;
    Matrix design(size_t(w) * 15), design_t(design.size()), lu(225);
    uint32_t pivot[15];
    ASSERT_EQ(0u, lu_decomposition(design.data(), design_t.data(), lu.data(), pivot, w, 1, 15));
    for (uint32_t x : {257u, 259u, 1000u, 1626u, 1700u}) {
        const float *row = design.data() + size_t(x - 1) * 15;
        const uint32_t x3 = x * x * x;
        EXPECT_EQ(float(x3), row[6]) << x;
        EXPECT_EQ(float(x) * float(x3), row[10]) << x;
        EXPECT_EQ(float(x3) * 1.0f, row[11]) << x;
        EXPECT_EQ(float(x * x), row[3]) << x;
    }
    EXPECT_EQ(3975080.0f, design[size_t(1625) * 15 + 6]);
    // 259 * float(259^3) rounds to 4499860992; float(259^4) would be 4499860480.
    EXPECT_EQ(4499860992.0f, design[size_t(258) * 15 + 10]);
}
