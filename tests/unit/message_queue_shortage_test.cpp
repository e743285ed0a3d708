// The message queue when descriptors or memory run out.
#include "support/failing-allocations.h"
#include "support/queue-fixture.h"

#include <host/log-capture.h>
#include <host/message-queue.h>
#include <vdl/flat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace {

std::atomic<bool> socketsAreOut = false;

// Calls the system's function, or fails as a system without free descriptors does.
template <class Call, class... Arguments> int newSocket(const char* name, Arguments... arguments) {
    if (socketsAreOut) {
        errno = EMFILE;
        return -1;
    }
    return reinterpret_cast<Call*>(dlsym(RTLD_NEXT, name))(arguments...);
}

} // namespace

// Visible, so that the platform's library calls them.
extern "C" [[gnu::visibility("default")]] int socket(int domain, int type, int protocol) noexcept {
    return newSocket<int(int, int, int)>("socket", domain, type, protocol);
}
extern "C" [[gnu::visibility("default")]] int accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
    return newSocket<int(int, sockaddr*, socklen_t*, int)>("accept4", socket, address, size, flags);
}

namespace {

using namespace std::chrono_literals;
using queue_test::descriptions;
using queue_test::eventually;
using queue_test::messages;
using queue_test::numberMeta;
using queue_test::numberTable;
using queue_test::textMeta;
using queue_test::textTable;
using support::allocationsLeft;

// During its lifetime this process cannot open sockets. A limit on descriptors would also affect the address sanitizer,
// which opens some when it checks an object of a new type.
class NoSockets {
public:
    NoSockets() { socketsAreOut = true; }
    ~NoSockets() { socketsAreOut = false; }
    NoSockets(const NoSockets&) = delete;
    NoSockets& operator=(const NoSockets&) = delete;
};

// The result of a call with a limited number of allocations.
struct Outcome {
    int completions = 0;
    bool threw = false;
    int result = 0;
};

Outcome send(frame::OmqIOModule& channel, const frame::MsgMeta& meta, const vdl::EndianTable& table,
             const void* payload, long allocations) {
    Outcome outcome;
    const boost::function<void()> completed = [&outcome] { ++outcome.completions; };
    allocationsLeft = allocations;
    try {
        outcome.result = channel.asyncSend({}, meta, nullptr, table, payload, completed);
    } catch (const std::bad_alloc&) {
        outcome.threw = true;
    }
    allocationsLeft = -1;
    return outcome;
}

Outcome sendNumber(frame::OmqIOModule& channel, std::uint32_t value, long allocations = -1) {
    return send(channel, numberMeta, numberTable, &value, allocations);
}

// A text in flat memory.
struct Text {
    explicit Text(std::size_t size) : data(static_cast<char*>(vdlFlatAlloc(size + 1))) {
        std::fill_n(data, size, 'x');
        data[size] = '\0';
        form = {static_cast<std::uint32_t>(size), data};
    }
    ~Text() { vdlFlatFree(data); }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    char* data;
    vdlDeserString_t form;
};

// Sends when a connection fails, as members do.
struct Sender : frame::IOConnectionListener {
    void onIOConnectionConnected() override {}
    void onIOConnectionConnectionFailed() override {
        if (!std::exchange(sent, true)) result = sendNumber(*channel, 1).result;
    }
    void onIOConnectionDisconnected() override {}
    host::QueueChannel* channel = nullptr;
    bool sent = false;
    std::atomic<int> result{1};
};

class Shortage : public testing::Test {
protected:
    Shortage() {
        char name[] = "/tmp/message-queue-XXXXXX";
        folder = mkdtemp(name);
        setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
    }
    ~Shortage() override {
        release();
        client.reset();
        server.reset();
        std::filesystem::remove_all(folder);
    }

    void makeServer() {
        server = std::make_unique<host::MessageQueue>(limits);
        offered = &server->serve("tuner", messages, 64);
        for (const auto& message : descriptions)
            EXPECT_EQ(offered->registerMessageHandler(message.meta, takeMessage, this, *message.table), 0);
    }
    void makeClient(frame::IOConnectionListener* listener = nullptr) {
        client = std::make_unique<host::MessageQueue>(limits);
        channel = &client->connectTo("tuner", messages, 64, listener);
        client->open(*channel);
    }
    static int takeMessage(const frame::MsgMeta&, const frame::TransportInfo&, const void*, void* context) {
        auto& self = *static_cast<Shortage*>(context);
        ++self.taken;
        queue_test::changes.notify();
        self.holding.wait(true);
        return 0;
    }
    void release() {
        holding = false;
        holding.notify_all();
    }
    frame::IOStatistics clientStatistics() const { return client->statistics().at(0); }
    frame::IOStatistics serverStatistics() const { return server->statistics().at(0); }

    const host::LogCapture log; // hides expected lines
    Sender sender;
    host::QueueLimits limits;
    std::string folder;
    std::atomic<int> taken{0};        // messages passed to the server's handlers
    std::atomic<bool> holding{false}; // keeps the server's receiving thread in the handler
    std::unique_ptr<host::MessageQueue> server, client;
    host::QueueChannel *offered = nullptr, *channel = nullptr;
};

TEST_F(Shortage, OfDescriptorsMakesClientsWaitUntilThereIsOne) {
    makeServer();
    makeClient();
    server->start();
    client->start();
    ASSERT_EQ(sendNumber(*channel, 1).result, 0);
    ASSERT_TRUE(eventually([&] { return taken == 1; }));

    // A second client opens its socket before descriptors run out.
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (folder + "/tuner.sock").copy(address.sun_path, sizeof address.sun_path - 1);
    {
        const NoSockets none;
        ASSERT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_TRUE(log.waitFor("service tuner: cannot accept clients: Too many open files", 20s));
        EXPECT_EQ(sendNumber(*channel, 2).result, 0); // the service still serves connected clients
        EXPECT_TRUE(eventually([&] { return taken == 2; }));
    }
    const timeval timeout{20, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    char hello = 0;
    EXPECT_EQ(recv(socket, &hello, 1, 0), 1);
    close(socket);
    const auto lines = log.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const auto& line) { return line.text.find("cannot accept") != std::string::npos; }),
              1);
}

TEST_F(Shortage, OfDescriptorsMakesAClientTryAgain) {
    makeClient();
    client->start();
    ASSERT_EQ(sendNumber(*channel, 1).result, 0);
    ASSERT_TRUE(log.waitFor("No such file or directory", 20s));
    {
        const NoSockets none;
        EXPECT_TRUE(log.waitFor("Too many open files", 20s));
        EXPECT_EQ(sendNumber(*channel, 2).result, 0);
    }
    makeServer();
    server->start();
    EXPECT_TRUE(eventually([&] { return taken == 2; }));
}

TEST_F(Shortage, OfMemoryQueuesNothingAndCompletesOnce) {
    for (const bool running : {false, true}) {
        Outcome outcome{0, true, 0};
        long allocations = 0;
        for (; outcome.threw; ++allocations) {
            ASSERT_LT(allocations, 100);
            makeClient();
            if (running) client->start();
            outcome = sendNumber(*channel, 1, allocations);
            EXPECT_EQ(outcome.completions, 1) << allocations;
            EXPECT_EQ(clientStatistics().queued, outcome.threw ? 0U : 1U) << allocations;
        }
        EXPECT_GT(allocations, 1) << "nothing was allocated, so nothing was tested";
        EXPECT_EQ(outcome.result, 0);
    }
}

TEST_F(Shortage, OfMemoryKeepsTheDeadlinesOfOtherMessages) {
    limits.wait = 30ms;
    makeClient();
    client->start();
    for (long allocations = 0; sendNumber(*channel, 1, allocations).threw; ++allocations) ASSERT_LT(allocations, 100);
    EXPECT_TRUE(eventually([&] { return clientStatistics().dropped == 1; }));
}

TEST_F(Shortage, OfMemoryWhileTheSocketIsFullLosesOnlyThatMessage) {
    makeServer();
    server->start();
    const Text text(2 * 1024 * 1024);
    long allocations = 0;
    for (bool enough = false; !enough; ++allocations) {
        ASSERT_LT(allocations, 100);
        makeClient();
        client->start();
        ASSERT_TRUE(eventually([&] { return clientStatistics().connected; }));
        const int before = taken;
        const std::uint64_t connectionsBefore = serverStatistics().reconnects;
        holding = true;
        ASSERT_EQ(sendNumber(*channel, 1).result, 0);
        ASSERT_TRUE(eventually([&] { return taken == before + 1; }));
        const Outcome outcome = send(*channel, textMeta, textTable, &text.form, allocations);
        EXPECT_EQ(outcome.completions, 1) << allocations;
        EXPECT_TRUE(!outcome.threw || clientStatistics().queued == 0) << allocations;
        release();
        ASSERT_EQ(sendNumber(*channel, 2).result, 0);
        const auto settled = [&] { return clientStatistics().connected && clientStatistics().queued == 0; };
        ASSERT_TRUE(eventually(settled)) << allocations;
        const int expected = before + (clientStatistics().dropped > 0 || outcome.threw ? 2 : 3);
        ASSERT_TRUE(eventually([&] { return taken == expected; })) << allocations;
        enough =
            !outcome.threw && clientStatistics().dropped == 0 && serverStatistics().reconnects == connectionsBefore;
    }
    EXPECT_GT(allocations, 1) << "nothing was allocated, so nothing was tested";
}

TEST_F(Shortage, OfAServiceQueuesMessagesFromTheReceivingThreadUntilTheirDeadline) {
    limits.wait = 30ms;
    makeClient(&sender);
    sender.channel = channel;
    client->start();
    ASSERT_TRUE(eventually([&] { return sender.result == 0; }));
    EXPECT_TRUE(eventually([&] { return clientStatistics().dropped == 1; }));
}

} // namespace
