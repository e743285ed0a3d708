// Runs each googletest test in a process of its own, because a process has one Receiver (receiver.h). For test programs
// that are run without ctest. This header needs gtest.
//
//     int main(int count, char** words) { return tvtest::runTests(count, words); }
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tvtest {
namespace details {

// Runs the tests that the flags select in a child process. Returns its exit code, or 1 when a signal ended it, and its
// standard output.
inline std::pair<int, std::string> runInChild() {
    std::string output;
    int ends[2];
    std::fflush(nullptr); // else the child would write it, too
    if (::pipe(ends) != 0) return {1, std::string("no pipe: ") + std::strerror(errno) + '\n'};
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(ends[1], STDOUT_FILENO);
        std::exit(RUN_ALL_TESTS());
    }
    ::close(ends[1]);
    char part[4096];
    for (ssize_t count; (count = ::read(ends[0], part, sizeof part)) > 0;)
        output.append(part, static_cast<std::size_t>(count));
    ::close(ends[0]);
    if (int status; child > 0 && ::waitpid(child, &status, 0) == child) {
        if (WIFEXITED(status)) return {WEXITSTATUS(status), output};
        return {1, output + "ended by signal " + std::to_string(WTERMSIG(status)) + '\n'};
    }
    return {1, output + "no process: " + std::strerror(errno) + '\n'};
}

// The names in the output of --gtest_list_tests.
inline std::vector<std::string> namesIn(const std::string& list) {
    std::vector<std::string> names;
    std::string suite;
    for (std::size_t at = 0; at < list.size();) {
        const std::size_t end = std::min(list.find('\n', at), list.size());
        const std::string line = list.substr(at, list.find_first_of(" #\n", at + 2) - at);
        if (list[at] != ' ')
            suite = line;
        else
            names.push_back(suite + line.substr(2));
        at = end + 1;
    }
    return names;
}

} // namespace details

// Returns 0 when all selected tests passed. Prints the output of those that failed; what they write to standard error
// appears at once. Takes googletest's options, but with several tests none that writes a file.
inline int runTests(int count, char** words) {
    testing::InitGoogleTest(&count, words);
    if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
    GTEST_FLAG_SET(list_tests, true);
    const auto [problem, list] = details::runInChild();
    GTEST_FLAG_SET(list_tests, false);
    const std::vector<std::string> names = details::namesIn(list);
    if (problem != 0 || names.empty()) {
        std::printf("%sthere are no tests to run\n", problem != 0 ? list.c_str() : "");
        return 1;
    }
    if (names.size() == 1) return RUN_ALL_TESTS();

    std::size_t failed = 0;
    for (const std::string& name : names) {
        GTEST_FLAG_SET(filter, name);
        const auto [result, output] = details::runInChild();
        if (result != 0) ++failed;
        std::printf("%s%s: %s\n", result != 0 ? output.c_str() : "", name.c_str(), result != 0 ? "failed" : "passed");
    }
    std::printf("%zu tests passed, %zu failed\n", names.size() - failed, failed);
    return failed == 0 ? 0 : 1;
}

} // namespace tvtest
