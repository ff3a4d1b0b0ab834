// Fuzz target: one record through cmc_parse, as the walk hands it over (a
// heap block exactly as long as the record's size field), into a fresh
// result that ej_cmc_parser_deinit releases.
//
// Input layout:
//   u8 id       record id, taken modulo 64 (ids the walk passes on)
//   u8 version  the record's version byte
//   u8 flags    bit 0: parse an NVM blob and hand its handle over;
//               bit 1: decode a second copy of the record after the first
//                      (the replacement paths of a repeated id);
//               bit 2: decode an earlier record first (an id-17 record
//                      before id 30, an id-31 before id 3, ...)
//   u8 fail_at  the k-th allocation fails (0: none)
//   [u32 length + bytes: the NVM blob, when bit 0 is set]
//   [u32 length + bytes: the earlier record, header first (its size field
//    is set to its length, its id taken modulo 64), when bit 2 is set]
//   the rest: the payload behind the 8-byte record header
#include <cstdlib>
#include <cstring>

#include "cmc_records.h"
#include "ej_cmc_parser.h"
#include "fuzz_input.h"
#include "fuzz_support.h"

namespace {

uint8_t *make_record(uint16_t id, uint8_t version, const uint8_t *payload, size_t n)
{
    const size_t total = 8 + n;
    auto *r = static_cast<uint8_t *>(std::malloc(total));
    if (r == nullptr)
        std::abort();
    const uint32_t size = static_cast<uint32_t>(total);
    for (int i = 0; i < 4; ++i)
        r[i] = uint8_t(size >> (8 * i));
    r[4] = version;
    r[5] = 0;
    r[6] = uint8_t(id);
    r[7] = uint8_t(id >> 8);
    if (n != 0)
        std::memcpy(r + 8, payload, n);
    return r;
}

uint16_t load_id(const uint8_t *record)
{
    return static_cast<uint16_t>(record[6] | record[7] << 8);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > (1u << 20))
        return 0;
    ejfuzz::quiet_log();
    ejfuzz::FuzzInput in(data, size);
    const uint16_t id = in.u8() % 64;
    const uint8_t version = in.u8();
    const uint8_t flags = in.u8();
    const uint8_t fail_at = in.u8();
    size_t nvm_len = 0;
    const uint8_t *nvm_bytes = (flags & 1) != 0 ? in.block(&nvm_len) : nullptr;
    size_t earlier_len = 0;
    const uint8_t *earlier = (flags & 4) != 0 ? in.block(&earlier_len) : nullptr;
    size_t n = 0;
    const uint8_t *payload = in.rest(&n);

    auto *parsed = static_cast<cmc_parsed_data *>(std::calloc(1, sizeof(cmc_parsed_data)));
    if (parsed == nullptr)
        std::abort();
    {
        ejfuzz::FailAllocation fail(fail_at);
        ej_nvm_data *nvm = nullptr;
        if (nvm_bytes != nullptr) {
            ejfuzz::HeapBytes blob(nvm_bytes, nvm_len);
            const ej_data_block block{blob.data, static_cast<uint32_t>(nvm_len)};
            const int rc = ej_nvm_parse(&block, &nvm);
            EJ_FUZZ_CHECK((rc == EJ_NVM_OK) == (nvm != nullptr));
        }
        if (earlier != nullptr && earlier_len >= 8) {
            uint8_t *record = make_record(load_id(earlier) % 64, earlier[4], earlier + 8,
                                          earlier_len - 8);
            if (cmc_parse(record, parsed, nvm) != CMC_PARSE_OK)
                std::free(record);
        }
        for (int copy = 0; copy < ((flags & 2) != 0 ? 2 : 1); ++copy) {
            uint8_t *record = make_record(id, version, payload, n);
            const uint32_t status = cmc_parse(record, parsed, nvm);
            if (status != CMC_PARSE_OK)
                std::free(record);
        }
        ej_nvm_deinit(nvm);
    }
    ej_cmc_parser_deinit(parsed);
    return 0;
}
