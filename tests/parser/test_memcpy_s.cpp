// The bounded copy and its two log lines.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ej_log.h"
#include "memcpy_s.h"

namespace {

struct LogCapture {
    LogCapture() { ej_log_set_sink(&LogCapture::on_line, this); }
    ~LogCapture() { ej_log_set_sink(nullptr, nullptr); }
    static void on_line(int channel, const char *line, void *user)
    {
        auto *self = static_cast<LogCapture *>(user);
        self->channels.push_back(channel);
        self->lines.emplace_back(line);
    }
    std::vector<int> channels;
    std::vector<std::string> lines;
};

const char kDownsized[] = "memcpy_s: count(5) > destsz(4), downsizing count to destsz\n";
const char kNull[] = "memcpy_s: nullptr received\n";

TEST(MemcpyS, CopiesAtMostDestszAndLogsWhy)
{
    const uint8_t src[5] = {1, 2, 3, 4, 5};
    struct Case {
        const char *what;
        bool null_dest, null_src;
        size_t destsz, count;
        std::vector<uint8_t> after; // dest[5], initially filled with 9
        const char *line;           // the one log line, if any
    };
    const Case cases[] = {
        {"exactly destsz", false, false, 4, 4, {1, 2, 3, 4, 9}, nullptr},
        {"count over destsz", false, false, 4, 5, {1, 2, 3, 4, 9}, kDownsized},
        {"null source zero-fills", false, true, 5, 3, {0, 0, 0, 9, 9}, nullptr},
        {"null source, count over destsz", false, true, 4, 5, {0, 0, 0, 0, 9}, kDownsized},
        {"null destination", true, false, 4, 2, {9, 9, 9, 9, 9}, kNull},
        {"null destination and source", true, true, 0, 9, {9, 9, 9, 9, 9}, kNull},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture log;
        std::vector<uint8_t> dest(5, 9);
        memcpy_s(c.null_dest ? nullptr : dest.data(), c.destsz, c.null_src ? nullptr : src, c.count);
        EXPECT_EQ(dest, c.after);
        if (c.line == nullptr) {
            EXPECT_TRUE(log.lines.empty());
            continue;
        }
        ASSERT_EQ(log.lines.size(), 1u);
        EXPECT_EQ(log.lines[0], c.line);
        EXPECT_EQ(log.channels[0], 0);
    }
}

} // namespace
