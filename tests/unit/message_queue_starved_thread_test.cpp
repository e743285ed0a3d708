// The message queue when an allocation of its receiving thread fails: it serves the other clients.
#include "support/failing-allocations.h"
#include "support/queue-fixture.h"

#include <host/log-capture.h>
#include <host/message-queue.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using queue_test::eventually;
using queue_test::frameOf;
using queue_test::messages;
using queue_test::numberMeta;
using queue_test::numberTable;
using support::failElsewhereAtEveryAllocation;

constexpr std::size_t helloBytes = 32 + 5 + 2 * 24, frameBytes = 32 + 4;

std::size_t descriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// A peer whose other end may disconnect at any time.
class Peer {
public:
    explicit Peer(int socket) : socket_(socket) {
        const timeval timeout{10, 0};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    }
    Peer(Peer&& other) noexcept : socket_(std::exchange(other.socket_, -1)) {}
    ~Peer() {
        if (socket_ >= 0) close(socket_);
    }
    bool send(const std::string& bytes) const {
        return ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    // Returns fewer bytes if the other end disconnects. A timeout fails the test.
    std::string receive(std::size_t size) const {
        std::string bytes(size, '\0');
        errno = 0;
        const ssize_t count = recv(socket_, bytes.data(), size, MSG_WAITALL);
        if (errno == EAGAIN) ADD_FAILURE() << "neither data nor a disconnect";
        bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return bytes;
    }
    int get() const { return socket_; }

private:
    int socket_;
};

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

class StarvedThread : public testing::TestWithParam<long> {
protected:
    StarvedThread() {
        char name[] = "/tmp/message-queue-XXXXXX";
        folder = mkdtemp(name);
        setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
        path = folder + "/tuner.sock";
    }
    ~StarvedThread() override {
        queue.reset();
        std::filesystem::remove_all(folder);
    }

    frame::IOStatistics statistics() const { return queue->statistics().at(0); }
    static int takeNumber(const frame::MsgMeta&, const frame::TransportInfo& from, const void* payload, void* context) {
        auto& self = *static_cast<StarvedThread*>(context);
        const std::uint32_t number = *static_cast<const vdl::Word<std::uint32_t>*>(payload);
        if (self.answering) self.answer(from, number);
        ++self.taken;
        queue_test::changes.notify();
        return 0;
    }
    // Answers, and tries again when memory is short, as a service does.
    void answer(const frame::TransportInfo& to, std::uint32_t number) const {
        for (int attempt = 0; attempt < 10; ++attempt) try {
                channel->asyncSend({}, numberMeta, &to, numberTable, &number, {});
                return;
            } catch (const std::bad_alloc&) {
            }
    }

    const long fail = GetParam();
    std::string folder, path;
    std::atomic<int> taken{0};
    bool answering = false;
    std::unique_ptr<host::MessageQueue> queue;
    host::QueueChannel* channel = nullptr;
};

class StarvedService : public StarvedThread {
protected:
    StarvedService() {
        queue = std::make_unique<host::MessageQueue>(host::QueueLimits{});
        channel = &queue->serve("tuner", messages, 64);
        answering = true;
        EXPECT_EQ(channel->registerMessageHandler(numberMeta, takeNumber, this, numberTable), 0);
        queue->start();
        descriptorsAtRest = descriptors();
        hello = Peer(connected()).receive(helloBytes); // a client with the same messages sends the same hello
    }
    int connected() const {
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const auto address = addressOf(path);
        EXPECT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return socket;
    }
    // Whether a client that connects and sends its hello and a number receives an answer.
    bool exchange() const {
        const Peer peer(connected());
        const std::string body = "abcd";
        return peer.send(hello) && peer.receive(helloBytes) == hello && peer.send(frameOf(numberMeta, 4, body)) &&
               peer.receive(frameBytes).ends_with(body);
    }
    bool allGone() const {
        return eventually([&] { return !statistics().connected && descriptors() == descriptorsAtRest; });
    }
    std::uint64_t accounted() const {
        const auto counters = statistics();
        return counters.refused + counters.undecodable + counters.dropped;
    }

    std::size_t descriptorsAtRest = 0;
    std::string hello;
};

TEST_P(StarvedService, ServesTheNextClientAndCountsThoseItRejected) {
    const host::LogCapture quiet({0x0202});
    ASSERT_TRUE(exchange());
    ASSERT_TRUE(allGone());
    const long failures = failElsewhereAtEveryAllocation(
        fail,
        [&](long) {
            const auto before = accounted();
            const bool served = exchange();
            EXPECT_TRUE(allGone());
            EXPECT_TRUE(served || eventually([&] { return accounted() > before; })) << "rejected, but not counted";
        },
        [&](long) {
            EXPECT_TRUE(exchange());
            EXPECT_TRUE(allGone());
        });
    EXPECT_GT(failures, 5);
}

TEST_P(StarvedService, FreesTheMemoryOfDisconnectedClients) {
    const auto rounds = [this] {
        const host::LogCapture quiet({0x0202});
        failElsewhereAtEveryAllocation(
            fail,
            [&](long) {
                exchange();
                EXPECT_TRUE(allGone());
            },
            [](long) {});
    };
    // The service remembers some disconnected clients, until it forgets all of them at once.
    const auto atLeast = [this] {
        long held = std::numeric_limits<long>::max();
        for (int i = 0; i < 70; ++i) {
            {
                const host::LogCapture quiet({0x0202});
                EXPECT_TRUE(exchange());
                EXPECT_TRUE(allGone());
            }
            held = std::min(held, support::blocksHeld.load());
        }
        return held;
    };
    rounds(); // now permanent allocations have their final size
    const long before = atLeast();
    constexpr int times = 30;
    for (int i = 0; i < times; ++i) rounds();
    EXPECT_LT(atLeast(), before + times); // less than one block per round
}

INSTANTIATE_TEST_SUITE_P(OnceOrMore, StarvedService, testing::Values(1, 3));

// The test plays the service.
class StarvedClient : public StarvedThread {
protected:
    StarvedClient() {
        queue = std::make_unique<host::MessageQueue>(host::QueueLimits{});
        channel = &queue->connectTo("tuner", messages, 64, &connectionEvents);
        EXPECT_EQ(channel->registerMessageHandler(numberMeta, takeNumber, this, numberTable), 0);
        queue->open(*channel);
    }
    // A listening socket at the service's path.
    Peer listening() const {
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const auto address = addressOf(path);
        EXPECT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(socket, 8), 0);
        return Peer(socket);
    }
    // Listens, reads the client's messages, sends a number until the client has handled it, and closes. Returns the
    // numbers that the client sent.
    std::vector<std::uint32_t> runServiceOnce() {
        std::vector<std::uint32_t> received;
        const int before = taken;
        const Peer listener = listening();
        while (taken == before) {
            const int socket = accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
            if (socket < 0) {
                ADD_FAILURE() << "the client does not connect";
                break;
            }
            const Peer client(socket);
            const std::string hello = client.receive(helloBytes);
            if (hello.size() < helloBytes || !client.send(hello) || !client.send(frameOf(numberMeta, 4, "abcd")))
                continue;
            std::string frame;
            for (bool first = true; first || taken == before; first = false) {
                frame = client.receive(frameBytes);
                if (frame.size() < frameBytes) break;
                std::uint32_t number;
                frame.copy(reinterpret_cast<char*>(&number), 4, 32);
                received.push_back(number);
                if (number == newest) eventually([&] { return taken != before || isClosed(client); });
            }
        }
        unlink(path.c_str());
        return received;
    }
    static bool isClosed(const Peer& peer) {
        char byte;
        return recv(peer.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
    }

    queue_test::ConnectionEvents connectionEvents;
    std::uint32_t newest = 0; // newest number that the client sent
};

TEST_P(StarvedClient, ReconnectsAndCountsEveryLostMessage) {
    const host::LogCapture quiet({0x0202});
    queue->start();
    const auto round = [this] {
        const auto dropped = statistics().dropped;
        const int failed = connectionEvents.failed;
        ASSERT_EQ(queue_test::sendNumber(*channel, ++newest), 0);
        const auto received = runServiceOnce();
        EXPECT_TRUE(std::count(received.begin(), received.end(), newest) == 1 || statistics().dropped > dropped);
        EXPECT_TRUE(eventually([&] {
            return connectionEvents.connected == connectionEvents.disconnected && connectionEvents.failed > failed;
        }));
    };
    round();
    const std::size_t atRest = descriptors();
    const long failures = failElsewhereAtEveryAllocation(
        fail, [&](long) { round(); },
        [&](long) {
            round();
            EXPECT_EQ(descriptors(), atRest);
        });
    EXPECT_GT(failures, 5);
}

TEST_P(StarvedClient, DropsMessagesThatWaitTooLong) {
    queue = std::make_unique<host::MessageQueue>(host::QueueLimits{10, 1000, 1ms});
    channel = &queue->connectTo("tuner", messages, 64, nullptr);
    queue->open(*channel);
    const host::LogCapture quiet({0x0202});
    queue->start();
    failElsewhereAtEveryAllocation(
        fail,
        [&](long) {
            const auto dropped = statistics().dropped;
            EXPECT_EQ(queue_test::sendNumber(*channel, 1), 0);
            EXPECT_TRUE(eventually([&] { return statistics().dropped == dropped + 1; }));
        },
        [](long) {});
}

INSTANTIATE_TEST_SUITE_P(OnceOrMore, StarvedClient, testing::Values(1, 3));

} // namespace
