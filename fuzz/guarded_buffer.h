// guarded_buffer.h - destinations for the kernel fuzz targets: n elements
// between two guard zones of a fill pattern. AddressSanitizer does not see a
// write that stays inside a larger allocation, so after every call the guard
// zones are compared with the pattern, and a call that reports a failure must
// have left the whole destination untouched.
#ifndef EJ_FUZZ_GUARDED_BUFFER_H
#define EJ_FUZZ_GUARDED_BUFFER_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "fuzz_input.h"
#include "fuzz_support.h"

namespace ejfuzz {

template <typename T>
class Guarded {
public:
    static constexpr size_t kGuardBytes = 64;
    static constexpr uint8_t kPattern = 0xA5;

    explicit Guarded(size_t n) : bytes_(n * sizeof(T) + 2 * kGuardBytes)
    {
        raw_ = static_cast<uint8_t *>(std::malloc(bytes_));
        if (raw_ == nullptr)
            std::abort();
        for (size_t i = 0; i < bytes_; ++i)
            raw_[i] = kPattern;
    }
    ~Guarded() { std::free(raw_); }
    Guarded(const Guarded &) = delete;
    Guarded &operator=(const Guarded &) = delete;

    T *data() { return reinterpret_cast<T *>(raw_ + kGuardBytes); }

    bool guards_intact() const
    {
        return pattern(0, kGuardBytes) && pattern(bytes_ - kGuardBytes, kGuardBytes);
    }
    bool untouched() const { return pattern(0, bytes_); }

    // The check after a call: guards always intact, and the destination
    // untouched when the status reports a failure.
    void check(uint32_t status) const
    {
        EJ_FUZZ_CHECK(guards_intact());
        if (status != 0)
            EJ_FUZZ_CHECK(untouched());
    }

private:
    bool pattern(size_t from, size_t n) const
    {
        for (size_t i = from; i < from + n; ++i)
            if (raw_[i] != kPattern)
                return false;
        return true;
    }

    size_t bytes_;
    uint8_t *raw_;
};

// A source of exactly n elements on the heap, filled from the input.
template <typename T>
class Source {
public:
    Source(size_t n, FuzzInput &in)
    {
        p_ = static_cast<T *>(std::malloc(n != 0 ? n * sizeof(T) : 1));
        if (p_ == nullptr)
            std::abort();
        in.fill(p_, n * sizeof(T));
    }
    ~Source() { std::free(p_); }
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;
    const T *data() const { return p_; }

private:
    T *p_;
};

} // namespace ejfuzz

#endif // EJ_FUZZ_GUARDED_BUFFER_H
