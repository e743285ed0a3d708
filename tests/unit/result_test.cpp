// Results of the platform's functions as text.
#include <host/result.h>

#include <gtest/gtest.h>
#include <string>

namespace {

TEST(ResultText, NamesAndExplainsAnError) {
    EXPECT_STREQ(host::ResultText(-107).text(), "ENOTCONN, not connected");
    EXPECT_STREQ(host::ResultText(-108).text(), "ESHUTDOWN, stopped");
    EXPECT_STREQ(host::ResultText(-11).text(), "EAGAIN, no room now");
    EXPECT_STREQ(host::ResultText(-5).text(), "EIO, Input/output error");
}

TEST(ResultText, PrintsANumberThatIsNotAnError) {
    EXPECT_STREQ(host::ResultText(0).text(), "0");
    EXPECT_STREQ(host::ResultText(107).text(), "107");
    EXPECT_STREQ(host::ResultText(-4000).text(), "-4000");
    EXPECT_STREQ(host::ResultText(-2147483647 - 1).text(), "-2147483648");
}

TEST(ResultText, HasRoomForEveryError) {
    for (int error = 1; error < 4096; ++error) {
        const std::string text = host::ResultText(-error).text();
        EXPECT_LT(text.size(), 95U) << text;
    }
}

} // namespace
