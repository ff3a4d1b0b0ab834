// Numbers for the tools' JSON: a float is written with the fewest digits that
// read back as the same float (1.25, not 1.25000000000000000).
#ifndef EJ_TOOL_JSON_NUMBER_H
#define EJ_TOOL_JSON_NUMBER_H

#include <charconv>
#include <cstdlib>

#include <nlohmann/json.hpp>

namespace ejtool {

using Json = nlohmann::ordered_json;

inline Json fnum(float v)
{
    if (v != v)
        return "nan";
    if (v == __builtin_inff() || v == -__builtin_inff())
        return v > 0 ? "inf" : "-inf";
    char buf[32];
    const auto res = std::to_chars(buf, buf + sizeof buf - 1, v);
    *res.ptr = '\0';
    return std::strtod(buf, nullptr);
}

} // namespace ejtool

#endif // EJ_TOOL_JSON_NUMBER_H
