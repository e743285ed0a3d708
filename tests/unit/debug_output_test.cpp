#include "log/line-limit.h"

#include <host/environment.h>
#include <host/log-capture.h>
#include <vdl/debug.h>

#include <cerrno>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr std::uint32_t module = 0x0300;

vdlDebugChunk lineOf(std::uint32_t severity) { return {module << 16 | severity}; }

// What output writes to stderr.
template <typename Output> std::string printed(Output output) {
    testing::internal::CaptureStderr();
    output();
    return testing::internal::GetCapturedStderr();
}

std::string textPrinted(const std::string& text) {
    const std::string line = printed([&] { vdlDebugOutput0(lineOf(vdlDebugTrace), "%s", text.c_str()); });
    return line.substr(line.find("trace: ") + 7);
}

bool wanted(std::uint32_t moduleNumber, std::uint32_t severity) {
    vdlDebugChunk chunk;
    return vdlDebugCheckLevelGetFrameAndChunk(moduleNumber << 16 | severity, chunk);
}

struct DebugLevels : testing::Test {
    ~DebugLevels() override { vdlDebugSetLevels("warning"); }
};

const bool wantedDuringInitialisation = wanted(module, vdlDebugWarning) && !wanted(module, vdlDebugTrace);

TEST(DebugOutput, HasTheDefaultLevelBeforeMain) { EXPECT_TRUE(wantedDuringInitialisation); }

TEST(DebugOutput, PrintsTimeProcessModuleAndSeverityBeforeTheText) {
    host::setProcessName("unit");
    vdlDebugNameModule(0x0301, "resource-manager");
    testing::internal::CaptureStderr();
    vdlDebugOutput0(vdlDebugChunk{0x0301U << 16 | vdlDebugTrace}, "%d of %s\n", 3, "four");
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z unit\\[" +
                                      std::to_string(getpid()) + "\\] resource-manager trace: 3 of four\n"));
}

TEST(DebugOutput, PrintsTheNumberOfAModuleWithoutAName) {
    EXPECT_THAT(printed([&] { vdlDebugOutput0(lineOf(vdlDebugFailure), "x"); }), EndsWith(" 0x0300 failure: x\n"));
    EXPECT_THAT(printed([&] { vdlDebugOutput0(lineOf(vdlDebugProgress), "x"); }), EndsWith(" 0x0300 info: x\n"));
}

TEST(DebugOutput, ContinuesALineAtItsInnerLineFeedsAndEndsItAtTheLast) {
    EXPECT_EQ(textPrinted("a\nb\n\nc\n"), "a\n    | b\n    | \n    | c\n");
    EXPECT_EQ(textPrinted("a\n\n"), "a\n    | \n");
    EXPECT_EQ(textPrinted("\n"), "\n");
    EXPECT_EQ(textPrinted(""), "\n");
}

TEST(DebugOutput, EscapesTextThatForgesALineOrControlsATerminal) {
    EXPECT_EQ(textPrinted("a\rb\tc\x1B[2J\x7F\b"), "a\\x0db\\x09c\\x1b[2J\\x7f\\x08\n");
    EXPECT_EQ(textPrinted("\xC2\x9B"
                          "31m"),
              "\\xc2\\x9b31m\n");
    EXPECT_THAT(printed([&] { vdlDebugOutput0(lineOf(vdlDebugWarning), "a%cb", 0); }), EndsWith("warning: a\\x00b\n"));
}

TEST(DebugOutput, KeepsUtf8AndEscapesInvalidBytes) {
    const std::string good = "gr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x93\xBA \xED\x9F\xBF \xF4\x8F\xBF\xBF";
    EXPECT_EQ(textPrinted(good), good + "\n");
    EXPECT_EQ(textPrinted("\xC3"), "\\xc3\n");
    EXPECT_EQ(textPrinted("\xC3(\x80"), "\\xc3(\\x80\n");
    EXPECT_EQ(textPrinted("\xC0\xAF"), "\\xc0\\xaf\n");
    EXPECT_EQ(textPrinted("\xE0\x80\xAF"), "\\xe0\\x80\\xaf\n");
    EXPECT_EQ(textPrinted("\xED\xA0\x80"), "\\xed\\xa0\\x80\n");
    EXPECT_EQ(textPrinted("\xF4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80\n");
    EXPECT_EQ(textPrinted("\xF8\x88\x80\x80\x80"), "\\xf8\\x88\\x80\\x80\\x80\n");
}

TEST(DebugOutput, PrintsTextsUpToTheLimitAndMarksTruncation) {
    for (const std::size_t length : {1022U, 1023U, 1024U, 1025U, 65535U, 65536U})
        EXPECT_EQ(textPrinted(std::string(length, 'x')), std::string(length, 'x') + "\n") << length;
    EXPECT_EQ(textPrinted(std::string(65539, 'x')), std::string(65536, 'x') + " [3 more bytes]\n");
}

TEST(DebugOutput, PrintsAndKeepsTheCallersErrno) {
    errno = ENOSPC;
    EXPECT_THAT(printed([&] { vdlDebugOutput0(lineOf(vdlDebugWarning), "%m"); }),
                EndsWith("No space left on device\n"));
    errno = ENOSPC;
    EXPECT_THAT(printed([&] { vdlDebugOutput0(lineOf(vdlDebugWarning), "%2000s%m", ""); }),
                EndsWith(" No space left on device\n"));
    testing::internal::CaptureStderr();
    errno = ENOSPC;
    vdlDebugOutput0(lineOf(vdlDebugWarning), "x");
    EXPECT_EQ(errno, ENOSPC);
    testing::internal::GetCapturedStderr();
}

TEST(DebugOutput, DoesNotMixTheLinesOfThreads) {
    testing::internal::CaptureStderr();
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int line = 0; line < 100; ++line) vdlDebugOutput0(lineOf(vdlDebugTrace), "<%0500d>", line);
        });
    for (auto& thread : threads) thread.join();
    std::istringstream lines(testing::internal::GetCapturedStderr());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        ASSERT_THAT(line, testing::MatchesRegex("[^<>]* trace: <0{4}[0-9]+>"));
    EXPECT_EQ(count, 400);
}

// The number of lines written, and the number of suppressed lines that "... and N more" lines report.
std::pair<int, int> linesIn(const std::string& output) {
    std::pair<int, int> counts{};
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        if (const auto more = line.find("... and "); more != std::string::npos)
            counts.second += std::stoi(line.substr(more + 8));
        else
            ++counts.first;
    }
    return counts;
}

TEST(DebugOutput, LimitsRepeatedWarningsAndReportsTheNumberSuppressed) {
    const auto [written, suppressed] = linesIn(printed([] {
        for (int i = 0; i < 1000; ++i) vdlDebugOutput0(lineOf(vdlDebugWarning), "peer said %d\n", i);
        host::debug::LineLimit::reportSuppressed(host::debug::LineLimit::Clock::time_point::max());
    }));
    EXPECT_GE(written, 20);
    EXPECT_LT(written, 500); // even if the loop takes some seconds
    EXPECT_EQ(written + suppressed, 1000);
}

TEST(DebugOutput, LimitsOnlyWarningsOfOneKind) {
    const auto all = printed([] {
        for (int i = 0; i < 1000; ++i) vdlDebugOutput0(lineOf(vdlDebugProgress), "step %d\n", i);
    });
    EXPECT_EQ(linesIn(all), std::pair(1000, 0));
    const auto several = printed([] {
        for (std::uint32_t i = 0; i < 30; ++i) {
            vdlDebugOutput0({(module + i) << 16 | vdlDebugFailure}, "of a module\n");
            if (i < 20) vdlDebugOutput0(lineOf(vdlDebugFailure), "of another kind\n");
        }
    });
    EXPECT_EQ(linesIn(several), std::pair(50, 0));
}

TEST(DebugOutput, ReportsLimitedWarningsWhenNoOtherFollows) {
    const host::LogCapture log({module}, false);
    printed([&] {
        for (int i = 0; i < 100; ++i) vdlDebugOutput0(lineOf(vdlDebugFailure), "peer left %d\n", i);
        EXPECT_TRUE(log.waitFor("more like it: peer left %d", 10s));
    });
}

TEST_F(DebugLevels, SetOneModuleOrAllWithLaterItemsWinning) {
    vdlDebugNameModule(0x0310, "level-one");
    EXPECT_EQ(vdlDebugSetLevels("level-one=trace, info ,0x0311 = off,0x0312=4500"), "");
    EXPECT_TRUE(wanted(0x0310, vdlDebugProgress));
    EXPECT_FALSE(wanted(0x0310, vdlDebugTrace));
    EXPECT_FALSE(wanted(0x0311, vdlDebugFailure));
    EXPECT_TRUE(wanted(0x0312, 4500));
    EXPECT_FALSE(wanted(0x0312, 4501));
    EXPECT_EQ(vdlDebugSetLevels("error,level-one=progress"), "");
    EXPECT_TRUE(wanted(0x0310, vdlDebugProgress));
    EXPECT_TRUE(wanted(0x0312, vdlDebugFailure));
    EXPECT_FALSE(wanted(0x0312, vdlDebugWarning));
}

TEST_F(DebugLevels, StayAsTheyAreWhenAnItemIsWrong) {
    EXPECT_EQ(
        vdlDebugSetLevels("trace,0x0310=loud"),
        "\"0x0310=loud\": \"loud\" is not a level (off, failure, error, warning, info, progress, trace or a number "
        "up to 65535)");
    EXPECT_FALSE(wanted(module, vdlDebugTrace));
    for (const char* text : {"trace,", ",", "x=", "=trace", "0x400=trace", "0x=trace", "0xg=trace", "65536", "-1",
                             "Trace", "a=b=trace", "trace x"})
        EXPECT_NE(vdlDebugSetLevels(text), "") << text;
    EXPECT_FALSE(wanted(module, vdlDebugTrace));
    EXPECT_EQ(vdlDebugSetLevels(" "), "");
    EXPECT_TRUE(wanted(module, vdlDebugWarning));
}

TEST_F(DebugLevels, AreKeptForAModuleUntilItHasAName) {
    EXPECT_EQ(vdlDebugSetLevels("late-module=trace"), "");
    EXPECT_FALSE(wanted(0x0320, vdlDebugTrace));
    vdlDebugNameModule(0x0320, "late-module");
    EXPECT_TRUE(wanted(0x0320, vdlDebugTrace));
    EXPECT_EQ(vdlDebugSetLevels("forgotten-module=trace,warning"), "");
    vdlDebugNameModule(0x0321, "forgotten-module");
    EXPECT_FALSE(wanted(0x0321, vdlDebugTrace));
}

TEST_F(DebugLevels, AreKeptForABoundedNumberOfModulesByName) {
    vdlDebugNameModule(0x0324, "known-module");
    for (int i = 0; i < 256; ++i) ASSERT_EQ(vdlDebugSetLevels("invented-" + std::to_string(i) + "=off"), "");
    EXPECT_EQ(vdlDebugSetLevels("0x0324=trace,known-module=trace"),
              "more than 256 modules would have a level by name; first set one for all modules, which removes the "
              "named ones");
    EXPECT_FALSE(wanted(0x0324, vdlDebugTrace));
    EXPECT_EQ(vdlDebugSetLevels("invented-0=trace,0x0324=info"), "");
    EXPECT_TRUE(wanted(0x0324, vdlDebugProgress));
    EXPECT_EQ(vdlDebugSetLevels("warning,known-module=trace"), "");
    EXPECT_TRUE(wanted(0x0324, vdlDebugTrace));
}

TEST_F(DebugLevels, ApplyToTheFirstNameOfAModule) {
    vdlDebugNameModule(0x0322, "first-name");
    vdlDebugNameModule(0x0322, "second-name");
    vdlDebugNameModule(vdlDebugModules, "beyond");
    vdlDebugNameModule(0x0323, nullptr);
    EXPECT_EQ(vdlDebugSetLevels("first-name=trace,second-name=off,beyond=off"), "");
    EXPECT_TRUE(wanted(0x0322, vdlDebugTrace));
}

TEST(LogCapture, CollectsTheLinesOfAllThreadsAndKeepsThemOffStderr) {
    testing::internal::CaptureStderr();
    host::LogCapture capture({module});
    std::thread thread([] { vdlDebugOutput0(lineOf(vdlDebugTrace), "from a thread %d\n", 7); });
    const std::thread::id made = thread.get_id();
    thread.join();
    EXPECT_TRUE(capture.waitFor("thread 7", 0ms));
    EXPECT_FALSE(capture.waitFor("thread 8", 1ms));
    ASSERT_EQ(capture.lines().size(), 1U);
    EXPECT_EQ(capture.lines()[0].levelWord, module << 16 | vdlDebugTrace);
    EXPECT_EQ(capture.lines()[0].text, "from a thread 7");
    EXPECT_EQ(capture.lines()[0].thread, made);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(LogCapture, CountsTheLinesThatItDoesNotKeepAndLeavesThemOnStderr) {
    host::LogCapture capture({module});
    for (std::size_t i = 0; i < host::LogCapture::mostLines; ++i) vdlDebugOutput0(lineOf(vdlDebugProgress), "kept");
    testing::internal::CaptureStderr();
    vdlDebugOutput0(lineOf(vdlDebugProgress), "one too many");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("one too many"));
    EXPECT_EQ(capture.lines().size(), host::LogCapture::mostLines);
    EXPECT_EQ(capture.lost(), 1U);
}

TEST(LogCapture, WaitsForALine) {
    host::LogCapture capture({module});
    std::thread thread([] { vdlDebugOutput0(lineOf(vdlDebugTrace), "awaited"); });
    EXPECT_TRUE(capture.waitFor("wait", 10s));
    thread.join();
}

TEST(LogCapture, EnablesTracesOfItsModulesAndRestoresTheirLevels) {
    {
        const host::LogCapture capture({module, module});
        EXPECT_TRUE(wanted(module, vdlDebugTrace));
        EXPECT_FALSE(wanted(module + 1, vdlDebugTrace));
        const host::LogCapture all;
        EXPECT_TRUE(wanted(module + 1, vdlDebugTrace));
    }
    EXPECT_FALSE(wanted(module, vdlDebugTrace));
    EXPECT_FALSE(wanted(module + 1, vdlDebugTrace));
    EXPECT_TRUE(wanted(module, vdlDebugWarning));
}

TEST(LogCapture, PassesLinesOnToStderrUnlessQuiet) {
    const host::LogCapture capture({module}, false);
    EXPECT_THAT(printed([&] { vdlDebugOutput0(lineOf(vdlDebugTrace), "both"); }), EndsWith("trace: both\n"));
    EXPECT_EQ(capture.lines().size(), 1U);
}

// A process reads the environment when it starts, so these tests start a new process.
struct DebugEnvironment : testing::Test {
    DebugEnvironment() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
    ~DebugEnvironment() override {
        unsetenv("TVSA_LOG");
        unsetenv("TVSA_LOG_FORMAT");
    }
    static void printIfWanted(std::uint32_t moduleNumber, std::uint32_t severity, const char* text) {
        vdlDebugChunk chunk;
        if (vdlDebugCheckLevelGetFrameAndChunk(moduleNumber << 16 | severity, chunk))
            vdlDebugOutput0(chunk, "%s", text);
    }
};

TEST_F(DebugEnvironment, SetsLevelsAndReportsWrongItemsOnce) {
    setenv("TVSA_LOG", "info,0x0301=trace,loud,0x0302=1x", 1);
    EXPECT_EXIT(
        {
            printIfWanted(module, vdlDebugProgress, "seen-a");
            printIfWanted(module, vdlDebugTrace, "hidden");
            printIfWanted(0x0301, vdlDebugTrace, "seen-b");
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        AllOf(ContainsRegex("vdl warning: TVSA_LOG: \"loud\": .*\n.*vdl warning: TVSA_LOG: \"0x0302=1x\": .*\n"
                            ".*seen-a\n.*seen-b\n"),
              Not(HasSubstr("hidden"))));
}

TEST_F(DebugEnvironment, ReportsAnUnknownFormat) {
    setenv("TVSA_LOG_FORMAT", "xml", 1);
    EXPECT_EXIT(
        {
            vdlDebugOutput0(lineOf(vdlDebugWarning), "x");
            std::exit(0);
        },
        testing::ExitedWithCode(0), ContainsRegex("\"xml\" is neither text nor json; text is used\n.*warning: x\n"));
}

MATCHER(IsOneJsonLine, "") {
    if (arg.empty() || arg.find('\n') != arg.size() - 1) return false;
    const std::string& text = arg;
    const auto line = nlohmann::json::parse(text, nullptr, false);
    return line.is_object() && line.size() == 6 && line["process"] == "unit \"1\"" &&
           line["pid"].is_number_unsigned() && line["module"] == "0x0300" && line["level"] == "failure" &&
           line["text"] == "a \"b\"\n\\x1b\\xff c" &&
           testing::Matches(testing::MatchesRegex("[-0-9]{10}T[:0-9]{8}\\.[0-9]{6}Z"))(
               line.value("time", std::string()));
}

TEST_F(DebugEnvironment, ChoosesOneJsonObjectPerLine) {
    setenv("TVSA_LOG_FORMAT", "json", 1);
    EXPECT_EXIT(
        {
            host::setProcessName("unit \"1\"");
            vdlDebugOutput0(lineOf(vdlDebugFailure), "a \"b\"\n\x1B\xFF c\n");
            std::exit(0);
        },
        testing::ExitedWithCode(0), IsOneJsonLine());
}

struct PrintsAtTheVeryEnd {
    ~PrintsAtTheVeryEnd() { vdlDebugOutput0(lineOf(vdlDebugWarning), "after main"); }
};

TEST_F(DebugEnvironment, StaysUsableAfterMain) {
    EXPECT_EXIT(
        {
            static const PrintsAtTheVeryEnd end;
            std::exit(0);
        },
        testing::ExitedWithCode(0), EndsWith("after main\n"));
}

} // namespace
