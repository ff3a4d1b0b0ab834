// cmc-inspect's report: the whole inspection as one JSON document (schema
// "cmc-inspect", documented in docs/inspect-json.md), and its text form,
// rendered from the same document so that both say the same thing.
#ifndef EJ_TOOL_INSPECT_REPORT_H
#define EJ_TOOL_INSPECT_REPORT_H

#include <string>

#include "inspect_session.h"
#include "json_number.h"

namespace ejtool {

constexpr int kInspectSchemaVersion = 1;

// `container_name` and `nvm_name` are the files' base names, shown as given.
// `adaptation` is the lens-shading adaptation section (null without NVM data).
Json build_report(const InspectSession &session, const std::string &container_name,
                  const std::string &nvm_name, const Json &adaptation);

// Why the container was rejected ("checksum: ..."), or empty when accepted.
std::string rejection_text(const InspectSession &session);

// The report as indented text: one "key: value" per line, lists of numbers
// on one line, nested objects indented.
std::string render_text(const Json &report);

} // namespace ejtool

#endif // EJ_TOOL_INSPECT_REPORT_H
