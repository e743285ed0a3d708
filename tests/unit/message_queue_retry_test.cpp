// The delay before a client without a connection tries again.
#include "queue/retry-delay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

std::vector<std::chrono::milliseconds> next(host::io::RetryDelay& delay, int count) {
    std::vector<std::chrono::milliseconds> delays;
    for (int i = 0; i < count; ++i) delays.push_back(delay.next());
    return delays;
}

TEST(RetryDelay, DoublesFromFiftyMillisecondsToASecond) {
    host::io::RetryDelay delay;
    EXPECT_THAT(next(delay, 8), ElementsAre(50ms, 100ms, 200ms, 400ms, 800ms, 1000ms, 1000ms, 1000ms));
}

TEST(RetryDelay, StartsAgainAfterASuccess) {
    host::io::RetryDelay delay;
    next(delay, 8);
    delay.reset();
    EXPECT_THAT(next(delay, 2), ElementsAre(50ms, 100ms));
}

} // namespace
