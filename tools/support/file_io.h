// Whole-file reads and writes for the tools, failing with a ToolError that
// names the file and the system's reason.
#ifndef EJ_TOOL_FILE_IO_H
#define EJ_TOOL_FILE_IO_H

#include <cstdint>
#include <string>
#include <vector>

namespace ejtool {

std::vector<uint8_t> read_file(const std::string &path);
std::string read_text_file(const std::string &path);
void write_file(const std::string &path, const std::vector<uint8_t> &bytes);

// The last component of a path ("dir/a.kelb" gives "a.kelb").
std::string base_name(const std::string &path);

} // namespace ejtool

#endif // EJ_TOOL_FILE_IO_H
