// The bands of the area-averaging downscale: which source samples an output
// covers on one axis, and with which weights. Shared by the portable loops and
// the x86-64-v3 loops so that both walk exactly the same bands.
//
// Everything here has internal linkage (anonymous namespace) and calls no
// inline function with external linkage: the header is compiled once for the
// portable target and once for x86-64-v3, and a shared out-of-line copy could
// otherwise be taken from the wrong one (see bicubic_math.h).
#ifndef EJ_CMC_AREA_BANDS_H
#define EJ_CMC_AREA_BANDS_H

#include <cstdint>

namespace {

// One band on one axis: samples first ... last_exclusive - 1, the first
// weighing first_weight, a trailing partial sample (when end_frac != 0)
// weighing end_frac, the others 1.
struct band {
    uint32_t first;
    uint32_t end;      // floor of the band's end; samples first ... end - 1 are whole or first
    float first_weight;
    float end_frac;    // weight of sample `end` when non-zero
};

// Steps one axis from output to output; the next band starts where the
// previous one ended.
class band_walker {
public:
    band_walker(float ratio, float extent) : ratio_(ratio), extent_(extent) {}

    band next(uint32_t k)
    {
        float e = float(k) * ratio_;
        if (e > extent_)
            e = extent_;
        const uint32_t end = uint32_t(uint16_t(__builtin_floorf(e)));
        const float frac = e - float(end);
        const band b = {prev_end_, end, 1.0f - prev_frac_, frac};
        prev_end_ = end;
        prev_frac_ = frac;
        return b;
    }

private:
    float ratio_;
    float extent_;
    uint32_t prev_end_ = 0;
    float prev_frac_ = 0.0f;
};

} // namespace

#endif // EJ_CMC_AREA_BANDS_H
