// Allocation with a per-thread failure injector for tests. With no failure
// armed, each call costs one thread-local increment and compare.
#include "allocation.h"

#include <cstdlib>

namespace {
struct injector {
    uint64_t count = 0;
    uint64_t fail_at = 0;
};
thread_local injector t_alloc;

bool next_fails()
{
    return ++t_alloc.count == t_alloc.fail_at;
}
} // namespace

void cmc_alloc_fail_at(uint64_t k)
{
    t_alloc.count = 0;
    t_alloc.fail_at = k;
}

uint64_t cmc_alloc_count()
{
    return t_alloc.count;
}

void *cmc_malloc(size_t size)
{
    return next_fails() ? nullptr : std::malloc(size);
}

void *cmc_calloc(size_t count, size_t size)
{
    return next_fails() ? nullptr : std::calloc(count, size);
}
