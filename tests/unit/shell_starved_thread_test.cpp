// The debug shell when an allocation of its thread fails: it reports the failure to the client and serves the next one.
// The same without descriptors.
#include "shell/shell-server.h"
#include "support/failing-allocations.h"

#include <host/log-capture.h>
#include <host/shell-client.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

std::atomic<bool> descriptorsAreOut = false;
std::atomic<int> rejectedCalls = 0;

} // namespace

// The system's own call, or the answer of a system that has no descriptor left. Visible, so that the platform's library
// calls it.
extern "C" [[gnu::visibility("default")]] int accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
    if (descriptorsAreOut) {
        ++rejectedCalls;
        rejectedCalls.notify_all();
        errno = EMFILE;
        return -1;
    }
    return reinterpret_cast<int (*)(int, sockaddr*, socklen_t*, int)>(dlsym(RTLD_NEXT, "accept4"))(socket, address,
                                                                                                   size, flags);
}

namespace {

using appovshell::ShellServer;
using support::failElsewhereAtEveryAllocation;

std::size_t descriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

class StarvedShell : public testing::TestWithParam<long> {
protected:
    StarvedShell() {
        char name[] = "/tmp/shell-test-XXXXXX";
        folder = mkdtemp(name);
        path = folder + "/test.shell";
        server = std::make_unique<ShellServer>();
        server->registerCommand("echo :s", "", echo, this);
        server->registerCommand("fail", "", fail, nullptr);
    }
    ~StarvedShell() override {
        server.reset();
        std::filesystem::remove_all(folder);
    }
    static int echo(void* context) {
        ShellServer& shell = *static_cast<StarvedShell*>(context)->server;
        shell.print(shell.getArgument(0) + ", repeated by the shell");
        return 0;
    }
    static int fail(void*) { throw std::runtime_error("a reason of more than a few characters"); }

    // Connects, sends a command line, reads the answer and disconnects. Returns the status, or 1 for a wrong output.
    int ask(const std::string& line, const std::string& output) const {
        host::ShellClient client;
        client.connect(path);
        const auto reply = client.run(line, false, std::chrono::seconds(10));
        EXPECT_EQ(reply.status == -ENOMEM, reply.error.find("out of memory") != std::string::npos) << reply.error;
        return reply.status == 0 && reply.output != output ? 1 : reply.status;
    }
    int askForEcho() const { return ask("echo \"a longer word\"", "a longer word, repeated by the shell"); }

    std::string folder, path;
    std::unique_ptr<ShellServer> server;
};

TEST_P(StarvedShell, ReportsTheShortageToItsClientAndServesTheNextOne) {
    const host::LogCapture quiet({0x0205});
    server->open(path, geteuid());
    server->start();
    ASSERT_EQ(askForEcho(), 0);
    int reported = 0;
    const long failures = failElsewhereAtEveryAllocation(
        GetParam(),
        [&](long) {
            const int status = askForEcho();
            EXPECT_TRUE(status == 0 || status == -ENOMEM) << status;
            if (status == -ENOMEM) ++reported;
        },
        [&](long) { EXPECT_EQ(askForEcho(), 0); });
    EXPECT_GT(failures, 5);
    EXPECT_GT(reported, 5);
}

TEST_P(StarvedShell, AnswersWrongAndFailingRequests) {
    const host::LogCapture quiet({0x0205});
    server->open(path, geteuid());
    server->start();
    for (const char* line : {"an-unknown-command", "echo", "fail", "echo \"an open quote", "help"}) {
        const auto expected = ask(line, {});
        failElsewhereAtEveryAllocation(
            GetParam(),
            [&](long) {
                const int status = ask(line, {});
                EXPECT_TRUE(status == expected || status == -ENOMEM) << line << ": " << status;
            },
            [&](long) { EXPECT_EQ(askForEcho(), 0); });
    }
}

TEST_P(StarvedShell, FreesTheMemoryOfDisconnectedClients) {
    server->open(path, geteuid());
    server->start();
    const auto rounds = [&] {
        const host::LogCapture quiet({0x0205});
        failElsewhereAtEveryAllocation(
            GetParam(), [&](long) { askForEcho(); }, [](long) {});
    };
    rounds();
    askForEcho();
    const std::size_t descriptorsBefore = descriptors();
    const long before = support::blocksHeld;
    constexpr int times = 10;
    for (int i = 0; i < times; ++i) rounds();
    askForEcho();
    EXPECT_LE(descriptors(), descriptorsBefore + 1);
    EXPECT_LT(support::blocksHeld, before + times);
}

TEST_P(StarvedShell, ServesClientsAlthoughItStartsWithoutMemory) {
    const host::LogCapture quiet({0x0205});
    failElsewhereAtEveryAllocation(
        GetParam(),
        [&](long) {
            server->open(path, geteuid());
            server->start();
            const int status = askForEcho();
            EXPECT_TRUE(status == 0 || status == -ENOMEM) << status;
        },
        [&](long) {
            EXPECT_EQ(askForEcho(), 0);
            server->stop();
        });
}

INSTANTIATE_TEST_SUITE_P(OnceOrMore, StarvedShell, testing::Values(1, 3));

class ShellWithoutDescriptors : public StarvedShell {};

TEST_F(ShellWithoutDescriptors, ServesItsClientsAndLaterThoseThatCame) {
    const host::LogCapture log({0x0205});
    server->open(path, geteuid());
    server->start();
    host::ShellClient known, late;
    known.connect(path);
    ASSERT_EQ(known.run("echo x").status, 0);
    descriptorsAreOut = true;
    late.connect(path);
    for (int calls = rejectedCalls; calls < 3; calls = rejectedCalls) rejectedCalls.wait(calls);
    EXPECT_EQ(known.run("echo x").status, 0);
    descriptorsAreOut = false;
    EXPECT_EQ(late.run("echo x").status, 0);
    const auto lines = log.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const auto& line) {
                                return line.text.find("cannot accept a shell client: Too many open files") !=
                                       std::string::npos;
                            }),
              1);
}

class ShellCallsWithoutMemory : public StarvedShell {};

TEST_F(ShellCallsWithoutMemory, OpenAndStartOrLeaveNothingBehind) {
    const std::size_t atRest = descriptors();
    const auto nothingThere = [&] {
        EXPECT_FALSE(std::filesystem::exists(path));
        EXPECT_EQ(descriptors(), atRest);
    };
    EXPECT_GT(support::failAtEveryAllocation([this] { server->open(path, geteuid()); }, nothingThere), 0);
    EXPECT_GT(support::failAtEveryAllocation([this] { server->start(); }, [] {}), 0);
    EXPECT_EQ(askForEcho(), 0);
    EXPECT_EQ(support::failAtEveryAllocation([this] { server->stop(); }, [] {}), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
}

} // namespace
