// Shared harness of the x86-64-v3 bit-exactness tests: runs a kernel once
// with the portable variant forced and once as dispatched, on guarded
// destinations, and expects identical statuses and bytes (guard zones
// included).
#ifndef EJ_TEST_RESAMPLE_ISA_COMPARE_H
#define EJ_TEST_RESAMPLE_ISA_COMPARE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "guarded.h"
#include "isa_dispatch.h"

namespace ejtest {

// Forces the portable variant on this thread while in scope.
struct PortableScope {
    PortableScope() { cmc_isa_force_portable(true); }
    ~PortableScope() { cmc_isa_force_portable(false); }
};

// Runs call(dst) on a guarded destination of n elements on both variants;
// expects equal statuses and equal bytes, guard zones included.
template <typename T, typename Call>
void expect_same_bits(size_t n, Call call, const std::string &what)
{
    Guarded<T> portable(n), fast(n);
    uint32_t portable_status, fast_status;
    {
        PortableScope scope;
        portable_status = call(portable.data());
    }
    fast_status = call(fast.data());
    EXPECT_EQ(portable_status, fast_status) << what;
    EXPECT_TRUE(same_bits(portable.values(), fast.values())) << what;
    EXPECT_TRUE(portable.guards_intact() && fast.guards_intact()) << what;
}

// Fixture of the comparisons: skipped where there is nothing to compare.
class IsaVariantsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (cmc_isa_best() == cmc_isa::portable)
            GTEST_SKIP() << "this CPU runs the portable variant only";
        if (cmc_isa_selected() == cmc_isa::portable)
            GTEST_SKIP() << "the portable variant is forced for this run";
    }
};

// Source and destination extents of one comparison.
struct Extents {
    uint16_t sw, sh, dw, dh;
};

inline std::string describe(const Extents &e)
{
    return std::to_string(e.sw) + "x" + std::to_string(e.sh) + " -> " + std::to_string(e.dw) +
           "x" + std::to_string(e.dh);
}

} // namespace ejtest

#endif // EJ_TEST_RESAMPLE_ISA_COMPARE_H
