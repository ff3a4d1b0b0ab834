// Container validation: the size field and the two checksum rules.
//
// The container is read as floor(S / 4) little-endian words from offset 0;
// 1 to 3 trailing bytes take no part in either rule. Sums wrap modulo 2^32.
#include "container_check.h"

#include "byte_io.h"

namespace {

constexpr uint32_t kSizeFieldOffset = 4;
constexpr uint32_t kChecksumOffset = 20;

// Sum of the whole words in [from, size); from <= size.
uint32_t sum_words(const uint8_t *data, uint32_t from, uint32_t size)
{
    uint32_t sum = 0;
    for (uint32_t offset = from; size - offset >= 4; offset += 4)
        sum += load_u32(data + offset);
    return sum;
}

} // namespace

uint32_t checksum_rule_a(const uint8_t *data, uint32_t size)
{
    return sum_words(data, 0, size) - load_u32(data + kChecksumOffset);
}

uint32_t checksum_rule_b(const uint8_t *data, uint32_t size)
{
    return sum_words(data, kContainerHeaderSize, size);
}

bool container_is_valid(const ej_data_block *container, cmc_diag_reason *why)
{
    if (container == nullptr || container->data == nullptr) {
        *why = CMC_DIAG_CONTAINER_NULL;
        return false;
    }
    const uint8_t *data = container->data;
    const uint32_t size = container->size;
    // A block too short for the header cannot carry a size field to compare;
    // a header shorter than 24 bytes leaves the checksum rules undefined.
    if (size < kContainerHeaderSize || load_u32(data + kSizeFieldOffset) != size) {
        *why = CMC_DIAG_CONTAINER_SIZE_FIELD;
        return false;
    }
    const uint32_t checksum = load_u32(data + kChecksumOffset);
    if (checksum_rule_a(data, size) != checksum && checksum_rule_b(data, size) != checksum) {
        *why = CMC_DIAG_CONTAINER_CHECKSUM;
        return false;
    }
    return true;
}
