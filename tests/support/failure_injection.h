// Test support: the k-th library allocation from now on fails, while in scope.
#ifndef EJTEST_FAILURE_INJECTION_H
#define EJTEST_FAILURE_INJECTION_H

#include <cstdint>

#include "allocation.h"
#include "ej_nvm.h"

namespace ejtest {

struct FailureInjection {
    explicit FailureInjection(uint64_t k) { cmc_alloc_fail_at(k); }
    ~FailureInjection() { cmc_alloc_fail_at(0); }
    FailureInjection(const FailureInjection &) = delete;
    FailureInjection &operator=(const FailureInjection &) = delete;
};

// While in scope, the NVM stand-in allocates through the library's counter
// too, so that a FailureInjection reaches the NVM parse inside a parse.
struct NvmAllocationsCounted {
    NvmAllocationsCounted() { ej_nvm_set_calloc(cmc_calloc); }
    ~NvmAllocationsCounted() { ej_nvm_set_calloc(nullptr); }
    NvmAllocationsCounted(const NvmAllocationsCounted &) = delete;
    NvmAllocationsCounted &operator=(const NvmAllocationsCounted &) = delete;
};

} // namespace ejtest

#endif // EJTEST_FAILURE_INJECTION_H
