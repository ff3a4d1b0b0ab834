/*
 * lens_shading_sets.h - the grid-set walks shared by the lens-shading grid
 * records (ids 28, 10) and the lens-shading ratio records (ids 33, 11)
 * (internal).
 *
 * Both families come in two forms:
 * - the pattern form (ids 28 and 33): a 16-entry grid_map over a 4 x 4
 *   colour-filter pattern, then num_sets sets of a 22-byte set header and
 *   G grids, G being the largest grid number in the map plus one;
 * - the older 2 x 2 form (ids 10 and 11): four grids per set, for the
 *   pattern positions (0,0), (0,1), (1,0), (1,1).
 * Both become the same structure shape: a header, the map, the counts and an
 * array of sets, each with 16 grid pointers indexed like the map. Every
 * position with a grid gets a private copy.
 *
 * Lengths are computed in 64 bits: the 16-bit counts multiply past 32.
 */
#ifndef CMC_LENS_SHADING_SETS_H
#define CMC_LENS_SHADING_SETS_H

#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "decoder_support.h"
#include "memcpy_s.h"

namespace lens_shading {

constexpr uint32_t kPositions = 16;

/* The map the 2 x 2 form stands for: positions 0, 1, 4, 5 to grids 0..3. */
constexpr int8_t kMap2x2[kPositions] = {0, 1, -1, -1, 2, 3, -1, -1,
                                        -1, -1, -1, -1, -1, -1, -1, -1};
constexpr uint32_t kPositions2x2[4] = {0, 1, 4, 5};

/* Fixed-point conversions of the older forms; exact in single precision. */
inline float from_q8_8(uint16_t v) { return float(v) * 0.00390625f; }
inline float from_q0_16(uint16_t v) { return float(v) * 1.52587890625e-05f; }

/* Pattern form: header, map at 8, num_sets at 24, extents at 28 and 30. */
constexpr uint32_t kPatternCountsEnd = 32;
constexpr uint32_t kPatternSetHeader = 22;

/* G: the largest non-negative grid number in the map plus one, 0 if none. */
inline uint32_t grid_count(const int8_t *map)
{
    uint32_t g = 0;
    for (uint32_t i = 0; i < kPositions; ++i) {
        if (map[i] >= 0 && uint32_t(map[i]) + 1 > g)
            g = uint32_t(map[i]) + 1;
    }
    return g;
}

/* Bytes of one grid. */
template <typename Structure> uint64_t grid_bytes(const Structure *s)
{
    return 2 * uint64_t(s->grid_width) * s->grid_height;
}

/*
 * Release a structure of either family: every grid of each of num_sets sets,
 * the set array, then the structure. A partly built structure has a
 * zero-filled (or no) set array, so visiting num_sets sets is always safe.
 */
template <typename Structure> void release(Structure *s)
{
    if (s == nullptr)
        return;
    if (s->sets != nullptr) {
        for (uint32_t k = 0; k < s->num_sets; ++k) {
            for (uint16_t *&grid : s->sets[k].grids) {
                // Most positions of a pattern have no grid: skip the call.
                if (grid != nullptr) {
                    std::free(grid);
                    grid = nullptr;
                }
            }
        }
        std::free(s->sets);
        s->sets = nullptr;
    }
    std::free(s);
}

/*
 * A private copy of one grid, or null when the allocation fails. The copy
 * overwrites every byte, so the block is not zero-filled first; an empty grid
 * still gets a distinct one-sample block, so that null always means a failed
 * allocation.
 */
inline uint16_t *copy_grid(const uint8_t *src, uint64_t bytes)
{
    if (bytes > SIZE_MAX)
        return nullptr;
    uint16_t *grid =
        static_cast<uint16_t *>(cmc_malloc(bytes != 0 ? size_t(bytes) : sizeof(uint16_t)));
    if (grid != nullptr)
        memcpy_s(grid, size_t(bytes), src, size_t(bytes));
    return grid;
}

/*
 * The structure with its counts and a zero-filled set array, or null when an
 * allocation fails (nothing is then left allocated).
 */
template <typename Structure> Structure *allocate(uint16_t num_sets, uint16_t width, uint16_t height)
{
    auto *s = alloc_array<Structure>(1);
    if (s == nullptr)
        return nullptr;
    s->num_sets = num_sets;
    s->grid_width = width;
    s->grid_height = height;
    s->sets = alloc_array<typename std::remove_pointer<decltype(s->sets)>::type>(num_sets);
    if (s->sets == nullptr) {
        std::free(s);
        return nullptr;
    }
    return s;
}

/* Length of a pattern-form record as its counts announce it (unrounded). */
inline uint64_t pattern_end(const uint8_t *record)
{
    const int8_t *map = reinterpret_cast<const int8_t *>(record + 8);
    const uint64_t grid = 2 * uint64_t(load_u16(record + 28)) * load_u16(record + 30);
    return kPatternCountsEnd +
           uint64_t(load_u16(record + 24)) * (kPatternSetHeader + grid_count(map) * grid);
}

/*
 * Build a pattern-form structure (ids 28 and 33) from a record whose size
 * test has passed. read_set_header(set_bytes, set) fills the set's header
 * fields (the family-specific part); the grids are copied here.
 * On failure returns null with *reason set, having released what it built.
 */
template <typename Structure, typename ReadSetHeader>
Structure *build_pattern(const uint8_t *record, ReadSetHeader read_set_header,
                         cmc_diag_reason *reason)
{
    Structure *s = allocate<Structure>(load_u16(record + 24), load_u16(record + 28),
                                       load_u16(record + 30));
    if (s == nullptr) {
        *reason = CMC_DIAG_NO_MEMORY;
        return nullptr;
    }
    memcpy_s(&s->header, sizeof s->header, record, 8);
    memcpy_s(s->grid_map, sizeof s->grid_map, record + 8, kPositions);

    const uint64_t grid = grid_bytes(s);
    const uint64_t set_length = kPatternSetHeader + grid_count(s->grid_map) * grid;
    const uint8_t *set_bytes = record + kPatternCountsEnd;
    for (uint32_t k = 0; k < s->num_sets; ++k, set_bytes += set_length) {
        auto &set = s->sets[k];
        read_set_header(set_bytes, set);
        set.grid_bits = uint16_t(16 - load_u16(set_bytes + 20));
        for (uint32_t i = 0; i < kPositions; ++i) {
            if (s->grid_map[i] < 0)
                continue;
            const uint8_t *src = set_bytes + kPatternSetHeader + uint64_t(s->grid_map[i]) * grid;
            set.grids[i] = copy_grid(src, grid);
            if (set.grids[i] == nullptr) {
                release(s);
                *reason = CMC_DIAG_NO_MEMORY;
                return nullptr;
            }
        }
    }
    return s;
}

/* Where the 2 x 2 form keeps its counts and sets. */
struct layout_2x2 {
    uint32_t counts_offset; // num_sets, grid_width, grid_height: u16 each
    uint32_t sets_offset;
    uint32_t set_header;    // bytes of a set before its four grids
};

/* Offset just past the sets of a 2 x 2 record (the param pairs start there). */
inline uint64_t sets_end_2x2(const uint8_t *record, const layout_2x2 &layout)
{
    const uint64_t n = load_u16(record + layout.counts_offset);
    const uint64_t grid = 2 * uint64_t(load_u16(record + layout.counts_offset + 2)) *
                          load_u16(record + layout.counts_offset + 4);
    return layout.sets_offset + n * (layout.set_header + 4 * grid);
}

/*
 * Fill the sets of a 2 x 2 structure (its counts, header and map already
 * set) from a record whose size test has passed. pairs points at the Q8.8
 * param pairs (two u16 per set) or is null when they are not used.
 * read_set_header(set_bytes, set) fills the family-specific header fields.
 * Returns false when an allocation fails; the caller releases the structure.
 */
template <typename Structure, typename ReadSetHeader>
bool fill_2x2(Structure *s, const uint8_t *record, const layout_2x2 &layout,
              const uint8_t *pairs, ReadSetHeader read_set_header)
{
    const uint64_t grid = grid_bytes(s);
    const uint64_t set_length = layout.set_header + 4 * grid;
    const uint8_t *set_bytes = record + layout.sets_offset;
    for (uint32_t k = 0; k < s->num_sets; ++k, set_bytes += set_length) {
        auto &set = s->sets[k];
        read_set_header(set_bytes, set);
        if (pairs != nullptr) {
            set.set_params[0] = from_q8_8(load_u16(pairs + 4 * k));
            set.set_params[1] = from_q8_8(load_u16(pairs + 4 * k + 2));
        }
        set.grid_bits = 12;
        for (uint32_t q = 0; q < 4; ++q) {
            uint16_t *copy = copy_grid(set_bytes + layout.set_header + q * grid, grid);
            if (copy == nullptr)
                return false;
            set.grids[kPositions2x2[q]] = copy;
        }
    }
    return true;
}

} // namespace lens_shading

#endif /* CMC_LENS_SHADING_SETS_H */
