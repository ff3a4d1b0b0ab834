/*
 * record_release.h - whole-structure releases of the decoded records that
 * have no exported routine for all they own (internal). Each accepts null
 * and a partly built structure, releases the owned arrays first and the
 * structure last; the decoders use them to replace earlier contents and
 * ej_cmc_parser_deinit uses them in its release order.
 */
#ifndef CMC_RECORD_RELEASE_H
#define CMC_RECORD_RELEASE_H

#include "cmc_records.h"

/* Slot 42: the plane block, the elements and their values, element_tail,
 * the map array, the unit array, then the structure. */
void release_geometric_distortion2_wfov(cmc_geometric_distortion2_wfov *gd);
/* Slot 44: the values of each of its num_entries entries, the entry array,
 * then the structure. */
void release_value_table(cmc_value_table *table);
/* Slot 50: both buffers of each element, the element array, the record
 * copy, then the structure. */
void release_plane_grid_set(cmc_plane_grid_set *set);
/* Slot 52: the plane block, then the structure. */
void release_four_plane_grid(cmc_four_plane_grid *grid);
/* Slot 51: items, map, aux, then the structure. */
void release_nvm_map_table(cmc_nvm_map_table *table);

#endif /* CMC_RECORD_RELEASE_H */
