// The parse of a tuning container without NVM data, next to the least any
// parse must do with it: malloc + memcpy + free of the whole container.
// Containers carry 4, 16 and 64 lens-shading sets so that the cost per set
// shows whether the parse stays linear in the container size.
#include <cstdlib>
#include <cstring>

#include "bench_support.h"
#include "ej_cmc_parser.h"
#include "sample_module.h"

namespace {

using namespace ejbench;

const bool registered = [] {
    for (uint32_t sets : {4u, 16u, 64u}) {
        const std::string n = "parse/sets" + std::to_string(sets);
        add(n + "/ej", [sets](benchmark::State &state) {
            ejtest::Bytes container = ejtest::make_container(ejtest::sample_records_with_sets(uint16_t(sets)));
            ej_data_block block = {container.data(), uint32_t(container.size())};
            loop(state, 1, [&] {
                cmc_parsed_data *parsed = ej_cmc_parser_init(&block);
                benchmark::DoNotOptimize(parsed);
                ej_cmc_parser_deinit(parsed);
            });
            state.counters["bytes"] = double(container.size());
        }, benchmark::kMicrosecond);
        add(n + "/memcpy", [sets](benchmark::State &state) {
            const ejtest::Bytes container = ejtest::make_container(ejtest::sample_records_with_sets(uint16_t(sets)));
            loop(state, 1, [&] {
                void *copy = std::malloc(container.size());
                benchmark::DoNotOptimize(copy);
                std::memcpy(copy, container.data(), container.size());
                benchmark::ClobberMemory();
                std::free(copy);
            });
            state.counters["bytes"] = double(container.size());
        }, benchmark::kMicrosecond);
    }
    return true;
}();

} // namespace
