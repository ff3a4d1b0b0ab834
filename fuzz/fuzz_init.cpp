// Fuzz target: a whole parse. ej_cmc_parser_init_v1 on a fuzzed container and
// NVM blob, then ej_kelb_others_parser_init on the same container, then
// ej_cmc_parser_deinit.
//
// Input layout:
//   u8 flags    bit 0: seal the container (size field = length, checksum
//                      rule A), so that mutations reach the walk;
//               bit 1: hand over an NVM blob;
//               bit 2: fill the others slot afterwards;
//               bit 3: the entry point without NVM data.
//   u8 fail_at  the k-th allocation of the call fails (0: none)
//   [u32 length + bytes: the NVM blob, when bit 1 is set]
//   the rest: the container
#include "container_check.h"
#include "ej_cmc_parser.h"
#include "fuzz_input.h"
#include "fuzz_support.h"

namespace {

void seal(uint8_t *c, size_t n)
{
    if (n < 24)
        return;
    const uint32_t size = static_cast<uint32_t>(n);
    for (int i = 0; i < 4; ++i)
        c[4 + i] = uint8_t(size >> (8 * i));
    const uint32_t sum = checksum_rule_a(c, size);
    for (int i = 0; i < 4; ++i)
        c[20 + i] = uint8_t(sum >> (8 * i));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > (1u << 20))
        return 0;
    ejfuzz::quiet_log();
    ejfuzz::FuzzInput in(data, size);
    const uint8_t flags = in.u8();
    const uint8_t fail_at = in.u8();
    size_t nvm_len = 0;
    const uint8_t *nvm_bytes = (flags & 2) != 0 ? in.block(&nvm_len) : nullptr;
    size_t len = 0;
    const uint8_t *container_bytes = in.rest(&len);

    ejfuzz::HeapBytes container(container_bytes, len);
    if ((flags & 1) != 0)
        seal(container.data, len);
    ejfuzz::HeapBytes nvm(nvm_bytes, nvm_len);
    const ej_data_block container_block{container.data, static_cast<uint32_t>(len)};
    const ej_data_block nvm_block{nvm.data, static_cast<uint32_t>(nvm_len)};

    cmc_parsed_data *parsed;
    {
        ejfuzz::FailAllocation fail(fail_at);
        if ((flags & 8) != 0)
            parsed = ej_cmc_parser_init(&container_block);
        else
            parsed = ej_cmc_parser_init_v1(&container_block,
                                           (flags & 2) != 0 ? &nvm_block : nullptr);
        if (parsed != nullptr && (flags & 4) != 0)
            ej_kelb_others_parser_init(&container_block, parsed);
    }
    if (parsed != nullptr)
        EJ_FUZZ_CHECK(parsed->container == &container_block);
    ej_cmc_parser_deinit(parsed);
    return 0;
}
