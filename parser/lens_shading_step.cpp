// The lens-shading step after the walk: the module's NVM lens-shading tables
// are brought onto the tuning grid and the tuned grids rewritten from them
// and the ratio grids.
#include "lens_shading_step.h"

#include "byte_io.h"
#include "cmc_records.h"
#include "ej_cmc_lsc.h"

namespace {

// Fields of the id-17 record (kept whole in slot 31) that the step reads.
constexpr uint32_t kRec17ChannelOrder = 10;
constexpr uint32_t kRec17FlipMode = 12;
// The u16 that the id-17 extension view points at: 2 leaves a border of the
// NVM grid out of the fit.
constexpr uint16_t kExcludeBorder = 2;

} // namespace

void run_lens_shading_step(cmc_parsed_data *parsed, const struct ej_nvm_data *nvm)
{
    cmc_lens_shading4x4 *ls = parsed->lens_shading4x4;
    const cmc_lens_shading_ratio *ratio = parsed->lens_shading_ratio;
    if (ls == nullptr || ratio == nullptr)
        return;
    // The codes of the step come from the id-2 and id-17 records. A container
    // that carries lens-shading sets without them (or without the id-17
    // extension, present from version 101 on) gives nothing to read them
    // from: the grids then stay as decoded.
    if (parsed->rec_2 == nullptr || parsed->rec_17 == nullptr || parsed->rec_17_ext == nullptr)
        return;

    const uint32_t flip_mode = load_u16(parsed->rec_17 + kRec17FlipMode);
    const uint8_t exclude_border = load_u16(parsed->rec_17_ext) == kExcludeBorder ? 1 : 0;
    computed_lsc_tables *tables = compute_upscaled_lsc_tables_polynom4th(
        ls->grid_width, ls->grid_height, nvm, flip_mode, exclude_border);
    if (tables == nullptr)
        return;
    // A correction that stops early keeps the sets it corrected; its status
    // changes nothing here.
    (void)ratio_based_sample_to_sample_correction(ls, ratio, tables, parsed->rec_2->cfa_pattern,
                                                  load_u16(parsed->rec_17 + kRec17ChannelOrder));
    deinit_computed_upscale_lsc_tables(tables);
}
