// The x86-64-v3 loops of the linear-algebra products, the LU elimination,
// the substitutions, the polynomial evaluation and the normalisation against the portable ones, bit for bit,
// on seeded random data: the products over strided views (rows, columns and
// transposed layouts, full and interior spans), and whole polynomial table
// sets over several grids, targets, flips and border modes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <ostream>
#include <random>
#include <vector>

#include "ej_cmc_lsc.h"
#include "ej_nvm.h"
#include "failure_injection.h"
#include "isa_dispatch.h"

namespace {

struct PortableScope {
    PortableScope() { cmc_isa_force_portable(true); }
    ~PortableScope() { cmc_isa_force_portable(false); }
};

class LscIsaVariants : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (cmc_isa_best() == cmc_isa::portable || cmc_isa_selected() == cmc_isa::portable)
            GTEST_SKIP() << "only the portable variant runs here";
    }
};

std::vector<float> random_floats(size_t n, uint32_t seed)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> dist(-4.0f, 4.0f);
    std::vector<float> v(n);
    for (float &x : v)
        x = dist(gen);
    return v;
}

// Runs call(out) on both variants into copies of `initial`; expects equal
// statuses and equal bits.
template <typename Call>
void expect_same_bits(const std::vector<float> &initial, Call call, const std::string &what)
{
    std::vector<float> portable = initial, fast = initial;
    uint32_t portable_status;
    {
        PortableScope scope;
        portable_status = call(portable.data());
    }
    EXPECT_EQ(portable_status, call(fast.data())) << what;
    EXPECT_EQ(0, std::memcmp(portable.data(), fast.data(), portable.size() * sizeof(float))) << what;
}

// A matrix of rows x cols stored row-major (transposed = false) or
// column-major, as a strided view: strides in bytes.
struct View {
    int32_t row_stride, col_stride;
};

View layout(int32_t rows, int32_t cols, bool transposed)
{
    return transposed ? View{4, 4 * rows} : View{4 * cols, 4};
}

TEST_F(LscIsaVariants, Products)
{
    std::mt19937 gen(5);
    uint32_t seed = 1;
    for (int round = 0; round < 40; ++round) {
        const int32_t n = int32_t(1 + gen() % 20), inner = int32_t(1 + gen() % 60),
                      p = int32_t(1 + gen() % 20);
        const bool ta = gen() % 2, tb = gen() % 2, tc = gen() % 2;
        const auto a = random_floats(size_t(n) * inner, seed++);
        const auto b = random_floats(size_t(inner) * p, seed++);
        const View va = layout(n, inner, ta), vb = layout(inner, p, tb), vc = layout(n, p, tc);
        const std::string what = std::to_string(n) + "x" + std::to_string(inner) + "x" +
                                 std::to_string(p);
        expect_same_bits(std::vector<float>(size_t(n) * p, 7.0f), [&](float *dst) {
            return mul_mm(a.data(), va.row_stride, va.col_stride, inner, n, b.data(), vb.row_stride,
                          vb.col_stride, p, inner, dst, vc.row_stride, vc.col_stride);
        }, "mul_mm " + what);
        expect_same_bits(std::vector<float>(size_t(n), 7.0f), [&](float *y) {
            return mul_mv(a.data(), va.row_stride, va.col_stride, inner, n, b.data(), 4, inner, y, 4);
        }, "mul_mv " + what);
        expect_same_bits(std::vector<float>(size_t(n) * inner, 7.0f), [&](float *dst) {
            const View vt = layout(inner, n, tc);
            return transpose_m(a.data(), va.row_stride, va.col_stride, inner, n, dst, vt.row_stride,
                               vt.col_stride);
        }, "transpose " + what);
        // In place, rows overlapping: the element order of the portable loop.
        expect_same_bits(a, [&](float *m) {
            return transpose_m(m, 4 * inner, 4, inner, n, m, 4 * n, 4);
        }, "transpose in place " + what);
        // The interior of a grid whose samples are the inner index.
        const uint16_t gw = uint16_t(1 + gen() % 8);
        const uint16_t gh = uint16_t(inner / gw);
        const uint16_t my = uint16_t(gen() % 3), mx = uint16_t(gen() % 3);
        expect_same_bits(std::vector<float>(size_t(n) * p, 7.0f), [&](float *dst) {
            return mul_mm_lsc(a.data(), va.row_stride, va.col_stride, inner, n, b.data(),
                              vb.row_stride, vb.col_stride, p, inner, dst, vc.row_stride,
                              vc.col_stride, gh, gw, my, mx);
        }, "mul_mm_lsc " + what);
        expect_same_bits(std::vector<float>(size_t(n), 7.0f), [&](float *y) {
            return mul_mv_lsc(a.data(), va.row_stride, va.col_stride, inner, n, b.data(), 4, inner,
                              y, 4, gh, gw, my, mx);
        }, "mul_mv_lsc " + what);
    }
}

// The elimination on random matrices of every size up to 20, in both
// layouts of the source and of the factors. Diagonal dominance keeps the
// pivots away from zero; one round in four leaves it out, so that large and
// non-finite values go through the updates as well.
TEST_F(LscIsaVariants, LuDecomposition)
{
    std::mt19937 gen(23);
    uint32_t seed = 100;
    for (int32_t n = 1; n <= 20; ++n) {
        for (int round = 0; round < 4; ++round) {
            auto a = random_floats(size_t(n) * n, seed++);
            if (round != 3)
                for (int32_t i = 0; i < n; ++i)
                    a[size_t(i) * n + i] += 4.0f * float(n);
            const View vs = layout(n, n, gen() % 2), vd = layout(n, n, gen() % 2);
            std::vector<uint32_t> pivot_portable(size_t(n), 99), pivot_fast(size_t(n), 99);
            std::vector<uint32_t> *pivot = &pivot_portable;
            expect_same_bits(std::vector<float>(size_t(n) * n, 7.0f), [&](float *dst) {
                const uint32_t status = lu_decomposition_m(a.data(), vs.row_stride, vs.col_stride,
                                                           pivot->data(), dst, vd.row_stride,
                                                           vd.col_stride, n);
                pivot = &pivot_fast;
                return status;
            }, "lu " + std::to_string(n) + " round " + std::to_string(round));
            EXPECT_EQ(pivot_portable, pivot_fast);
        }
    }
}

// One solve of four planes: random transposes, factors and planes (the
// solve reads them as they are), over grids shorter than a transposed block,
// interior runs with tails, targets of more than one column strip, a target
// that is not evaluated, and NaN samples. Statuses, allocation counts and
// all four planes must agree.
struct UpscaleCase {
    uint16_t sw, sh, dw, dh, margin_y, margin_x;
    uint8_t use_margins;
    bool nan;
};
void PrintTo(const UpscaleCase &c, std::ostream *os)
{
    *os << c.sw << "x" << c.sh << " -> " << c.dw << "x" << c.dh << " margins " << c.margin_y << ","
        << c.margin_x << (c.use_margins != 0 ? " used" : "") << (c.nan ? " nan" : "");
}

// Runs lsc_polynomial_upscale_float on planes pre-filled with 7.0; returns
// the status and the allocation count, the planes in `out`.
struct UpscaleRun {
    uint32_t status;
    uint64_t allocations;
    std::vector<float> out;
};

UpscaleRun run_upscale(const UpscaleCase &c, bool portable, uint64_t fail_at, uint32_t seed)
{
    const size_t m = size_t(c.sw) * c.sh, plane = size_t(c.dw) * c.dh;
    const auto design_t = random_floats(15 * m, seed);
    auto lu = random_floats(15 * 15, seed + 1);
    for (size_t i = 0; i < 15; ++i)
        lu[i * 15 + i] += 40.0f;
    auto src = random_floats(4 * m, seed + 2);
    if (c.nan)
        src[m + m / 2] = std::numeric_limits<float>::quiet_NaN();
    UpscaleRun run{0, 0, std::vector<float>(4 * plane, 7.0f)};
    float *const src_planes[4] = {src.data(), src.data() + m, src.data() + 2 * m, src.data() + 3 * m};
    float *const dst_planes[4] = {run.out.data(), run.out.data() + plane,
                                  run.out.data() + 2 * plane, run.out.data() + 3 * plane};
    uint32_t pivot[15] = {};
    cmc_isa_force_portable(portable);
    {
        ejtest::FailureInjection fail(fail_at);
        run.status = lsc_polynomial_upscale_float(design_t.data(), lu.data(), pivot, src_planes,
                                                  dst_planes, c.sw, c.sh, c.dw, c.dh, 15, c.margin_y,
                                                  c.margin_x, c.use_margins);
        run.allocations = cmc_alloc_count();
    }
    cmc_isa_force_portable(false);
    return run;
}

class LscIsaUpscale : public ::testing::TestWithParam<UpscaleCase> {
protected:
    void SetUp() override
    {
        if (cmc_isa_best() == cmc_isa::portable || cmc_isa_selected() == cmc_isa::portable)
            GTEST_SKIP() << "only the portable variant runs here";
    }
};

TEST_P(LscIsaUpscale, SameBitsStatusesAndAllocations)
{
    const UpscaleCase &c = GetParam();
    const UpscaleRun portable = run_upscale(c, true, 0, 11), fast = run_upscale(c, false, 0, 11);
    EXPECT_EQ(portable.status, fast.status);
    EXPECT_EQ(portable.allocations, fast.allocations);
    EXPECT_EQ(0, std::memcmp(portable.out.data(), fast.out.data(), portable.out.size() * sizeof(float)));
    // Every allocation failing in turn (b, c, then t of each channel): the
    // planes written before the failure agree as well.
    for (uint64_t k = 1; k <= portable.allocations; ++k) {
        const UpscaleRun p = run_upscale(c, true, k, 11), f = run_upscale(c, false, k, 11);
        EXPECT_EQ(p.status, f.status) << k;
        EXPECT_EQ(p.allocations, f.allocations) << k;
        EXPECT_EQ(0, std::memcmp(p.out.data(), f.out.data(), p.out.size() * sizeof(float))) << k;
    }
}

INSTANTIATE_TEST_SUITE_P(Lsc, LscIsaUpscale, ::testing::Values(
    UpscaleCase{1, 1, 5, 4, 0, 0, 0, false},    // one sample
    UpscaleCase{3, 2, 9, 7, 0, 0, 0, false},    // fewer samples than a block
    UpscaleCase{7, 1, 16, 2, 0, 0, 0, false},   // one row
    UpscaleCase{17, 13, 64, 48, 0, 0, 0, false},
    UpscaleCase{17, 13, 64, 48, 2, 2, 1, false},
    UpscaleCase{4, 3, 13, 5, 0, 1, 1, false},   // interior rows of two samples
    UpscaleCase{5, 5, 8, 8, 2, 2, 1, false},    // an interior of one sample
    UpscaleCase{6, 4, 8, 8, 0, 3, 1, false},    // an empty interior
    UpscaleCase{21, 9, 7, 3, 1, 2, 1, false},   // interior tails after whole blocks
    UpscaleCase{9, 7, 600, 3, 0, 0, 0, false},  // three column strips
    UpscaleCase{9, 7, 257, 5, 1, 1, 1, false},  // a strip of one column
    UpscaleCase{9, 7, 1, 6, 0, 0, 0, false},    // not evaluated
    UpscaleCase{11, 8, 33, 17, 0, 0, 0, true},  // a NaN sample in plane 1
    UpscaleCase{11, 8, 33, 17, 1, 1, 1, true}));

// Destination planes overlapping a later channel's source plane or each
// other: the channels must act one after the other, as the portable loop
// takes them.
TEST_F(LscIsaVariants, UpscaleWithOverlappingPlanes)
{
    const uint16_t w = 9, h = 7;
    const size_t m = size_t(w) * h;
    const auto design_t = random_floats(15 * m, 71);
    auto lu = random_floats(15 * 15, 72);
    for (size_t i = 0; i < 15; ++i)
        lu[i * 15 + i] += 40.0f;
    const size_t layouts[3][4] = {{1, 4, 5, 6}, {4, 4, 5, 6}, {4, 5, 6, 3}};
    for (const auto &dst_at : layouts) {
        expect_same_bits(random_floats(7 * m, 73), [&](float *memory) {
            float *const src[4] = {memory, memory + m, memory + 2 * m, memory + 3 * m};
            float *const dst[4] = {memory + dst_at[0] * m, memory + dst_at[1] * m,
                                   memory + dst_at[2] * m, memory + dst_at[3] * m};
            return lsc_polynomial_upscale_float(design_t.data(), lu.data(), nullptr, src, dst, w, h,
                                                w, h, 15, 0, 0, 0);
        }, "destinations at " + std::to_string(dst_at[0]) + std::to_string(dst_at[1]) +
               std::to_string(dst_at[2]) + std::to_string(dst_at[3]));
    }
}

// Whole table sets: the normal matrix, the solves, the evaluation and the
// normalisation.
TEST_F(LscIsaVariants, PolynomialTables)
{
    std::mt19937 gen(17);
    for (int round = 0; round < 24; ++round) {
        const uint8_t w = uint8_t(5 + gen() % 20), h = uint8_t(5 + gen() % 16);
        // Every fourth target spans two column strips of the evaluation.
        const uint16_t dw = uint16_t(round % 4 == 3 ? 250 + gen() % 100 : 2 + gen() % 90),
                       dh = uint16_t(2 + gen() % 70);
        const uint32_t flip = gen() % 4;
        const uint8_t exclude = uint8_t(gen() % 2);
        // One to three tables: the working tables and the factors serve one
        // table after the other.
        const size_t table_count = 1 + size_t(round % 3);
        // Smooth gains with noise, so that the fits are well posed.
        std::vector<std::vector<uint16_t>> samples(4 * 3);
        std::vector<nvm_lsc_table> tables(table_count);
        for (size_t k = 0; k < samples.size(); ++k) {
            for (int r = 0; r < h; ++r)
                for (int c = 0; c < w; ++c)
                    samples[k].push_back(uint16_t(200 + 9 * ((c - w / 2) * (c - w / 2) +
                                                             (r - h / 2) * (r - h / 2)) +
                                                  gen() % 40));
        }
        // Table 1 holds 8-bit samples (the low byte) every other round.
        std::vector<std::vector<uint8_t>> bytes(4);
        for (size_t c = 0; c < 4; ++c)
            for (uint16_t v : samples[4 + c])
                bytes[c].push_back(uint8_t(v));
        for (size_t t = 0; t < tables.size(); ++t) {
            const bool narrow = t == 1 && round % 5 < 2;
            tables[t].frac_bits = narrow ? 7 : 10;
            for (size_t c = 0; c < 4; ++c)
                tables[t].channel_tables[c] =
                    narrow ? static_cast<void *>(bytes[c].data()) : samples[4 * t + c].data();
        }
        ej_nvm_data nvm{};
        nvm.lsc_table_count = uint8_t(tables.size());
        nvm.lsc_grid_width = w;
        nvm.lsc_grid_height = h;
        nvm.lsc_tables = tables.data();

        computed_lsc_tables *portable;
        {
            PortableScope scope;
            portable = compute_upscaled_lsc_tables_polynom4th(dw, dh, &nvm, flip, exclude);
        }
        computed_lsc_tables *fast = compute_upscaled_lsc_tables_polynom4th(dw, dh, &nvm, flip, exclude);
        const std::string what = std::to_string(w) + "x" + std::to_string(h) + " -> " +
                                 std::to_string(dw) + "x" + std::to_string(dh);
        ASSERT_EQ(portable == nullptr, fast == nullptr) << what;
        if (portable != nullptr) {
            for (size_t t = 0; t < tables.size(); ++t)
                EXPECT_EQ(0, std::memcmp(portable->tables[t], fast->tables[t],
                                         4 * size_t(dw) * dh * sizeof(float)))
                    << what << " table " << t;
        }
        deinit_computed_upscale_lsc_tables(portable);
        deinit_computed_upscale_lsc_tables(fast);
    }
}

} // namespace
