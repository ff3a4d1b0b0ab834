// Release of a set of upscaled lens-shading tables, and its ABI layout.
#include <cstddef>
#include <cstdlib>

#include "ej_cmc_lsc.h"

#if defined(__LP64__)
static_assert(sizeof(computed_lsc_tables) == 16, "computed_lsc_tables size");
static_assert(offsetof(computed_lsc_tables, num_tables) == 0, "num_tables offset");
static_assert(offsetof(computed_lsc_tables, tables) == 8, "tables offset");
#endif

void deinit_computed_upscale_lsc_tables(computed_lsc_tables *tables)
{
    if (tables == nullptr)
        return;
    if (tables->tables != nullptr) {
        for (uint32_t t = 0; t < tables->num_tables; ++t) {
            std::free(tables->tables[t]);
            tables->tables[t] = nullptr;
        }
        std::free(tables->tables);
    }
    std::free(tables);
}
