#include "slots.h"

#include <cstdint>
#include <cstring>

namespace ejtest {

namespace {
const char *const kNames[kSlotCount] = {
    "rec_1", "rec_1_name", "rec_1_pair_count", "rec_1_pairs", "rec_2", "reserved_5",
    "reserved_6", "rec_5", "rec_6", "rec_6_values", "rec_7", "rec_8", "rec_9",
    "lens_shading_record", "lens_shading_first_set", "lens_shading_first_grid",
    "lens_shading_set_params", "rec_13", "rec_13_values", "rec_13_params", "rec_14",
    "rec_14_table", "rec_15", "rec_15_curves", "reserved_24", "rec_15_table_a",
    "rec_15_table_b", "rec_15_table_c", "rec_15_table_d", "rec_16", "rec_16_values", "rec_17",
    "rec_17_ext", "rec_18", "rec_18_entries", "rec_18_tail", "rec_19", "rec_19_entries",
    "rec_19_values", "rec_20", "rec_20_list_header", "rec_20_list",
    "geometric_distortion2_wfov", "rec_23", "value_table", "rec_21", "block_record",
    "block_values", "block_entries", "dual_block", "plane_grid_set", "nvm_map_table",
    "four_plane_grid", "lens_shading4x4", "rec_31", "rec_32", "lens_shading_ratio", "rec_34",
    "pipe_compand", "pipe_decompand", "sensor_decompand", "rec_37", "cbd", "others",
    "container"};
} // namespace

const char *slot_name(int slot)
{
    return slot >= 0 && slot < kSlotCount ? kNames[slot] : "?";
}

std::vector<int> filled_slots(const cmc_parsed_data *parsed)
{
    std::vector<int> filled;
    const auto *bytes = reinterpret_cast<const uint8_t *>(parsed);
    for (int slot = 0; slot < kSlotCount; ++slot) {
        uint64_t word;
        std::memcpy(&word, bytes + 8 * slot, 8);
        if (word != 0)
            filled.push_back(slot);
    }
    return filled;
}

} // namespace ejtest
