// Pins the layout of cmc_parsed_data on LP64: 65 pointer-wide slots, slot N
// at byte 8 * N, in the order users index them. A field moved, resized or
// inserted breaks the build here rather than a camera stack at run time.
#include <cstddef>

#include "ej_cmc_parser.h"

#if defined(__LP64__)
#define SLOT(n, field) static_assert(offsetof(cmc_parsed_data, field) == 8 * (n), #field)
SLOT(0, rec_1); SLOT(1, rec_1_name); SLOT(2, rec_1_pair_count); SLOT(3, rec_1_pairs);
SLOT(4, rec_2); SLOT(5, reserved_5); SLOT(6, reserved_6); SLOT(7, rec_5); SLOT(8, rec_6);
SLOT(9, rec_6_values); SLOT(10, rec_7); SLOT(11, rec_8); SLOT(12, rec_9);
SLOT(13, lens_shading_record); SLOT(14, lens_shading_first_set);
SLOT(15, lens_shading_first_grid); SLOT(16, lens_shading_set_params); SLOT(17, rec_13);
SLOT(18, rec_13_values); SLOT(19, rec_13_params); SLOT(20, rec_14); SLOT(21, rec_14_table);
SLOT(22, rec_15); SLOT(23, rec_15_curves); SLOT(24, reserved_24); SLOT(25, rec_15_table_a);
SLOT(26, rec_15_table_b); SLOT(27, rec_15_table_c); SLOT(28, rec_15_table_d);
SLOT(29, rec_16); SLOT(30, rec_16_values); SLOT(31, rec_17); SLOT(32, rec_17_ext);
SLOT(33, rec_18); SLOT(34, rec_18_entries); SLOT(35, rec_18_tail); SLOT(36, rec_19);
SLOT(37, rec_19_entries); SLOT(38, rec_19_values); SLOT(39, rec_20);
SLOT(40, rec_20_list_header); SLOT(41, rec_20_list); SLOT(42, geometric_distortion2_wfov);
SLOT(43, rec_23); SLOT(44, value_table); SLOT(45, rec_21); SLOT(46, block_record);
SLOT(47, block_values); SLOT(48, block_entries); SLOT(49, dual_block);
SLOT(50, plane_grid_set); SLOT(51, nvm_map_table); SLOT(52, four_plane_grid);
SLOT(53, lens_shading4x4); SLOT(54, rec_31); SLOT(55, rec_32);
SLOT(56, lens_shading_ratio); SLOT(57, rec_34); SLOT(58, pipe_compand);
SLOT(59, pipe_decompand); SLOT(60, sensor_decompand); SLOT(61, rec_37); SLOT(62, cbd);
SLOT(63, others); SLOT(64, container);
#undef SLOT
static_assert(sizeof(cmc_parsed_data) == 65 * 8, "65 slots");
#endif
