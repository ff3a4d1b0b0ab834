/*
 * isa_dispatch.h - which instruction-set variant the hot kernels run (internal).
 *
 * The hot resampling kernels exist twice: a portable build for plain x86-64
 * (or any other target), and a build for x86-64-v3 (AVX2 + FMA) that
 * vectorises across independent output samples while keeping every sample's
 * operations and their order, so both give identical bits. The CPU is
 * examined once, while the library is loaded; the answer is a constant
 * afterwards. Nothing here is visible to the library's callers.
 *
 * AVX-512 is not built: the kernels are bound by gathers and memory traffic at
 * AVX2 width, and there is no AVX-512 machine in the test fleet to prove a
 * third variant bit for bit.
 */
#ifndef EJ_ISA_DISPATCH_H
#define EJ_ISA_DISPATCH_H

#include <cstdint>

enum class cmc_isa : uint8_t {
    portable = 0,
    x86_64_v3 = 1,
};

/* The variant the hot kernels take on this thread: the best one this CPU
 * runs, unless the test hook below forces the portable one. */
cmc_isa cmc_isa_selected();

/* The best variant this CPU runs (what cmc_isa_selected() gives unforced). */
cmc_isa cmc_isa_best();

/*
 * Test hook, per thread: with on = true every hot kernel called on this
 * thread takes the portable variant, so that tests can compare the two bit
 * for bit. Off by default.
 */
void cmc_isa_force_portable(bool on);

#endif /* EJ_ISA_DISPATCH_H */
