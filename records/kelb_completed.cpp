// Records completed by the container parser (ids 9, 31, 32, 34): the
// container-parser library turns their internal references into pointers in
// place, and a slot keeps the completed copy as one block.
//
// A rejection leaves the slot as it was: the library's code becomes the
// status and the walk releases the copy. A record accepted for a filled slot
// releases the earlier block (for slot 54 also one converted from an id-3
// record).
#include "decoder_support.h"
#include "decoders.h"
#include "ej_kelb_parser.h"

namespace {

constexpr uint32_t kRec34MaxElements = 4;
constexpr uint32_t kRec34CountOffset = 8;

uint8_t *cmc_parsed_data::*slot_of(uint16_t id)
{
    switch (id) {
    case 9: return &cmc_parsed_data::rec_9;
    case 31: return &cmc_parsed_data::rec_31;
    case 32: return &cmc_parsed_data::rec_32;
    default: return &cmc_parsed_data::rec_34;
    }
}

} // namespace

uint32_t decode_kelb_completed(uint8_t *record, cmc_parsed_data *parsed)
{
    const int status = ej_kelb_parse_record(record);
    if (status != EJ_KELB_OK) {
        cmc_diag_record(record, CMC_DIAG_PARSER_REJECTED);
        return static_cast<uint32_t>(status);
    }
    const uint16_t id = record_id(record);
    if (id == 34) {
        // Users index at most four elements; the rest stay in the block unread.
        const uint32_t count = load_u32(record + kRec34CountOffset);
        if (count > kRec34MaxElements)
            store_u32(record + kRec34CountOffset, kRec34MaxElements);
    }
    uint8_t *&slot = parsed->*slot_of(id);
    note_replacement(slot, record);
    release_slot(slot);
    slot = record;
    return 0;
}
