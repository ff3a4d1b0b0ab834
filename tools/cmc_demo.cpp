// cmc-demo: parse the sample module (a container made by the test-support
// writer) through the shared library, without and then with an NVM blob, and
// print the slots each parse filled, with a short summary of a few decoded
// structures.
#include <cstdio>
#include <cstring>
#include <vector>

#include "cmc_records.h"
#include "ej_cmc_parser.h"
#include "ej_cmc_version.h"
#include "kelb_builder.h"
#include "sample_module.h"
#include "slots.h"

namespace {

// One line on the lens-shading structures, one on the curves.
void summarize(const cmc_parsed_data *parsed)
{
    if (const cmc_lens_shading4x4 *ls = parsed->lens_shading4x4)
        std::printf("  lens shading: %u sets of %u x %u grids (id %u)", unsigned(ls->num_sets),
                    unsigned(ls->grid_width), unsigned(ls->grid_height), unsigned(ls->header.id));
    if (const cmc_lens_shading_ratio *r = parsed->lens_shading_ratio) {
        std::printf("; ratios: %u sets (id %u), NVM tables", unsigned(r->num_sets),
                    unsigned(r->header.id));
        for (uint32_t k = 0; k < r->num_sets; ++k)
            std::printf(" %u", unsigned(r->sets[k].nvm_table_index));
    }
    std::printf("\n");
    if (parsed->pipe_compand != nullptr)
        std::printf("  compand curve: %u points", unsigned(parsed->pipe_compand->num_segments) + 1);
    if (parsed->sensor_decompand != nullptr)
        std::printf("; sensor decompanding: %u points", unsigned(parsed->sensor_decompand->num_points));
    if (parsed->cbd != nullptr)
        std::printf("; cbd: %u entries", unsigned(parsed->cbd->num_entries));
    std::printf("\n");
}

// Prints the filled slots, three to a line, unless they are the same as
// those of the previous report (*previous, updated); returns false when the
// container was rejected.
bool report(const char *title, const ej_data_block &container, const ej_data_block *nvm,
            std::vector<int> *previous)
{
    cmc_parsed_data *parsed = ej_cmc_parser_init_v1(&container, nvm);
    std::printf("%s\n", title);
    if (parsed == nullptr) {
        std::printf("  the container was rejected\n");
        previous->clear();
        return false;
    }
    const std::vector<int> filled = ejtest::filled_slots(parsed);
    if (!previous->empty() && filled == *previous) {
        std::printf("  the same %zu of %d slots filled\n", filled.size(), ejtest::kSlotCount);
    } else {
        for (size_t i = 0; i < filled.size(); ++i) {
            const bool row_end = i % 3 == 2 || i + 1 == filled.size();
            std::printf(row_end ? "%s%2d %s\n" : "%s%2d %-27s", i % 3 == 0 ? "  " : "", filled[i],
                        ejtest::slot_name(filled[i]));
        }
        std::printf("  %zu of %d slots filled\n", filled.size(), ejtest::kSlotCount);
    }
    *previous = filled;
    if (parsed->rec_1_name != nullptr)
        std::printf("  module name: %s, %u key/value pairs\n", parsed->rec_1_name,
                    unsigned(parsed->rec_1_pair_count));
    summarize(parsed);
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
    std::vector<int> filled;
    bool ok = report("Parse without NVM data:", container_block, nullptr, &filled);
    std::printf("\n");
    ok = report("Parse with NVM data (handed to the NVM library and released again):",
                container_block, &nvm_block, &filled) && ok;
    return ok ? 0 : 1;
}
