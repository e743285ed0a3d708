// Connections to other hosts when descriptors run out.
#include "support/queue-fixture.h"

#include <host/log-capture.h>

#include <atomic>
#include <cerrno>
#include <dlfcn.h>

namespace {
std::atomic<bool> descriptorsAreOut{false};
} // namespace

// Visible, so that the platform's library calls it.
extern "C" [[gnu::visibility("default")]] int accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
    if (descriptorsAreOut) {
        errno = EMFILE;
        return -1;
    }
    static const auto systems = reinterpret_cast<decltype(&accept4)>(dlsym(RTLD_NEXT, "accept4"));
    return systems(socket, address, size, flags);
}

namespace queue_test {
namespace {

class BetweenHosts : public MessageQueue {
protected:
    BetweenHosts() {
        if (!remote) path = remote.emplace(folder, "TUNER").address;
    }
};

TEST_F(BetweenHosts, LogsOnceThatThereIsNoDescriptorForClientsAndAcceptsThemLater) {
    const host::LogCapture log({0x0202});
    startServer();
    descriptorsAreOut = true;
    startClient();
    EXPECT_TRUE(log.waitFor("cannot accept clients: Too many open files", 10s));
    descriptorsAreOut = false;
    EXPECT_TRUE(eventually([&] { return atClient().connected; }));
    std::size_t told = 0;
    for (const auto& line : log.lines()) told += line.text.find("cannot accept clients") != std::string::npos;
    EXPECT_EQ(1u, told);
    EXPECT_EQ(0u, atServer().refused);
}

} // namespace
} // namespace queue_test
