/*
 * record_walk.h - the walk over a container's records (internal).
 */
#ifndef EJ_RECORD_WALK_H
#define EJ_RECORD_WALK_H

#include <cstdint>

#include "cmc_records.h"

/*
 * Visit the records of a validated container in order, hand a heap copy of
 * every record with an id below 64 to cmc_parse, and release the copy when
 * cmc_parse returns non-zero.
 */
void walk_records(const uint8_t *data, uint32_t size, cmc_parsed_data *parsed,
                  const struct ej_nvm_data *nvm);

#endif /* EJ_RECORD_WALK_H */
