// Test support: the k-th library allocation from now on fails, while in scope.
#ifndef EJTEST_FAILURE_INJECTION_H
#define EJTEST_FAILURE_INJECTION_H

#include <cstdint>

#include "allocation.h"

namespace ejtest {

struct FailureInjection {
    explicit FailureInjection(uint64_t k) { cmc_alloc_fail_at(k); }
    ~FailureInjection() { cmc_alloc_fail_at(0); }
    FailureInjection(const FailureInjection &) = delete;
    FailureInjection &operator=(const FailureInjection &) = delete;
};

} // namespace ejtest

#endif // EJTEST_FAILURE_INJECTION_H
