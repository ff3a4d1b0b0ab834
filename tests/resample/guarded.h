// Shared helpers of the resampling tests: destinations surrounded by guard
// zones, and seeded random planes.
#ifndef EJ_TEST_RESAMPLE_GUARDED_H
#define EJ_TEST_RESAMPLE_GUARDED_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace ejtest {

// A destination of n elements with kGuard elements of a fill pattern before
// and after it; every byte starts as the pattern, so a test can tell written
// elements from untouched ones and see any write outside the destination.
template <typename T>
class Guarded {
public:
    static constexpr size_t kGuard = 64;
    static constexpr unsigned char kPattern = 0xA5;

    explicit Guarded(size_t n) : n_(n), raw_((n + 2 * kGuard) * sizeof(T), kPattern) {}

    T *data() { return reinterpret_cast<T *>(raw_.data()) + kGuard; }
    size_t size() const { return n_; }

    // The n destination elements, copied out.
    std::vector<T> values() const
    {
        std::vector<T> out(n_);
        if (n_ != 0) // an empty vector's data() may be null
            std::memcpy(out.data(), raw_.data() + kGuard * sizeof(T), n_ * sizeof(T));
        return out;
    }

    // Whether element i (0 ... n - 1) still holds the pattern.
    bool untouched(size_t i) const { return pattern_at((kGuard + i) * sizeof(T), sizeof(T)); }

    bool guards_intact() const
    {
        return pattern_at(0, kGuard * sizeof(T)) &&
               pattern_at((kGuard + n_) * sizeof(T), kGuard * sizeof(T));
    }

    bool all_untouched() const { return pattern_at(0, raw_.size()); }

private:
    bool pattern_at(size_t offset, size_t bytes) const
    {
        for (size_t b = 0; b < bytes; ++b)
            if (raw_[offset + b] != kPattern)
                return false;
        return true;
    }

    size_t n_;
    std::vector<unsigned char> raw_;
};

// Runs call(destination) on a guarded destination of n elements, expects
// status 0 and intact guards, and returns the n elements.
template <typename T, typename Call>
std::vector<T> run_guarded(size_t n, Call call)
{
    Guarded<T> dst(n);
    EXPECT_EQ(call(dst.data()), 0u);
    EXPECT_TRUE(dst.guards_intact());
    return dst.values();
}

// n seeded random samples over the whole range of T (floats in -1000 ... 1000).
template <typename T>
std::vector<T> random_plane(size_t n, uint32_t seed)
{
    std::mt19937 gen(seed);
    std::vector<T> v(n);
    if constexpr (std::is_floating_point_v<T>) {
        std::uniform_real_distribution<float> dist(-1000.0f, 1000.0f);
        for (T &x : v)
            x = dist(gen);
    } else {
        std::uniform_int_distribution<int64_t> dist(int64_t(std::numeric_limits<T>::min()),
                                                    int64_t(std::numeric_limits<T>::max()));
        for (T &x : v)
            x = T(dist(gen));
    }
    return v;
}

// Bitwise equality, so that floats compare bit for bit (and NaN equals itself).
template <typename T>
bool same_bits(const std::vector<T> &a, const std::vector<T> &b)
{
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

} // namespace ejtest

#endif // EJ_TEST_RESAMPLE_GUARDED_H
