// With EJ_TEST_PORTABLE_KERNELS=1 in the environment the whole suite runs on
// the portable kernels (the library itself reads no environment; the test
// program forces the variant through the per-thread hook before any test).
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "isa_dispatch.h"

namespace {

class PortableKernels : public ::testing::Environment {
public:
    void SetUp() override
    {
        const char *value = std::getenv("EJ_TEST_PORTABLE_KERNELS");
        if (value != nullptr && std::strcmp(value, "1") == 0)
            cmc_isa_force_portable(true);
    }
};

const auto *const registered = ::testing::AddGlobalTestEnvironment(new PortableKernels);

} // namespace
