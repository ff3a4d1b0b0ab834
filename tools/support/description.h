// cmc-pack's input: JSON descriptions of a tuning container and of an NVM
// blob (format in docs/pack-description.md), turned into their bytes.
// Every malformed description ends in a ToolError (kExitBadDescription) that
// names the file, the JSON path of the offending value and what was
// expected there.
#ifndef EJ_TOOL_DESCRIPTION_H
#define EJ_TOOL_DESCRIPTION_H

#include <cstdint>
#include <string>
#include <vector>

namespace ejtool {

// `file` only names the description in error messages.
std::vector<uint8_t> pack_container(const std::string &json_text, const std::string &file);
std::vector<uint8_t> pack_nvm(const std::string &json_text, const std::string &file);

} // namespace ejtool

#endif // EJ_TOOL_DESCRIPTION_H
