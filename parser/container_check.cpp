// Container validation: the size field and the two checksum rules.
//
// The container is read as floor(S / 4) little-endian words from offset 0;
// 1 to 3 trailing bytes take no part in either rule. Sums wrap modulo 2^32.
#include "container_check.h"

#include "byte_io.h"

namespace {

constexpr uint32_t kSizeFieldOffset = 4;
constexpr uint32_t kChecksumOffset = 20;

// Sum of the whole words in [from, size); from <= size. The sum wraps modulo
// 2^32, so it may be taken in any order: eight independent lanes let the
// compiler keep several additions in flight (or vectorise them).
uint32_t sum_words(const uint8_t *data, uint32_t from, uint32_t size)
{
    const uint8_t *p = data + from;
    size_t words = (size - from) / 4;
    uint32_t lane[8] = {};
    for (; words >= 8; words -= 8, p += 32)
        for (int k = 0; k < 8; ++k)
            lane[k] += load_u32(p + 4 * k);
    uint32_t sum = 0;
    for (; words > 0; --words, p += 4)
        sum += load_u32(p);
    for (int k = 0; k < 8; ++k)
        sum += lane[k];
    return sum;
}

// The words of the header: rule B's sum is the whole sum without them.
uint32_t header_words(const uint8_t *data)
{
    return sum_words(data, 0, kContainerHeaderSize);
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
    // One pass over the container serves both rules: rule A is the whole sum
    // without the checksum word, rule B the whole sum without the header.
    const uint32_t checksum = load_u32(data + kChecksumOffset);
    const uint32_t whole = sum_words(data, 0, size);
    if (whole - checksum != checksum && whole - header_words(data) != checksum) {
        *why = CMC_DIAG_CONTAINER_CHECKSUM;
        return false;
    }
    return true;
}
