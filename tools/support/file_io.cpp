#include "file_io.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

#include "tool_status.h"

namespace ejtool {

namespace {

[[noreturn]] void fail(const std::string &what, const std::string &path, int err)
{
    throw ToolError(kExitFile, "cannot " + what + " " + path + ": " + std::strerror(err));
}

} // namespace

std::vector<uint8_t> read_file(const std::string &path)
{
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (f == nullptr)
        fail("open", path, errno);
    std::vector<uint8_t> bytes;
    uint8_t chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0)
        bytes.insert(bytes.end(), chunk, chunk + n);
    const bool error = std::ferror(f) != 0;
    const int err = errno;
    std::fclose(f);
    if (error)
        fail("read", path, err == 0 ? EIO : err);
    // The parser describes blocks with a 32-bit size.
    if (bytes.size() > std::numeric_limits<uint32_t>::max())
        throw ToolError(kExitFile, path + ": larger than 4 GiB, not a container");
    return bytes;
}

std::string read_text_file(const std::string &path)
{
    const std::vector<uint8_t> bytes = read_file(path);
    return std::string(bytes.begin(), bytes.end());
}

void write_file(const std::string &path, const std::vector<uint8_t> &bytes)
{
    std::FILE *f = std::fopen(path.c_str(), "wb");
    if (f == nullptr)
        fail("create", path, errno);
    const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    const int err = errno;
    if (std::fclose(f) != 0 || !ok)
        fail("write", path, err == 0 ? EIO : err);
}

std::string base_name(const std::string &path)
{
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

} // namespace ejtool
