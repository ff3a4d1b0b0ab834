// Bicubic upscaling of the module's NVM lens-shading tables to a target grid:
// the raw samples are interpolated, then converted to gains and flipped.
#include <cstdlib>

#include "allocation.h"
#include "ej_cmc_lsc.h"
#include "ej_cmc_resample.h"
#include "ej_nvm.h"

namespace {

constexpr uint32_t kMaxFlipMode = 3;

// Frees the four working planes on every path out of the driver.
struct WorkingPlanes {
    float *block = nullptr;
    ~WorkingPlanes() { std::free(block); }
};

// Runs the upscaler that the table's sample width selects on its four
// channel tables. Returns its status.
uint32_t upscale_channels(const nvm_lsc_table &table, const ej_nvm_data &nvm, float *const *planes,
                          uint16_t dst_width, uint16_t dst_height)
{
    if (table.frac_bits > 8) {
        const uint16_t *src[4];
        for (int c = 0; c < 4; ++c)
            src[c] = static_cast<const uint16_t *>(table.channel_tables[c]);
        return image_bicubic_upscale_uint16_to_float(src, planes, nvm.lsc_grid_width,
                                                     nvm.lsc_grid_height, dst_width, dst_height, 4);
    }
    const uint8_t *src[4];
    for (int c = 0; c < 4; ++c)
        src[c] = static_cast<const uint8_t *>(table.channel_tables[c]);
    return image_bicubic_upscale_uint8_to_float(src, planes, nvm.lsc_grid_width,
                                                nvm.lsc_grid_height, dst_width, dst_height, 4);
}

// Writes the gains of one working plane into its output plane: bit 0 of
// flip_mode reverses each row, bit 1 the order of the rows.
void convert_and_flip(const float *working, float *out, size_t width, size_t height,
                      float divisor, uint32_t flip_mode)
{
    const bool mirror_columns = (flip_mode & 1u) != 0;
    const bool mirror_rows = (flip_mode & 2u) != 0;
    for (size_t r = 0; r < height; ++r) {
        const float *in_row = working + r * width;
        float *out_row = out + (mirror_rows ? height - 1 - r : r) * width;
        for (size_t i = 0; i < width; ++i)
            out_row[mirror_columns ? width - 1 - i : i] = in_row[i] / divisor + 1.0f;
    }
}

computed_lsc_tables *fail(computed_lsc_tables *result)
{
    deinit_computed_upscale_lsc_tables(result);
    return nullptr;
}

} // namespace

computed_lsc_tables *compute_upscaled_lsc_tables_bicubic(uint16_t dst_width, uint16_t dst_height,
                                                         const ej_nvm_data *nvm,
                                                         uint32_t flip_mode)
{
    if (nvm == nullptr || nvm->lsc_tables == nullptr || dst_width == 0 || dst_height == 0)
        return nullptr;
    // An empty NVM grid cannot be interpolated, and a flip mode above 3 has no
    // placement (the planes would stay unwritten): both are refused.
    if (nvm->lsc_grid_width == 0 || nvm->lsc_grid_height == 0 || flip_mode > kMaxFlipMode)
        return nullptr;

    const size_t plane_size = static_cast<size_t>(dst_width) * dst_height;
    WorkingPlanes working;
    working.block = static_cast<float *>(cmc_calloc(4 * plane_size, sizeof(float)));
    if (working.block == nullptr)
        return nullptr;
    float *const planes[4] = {working.block, working.block + plane_size,
                              working.block + 2 * plane_size, working.block + 3 * plane_size};

    auto *result = static_cast<computed_lsc_tables *>(cmc_calloc(1, sizeof(computed_lsc_tables)));
    if (result == nullptr)
        return nullptr;
    // At least one entry, so that an empty set still has its (empty) array
    // whatever the C library answers to a zero-sized request.
    const size_t count = nvm->lsc_table_count;
    result->tables = static_cast<float **>(cmc_calloc(count > 0 ? count : 1, sizeof(float *)));
    if (result->tables == nullptr)
        return fail(result);
    result->num_tables = nvm->lsc_table_count;

    for (size_t t = 0; t < count; ++t) {
        const nvm_lsc_table &table = nvm->lsc_tables[t];
        float *block = static_cast<float *>(cmc_malloc(4 * plane_size * sizeof(float)));
        if (block == nullptr)
            return fail(result);
        result->tables[t] = block;
        if (upscale_channels(table, *nvm, planes, dst_width, dst_height) != 0)
            return fail(result);
        const float divisor = static_cast<float>(UINT32_C(1) << (table.frac_bits & 31u));
        for (size_t c = 0; c < 4; ++c)
            convert_and_flip(planes[c], block + c * plane_size, dst_width, dst_height, divisor,
                             flip_mode);
    }
    return result;
}
