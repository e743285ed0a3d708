// The rate limit of log lines that a peer can cause.
#include "log/line-limit.h"

#include <host/log-capture.h>

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace {

using host::LogCapture;
using host::debug::LineLimit;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t module = 0x0202;
constexpr vdlDebugChunk failure{module << 16 | vdlDebugFailure};
constexpr auto most = LineLimit::mostPerSecond;

std::vector<std::string> textsOf(const LogCapture& log) {
    std::vector<std::string> texts;
    for (const auto& line : log.lines()) texts.push_back(line.text);
    return texts;
}

LineLimit::Clock::time_point at(std::chrono::milliseconds time) { return LineLimit::Clock::time_point(time); }

unsigned admitted(LineLimit& limit, unsigned lines, LineLimit::Clock::time_point now) {
    unsigned count = 0;
    for (unsigned i = 0; i < lines; ++i) count += limit.admits(failure, now) ? 1 : 0;
    return count;
}

TEST(LineLimit, WritesTheFirstLinesOfEachSecondAndReportsTheNumberSuppressed) {
    static LineLimit limit("peer %s did it\n");
    const LogCapture log({module});
    EXPECT_EQ(admitted(limit, most, at(5000ms)), most);
    EXPECT_EQ(admitted(limit, 1234, at(5999ms)), 0U);
    EXPECT_THAT(textsOf(log), IsEmpty());
    EXPECT_TRUE(limit.admits(failure, at(6000ms)));
    EXPECT_THAT(textsOf(log), ElementsAre("... and 1234 more like it: peer %s did it"));
    EXPECT_EQ(log.lines().at(0).levelWord, failure.levelWord);
    EXPECT_EQ(admitted(limit, most, at(6500ms)), most - 1);
    LineLimit::reportSuppressed(at(7000ms));
}

TEST(LineLimit, ReportsTheLastSuppressedLinesOnceTheirSecondIsOver) {
    static LineLimit limit("flood\n");
    const LogCapture log({module});
    admitted(limit, most + 7, at(20000ms));
    EXPECT_TRUE(LineLimit::reportSuppressed(at(20999ms)));
    EXPECT_THAT(textsOf(log), IsEmpty());
    EXPECT_FALSE(LineLimit::reportSuppressed(at(21000ms)));
    EXPECT_FALSE(LineLimit::reportSuppressed(at(22000ms)));
    EXPECT_THAT(textsOf(log), ElementsAre("... and 7 more like it: flood"));
}

TEST(LineLimit, WritesNoMoreAfterAReportBeforeTheSecondIsOver) {
    static LineLimit limit("last words\n");
    const LogCapture log({module});
    admitted(limit, most + 2, at(30000ms));
    EXPECT_FALSE(LineLimit::reportSuppressed(LineLimit::Clock::time_point::max()));
    EXPECT_EQ(admitted(limit, 3, at(30500ms)), 0U);
    EXPECT_FALSE(LineLimit::reportSuppressed(at(31000ms)));
    EXPECT_THAT(textsOf(log), ElementsAre("... and 2 more like it: last words", "... and 3 more like it: last words"));
}

TEST(LineLimit, ReportsNothingOnceItsLevelIsSwitchedOff) {
    static LineLimit limit("quiet\n");
    const LogCapture log({module});
    admitted(limit, most + 2, at(40000ms));
    vdlDebugLevels[module] = 0;
    EXPECT_FALSE(LineLimit::reportSuppressed(at(41000ms)));
    EXPECT_THAT(textsOf(log), IsEmpty());
}

TEST(LineLimit, KeepsItsSecondWhenAThreadIsLate) {
    static LineLimit limit("late\n");
    const LogCapture log({module});
    EXPECT_EQ(admitted(limit, most, at(51000ms)), most);
    EXPECT_EQ(admitted(limit, 5, at(50999ms)), 0U);
    EXPECT_EQ(admitted(limit, 5, at(51001ms)), 0U);
    EXPECT_FALSE(LineLimit::reportSuppressed(at(52000ms)));
    EXPECT_THAT(textsOf(log), ElementsAre("... and 10 more like it: late"));
}

TEST(LineLimit, CountsEveryLineOfManyThreads) {
    static LineLimit limit("crowd\n");
    const LogCapture log({module});
    constexpr unsigned each = 10000;
    std::atomic<unsigned> admittedLines{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back([&] { admittedLines += admitted(limit, each, at(60000ms)); });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(admittedLines, most);
    EXPECT_FALSE(LineLimit::reportSuppressed(at(61000ms)));
    EXPECT_THAT(textsOf(log), ElementsAre("... and " + std::to_string(4 * each - most) + " more like it: crowd"));
}

} // namespace
