// fuzz_support.h - helpers shared by the fuzz targets: exact-size heap
// copies (so that AddressSanitizer sees any read past the end), the
// allocation-failure switch covering the parser and the NVM stand-in, and a
// check that stops the run when an invariant of the API breaks.
#ifndef EJ_FUZZ_SUPPORT_H
#define EJ_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "allocation.h"
#include "ej_log.h"
#include "ej_nvm.h"

namespace ejfuzz {

// A malloc'd copy of n bytes (at least one byte is allocated, so that an
// empty input still has a valid, distinct address). Released with free().
inline uint8_t *heap_copy(const uint8_t *p, size_t n)
{
    auto *copy = static_cast<uint8_t *>(std::malloc(n != 0 ? n : 1));
    if (copy == nullptr)
        std::abort();
    if (n != 0)
        std::memcpy(copy, p, n);
    return copy;
}

struct HeapBytes {
    HeapBytes(const uint8_t *p, size_t n) : data(heap_copy(p, n)), size(n) {}
    ~HeapBytes() { std::free(data); }
    HeapBytes(const HeapBytes &) = delete;
    HeapBytes &operator=(const HeapBytes &) = delete;
    uint8_t *data;
    size_t size;
};

// While in scope, the k-th allocation (0: none) of the parser or of the NVM
// stand-in fails; both count on one per-thread counter.
struct FailAllocation {
    explicit FailAllocation(uint64_t k)
    {
        ej_nvm_set_calloc(cmc_calloc);
        cmc_alloc_fail_at(k);
    }
    ~FailAllocation()
    {
        cmc_alloc_fail_at(0);
        ej_nvm_set_calloc(nullptr);
    }
    FailAllocation(const FailAllocation &) = delete;
    FailAllocation &operator=(const FailAllocation &) = delete;
};

// The bounded copy logs when an allocation failure hands it a null block;
// the lines are formatted (so their arguments are checked) and dropped.
inline void quiet_log()
{
    static const bool installed = [] {
        ej_log_set_sink([](int, const char *, void *) {}, nullptr);
        return true;
    }();
    (void)installed;
}

// An API invariant: a broken one is a finding, reported like a crash.
#define EJ_FUZZ_CHECK(cond)                                                                \
    do {                                                                                   \
        if (!(cond)) {                                                                     \
            std::fprintf(stderr, "%s:%d: invariant failed: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                                  \
        }                                                                                  \
    } while (0)

} // namespace ejfuzz

#endif // EJ_FUZZ_SUPPORT_H
