// Release of a parse result, in a fixed order: each step skips an empty slot
// and clears a slot after releasing it. Views into kept copies are never
// released by themselves; the copy they point into is. Slot 64 (the caller's
// container descriptor) is not touched.
#include <cstdlib>

#include "decoders.h"
#include "cmc_records.h"
#include "ej_cmc_parser.h"
#include "record_release.h"

namespace {

template <typename T> void release(T *&slot)
{
    std::free(slot);
    slot = nullptr;
}

} // namespace

void ej_cmc_parser_deinit(cmc_parsed_data *p)
{
    if (p == nullptr)
        return;

    release(p->rec_1_pairs);
    release(p->rec_1);
    release(p->rec_2);
    release(p->rec_5);
    release(p->rec_6);
    release(p->rec_7);
    release(p->rec_8);
    release(p->rec_9);
    release(p->lens_shading_record);
    release(p->rec_13);
    release(p->rec_13_values);
    release(p->rec_14);
    // Slot 23: each curve's second and first array, the curve array, the set.
    rec_15_curve_set_free(p->rec_15_curves);
    p->rec_15_curves = nullptr;
    release(p->rec_15);
    release(p->rec_16);
    release(p->rec_17);
    release(p->rec_18);
    release(p->rec_19);
    release(p->rec_20);

    // Decoded structures go with their owned arrays, through their decoders'
    // release routines; views into kept copies are only cleared.
    release_geometric_distortion2_wfov(p->geometric_distortion2_wfov);
    p->geometric_distortion2_wfov = nullptr;
    release(p->rec_23);
    release_value_table(p->value_table);
    p->value_table = nullptr;
    release(p->rec_21);
    release(p->block_entries); // the entries before the record they index
    release(p->block_record);
    p->block_values = nullptr;
    release(p->dual_block);
    release_plane_grid_set(p->plane_grid_set);
    p->plane_grid_set = nullptr;
    release_nvm_map_table(p->nvm_map_table); // items, map, aux, then the structure
    p->nvm_map_table = nullptr;
    release_four_plane_grid(p->four_plane_grid);
    p->four_plane_grid = nullptr;
    cmc_lens_shading4x4_deinit(p->lens_shading4x4);
    p->lens_shading4x4 = nullptr;
    release(p->rec_31);
    release(p->rec_32);
    release(p->rec_34);
    cmc_lens_shading_ratio_deinit(p->lens_shading_ratio);
    p->lens_shading_ratio = nullptr;
    cmc_sensor_decompand_deinit(p->sensor_decompand);
    p->sensor_decompand = nullptr;
    cmc_pipe_compand_decompand_deinit(p->pipe_compand, p->pipe_decompand); // compand first
    p->pipe_compand = nullptr;
    p->pipe_decompand = nullptr;
    release(p->rec_37);
    cmc_cbd_deinit(p->cbd);
    p->cbd = nullptr;
    release(p->others);

    std::free(p);
}
