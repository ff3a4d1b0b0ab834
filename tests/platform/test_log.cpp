// The logging stand-in: formatted lines to stderr, or to a test's sink.
#include <gtest/gtest.h>

#include <string>

#include "ej_log.h"

TEST(Log, LinesGoToTheSinkWhileSetElseToStderr)
{
    std::string got;
    int channel = -1;
    struct Ctx {
        std::string *got;
        int *channel;
    } ctx{&got, &channel};
    ej_log_set_sink(
        [](int ch, const char *line, void *user) {
            auto *c = static_cast<Ctx *>(user);
            *c->got += line;
            *c->channel = ch;
        },
        &ctx);
    testing::internal::CaptureStderr();
    ej_log(3, "%s-%d", "x", 42);
    ej_log_set_sink(nullptr, nullptr);
    ej_log(0, "count(%zu) > destsz(%zu)\n", size_t(7), size_t(3));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "count(7) > destsz(3)\n");
    EXPECT_EQ(got, "x-42");
    EXPECT_EQ(channel, 3);
}
