// The end of a process whose run log is on a disk that does not respond.
#include <appovshell/server.h>
#include <frame/process.h>
#include <host/environment.h>
#include <host/receiver.h>
#include <host/shell-client.h>
#include <lrt/run-log-agent.h>

#include <atomic>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<bool> diskIsStalled{false}, aWriteWaits{false};

} // namespace

// Visible, so that the store's library calls it.
extern "C" [[gnu::visibility("default")]] ssize_t pwrite64(int descriptor, const void* data, size_t size,
                                                           off64_t place) {
    if (diskIsStalled) {
        aWriteWaits = true;
        aWriteWaits.notify_all();
        diskIsStalled.wait(true);
    }
    using Call = ssize_t(int, const void*, size_t, off64_t);
    return reinterpret_cast<Call*>(dlsym(RTLD_NEXT, "pwrite64"))(descriptor, data, size, place);
}

namespace {

using lrt::RunLogAgentImpl;

// The thread sanitizer adds a second to the end of every process.
#ifdef __SANITIZE_THREAD__
constexpr unsigned sanitizersPart = 1;
#else
constexpr unsigned sanitizersPart = 0;
#endif
constexpr unsigned longestEnd = 2 + sanitizersPart; // seconds, after which the alarm ends the process

void stallTheDisk() {
    diskIsStalled = true;
    RunLogAgentImpl::getInstance().writeRunLog({"code", "time", "error", 1, 2, "text"});
    aWriteWaits.wait(false);
}

// Limits the run log's share of a process's end. The message queue and an application's threads may take 1.5 s of the
// end.
int endOnAStalledDisk(void*) {
    stallTheDisk();
    const itimerval longestPart{{}, {sanitizersPart, 900000}};
    setitimer(ITIMER_REAL, &longestPart, nullptr);
    host::stopProcess();
    return 0;
}

bool readingFails() {
    try {
        (void)RunLogAgentImpl::getInstance().readNewest(10);
        return false;
    } catch (const std::runtime_error& error) {
        return std::string(error.what()).find("its disk does not respond") != std::string::npos;
    }
}

// Each read would take half a second if the process were not ending.
int readManyTimesAtTheEnd(void*) {
    stallTheDisk();
    alarm(longestEnd);
    host::stopProcess();
    for (int i = 0; i < 10; ++i)
        if (!readingFails()) return 1;
    return 0;
}

std::atomic<bool> theShellReads{false};

int readForTheShell(void*) {
    theShellReads = true;
    theShellReads.notify_all();
    return readingFails() ? 0 : 1;
}

int endWhileTheShellReads(void*) {
    stallTheDisk();
    host::startShell();
    boost::shared_ptr<frame::Interface> shell;
    frame::Process::getInstance()->getInterfaceReference(shell, appovshell::Server::name());
    shell->get<appovshell::Server>()->registerCommand("runlog", "", readForTheShell, nullptr);
    std::thread([] {
        try {
            host::ShellClient client;
            client.connect(host::shellEndpointOf(host::processName()));
            client.run("runlog");
        } catch (const host::ShellError&) { // the process may end before the shell has answered
        }
    }).detach();
    theShellReads.wait(false);
    alarm(longestEnd);
    host::stopProcess();
    return 0;
}

struct ProcessOnAStalledDisk : testing::Test {
    ProcessOnAStalledDisk() {
        testing::FLAGS_gtest_death_test_style = "threadsafe";
        if (std::getenv("RUNTIME_DIRECTORY") != nullptr) return; // this is the process under test
        folder = "/tmp/run-log-stall-XXXXXX";
        EXPECT_NE(mkdtemp(folder.data()), nullptr);
        setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
        setenv("STATE_DIRECTORY", folder.c_str(), 1);
    }
    ~ProcessOnAStalledDisk() override {
        if (folder.empty()) return;
        unsetenv("RUNTIME_DIRECTORY");
        unsetenv("STATE_DIRECTORY");
        std::filesystem::remove_all(folder);
    }
    static void expectAnEnd(int (*scenario)(void*)) {
        EXPECT_EXIT(
            {
                alarm(30);
                std::exit(host::runProcess(scenario, nullptr));
            },
            testing::ExitedWithCode(0), "the process ends before all records are stored");
    }
    std::string folder;
};

TEST_F(ProcessOnAStalledDisk, EndsWithoutItsLastRecords) { expectAnEnd(endOnAStalledDisk); }

TEST_F(ProcessOnAStalledDisk, EndsWhileItsShellReadsTheRunLog) { expectAnEnd(endWhileTheShellReads); }

TEST_F(ProcessOnAStalledDisk, DoesNotWaitForTheRunLogOnceItIsAskedToEnd) { expectAnEnd(readManyTimesAtTheEnd); }

} // namespace
