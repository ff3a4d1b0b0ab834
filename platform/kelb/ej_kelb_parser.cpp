// Stand-in container-parser library. For now it checks the record header
// only; the records with internal references are completed here once their
// decoders exist.
#include "ej_kelb_parser.h"

#include <cstdint>
#include <cstring>

extern "C" int ej_kelb_parse_record(void *record)
{
    if (record == nullptr)
        return EJ_KELB_ERR_NULL;
    uint8_t b[4];
    std::memcpy(b, record, 4);
    const uint32_t size = uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 |
                          uint32_t(b[3]) << 24;
    if (size < 8)
        return EJ_KELB_ERR_TOO_SHORT;
    return EJ_KELB_OK;
}
