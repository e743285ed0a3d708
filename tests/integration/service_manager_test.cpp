// What the receiver's processes tell the service manager that started them, with a socket in its place.
#include "base/file-descriptor.h"
#include "integration/program-run.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using namespace program_run;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* alive = "WATCHDOG=1";

class ServiceManagerIsTold : public Programs {
protected:
    ServiceManagerIsTold() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const std::string path = (folder / "notify").string();
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
        environment["NOTIFY_SOCKET"] = path;
    }

    // The next message; empty when none comes in time.
    std::string next(std::chrono::milliseconds timeout = std::chrono::seconds(20)) const {
        pollfd descriptor{socket_.get(), POLLIN, 0};
        if (poll(&descriptor, 1, static_cast<int>(timeout.count())) <= 0) return {};
        std::string text(4096, '\0');
        const ssize_t size = recv(socket_.get(), text.data(), text.size(), 0);
        text.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return text;
    }
    std::string nextBut(const std::string& skipped) const {
        std::string text;
        while ((text = next()) == skipped) {
        }
        return text;
    }
    void watchEvery(std::chrono::microseconds time) { environment["WATCHDOG_USEC"] = std::to_string(time.count()); }

private:
    const host::io::FileDescriptor socket_;
};

TEST_F(ServiceManagerIsTold, ThatAServiceIsReadyAndThatItEnds) {
    const auto service = start({program("tvserviced")});
    EXPECT_EQ(next(), "READY=1\nSTATUS=serving");
    EXPECT_TRUE(std::filesystem::exists(runtimeFolder() + "/tvservice.sock")) << "it serves by then";
    service->signal(SIGTERM);
    EXPECT_THAT(next(), StartsWith("STOPPING=1\n")) << "no signs of life were asked for";
    EXPECT_EQ(service->wait().exitCode, 0);
}

TEST_F(ServiceManagerIsTold, NothingByAServiceThatCannotStart) {
    std::filesystem::create_directory(runtimeFolder());
    std::filesystem::permissions(runtimeFolder(), std::filesystem::perms(0500));
    if (geteuid() == 0) std::filesystem::create_directory(runtimeFolder() + "/tvservice.sock");
    EXPECT_NE(run({program("tvserviced")}).exitCode, 0);
    const std::string message = next(std::chrono::milliseconds(0));
    EXPECT_THAT(message, testing::Not(HasSubstr("READY")));
}

TEST_F(ServiceManagerIsTold, ThatAServiceIsAlive) {
    watchEvery(std::chrono::milliseconds(200));
    const auto service = start({program("mmserviced")});
    EXPECT_EQ(next(), "READY=1\nSTATUS=serving");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(next(), alive);
    service->signal(SIGTERM);
    EXPECT_THAT(nextBut(alive), StartsWith("STOPPING=1\n"));
    EXPECT_EQ(service->wait().exitCode, 0);
}

TEST_F(ServiceManagerIsTold, NothingAboutLifeThatAnotherProcessWasAskedFor) {
    watchEvery(std::chrono::milliseconds(1));
    environment["WATCHDOG_PID"] = "1";
    const auto service = start({program("mmserviced")});
    EXPECT_EQ(next(), "READY=1\nSTATUS=serving");
    service->signal(SIGTERM);
    EXPECT_THAT(next(), StartsWith("STOPPING=1\n"));
}

// The service manager restarts the process then.
TEST_F(ServiceManagerIsTold, WhichMessageAHangingProcessHandlesAndNoLongerThatItIsAlive) {
    const auto service = start({program("tvserviced")});
    EXPECT_EQ(next(), "READY=1\nSTATUS=serving");
    watchEvery(std::chrono::milliseconds(400));
    const auto host =
        start({program("frame-host"), library("libapp-tvservice-adapter.so"), library("libremoving-application.so")});
    EXPECT_EQ(next(), "READY=1\nSTATUS=serving");
    EXPECT_EQ(next(), alive);
    const Words notify{program("tvctl"), "--target", "tvserviced", "emit", "TvServiceMtsAudioTrackInfoNotify"};
    const std::string hangs =
        "hangs: tvservice has not finished handling TvServiceMtsAudioTrackInfoNotify; "
        "tvctl doctor may say why";
    ASSERT_TRUE(eventually([&] { // once the adapter is connected
        run(notify);
        return next() == "STATUS=" + hangs;
    }));
    EXPECT_EQ(next(std::chrono::seconds(1)), "") << "no sign of life any more";
    EXPECT_THAT(host->error(), HasSubstr("failure: " + hangs));
    host->terminate(SIGKILL);
}

} // namespace
