/*
 * allocation.h - the library's allocations (internal).
 *
 * Every allocation of the library goes through these two calls, so that tests
 * can make the k-th one fail and check that each failure path ends in its
 * documented result with nothing leaked. Memory is released with free().
 */
#ifndef EJ_ALLOCATION_H
#define EJ_ALLOCATION_H

#include <cstddef>
#include <cstdint>

void *cmc_malloc(size_t size);
void *cmc_calloc(size_t count, size_t size);

/*
 * Test hook, per thread: the k-th allocation from now on (1-based) fails, and
 * only that one; 0 turns failures off. Off by default.
 */
void cmc_alloc_fail_at(uint64_t k);
/* Allocations made on this thread since the last cmc_alloc_fail_at(). */
uint64_t cmc_alloc_count();

#endif /* EJ_ALLOCATION_H */
