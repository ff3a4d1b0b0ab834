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

} // namespace

TEST(MemcpyS, CopiesExactlyDestszSilently)
{
    LogCapture log;
    uint8_t dest[4] = {0, 0, 0, 0};
    const uint8_t src[4] = {1, 2, 3, 4};
    memcpy_s(dest, 4, src, 4);
    EXPECT_EQ(std::vector<uint8_t>(dest, dest + 4), std::vector<uint8_t>(src, src + 4));
    EXPECT_TRUE(log.lines.empty());
}

TEST(MemcpyS, DownsizesAnOversizedCountAndSaysSo)
{
    LogCapture log;
    uint8_t dest[5] = {0, 0, 0, 0, 0xee};
    const uint8_t src[5] = {1, 2, 3, 4, 5};
    memcpy_s(dest, 4, src, 5);
    EXPECT_EQ(std::vector<uint8_t>(dest, dest + 5), (std::vector<uint8_t>{1, 2, 3, 4, 0xee}));
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0], kDownsized);
    EXPECT_EQ(log.channels[0], 0);
}

TEST(MemcpyS, NullSourceZeroFills)
{
    LogCapture log;
    uint8_t dest[5] = {9, 9, 9, 9, 9};
    memcpy_s(dest, 5, nullptr, 3);
    EXPECT_EQ(std::vector<uint8_t>(dest, dest + 5), (std::vector<uint8_t>{0, 0, 0, 9, 9}));
    EXPECT_TRUE(log.lines.empty());

    memcpy_s(dest, 4, nullptr, 5);
    EXPECT_EQ(std::vector<uint8_t>(dest, dest + 5), (std::vector<uint8_t>{0, 0, 0, 0, 9}));
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0], kDownsized);
}

TEST(MemcpyS, NullDestinationOnlyLogs)
{
    LogCapture log;
    const uint8_t src[2] = {1, 2};
    memcpy_s(nullptr, 0, nullptr, 9);
    memcpy_s(nullptr, 4, src, 2);
    ASSERT_EQ(log.lines.size(), 2u);
    EXPECT_EQ(log.lines[0], "memcpy_s: nullptr received\n");
    EXPECT_EQ(log.lines[1], "memcpy_s: nullptr received\n");
}
