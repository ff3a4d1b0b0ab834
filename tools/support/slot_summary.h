// cmc-inspect: what each filled slot of a parse result holds, summarised as
// JSON (record id and version, counts, extents, key values, curve points,
// grid ranges). The layout of each summary is part of the inspect schema
// (docs/inspect-json.md).
#ifndef EJ_TOOL_SLOT_SUMMARY_H
#define EJ_TOOL_SLOT_SUMMARY_H

#include "ej_cmc_parser.h"
#include "json_number.h"

namespace ejtool {

// One entry per filled slot (8 bytes not all zero), in slot order:
// {"slot": N, "name": field, ...summary}.
Json summarize_slots(const cmc_parsed_data *parsed);

// Range of a u16 grid: {"min", "max", "mean"}.
Json u16_range(const uint16_t *samples, size_t count);

} // namespace ejtool

#endif // EJ_TOOL_SLOT_SUMMARY_H
