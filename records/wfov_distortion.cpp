// Wide field-of-view geometric distortion record (id 22, slot 42): a list of
// two-plane maps, from version 101 a block of 1040-byte lookup units, from
// version 102 a list of variable-length elements and their raw tail. All of
// it is copied out of the record, whose copy is then released.
//
// The format gives no size test. The record is measured first, part by part
// as its counts announce them, and dropped whole when it does not reach the
// end of the last field the decoder would read; nothing is allocated before
// that, so no count can make an allocation larger than the record.
#include <cstddef>

#include "decoder_support.h"
#include "decoders.h"
#include "memcpy_s.h"
#include "record_release.h"

namespace {

constexpr uint32_t kMapsOffset = 22;
constexpr uint64_t kUnitBytes = sizeof(cmc_gd2_wfov_unit); // 1040
constexpr uint64_t kElementHead = 16;                      // elem_a, elem_b, elem_c, num_values
constexpr uint64_t kTailBytesPerElement = 24;

// W: values per plane, the signed product of the map extents.
int64_t plane_words(const uint8_t *record)
{
    return int64_t(load_i16(record + 12)) * load_i16(record + 14);
}

// Whether the record reaches the end of every field the decoder reads. The
// element list ends at the first element without values (the decoder stops
// there, so neither the later elements nor the tail are read).
bool measure(const uint8_t *record, cmc_diag_reason *reason)
{
    *reason = CMC_DIAG_TOO_SHORT;
    if (!reaches(record, kMapsOffset))
        return false;
    const uint16_t num_maps = load_u16(record + 20);
    const int64_t w = plane_words(record);
    if (num_maps != 0 && w < 0) {
        *reason = CMC_DIAG_BAD_COUNT;
        return false;
    }
    uint64_t end = kMapsOffset + (num_maps != 0 ? num_maps * (2 + 8 * uint64_t(w)) : 0);
    if (!reaches(record, end))
        return false;
    const uint8_t version = record_version(record);
    if (version <= 100)
        return true;

    if (!reaches(record, end + 8))
        return false;
    const int32_t num_units = load_i32(record + end + 4);
    end += 8 + (num_units > 0 ? uint64_t(num_units) * kUnitBytes : 0) + kUnitBytes;
    if (!reaches(record, end))
        return false;
    if (version == 101)
        return true;

    if (!reaches(record, end + 8))
        return false;
    const int32_t num_elements = load_i32(record + end + 4);
    end += 8;
    // A negative count asks for an element array that cannot be allocated:
    // the decoder reads nothing past the count.
    if (num_elements < 0)
        return true;
    // Each element head is 16 bytes and is checked before the next one is
    // read, so the loop ends within size / 16 turns whatever the count says.
    for (int32_t k = 0; k < num_elements; ++k) {
        if (!reaches(record, end + kElementHead))
            return false;
        const uint32_t num_values = load_u32(record + end + 12);
        end += kElementHead + 4 * uint64_t(num_values);
        if (num_values == 0)
            return true;
        if (!reaches(record, end))
            return false;
    }
    return reaches(record, end + kTailBytesPerElement * uint64_t(num_elements));
}

// Maps: one array of num_maps maps and one plane block of num_maps * 8W
// bytes. False when an allocation fails (nothing of the maps is then kept).
bool copy_maps(cmc_geometric_distortion2_wfov *gd, const uint8_t *record, uint32_t *offset)
{
    const uint64_t w = uint64_t(plane_words(record)); // not negative with maps
    gd->maps = alloc_array<cmc_gd2_wfov_map>(gd->num_maps);
    uint32_t *block = alloc_array<uint32_t>(gd->num_maps * 2 * w);
    if (gd->maps == nullptr || block == nullptr) {
        std::free(block);
        release_slot(gd->maps);
        return false;
    }
    for (uint32_t k = 0; k < gd->num_maps; ++k) {
        cmc_gd2_wfov_map &map = gd->maps[k];
        map.map_id = load_u16(record + *offset);
        map.plane_a = block + k * 2 * w; // map 0's owns the block
        map.plane_b = map.plane_a + w;
        memcpy_s(map.plane_a, size_t(8 * w), record + *offset + 2, size_t(8 * w));
        *offset += uint32_t(2 + 8 * w);
    }
    return true;
}

// Version 101: ext_value, num_units, the unit array, the inline unit. False
// when the unit array cannot be allocated (the rest is then not read).
bool copy_units(cmc_geometric_distortion2_wfov *gd, const uint8_t *record, uint32_t *offset)
{
    gd->ext_value = load_u32(record + *offset);
    gd->num_units = load_i32(record + *offset + 4);
    *offset += 8;
    if (gd->num_units > 0) {
        const uint64_t bytes = uint64_t(gd->num_units) * kUnitBytes;
        gd->units = alloc_array<uint8_t>(bytes);
        if (gd->units == nullptr)
            return false;
        memcpy_s(gd->units, size_t(bytes), record + *offset, size_t(bytes));
        *offset += uint32_t(bytes);
    }
    memcpy_s(&gd->unit, sizeof gd->unit, record + *offset, kUnitBytes);
    *offset += uint32_t(kUnitBytes);
    return true;
}

// Version 102: ext2_value, num_elements, the elements with their values, the
// raw tail. An element without values, or a failed allocation of values or
// tail, drops the whole version-102 part (num_elements keeps its value).
void copy_elements(cmc_geometric_distortion2_wfov *gd, const uint8_t *record, uint32_t offset)
{
    gd->ext2_value = load_f32(record + offset);
    gd->num_elements = load_i32(record + offset + 4);
    offset += 8;
    // A negative count is an element array that cannot be allocated: the
    // structure keeps ext2_value and the count, without elements or tail.
    if (gd->num_elements < 0) {
        cmc_diag_record(record, CMC_DIAG_BAD_COUNT);
        return;
    }
    // When the element heads cannot all fit in the rest of the record, the
    // measure has already met the element without values that ends the list,
    // so the outcome is known: the list is dropped. It is reached without
    // first allocating the announced array, which a few bytes could make as
    // large as 48 GiB.
    if (uint64_t(gd->num_elements) * kElementHead > record_size(record) - offset) {
        cmc_diag_record(record, CMC_DIAG_BAD_COUNT);
        gd->ext2_value = 0.0f;
        return;
    }
    gd->elements = alloc_array<cmc_gd2_wfov_element>(uint64_t(gd->num_elements));
    if (gd->elements == nullptr) {
        cmc_diag_record(record, CMC_DIAG_NO_MEMORY);
        return;
    }
    for (int32_t k = 0; k < gd->num_elements; ++k) {
        cmc_gd2_wfov_element &e = gd->elements[k];
        e.elem_a = load_f32(record + offset);
        e.elem_b = load_f32(record + offset + 4);
        e.elem_c = load_u32(record + offset + 8);
        e.num_values = load_u32(record + offset + 12);
        offset += uint32_t(kElementHead);
        if (e.num_values == 0) {
            cmc_diag_record(record, CMC_DIAG_BAD_COUNT);
            cmc_geometric_distortion2_wfov_free(gd);
            return;
        }
        const uint64_t bytes = 4 * uint64_t(e.num_values);
        e.values = alloc_array<uint32_t>(e.num_values);
        if (e.values == nullptr) {
            cmc_diag_record(record, CMC_DIAG_NO_MEMORY);
            cmc_geometric_distortion2_wfov_free(gd);
            return;
        }
        memcpy_s(e.values, size_t(bytes), record + offset, size_t(bytes));
        offset += uint32_t(bytes);
    }
    const uint64_t tail = kTailBytesPerElement * uint64_t(gd->num_elements);
    gd->element_tail = alloc_array<uint8_t>(tail);
    if (gd->element_tail == nullptr) {
        cmc_diag_record(record, CMC_DIAG_NO_MEMORY);
        cmc_geometric_distortion2_wfov_free(gd);
        return;
    }
    memcpy_s(gd->element_tail, size_t(tail), record + offset, size_t(tail));
}

} // namespace

void cmc_geometric_distortion2_wfov_free(cmc_geometric_distortion2_wfov *gd)
{
    if (gd == nullptr)
        return;
    if (gd->elements != nullptr) {
        for (int32_t k = 0; k < gd->num_elements; ++k)
            release_slot(gd->elements[k].values);
        release_slot(gd->elements);
    }
    release_slot(gd->element_tail);
    gd->ext2_value = 0.0f;
}

void release_geometric_distortion2_wfov(cmc_geometric_distortion2_wfov *gd)
{
    if (gd == nullptr)
        return;
    if (gd->maps != nullptr && gd->num_maps != 0)
        std::free(gd->maps[0].plane_a);
    cmc_geometric_distortion2_wfov_free(gd);
    std::free(gd->maps);
    std::free(gd->units);
    std::free(gd);
}

uint32_t decode_geometric_distortion_wfov(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->geometric_distortion2_wfov, record);
    release_geometric_distortion2_wfov(parsed->geometric_distortion2_wfov);
    parsed->geometric_distortion2_wfov = nullptr;

    cmc_diag_reason reason{};
    if (!measure(record, &reason))
        return drop_record(record, reason);
    auto *gd = alloc_array<cmc_geometric_distortion2_wfov>(1);
    if (gd == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    // Bytes 8 to 21 are the structure's first fields, in the same order.
    memcpy_s(gd, offsetof(cmc_geometric_distortion2_wfov, ext_value), record + 8,
             kMapsOffset - 8);

    uint32_t offset = kMapsOffset;
    if (gd->num_maps != 0 && !copy_maps(gd, record, &offset)) {
        std::free(gd);
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    }
    const uint8_t version = record_version(record);
    if (version > 100) {
        if (!copy_units(gd, record, &offset))
            cmc_diag_record(record, CMC_DIAG_NO_MEMORY); // kept without units
        else if (version > 101)
            copy_elements(gd, record, offset);
    }
    parsed->geometric_distortion2_wfov = gd;
    std::free(record);
    return 0;
}
