// Release of a parse result, in a fixed order: each step skips an empty slot
// and clears a slot after releasing it. Views into kept copies are never
// released by themselves; the copy they point into is. Slot 64 (the caller's
// container descriptor) is not touched.
#include <cstdlib>

#include "decoders.h"
#include "ej_cmc_parser.h"

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

    // Decoded structures whose owned arrays go with them; their decoders
    // bring their release routines. No decoder fills these slots yet, so the
    // structure is all there is to release.
    release(p->geometric_distortion2_wfov);
    release(p->rec_23);
    release(p->value_table);
    release(p->rec_21);
    release(p->block_entries); // the entries before the record they index
    release(p->block_record);
    release(p->dual_block);
    release(p->plane_grid_set);
    release(p->nvm_map_table);
    release(p->four_plane_grid);
    release(p->lens_shading4x4);
    release(p->rec_31);
    release(p->rec_32);
    release(p->rec_34);
    release(p->lens_shading_ratio);
    release(p->sensor_decompand);
    release(p->pipe_compand);
    release(p->pipe_decompand);
    release(p->rec_37);
    release(p->cbd);
    release(p->others);

    std::free(p);
}
