// The end of a process whose run log is on a disk that has stopped.
#include <host/receiver.h>
#include <lrt/run-log-agent.h>

#include <atomic>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
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

int fail(void*) {
    diskIsStalled = true;
    lrt::RunLogAgentImpl::getInstance().writeRunLog({"code", "time", "error", 1, 2, "text"});
    aWriteWaits.wait(false);
    host::stopProcess();
    return 0;
}

TEST(ProcessOnAStalledDisk, EndsWithoutItsLastRecords) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const char* const given = std::getenv("RUNTIME_DIRECTORY");
    std::string folder = "/tmp/run-log-stall-XXXXXX";
    if (given == nullptr) { // else this is the process that is looked at
        ASSERT_NE(mkdtemp(folder.data()), nullptr);
        setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
        setenv("STATE_DIRECTORY", folder.c_str(), 1);
    }
    EXPECT_EXIT(
        {
            alarm(30);
            std::exit(host::runProcess(fail, nullptr));
        },
        testing::ExitedWithCode(0), "the process ends before all records are stored");
    if (given == nullptr) std::filesystem::remove_all(folder);
}

} // namespace
