// Ratio-based sample-to-sample correction: the tuned lens-shading grids are
// rewritten as ratio grid times the module's computed NVM gains, position by
// position of the sensor's colour-filter pattern.
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "cmc_records.h"
#include "ej_cmc_lsc.h"

namespace {

constexpr uint32_t kOk = 0;
constexpr uint32_t kBadData = 8;
constexpr uint32_t kNullArgument = 32;

// Plane references of a pattern: Q0 ... Q3, or none at that position.
constexpr int8_t kNone = -1;

// Which ordered plane Q feeds each position of the pattern, row-major with 4
// columns a row (the indexing of the grids); rows and cols give the extent.
struct Pattern {
    uint32_t rows = 0;
    uint32_t cols = 0;
    int8_t q[16] = {kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone,
                    kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone};
    bool averages_q0_q3 = false;
};

// The 4 x 4 patterns 256 ... 263, row by row. Q0 and Q3 (averaged first)
// cover eight positions, Q1 and Q2 two each; kNone positions are not
// corrected.
constexpr int8_t N_ = kNone;
constexpr int8_t kPattern4x4[8][16] = {
    {1, 3, 2, 3, 0, N_, 0, N_, 2, 3, 1, 3, 0, N_, 0, N_},  // 256
    {3, 2, 3, 1, N_, 0, N_, 0, 3, 1, 3, 2, N_, 0, N_, 0},  // 257
    {2, 3, 1, 3, 0, N_, 0, N_, 1, 3, 2, 3, 0, N_, 0, N_},  // 258
    {3, 1, 3, 2, N_, 0, N_, 0, 3, 2, 3, 1, N_, 0, N_, 0},  // 259
    {0, N_, 0, N_, 2, 3, 1, 3, 0, N_, 0, N_, 1, 3, 2, 3},  // 260
    {N_, 0, N_, 0, 3, 1, 3, 2, N_, 0, N_, 0, 3, 2, 3, 1},  // 261
    {0, N_, 0, N_, 1, 3, 2, 3, 0, N_, 0, N_, 2, 3, 1, 3},  // 262
    {N_, 0, N_, 0, 3, 2, 3, 1, N_, 0, N_, 0, 3, 1, 3, 2},  // 263
};

// Builds the pattern of a colour-filter code; false for an unsupported one.
bool make_pattern(uint32_t cfa_pattern, Pattern *p)
{
    if (cfa_pattern <= 3) {
        // 2 x 2: position (r, c) holds Q((2r + c) XOR (3 - code)).
        p->rows = 2;
        p->cols = 2;
        for (uint32_t r = 0; r < 2; ++r)
            for (uint32_t c = 0; c < 2; ++c)
                p->q[r * 4 + c] = int8_t((2 * r + c) ^ (3 - cfa_pattern));
        return true;
    }
    if (cfa_pattern >= 128 && cfa_pattern <= 131) {
        // 4 x 2: every plane of the 2 x 2 pattern covers two columns.
        const uint32_t base = cfa_pattern - 128;
        p->rows = 2;
        p->cols = 4;
        for (uint32_t r = 0; r < 2; ++r)
            for (uint32_t c = 0; c < 4; ++c)
                p->q[r * 4 + c] = int8_t((2 * r + c / 2) ^ (3 - base));
        return true;
    }
    if (cfa_pattern >= 256 && cfa_pattern <= 263) {
        p->rows = 4;
        p->cols = 4;
        for (uint32_t i = 0; i < 16; ++i)
            p->q[i] = kPattern4x4[cfa_pattern - 256][i];
        p->averages_q0_q3 = true;
        return true;
    }
    return false;
}

/*
 * The corrected sample: the low 16 bits of the product truncated toward zero.
 * Where the product lies inside the signed 32-bit range this is exactly the
 * 32-bit truncation the format defines (no saturation: 65536 and above wrap
 * around). A float conversion outside that range has no defined result in
 * C++, so the truncation goes through 64 bits instead, which keeps the same
 * low 16 bits wherever the 32-bit one is defined and continues the
 * wrap-around beyond it. A finite float of magnitude 2^39 or more is a
 * multiple of 2^16, so every product at or beyond 2^63 in magnitude, an
 * infinity and NaN all yield 0.
 */
inline uint16_t corrected_sample(uint16_t ratio_sample, float gain)
{
    const float product = float(ratio_sample) * gain;
    // A select, not a branch: the loop stays a plain element-wise pass.
    const float in_range = std::fabs(product) < 0x1p63f ? product : 0.0f;
    return uint16_t(uint64_t(int64_t(in_range)));
}

// Replaces the samples of one grid position; n samples of every array.
void correct_position(uint16_t *dst, const uint16_t *ratio, const float *gain, size_t n)
{
    for (size_t k = 0; k < n; ++k)
        dst[k] = corrected_sample(ratio[k], gain[k]);
}

} // namespace

uint32_t ratio_based_sample_to_sample_correction(cmc_lens_shading4x4 *lens_shading,
                                                 const cmc_lens_shading_ratio *ratio,
                                                 computed_lsc_tables *computed,
                                                 uint32_t cfa_pattern, uint32_t channel_order)
{
    if (ratio == nullptr || computed == nullptr || lens_shading == nullptr)
        return kNullArgument;
    if (lens_shading->num_sets != ratio->num_sets)
        return kBadData;
    if (lens_shading->num_sets == 0)
        return kOk;

    const size_t n = size_t(lens_shading->grid_width) * lens_shading->grid_height;
    // The ratio grids pair sample for sample with the lens-shading grids: a
    // ratio structure whose grids hold fewer samples cannot be read that far,
    // so it is refused as inconsistent before anything changes.
    if (size_t(ratio->grid_width) * ratio->grid_height < n)
        return kBadData;
    // The codes are the same for every set: an unsupported one fails on the
    // first set, before anything changes.
    Pattern pattern;
    if (channel_order > 3 || !make_pattern(cfa_pattern, &pattern))
        return kBadData;
    if (lens_shading->sets == nullptr || ratio->sets == nullptr)
        return kBadData;

    for (uint32_t i = 0; i < lens_shading->num_sets; ++i) {
        const cmc_lens_shading_ratio_set &r = ratio->sets[i];
        cmc_lens_shading4x4_set &s = lens_shading->sets[i];
        const uint32_t index = r.nvm_table_index;
        if (index == 0 || index - 1 >= computed->num_tables)
            return kBadData; // the sets before this one stay corrected

        // Planes P0 ... P3 of the table, then ordered: Qj = P(j XOR (3 - m)).
        // A missing table gives missing planes; their positions are skipped.
        float *table = computed->tables != nullptr ? computed->tables[index - 1] : nullptr;
        float *q[4] = {nullptr, nullptr, nullptr, nullptr};
        if (table != nullptr)
            for (uint32_t j = 0; j < 4; ++j)
                q[j] = table + size_t(j ^ (3 - channel_order)) * n;

        if (pattern.averages_q0_q3 && table != nullptr)
            for (size_t k = 0; k < n; ++k)
                q[0][k] = q[3][k] = (q[3][k] + q[0][k]) * 0.5f;

        s.set_id = r.set_id;
        for (int p = 0; p < 4; ++p)
            s.set_params[p] = r.set_params[p];
        s.grid_bits = r.grid_bits;

        if (n == 0)
            continue;
        for (uint32_t row = 0; row < pattern.rows; ++row) {
            for (uint32_t col = 0; col < pattern.cols; ++col) {
                const uint32_t pos = row * 4 + col;
                uint16_t *dst = s.grids[pos];
                const uint16_t *src = r.grids[pos];
                const float *gain = pattern.q[pos] == kNone ? nullptr : q[pattern.q[pos]];
                if (dst == nullptr || src == nullptr || gain == nullptr)
                    continue;
                correct_position(dst, src, gain, n);
            }
        }
    }
    return kOk;
}
