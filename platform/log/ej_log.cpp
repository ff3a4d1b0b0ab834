// Stand-in logging library: formats a line and writes it to stderr, or hands
// it to the sink a test installed.
#include "ej_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {
ej_log_sink g_sink = nullptr;
void *g_sink_user = nullptr;
} // namespace

extern "C" void ej_log_set_sink(ej_log_sink sink, void *user)
{
    g_sink = sink;
    g_sink_user = user;
}

extern "C" void ej_log(int channel, const char *fmt, ...)
{
    if (fmt == nullptr)
        return;
    va_list args;
    if (g_sink == nullptr) {
        va_start(args, fmt);
        std::vfprintf(stderr, fmt, args);
        va_end(args);
        return;
    }
    va_start(args, fmt);
    const int len = std::vsnprintf(nullptr, 0, fmt, args);
    va_end(args);
    if (len < 0)
        return;
    char *line = static_cast<char *>(std::malloc(static_cast<size_t>(len) + 1));
    if (line == nullptr)
        return;
    va_start(args, fmt);
    std::vsnprintf(line, static_cast<size_t>(len) + 1, fmt, args);
    va_end(args);
    g_sink(channel, line, g_sink_user);
    std::free(line);
}
