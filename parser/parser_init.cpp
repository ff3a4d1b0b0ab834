// Parse entry points: validate the container, allocate the result, hand the
// NVM data to the NVM library for the duration of the call, walk the records,
// then complete the result.
#include "allocation.h"
#include "cmc_diag.h"
#include "container_check.h"
#include "ej_cmc_parser.h"
#include "ej_nvm.h"
#include "lens_shading_step.h"
#include "rec_34_completion.h"
#include "record_walk.h"

cmc_parsed_data *ej_cmc_parser_init_v1(const ej_data_block *container, const ej_data_block *nvm)
{
    cmc_diag_reason why{};
    if (!container_is_valid(container, &why)) {
        cmc_diag_container(container, why);
        return nullptr;
    }
    auto *parsed = static_cast<cmc_parsed_data *>(cmc_calloc(1, sizeof(cmc_parsed_data)));
    if (parsed == nullptr) {
        cmc_diag_container(container, CMC_DIAG_CONTAINER_NO_MEMORY);
        return nullptr;
    }
    parsed->container = container;

    // Only whether a handle came back matters: the NVM library's status is
    // not examined, and a null handle means a parse without NVM data.
    ej_nvm_data *nvm_data = nullptr;
    if (nvm != nullptr && nvm->data != nullptr && nvm->size != 0)
        (void)ej_nvm_parse(nvm, &nvm_data);

    walk_records(container->data, container->size, parsed, nvm_data);

    if (nvm_data != nullptr) {
        // Right after the walk: slot 53 adapted to the module's NVM tables,
        // then the handle released, whatever the step did.
        run_lens_shading_step(parsed, nvm_data);
        ej_nvm_deinit(nvm_data);
    }
    // Last: a container without an id-34 record gets one built from its
    // id-19 and id-20 records.
    complete_rec_34(parsed);
    return parsed;
}

cmc_parsed_data *ej_cmc_parser_init(const ej_data_block *container)
{
    return ej_cmc_parser_init_v1(container, nullptr);
}
