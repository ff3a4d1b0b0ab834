// Fixed-layout record (id 2): a small record that grew over versions 100 to
// 103. It is copied into a structure of the newest layout (36 bytes) whose
// fields missing from older versions take their defaults, so that users read
// one layout whatever the container carried.
#include <cstddef>

#include "decoder_support.h"
#include "decoders.h"
#include "memcpy_s.h"

namespace {

struct version_layout {
    uint32_t bytes_copied;
    uint32_t size_needed;
};

// Versions below 100 are not supported and yield a zero structure.
version_layout layout_of(uint8_t version)
{
    switch (version) {
    case 100: return {16, 16};
    case 101: return {18, 24};
    case 102: return {34, 40};
    default: return {36, 40}; // 103 and above
    }
}

} // namespace

uint32_t decode_fixed_layout_record(uint8_t *record, cmc_parsed_data *parsed)
{
    note_replacement(parsed->rec_2, record);
    release_slot(parsed->rec_2);

    auto *rec2 = static_cast<cmc_rec_2 *>(cmc_calloc(1, sizeof(cmc_rec_2)));
    if (rec2 == nullptr)
        return drop_record(record, CMC_DIAG_NO_MEMORY);
    parsed->rec_2 = rec2;

    const uint8_t version = record_version(record);
    if (version < 100) {
        cmc_diag_record(record, CMC_DIAG_UNSUPPORTED_VERSION);
        std::free(record);
        return 0;
    }
    const version_layout layout = layout_of(version);
    if (!holds(record, layout.size_needed)) {
        cmc_diag_record(record, CMC_DIAG_TOO_SHORT);
        std::free(record);
        return 0;
    }

    memcpy_s(rec2, sizeof(cmc_rec_2), record, layout.bytes_copied);
    if (version == 100)
        rec2->v101_value = rec2->v100_value;
    if (version <= 102)
        rec2->v103_value = rec2->v100_value;
    std::free(record);
    return 0;
}
