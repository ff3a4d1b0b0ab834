/**
 * @file ej_cmc_lsc.h
 * @brief Lens-shading table computation: small single-precision linear algebra on
 * strided matrices, upscaling of a module's NVM lens-shading tables to a
 * tuning grid, and the ratio-based correction of tuned grids. */
#ifndef EJ_CMC_LSC_H
#define EJ_CMC_LSC_H

#include <stdint.h>

#include "ej_cmc_export.h"

EJ_CMC_EXTERN_C_BEGIN

EJ_CMC_EXTERN_C_END

#endif /* EJ_CMC_LSC_H */
