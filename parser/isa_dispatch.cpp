// Selection of the hot kernels' instruction-set variant. The CPU is examined
// by a load-time initialiser (single-threaded, no lock); the result is never
// written again. The per-thread test override is the only other input.
#include "isa_dispatch.h"

namespace {

cmc_isa detect_best()
{
#if defined(EJ_CMC_HAVE_X86_64_V3)
    __builtin_cpu_init(); // the CPU model may not be filled in yet at load time
    if (__builtin_cpu_supports("x86-64-v3"))
        return cmc_isa::x86_64_v3;
#endif
    return cmc_isa::portable;
}

const cmc_isa k_best = detect_best();
thread_local bool t_force_portable = false;

} // namespace

cmc_isa cmc_isa_best()
{
    return k_best;
}

cmc_isa cmc_isa_selected()
{
    return t_force_portable ? cmc_isa::portable : k_best;
}

void cmc_isa_force_portable(bool on)
{
    t_force_portable = on;
}
