// cmc-demo: parse the sample module (a container made by the test-support
// writer) through the shared library, without and then with an NVM blob, and
// print the slots each parse filled.
#include <cstdio>
#include <cstring>

#include "ej_cmc_parser.h"
#include "ej_cmc_version.h"
#include "kelb_builder.h"
#include "sample_module.h"
#include "slots.h"

namespace {

// Prints the filled slots, three to a line; returns false when the container
// was rejected.
bool report(const char *title, const ej_data_block &container, const ej_data_block *nvm)
{
    cmc_parsed_data *parsed = ej_cmc_parser_init_v1(&container, nvm);
    std::printf("%s\n", title);
    if (parsed == nullptr) {
        std::printf("  the container was rejected\n");
        return false;
    }
    const std::vector<int> filled = ejtest::filled_slots(parsed);
    for (size_t i = 0; i < filled.size(); ++i)
        std::printf("%s%2d %-22s%s", i % 3 == 0 ? "  " : "", filled[i], ejtest::slot_name(filled[i]),
                    i % 3 == 2 ? "\n" : "");
    std::printf("%s  %zu of %d slots filled\n", filled.size() % 3 != 0 ? "\n" : "", filled.size(),
                ejtest::kSlotCount);
    if (parsed->rec_1_name != nullptr)
        std::printf("  module name: %s, %u key/value pairs\n", parsed->rec_1_name,
                    unsigned(parsed->rec_1_pair_count));
    ej_cmc_parser_deinit(parsed);
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("cmc-demo (ej_cmc_parser) %s\n", EJ_CMC_PARSER_VERSION_STRING);
        return 0;
    }
    if (argc > 1) {
        std::fprintf(stderr, "usage: cmc-demo [--version]\n");
        return 2;
    }
    ejtest::Bytes container = ejtest::make_container(ejtest::sample_records());
    ejtest::Bytes nvm = ejtest::sample_nvm();
    const ej_data_block container_block{container.data(), uint32_t(container.size())};
    const ej_data_block nvm_block{nvm.data(), uint32_t(nvm.size())};

    std::printf("sample container: %zu bytes, %zu records; NVM blob: %zu bytes\n\n",
                container.size(), ejtest::sample_records().size(), nvm.size());
    bool ok = report("Parse without NVM data:", container_block, nullptr);
    std::printf("\n");
    ok = report("Parse with NVM data (handed to the NVM library and released again):",
                container_block, &nvm_block) && ok;
    return ok ? 0 : 1;
}
