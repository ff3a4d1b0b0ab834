/*
 * container_check.h - validation of a kelb container (internal).
 */
#ifndef EJ_CONTAINER_CHECK_H
#define EJ_CONTAINER_CHECK_H

#include <cstdint>

#include "cmc_diag.h"
#include "ej_cmc_parser.h"

/* Checksum rule A: the u32 sum of every whole word except the checksum word. */
uint32_t checksum_rule_a(const uint8_t *data, uint32_t size);
/* Checksum rule B: the u32 sum of the whole words from offset 24 (records only). */
uint32_t checksum_rule_b(const uint8_t *data, uint32_t size);

/*
 * Whether the container may be walked: non-null, size field equal to the
 * block size and at least a header long, and either checksum rule holding.
 * On failure *why names the check that failed.
 */
bool container_is_valid(const ej_data_block *container, cmc_diag_reason *why);

#endif /* EJ_CONTAINER_CHECK_H */
