// Fuzz target: the container-parser stand-in's ej_kelb_parse_record on one
// record, in a writable, 8-byte aligned heap block as long as its size field
// says (at least the 8-byte header).
//
// Input layout:
//   u8 mode     bit 0: keep the fuzzed size field when it is not above the
//               record's length (else it is set to the length)
//   the rest: the record, header first
#include <cstdlib>
#include <cstring>

#include "ej_kelb_parser.h"
#include "fuzz_input.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > (1u << 20))
        return 0;
    ejfuzz::FuzzInput in(data, size);
    const uint8_t mode = in.u8();
    size_t n = 0;
    const uint8_t *bytes = in.rest(&n);

    const size_t total = n < 8 ? 8 : n;
    auto *record = static_cast<uint8_t *>(std::calloc(1, total));
    if (record == nullptr)
        std::abort();
    if (n != 0)
        std::memcpy(record, bytes, n);
    const uint32_t field = uint32_t(record[0]) | uint32_t(record[1]) << 8 |
                           uint32_t(record[2]) << 16 | uint32_t(record[3]) << 24;
    if ((mode & 1) == 0 || field > total) {
        const uint32_t len = static_cast<uint32_t>(total);
        for (int i = 0; i < 4; ++i)
            record[i] = uint8_t(len >> (8 * i));
    }
    const int rc = ej_kelb_parse_record(record);
    EJ_FUZZ_CHECK(rc >= EJ_KELB_OK && rc <= EJ_KELB_ERR_BAD_ELEMENT && rc != 4);
    std::free(record);
    return 0;
}
