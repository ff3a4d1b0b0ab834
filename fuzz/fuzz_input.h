// fuzz_input.h - splits one fuzzer input into the arguments of a call.
//
// Reads consume the input from the front; once it is exhausted every read
// yields zeros, so a target never needs to check lengths itself. The layout a
// target reads is documented next to the target, and the corpus generator
// writes the same layout through FuzzOutput.
#ifndef EJ_FUZZ_INPUT_H
#define EJ_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ejfuzz {

class FuzzInput {
public:
    FuzzInput(const uint8_t *data, size_t size) : data_(data), left_(size) {}

    size_t remaining() const { return left_; }

    uint8_t u8() { return static_cast<uint8_t>(uint_le(1)); }
    uint16_t u16() { return static_cast<uint16_t>(uint_le(2)); }
    uint32_t u32() { return static_cast<uint32_t>(uint_le(4)); }

    // A value in [lo, hi] (lo <= hi), taken from as few bytes as the range
    // needs.
    uint32_t in_range(uint32_t lo, uint32_t hi)
    {
        const uint64_t span = uint64_t(hi) - lo + 1;
        const size_t bytes = span <= 0x100 ? 1 : span <= 0x10000 ? 2 : 4;
        return lo + static_cast<uint32_t>(uint_le(bytes) % span);
    }

    // The next n bytes (fewer when the input ends first); *got receives the
    // count actually available.
    const uint8_t *bytes(size_t n, size_t *got)
    {
        const size_t take = n < left_ ? n : left_;
        const uint8_t *p = data_;
        data_ += take;
        left_ -= take;
        *got = take;
        return p;
    }

    // A block announced by a u32 length (capped by what is left).
    const uint8_t *block(size_t *got) { return bytes(u32(), got); }

    // Everything that is left.
    const uint8_t *rest(size_t *got) { return bytes(left_, got); }

    // Fills n bytes at dst from the input, repeating it when it runs short
    // (zeros when it is empty), so that large planes need short inputs.
    void fill(void *dst, size_t n)
    {
        auto *out = static_cast<uint8_t *>(dst);
        if (left_ == 0) {
            std::memset(out, 0, n);
            return;
        }
        for (size_t i = 0; i < n; ++i)
            out[i] = data_[i % left_];
    }

private:
    uint64_t uint_le(size_t n)
    {
        uint64_t v = 0;
        for (size_t i = 0; i < n && left_ > 0; ++i, ++data_, --left_)
            v |= uint64_t(*data_) << (8 * i);
        return v;
    }

    const uint8_t *data_;
    size_t left_;
};

} // namespace ejfuzz

// The entry point every target defines (libFuzzer's convention).
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

#endif // EJ_FUZZ_INPUT_H
