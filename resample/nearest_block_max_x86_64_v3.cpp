// The block-maximum loops of the int32 nearest-neighbour downscale compiled
// for x86-64-v3: the column maxima and the fixed-width maxima across them run
// eight lanes wide. The integer maxima give the same values in any grouping.
#include <cstddef>
#include <cstdint>

#include "nearest_block_max.h"

void nearest_block_max_x86_64_v3(const int32_t *src, int32_t *dst, uint32_t src_width,
                                 uint32_t src_height, uint32_t dst_width, uint32_t dst_height,
                                 float ratio_x, float ratio_y)
{
    block_max_all(src, dst, src_width, src_height, dst_width, dst_height, ratio_x, ratio_y);
}
