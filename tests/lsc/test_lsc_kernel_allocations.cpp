// Allocations of the linear-algebra kernels: the products and the transpose
// allocate nothing; every allocation of the decompositions fails in turn
// with a failure status and nothing leaked.
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <vector>

#include "ej_cmc_lsc.h"
#include "failure_injection.h"

using ejtest::FailureInjection;

namespace {

struct LscCall {
    const char *name;
    bool allocates;
    std::function<uint32_t()> call;
};
void PrintTo(const LscCall &c, std::ostream *os) { *os << c.name; }

constexpr int kGridW = 6, kGridH = 5, kTerms = 15, kSamples = kGridW * kGridH;

std::vector<LscCall> lsc_calls()
{
    // Shared operands: a 4 x 4 matrix, vectors, and the fit's buffers.
    static std::vector<float> m(16), v(kSamples, 1.0f), out(kSamples * kTerms);
    static std::vector<float> design(kSamples * kTerms), design_t(kSamples * kTerms), lu(kTerms * kTerms);
    static std::vector<uint32_t> pivot(kTerms);
    for (int i = 0; i < 16; ++i)
        m[i] = float(i % 5 == 0 ? 4 + i : i % 3);
    const int32_t row = 16, col = 4; // 4 x 4, row-major
    return {
        {"transpose_m", false, [=] { return transpose_m(m.data(), row, col, 4, 4, out.data(), row, col); }},
        {"mul_mm", false,
         [=] { return mul_mm(m.data(), row, col, 4, 4, m.data(), row, col, 4, 4, out.data(), row, col); }},
        {"mul_mm_lsc", false, [=] {
             return mul_mm_lsc(design_t.data(), kSamples * 4, 4, kSamples, kTerms, design.data(), kTerms * 4, 4,
                               kTerms, kSamples, lu.data(), kTerms * 4, 4, kGridH, kGridW, 1, 1);
         }},
        {"mul_mv", false, [=] { return mul_mv(m.data(), row, col, 4, 4, v.data(), 4, 4, out.data(), 4); }},
        {"mul_mv_lsc", false, [=] {
             return mul_mv_lsc(design_t.data(), kSamples * 4, 4, kSamples, kTerms, v.data(), 4, kSamples,
                               out.data(), 4, kGridH, kGridW, 1, 1);
         }},
        {"lu_decomposition_m", true,
         [=] { return lu_decomposition_m(m.data(), row, col, pivot.data(), out.data(), row, col, 4); }},
        {"lu_decomposition", true, [=] {
             return lu_decomposition(design.data(), design_t.data(), lu.data(), pivot.data(), kGridW, kGridH,
                                     kTerms);
         }},
        {"lu_decomposition_lsc", true, [=] {
             return lu_decomposition_lsc(design.data(), design_t.data(), lu.data(), pivot.data(), kGridW,
                                         kGridH, kTerms, 1, 1);
         }},
    };
}

class LscKernelAllocations : public ::testing::TestWithParam<LscCall> {};

} // namespace

TEST_P(LscKernelAllocations, EveryAllocationFailsCleanly)
{
    const LscCall &kernel = GetParam();
    uint64_t allocations;
    {
        FailureInjection none(0);
        ASSERT_EQ(kernel.call(), 0u);
        allocations = cmc_alloc_count();
    }
    EXPECT_EQ(allocations > 0, kernel.allocates) << allocations;
    for (uint64_t k = 1; k <= allocations; ++k) {
        FailureInjection fail(k);
        const uint32_t status = kernel.call();
        EXPECT_TRUE(status == 2 || status == 4) << k << ": " << status;
    }
}

INSTANTIATE_TEST_SUITE_P(Lsc, LscKernelAllocations, ::testing::ValuesIn(lsc_calls()),
                         [](const auto &info) { return std::string(info.param.name); });
