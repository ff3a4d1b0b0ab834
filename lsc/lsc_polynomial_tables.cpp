// Polynomial upscaling of the module's NVM lens-shading tables to a target
// grid: per NVM table the four channel tables are converted to gains, placed
// as the flip mode says, fitted by the 15-term 4th-order polynomial,
// evaluated on the target grid and normalised to a smallest gain of 1.0.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "allocation.h"
#include "ej_cmc_lsc.h"
#include "isa_dispatch.h"
#include "lsc_x86_64_v3.h"
#include "ej_nvm.h"

namespace {

constexpr uint16_t kPolynomialTerms = 15;
// Samples left out at every edge of the NVM grid when the border is excluded.
constexpr uint16_t kBorderMargin = 2;

// The fit's scratch, shared by every table and channel of one call and freed
// on every path out of it.
struct FitScratch {
    float *design = nullptr;
    float *design_t = nullptr;
    float *lu = nullptr;
    uint32_t *pivot = nullptr;
    float *working[4] = {nullptr, nullptr, nullptr, nullptr};

    ~FitScratch()
    {
        std::free(design);
        std::free(design_t);
        std::free(lu);
        std::free(pivot);
        for (float *w : working)
            std::free(w);
    }
    bool allocate(size_t m)
    {
        design = static_cast<float *>(cmc_calloc(m * kPolynomialTerms, sizeof(float)));
        if (design == nullptr)
            return false;
        design_t = static_cast<float *>(cmc_calloc(m * kPolynomialTerms, sizeof(float)));
        if (design_t == nullptr)
            return false;
        lu = static_cast<float *>(cmc_calloc(kPolynomialTerms * kPolynomialTerms, sizeof(float)));
        if (lu == nullptr)
            return false;
        pivot = static_cast<uint32_t *>(cmc_calloc(kPolynomialTerms, sizeof(uint32_t)));
        if (pivot == nullptr)
            return false;
        for (float *&w : working) {
            w = static_cast<float *>(cmc_calloc(m, sizeof(float)));
            if (w == nullptr)
                return false;
        }
        return true;
    }
};

// The divisor is a power of two from 1 to 2^31 and v at most 65535, so
// v / divisor is exact, and so is v * (1 / divisor): the product has the
// quotient's bits (a multiplication instead of a division per sample).
template <typename Sample>
void convert_channel(const void *table, float *working, size_t w, size_t h, float divisor,
                     uint32_t flip_mode)
{
    const float reciprocal = 1.0f / divisor;
    const auto *samples = static_cast<const Sample *>(table);
    const bool mirror_columns = (flip_mode & 1u) != 0;
    const bool mirror_rows = (flip_mode & 2u) != 0;
    for (size_t r = 0; r < h; ++r) {
        float *out = working + (mirror_rows ? h - 1 - r : r) * w;
#if defined(EJ_CMC_HAVE_X86_64_V3)
        if (cmc_isa_selected() == cmc_isa::x86_64_v3) {
            lsc_convert_row_x86_64_v3(samples + r * w, sizeof(Sample) == 2, out, w, reciprocal,
                                      mirror_columns);
            continue;
        }
#endif
        for (size_t c = 0; c < w; ++c)
            out[mirror_columns ? w - 1 - c : c] =
                static_cast<float>(samples[r * w + c]) * reciprocal + 1.0f;
    }
}

// Sample v becomes the gain v / 2^(frac_bits mod 32) + 1.0 at the position
// that flip_mode gives. Flip modes above 3 convert nothing: the working
// tables keep what they hold (zeros for the first table), and the
// normalisation refuses the result. Returns false for a missing channel
// table.
bool convert_table(const nvm_lsc_table &table, float *const *working, size_t w, size_t h,
                   uint32_t flip_mode)
{
    for (const void *channel : table.channel_tables)
        if (channel == nullptr)
            return false;
    if (flip_mode > 3)
        return true;
    const float divisor = static_cast<float>(UINT32_C(1) << (table.frac_bits & 31u));
    for (int c = 0; c < 4; ++c) {
        if (table.frac_bits > 8)
            convert_channel<uint16_t>(table.channel_tables[c], working[c], w, h, divisor,
                                      flip_mode);
        else
            convert_channel<uint8_t>(table.channel_tables[c], working[c], w, h, divisor,
                                     flip_mode);
    }
    return true;
}

// Divides the plane by its smallest value and raises values not above 1.0
// to 1.0. A NaN anywhere makes the minimum NaN; like a zero or negative
// minimum it is refused (false), leaving the plane as it was.
bool normalise(float *plane, size_t count)
{
#if defined(EJ_CMC_HAVE_X86_64_V3)
    if (cmc_isa_selected() == cmc_isa::x86_64_v3 && count != 0)
        return lsc_normalise_x86_64_v3(plane, count);
#endif
    float min = plane[0];
    for (size_t i = 0; i < count; ++i) {
        if (std::isnan(plane[i]))
            return false;
        if (plane[i] < min)
            min = plane[i];
    }
    if (!(min > 0.0f))
        return false;
    for (size_t i = 0; i < count; ++i) {
        const float v = plane[i] / min;
        plane[i] = v > 1.0f ? v : 1.0f;
    }
    return true;
}

computed_lsc_tables *fail(computed_lsc_tables *result)
{
    deinit_computed_upscale_lsc_tables(result);
    return nullptr;
}

} // namespace

computed_lsc_tables *compute_upscaled_lsc_tables_polynom4th(uint16_t dst_width,
                                                            uint16_t dst_height,
                                                            const ej_nvm_data *nvm,
                                                            uint32_t flip_mode,
                                                            uint8_t exclude_border)
{
    // A target of one row or column is refused with the empty ones: the
    // evaluation has no step size there and would leave the planes unwritten
    // for the normalisation to read.
    if (dst_width < 2 || dst_height < 2 || nvm == nullptr)
        return nullptr;
    const size_t w = nvm->lsc_grid_width;
    const size_t h = nvm->lsc_grid_height;
    if (w == 0 || h == 0)
        return nullptr;
    const size_t m = w * h;
    const size_t count = nvm->lsc_table_count;
    // A table count without tables is refused rather than read.
    if (count > 0 && nvm->lsc_tables == nullptr)
        return nullptr;

    auto *result = static_cast<computed_lsc_tables *>(cmc_calloc(1, sizeof(computed_lsc_tables)));
    if (result == nullptr)
        return nullptr;
    FitScratch fit;
    if (!fit.allocate(m))
        return fail(result);
    // At least one entry, so that an empty set still has its (empty) array
    // whatever the C library answers to a zero-sized request.
    result->tables = static_cast<float **>(cmc_calloc(count > 0 ? count : 1, sizeof(float *)));
    if (result->tables == nullptr)
        return fail(result);
    result->num_tables = nvm->lsc_table_count;

    const uint16_t margin = exclude_border != 0 ? kBorderMargin : 0;
    const uint32_t status =
        exclude_border != 0
            ? lu_decomposition_lsc(fit.design, fit.design_t, fit.lu, fit.pivot,
                                   nvm->lsc_grid_width, nvm->lsc_grid_height, kPolynomialTerms,
                                   margin, margin)
            : lu_decomposition(fit.design, fit.design_t, fit.lu, fit.pivot, nvm->lsc_grid_width,
                               nvm->lsc_grid_height, kPolynomialTerms);
    if (status != 0)
        return fail(result);

    const size_t plane_size = static_cast<size_t>(dst_width) * dst_height;
    for (size_t t = 0; t < count; ++t) {
        float *block = static_cast<float *>(cmc_malloc(4 * plane_size * sizeof(float)));
        if (block == nullptr)
            return fail(result);
        result->tables[t] = block;
        if (!convert_table(nvm->lsc_tables[t], fit.working, w, h, flip_mode))
            return fail(result);
        float *const planes[4] = {block, block + plane_size, block + 2 * plane_size,
                                  block + 3 * plane_size};
        if (lsc_polynomial_upscale_float(fit.design_t, fit.lu, fit.pivot, fit.working, planes,
                                         nvm->lsc_grid_width, nvm->lsc_grid_height, dst_width,
                                         dst_height, kPolynomialTerms, margin, margin,
                                         exclude_border) != 0)
            return fail(result);
        for (float *plane : planes)
            if (!normalise(plane, plane_size))
                return fail(result);
    }
    return result;
}
