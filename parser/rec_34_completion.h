/*
 * rec_34_completion.h - building the id-34 form from the id-19 and id-20
 * records after the walk (internal).
 */
#ifndef EJ_REC_34_COMPLETION_H
#define EJ_REC_34_COMPLETION_H

#include "ej_cmc_parser.h"

/*
 * When slot 57 is empty and slot 36 or slot 39 is filled, store in slot 57 one
 * block in the id-34 form: an element from rec_19 (kind 0) and/or one from
 * rec_20 (kind 1, a list or a fixed block), every pointer into the block.
 * Slot 57 stays empty when the block cannot be allocated.
 */
void complete_rec_34(cmc_parsed_data *parsed);

#endif /* EJ_REC_34_COMPLETION_H */
