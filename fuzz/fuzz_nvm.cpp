// Fuzz target: the NVM stand-in's ej_nvm_parse on a fuzzed blob, then every
// table and value of the result is read back (so that the sanitizer checks
// the extents it announces) and ej_nvm_deinit releases it.
//
// Input layout:
//   u8 fail_at  the k-th allocation of the parse fails (0: none)
//   the rest: the blob
#include "ej_nvm.h"
#include "fuzz_input.h"
#include "fuzz_support.h"

namespace {

// Reads every byte the result says it holds; the sum keeps the reads alive.
uint64_t touch(const ej_nvm_data &d)
{
    uint64_t sum = d.format_version;
    const uint64_t samples = uint64_t(d.lsc_grid_width) * d.lsc_grid_height;
    EJ_FUZZ_CHECK((d.lsc_table_count == 0) == (d.lsc_tables == nullptr));
    for (unsigned t = 0; t < d.lsc_table_count; ++t) {
        const nvm_lsc_table &table = d.lsc_tables[t];
        const uint64_t width = table.frac_bits > 8 ? 2 : 1;
        for (void *channel : table.channel_tables) {
            EJ_FUZZ_CHECK((samples == 0) == (channel == nullptr));
            const auto *bytes = static_cast<const volatile uint8_t *>(channel);
            for (uint64_t i = 0; i < samples * width; ++i)
                sum += bytes[i];
        }
    }
    EJ_FUZZ_CHECK((d.map_calibration_present != 0) == (d.map_calibration != nullptr));
    if (d.map_calibration != nullptr) {
        const nvm_map_calibration &m = *d.map_calibration;
        const uint64_t values = uint64_t(m.cal_map_width) * m.cal_map_height;
        if (m.cal_map_values != nullptr) {
            const volatile int32_t *v = m.cal_map_values;
            for (uint64_t i = 0; i < values; ++i)
                sum += static_cast<uint32_t>(v[i]);
        }
    }
    return sum;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > (1u << 20))
        return 0;
    ejfuzz::FuzzInput in(data, size);
    const uint8_t fail_at = in.u8();
    size_t n = 0;
    const uint8_t *bytes = in.rest(&n);
    ejfuzz::HeapBytes blob(bytes, n);
    const ej_data_block block{blob.data, static_cast<uint32_t>(n)};

    ej_nvm_data *handle = nullptr;
    int rc;
    {
        ejfuzz::FailAllocation fail(fail_at);
        rc = ej_nvm_parse(&block, &handle);
    }
    EJ_FUZZ_CHECK((rc == EJ_NVM_OK) == (handle != nullptr));
    if (handle != nullptr)
        (void)touch(*handle);
    ej_nvm_deinit(handle);
    return 0;
}
