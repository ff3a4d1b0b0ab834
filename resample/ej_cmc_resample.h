/**
 * @file ej_cmc_resample.h
 * @brief Resampling kernels over dense 2-D arrays of 8-, 16- and 32-bit integers and
 * floats. Every kernel runs on the caller's thread, allocates nothing it keeps
 * and returns a 32-bit status: 0 on success, 4 when scratch memory could not
 * be allocated, 32 for a null argument or extents out of range (nothing is
 * written then). */
#ifndef EJ_CMC_RESAMPLE_H
#define EJ_CMC_RESAMPLE_H

#include <stdint.h>

#include "ej_cmc_export.h"

EJ_CMC_EXTERN_C_BEGIN

/* Bicubic kernels. */

/* Nearest-neighbour, bilinear and area-averaging kernels. */

EJ_CMC_EXTERN_C_END

#endif /* EJ_CMC_RESAMPLE_H */
