#include "support/queue-fixture.h"

#include <atomic>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <latch>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<mode_t> modeAtBind{0}; // of the file that the last bind created

} // namespace

// Interposes the system call and records the mode of the new file; visible, so that the platform's library calls it.
extern "C" [[gnu::visibility("default")]] int bind(int socket, const sockaddr* address, socklen_t size) noexcept {
    const int result = reinterpret_cast<decltype(&bind)>(dlsym(RTLD_NEXT, "bind"))(socket, address, size);
    struct stat status {};
    if (result == 0 && address->sa_family == AF_UNIX &&
        stat(reinterpret_cast<const sockaddr_un*>(address)->sun_path, &status) == 0)
        modeAtBind = status.st_mode & 0777U;
    return result;
}

namespace queue_test {
namespace {

TEST_F(MessageQueue, CreatesItsSocketWithItsFinalMode) {
    const mode_t former = umask(0);
    startServer();
    umask(former);
    EXPECT_EQ(modeAtBind, 0600U);
}

TEST_F(MessageQueue, ReplacesAStaleSocket) {
    leaveSocketBehind();
    startBoth();
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777u);
    server->stop();
    EXPECT_NE(0, stat(path.c_str(), &status));
}

TEST_F(MessageQueue, DoesNotTakeAnEndpointInUse) {
    startBoth();
    host::MessageQueue second(limits);
    try {
        second.serve("tuner", messages, 4096);
        FAIL() << "replaced an endpoint in use";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), testing::StartsWith("service tuner is already offered at " + path + " by another"));
    }
    EXPECT_TRUE(honestClientServed());
}

// Between checking a stale socket and replacing it, a server holds only the lock.
TEST_F(MessageQueue, DoesNotTakeAnEndpointThatAnotherServerIsTaking) {
    leaveSocketBehind();
    struct stat before {
    }, after{};
    ASSERT_EQ(0, stat(path.c_str(), &before));
    {
        const int other = ::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_EQ(0, ::flock(other, LOCK_EX | LOCK_NB));
        host::MessageQueue second(limits);
        try {
            second.serve("tuner", messages, 4096);
            ADD_FAILURE() << "took an endpoint that another server is taking";
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(),
                        testing::StartsWith("service tuner is already offered at " + path + " by another"));
        }
        ::close(other);
    }
    ASSERT_EQ(0, stat(path.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    startBoth();
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, LetsOneOfManyServersReplaceAStaleSocket) {
    for (int round = 0; round < 20; ++round) {
        leaveSocketBehind();
        std::vector<std::unique_ptr<host::MessageQueue>> servers;
        servers.reserve(8);
        for (int i = 0; i < 8; ++i) servers.push_back(std::make_unique<host::MessageQueue>(limits));
        std::latch begin(8);
        std::atomic<int> serving{0};
        std::vector<std::thread> threads;
        threads.reserve(8);
        for (auto& one : servers)
            threads.emplace_back([&] {
                begin.arrive_and_wait();
                try {
                    one->serve("tuner", messages, 4096);
                    ++serving;
                } catch (const std::runtime_error&) {
                }
            });
        for (auto& thread : threads) thread.join();
        ASSERT_EQ(1, serving);
        RawPeer reaches(path);
    }
}

TEST_F(MessageQueue, KeepsItsLockPrivate) {
    startServer();
    struct stat status {};
    ASSERT_EQ(0, stat((path + ".lock").c_str(), &status));
    EXPECT_EQ(static_cast<mode_t>(S_IFREG | 0600), status.st_mode);
}

TEST_F(MessageQueue, ReportsThatItCannotLock) {
    std::filesystem::create_directory(path + ".lock");
    host::MessageQueue queue(limits);
    try {
        queue.serve("tuner", messages, 4096);
        ADD_FAILURE() << "served without a lock";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ("service tuner: cannot lock " + path + ".lock: Is a directory", std::string(error.what()));
    }
}

TEST_F(MessageQueue, DoesNotRemoveAFileThatIsNotASocket) {
    std::ofstream(path) << "kept";
    host::MessageQueue queue(limits);
    EXPECT_THROW(queue.serve("tuner", messages, 4096), std::runtime_error);
    EXPECT_TRUE(std::filesystem::is_regular_file(path));
}

} // namespace
} // namespace queue_test
