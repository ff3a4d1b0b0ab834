/*
 * lens_shading_step.h - adapting the tuned lens-shading grids to the
 * module's NVM calibration after the walk (internal).
 */
#ifndef EJ_LENS_SHADING_STEP_H
#define EJ_LENS_SHADING_STEP_H

#include "ej_cmc_parser.h"

struct ej_nvm_data;

/*
 * With slots 53 and 56 filled, and the id-2 record (slot 4), the id-17 record
 * (slot 31) and its extension (slot 32) present: upscale the NVM tables to
 * the grid of slot 53, rewrite the grids of slot 53 from the ratio grids of
 * slot 56 and those tables, and release the tables. Otherwise nothing is
 * done. nvm is read only; the caller releases it afterwards.
 */
void run_lens_shading_step(cmc_parsed_data *parsed, const struct ej_nvm_data *nvm);

#endif /* EJ_LENS_SHADING_STEP_H */
