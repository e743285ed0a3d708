#include <host/environment.h>
#include <host/marshaller.h>
#include <host/message-queue.h>
#include <vdl/flat.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <latch>
#include <memory>
#include <mutex>
#include <string>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

const vdl::EndianEntry endOfList{0, 0, vdl::EndianEntry::terminator};
const vdl::EndianEntry numberEntries[] = {{0, vdl::EndianScalar4, std::uintptr_t{0}}, endOfList};
const vdl::EndianTable numberTable{4, numberEntries};
const vdl::EndianEntry textEntries[] = {{0, vdl::EndianNested, &__vdl_EndianTable_vdlDeserString_t}, endOfList};
const vdl::EndianTable textTable{8, textEntries};

const frame::MsgMeta numberMeta{1, 0x100, 0x2001, 1}, textMeta{1, 0x100, 0x2002, 1}, strangeMeta{1, 0x100, 0x2003, 1};
const frame::MessageDescription descriptions[] = {{"Number", numberMeta, &numberTable}, {"Text", textMeta, &textTable}};
const frame::MessageSet messages{descriptions, 2};

// Rung by all that arrives: messages and connection news.
class Bell {
public:
    void ring() {
        std::lock_guard lock(mutex_);
        ++rings_;
        rung_.notify_all();
    }
    unsigned rings() {
        std::lock_guard lock(mutex_);
        return rings_;
    }
    void waitForMoreThan(unsigned rings, std::chrono::milliseconds timeout) {
        std::unique_lock lock(mutex_);
        rung_.wait_for(lock, timeout, [&] { return rings_ != rings; });
    }

private:
    std::mutex mutex_;
    std::condition_variable rung_;
    unsigned rings_ = 0;
};
Bell bell;

// Looks again at each ring, and now and then without one, as the queue's counters change silently.
bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    for (;;) {
        const unsigned heard = bell.rings();
        if (condition()) return true;
        if (std::chrono::steady_clock::now() > deadline) return false;
        bell.waitForMoreThan(heard, 5ms);
    }
}

// What arrives at one door.
struct Inbox {
    int add(const frame::TransportInfo& transport, std::uint32_t number, std::string text) {
        {
            std::lock_guard lock(mutex);
            transports.push_back(transport);
            numbers.push_back(number);
            texts.push_back(std::move(text));
        }
        bell.ring();
        return 0;
    }
    std::size_t size() {
        std::lock_guard lock(mutex);
        return numbers.size();
    }
    void listenAt(frame::OmqIOModule& door) {
        EXPECT_EQ(0, door.registerMessageHandler(numberMeta, &Inbox::onNumber, this, numberTable));
        EXPECT_EQ(0, door.registerMessageHandler(textMeta, &Inbox::onText, this, textTable));
    }
    static int onNumber(const frame::MsgMeta&, const frame::TransportInfo& t, const void* payload, void* context) {
        return static_cast<Inbox*>(context)->add(t, *static_cast<const vdl::Word<std::uint32_t>*>(payload), "");
    }
    static int onText(const frame::MsgMeta&, const frame::TransportInfo& t, const void* payload, void* context) {
        const auto& text = *static_cast<const vdlDeserString_t*>(payload);
        return static_cast<Inbox*>(context)->add(t, 0, std::string(text.data.get(), text.length));
    }

    std::mutex mutex;
    std::vector<frame::TransportInfo> transports;
    std::vector<std::uint32_t> numbers;
    std::vector<std::string> texts;
};

struct News : frame::IOConnectionListener {
    void onIOConnectionConnected() override { note(connected); }
    void onIOConnectionConnectionFailed() override { note(failed); }
    void onIOConnectionDisconnected() override { note(disconnected); }
    static void note(std::atomic<int>& event) {
        ++event;
        bell.ring();
    }
    std::atomic<int> connected{0}, failed{0}, disconnected{0};
};

int sendNumber(frame::OmqIOModule& door, std::uint32_t value, const frame::TransportInfo* transport = nullptr,
               const frame::MsgMeta& meta = numberMeta) {
    int completions = 0;
    const int result = door.asyncSend({7, value}, meta, transport, numberTable, &value, [&] { ++completions; });
    EXPECT_EQ(1, completions);
    return result;
}

int sendText(frame::OmqIOModule& door, std::size_t size, char letter) {
    char* data = static_cast<char*>(vdlFlatAlloc(size + 1));
    std::memset(data, letter, size);
    data[size] = '\0';
    vdlDeserString_t text{static_cast<std::uint32_t>(size), data};
    int completions = 0;
    const int result = door.asyncSend({}, textMeta, nullptr, textTable, &text, [&] { ++completions; });
    EXPECT_EQ(1, completions);
    vdlFlatFree(data);
    return result;
}

std::uint32_t turned(std::uint32_t value) { return __builtin_bswap32(value); }

// A peer that says whatever a test wants.
class RawPeer {
public:
    explicit RawPeer(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, ::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address));
        const timeval patience{10, 0};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    ~RawPeer() { ::close(socket_); }
    void say(const std::string& bytes) {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()), ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }
    std::string hear(std::size_t size) {
        std::string bytes(size, '\0');
        const ssize_t count = ::recv(socket_, bytes.data(), size, MSG_WAITALL);
        bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return bytes;
    }
    bool turnedAway() { // after at most a hello
        char byte[4096];
        ssize_t count;
        while ((count = ::recv(socket_, byte, sizeof byte, 0)) > 0) {
        }
        return count == 0 || errno == ECONNRESET;
    }

private:
    int socket_;
};

std::string words(std::initializer_list<std::uint32_t> values, bool turn) {
    std::string bytes;
    for (std::uint32_t value : values) {
        if (turn) value = turned(value);
        bytes.append(reinterpret_cast<const char*>(&value), 4);
    }
    return bytes;
}

// A frame's bytes in this machine's byte order or the other one.
std::string frameOf(const frame::MsgMeta& meta, std::uint32_t size, const std::string& body, bool turn = false) {
    std::string bytes = words({size, meta.instance, meta.interfaceCode, meta.messageId}, turn);
    bytes += std::string{static_cast<char>(meta.flag), 0, 0, 0};
    return bytes + words({7, 9, 0}, turn) + body;
}

// The same hello as a machine of the other byte order would say it.
std::string turnedHello(std::string hello, std::size_t nameLength) {
    const auto turn = [&](std::size_t at, std::size_t size) {
        std::reverse(hello.begin() + static_cast<std::ptrdiff_t>(at),
                     hello.begin() + static_cast<std::ptrdiff_t>(at + size));
    };
    for (std::size_t at = 4; at < 24; at += 4) turn(at, 4);
    turn(24, 8);
    for (std::size_t at = 32 + nameLength; at < hello.size(); at += 24) {
        for (std::size_t word = 0; word < 16; word += 4) turn(at + word, 4);
        turn(at + 16, 8);
    }
    return hello;
}

class MessageQueue : public testing::Test {
protected:
    MessageQueue() {
        char name[] = "/tmp/message-queue-XXXXXX";
        folder = mkdtemp(name);
        setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
        path = folder + "/tuner.sock";
    }
    ~MessageQueue() override {
        client.reset();
        server.reset();
        std::filesystem::remove_all(folder);
    }

    void startServer(const frame::MessageSet& set = messages) {
        server = std::make_unique<host::MessageQueue>(limits);
        offered = &server->serve("tuner", set, 4096);
        serverInbox.listenAt(*offered);
        server->start();
    }
    void startClient(const frame::MessageSet& set = messages) {
        client = std::make_unique<host::MessageQueue>(limits);
        door = &client->connectTo("tuner", set, 4096, &news);
        clientInbox.listenAt(*door);
        client->open(*door);
        client->start();
    }
    void startBoth() {
        startServer();
        startClient();
        ASSERT_TRUE(eventually([&] { return atClient().connected && atServer().connected; }));
    }
    frame::IOStatistics atServer() { return server->statistics().at(0); }
    frame::IOStatistics atClient() { return client->statistics().at(0); }
    int boundSocket() {
        const int bound = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, ::bind(bound, reinterpret_cast<sockaddr*>(&address), sizeof address));
        return bound;
    }
    // As a server that died leaves it.
    void leaveSocketBehind() { ::close(boundSocket()); }
    // The hello that a peer of the server must say.
    std::string honestHello() { return RawPeer(path).hear(helloSize); }
    bool honestClientServed() {
        const auto before = serverInbox.size();
        return sendNumber(*door, 77) == 0 && eventually([&] { return serverInbox.size() > before; });
    }

    static constexpr std::size_t helloSize = 32 + 5 + 2 * 24;
    host::QueueLimits limits;
    std::string folder, path;
    Inbox serverInbox, clientInbox;
    News news;
    std::unique_ptr<host::MessageQueue> server, client;
    frame::OmqIOModule *offered = nullptr, *door = nullptr;
};

TEST_F(MessageQueue, DeliversInOrderBothWays) {
    startBoth();
    for (std::uint32_t i = 0; i < 5000; ++i) {
        while (sendNumber(*door, i) == -11) std::this_thread::yield();
        while (sendNumber(*offered, i) == -11) std::this_thread::yield();
    }
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 5000 && clientInbox.size() == 5000; }));
    for (std::uint32_t i = 0; i < 5000; ++i) {
        ASSERT_EQ(i, serverInbox.numbers[i]);
        ASSERT_EQ(i, clientInbox.numbers[i]);
    }
    EXPECT_EQ((frame::MsgIds{7, 1}), serverInbox.transports[1].ids);
    EXPECT_EQ(5000u, atClient().sent);
    EXPECT_EQ(5000u, atClient().received);
}

TEST_F(MessageQueue, DeliversLargeMessagesWhole) {
    startBoth();
    for (const char letter : {'a', 'b', 'c'}) EXPECT_EQ(0, sendText(*door, 1024 * 1024, letter));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 3; }));
    EXPECT_EQ(std::string(1024 * 1024, 'b'), serverInbox.texts[1]);
    EXPECT_TRUE(eventually([&] { return atClient().sent == 3 && atClient().queued == 0; }));
}

TEST_F(MessageQueue, RefusesAMessageThatIsTooLarge) {
    startBoth();
    EXPECT_EQ(-90, sendText(*door, host::maximumMessageBytes, 'x'));
    EXPECT_EQ(1u, atClient().refused);
    EXPECT_EQ(0u, atClient().queued);
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, RefusesAPayloadThatCannotBeMarshalled) {
    startBoth();
    vdlDeserString_t text{5u, nullptr};
    int completions = 0;
    EXPECT_EQ(-22, door->asyncSend({}, textMeta, nullptr, textTable, &text, [&] { ++completions; }));
    EXPECT_EQ(1, completions);
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, KeepsMessagesUntilTheServiceIsThere) {
    startClient();
    for (std::uint32_t i = 0; i < 10; ++i) EXPECT_EQ(0, sendNumber(*door, i));
    ASSERT_TRUE(eventually([&] { return news.failed > 0; }));
    EXPECT_EQ(10u, atClient().queued);
    startServer();
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 10; }));
    EXPECT_EQ(9u, serverInbox.numbers[9]);
    EXPECT_EQ(1, news.connected);
}

TEST_F(MessageQueue, DropsMessagesThatWaitTooLong) {
    limits.wait = 30ms;
    startClient();
    EXPECT_EQ(0, sendNumber(*door, 1));
    EXPECT_EQ(0, sendNumber(*door, 2));
    EXPECT_TRUE(eventually([&] { return atClient().dropped == 2 && atClient().queued == 0; }));
}

TEST_F(MessageQueue, RefusesMessagesBeyondTheCount) {
    limits.messages = 3;
    startClient();
    for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(0, sendNumber(*door, i));
    EXPECT_EQ(-11, sendNumber(*door, 3));
    EXPECT_EQ(1u, atClient().refused);
    EXPECT_EQ(3u, atClient().queued);
}

TEST_F(MessageQueue, RefusesMessagesBeyondTheBytes) {
    limits.bytes = 10000;
    startClient();
    EXPECT_EQ(0, sendText(*door, 9000, 'x'));
    EXPECT_EQ(-11, sendText(*door, 9000, 'y'));
    startServer();
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    EXPECT_EQ(std::string(9000, 'x'), serverInbox.texts[0]);
}

TEST_F(MessageQueue, RefusesAnUnknownConnection) {
    startBoth();
    const frame::TransportInfo nobody{123456789, {}};
    EXPECT_EQ(-107, sendNumber(*offered, 1, &nobody));
    EXPECT_EQ(-107, sendNumber(*door, 1, &nobody));
    EXPECT_EQ(1u, atServer().refused);
}

TEST_F(MessageQueue, RefusesEverythingOnceStopped) {
    startBoth();
    client->stop();
    client->stop();
    EXPECT_EQ(-108, sendNumber(*door, 1));
    EXPECT_FALSE(atClient().connected);
}

TEST_F(MessageQueue, DropsWhatWaitsAtStop) {
    startClient();
    EXPECT_EQ(0, sendNumber(*door, 1));
    EXPECT_EQ(0, sendNumber(*door, 2));
    client->stop();
    EXPECT_EQ(2u, atClient().dropped);
    EXPECT_EQ(0u, atClient().queued);
}

TEST_F(MessageQueue, BindsAMessageOnlyOnce) {
    startServer();
    EXPECT_EQ(-17, offered->registerMessageHandler(numberMeta, &Inbox::onNumber, nullptr, numberTable));
    const vdl::EndianTable broken{4, textEntries};
    EXPECT_EQ(-22, offered->registerMessageHandler(strangeMeta, &Inbox::onNumber, nullptr, broken));
}

TEST_F(MessageQueue, AnswersTheClientThatAsked) {
    startBoth();
    host::MessageQueue other(limits);
    Inbox otherInbox;
    auto& otherDoor = other.connectTo("tuner", messages, 4096, nullptr);
    otherInbox.listenAt(otherDoor);
    other.open(otherDoor);
    other.start();
    EXPECT_EQ(0, sendNumber(otherDoor, 5));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    const auto asker = serverInbox.transports[0];
    EXPECT_EQ(0, sendNumber(*offered, 6, &asker));
    EXPECT_EQ(0, sendNumber(*offered, 7));
    ASSERT_TRUE(eventually([&] { return otherInbox.size() == 2 && clientInbox.size() == 1; }));
    EXPECT_EQ((std::vector<std::uint32_t>{6, 7}), otherInbox.numbers);
    EXPECT_EQ((std::vector<std::uint32_t>{7}), clientInbox.numbers);
}

TEST_F(MessageQueue, SendsToNoClientWhenThereIsNone) {
    startServer();
    EXPECT_EQ(0, sendNumber(*offered, 1));
    EXPECT_EQ(0u, atServer().sent + atServer().queued);
}

TEST_F(MessageQueue, TurnsAPeerWithAnotherLayoutAway) {
    const frame::MessageDescription changed[] = {{"Number", numberMeta, &textTable}, {"Text", textMeta, &textTable}};
    startServer();
    testing::internal::CaptureStderr();
    startClient({changed, 2});
    EXPECT_TRUE(eventually([&] { return news.failed > 0 && atServer().refused > 0 && atClient().refused > 0; }));
    client->stop();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, log.find("service tuner: peer's message 0x00002001 (Number) has another layout"))
        << log;
    EXPECT_EQ(0, news.connected);
}

TEST_F(MessageQueue, TurnsAPeerWithoutOneOfTheMessagesAway) {
    startServer({descriptions, 1});
    testing::internal::CaptureStderr();
    startClient();
    EXPECT_TRUE(eventually([&] { return atClient().refused > 0; }));
    client->stop();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, log.find("peer does not know message 0x00002002 (Text)")) << log;
}

TEST_F(MessageQueue, ConnectsADoorOnlyWhenItIsOpened) {
    startServer();
    client = std::make_unique<host::MessageQueue>(limits);
    auto& closed = client->connectTo("tuner", messages, 4096, nullptr);
    auto& opened = client->connectTo("tuner", messages, 4096, &news);
    clientInbox.listenAt(closed);
    client->open(opened);
    client->start();
    ASSERT_TRUE(eventually([&] { return client->statistics()[1].connected; }));
    EXPECT_FALSE(client->statistics()[0].connected);
    EXPECT_EQ(0, sendNumber(*offered, 5)) << "to all clients";
    EXPECT_EQ(0, sendNumber(closed, 6)) << "waits for the connection";
    client->open(closed);
    ASSERT_TRUE(eventually([&] { return client->statistics()[0].connected && serverInbox.size() == 1; }));
    EXPECT_EQ(0U, clientInbox.size());
}

TEST_F(MessageQueue, TurnsAPeerOfAnotherServiceAway) {
    startServer();
    setenv("TVSA_ENDPOINT_REMOTE", path.c_str(), 1);
    host::MessageQueue other(limits);
    other.open(other.connectTo("remote", messages, 4096, &news));
    unsetenv("TVSA_ENDPOINT_REMOTE");
    testing::internal::CaptureStderr();
    other.start();
    EXPECT_TRUE(eventually([&] { return atServer().refused > 0 && other.statistics()[0].refused > 0; }));
    other.stop();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, log.find("service remote: peer offers service tuner")) << log;
}

TEST_F(MessageQueue, IsNotDisturbedByGarbage) {
    startBoth();
    RawPeer garbage(path), newer(path), huge(path), cut(path);
    garbage.say("GET / HTTP/1.0\r\n\r\n");
    newer.say("tvsq" + words({0x01020304, 2}, false));
    huge.say("tvsq" + words({0x01020304, 1, 0x7FFFFFFF, 5, 0x10000000, 0, 0}, false));
    EXPECT_TRUE(garbage.turnedAway());
    EXPECT_TRUE(newer.turnedAway());
    EXPECT_TRUE(huge.turnedAway());
    EXPECT_EQ(3u, atServer().refused);
    cut.say(honestHello().substr(0, 40));
    EXPECT_TRUE(honestClientServed());
    EXPECT_TRUE(cut.turnedAway()); // when its time for a hello is over
    EXPECT_EQ(4u, atServer().refused);
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, EndsAConnectionWithAnOversizedFrame) {
    startBoth();
    RawPeer large(path), brief(path);
    large.say(honestHello() + frameOf(numberMeta, host::maximumMessageBytes + 1, ""));
    brief.say(honestHello() + frameOf(numberMeta, 3, "abc"));
    EXPECT_TRUE(large.turnedAway());
    EXPECT_TRUE(brief.turnedAway());
    EXPECT_EQ(2u, atServer().undecodable);
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, GoesOnAfterAnUndecodableMessage) {
    startServer();
    RawPeer peer(path);
    peer.say(honestHello() + frameOf(textMeta, 8, words({5, 0xFFFFFFF0}, false)) +
             frameOf(strangeMeta, 4, words({1}, false)) + frameOf(numberMeta, 4, words({42}, false)));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    EXPECT_EQ(42u, serverInbox.numbers[0]);
    EXPECT_EQ(2u, atServer().undecodable);
}

TEST_F(MessageQueue, UnderstandsAPeerOfTheOtherByteOrder) {
    startServer();
    RawPeer peer(path);
    const std::string text = words({3, 8}, true) + std::string("abc\0", 4);
    const std::string all = turnedHello(honestHello(), 5) + frameOf(numberMeta, 4, words({42}, true), true) +
                            frameOf(textMeta, 12, text, true);
    for (const char byte : all) peer.say(std::string(1, byte));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 2; }));
    EXPECT_EQ(42u, serverInbox.numbers[0]);
    EXPECT_EQ("abc", serverInbox.texts[1]);
    EXPECT_EQ((frame::MsgIds{7, 9}), serverInbox.transports[0].ids);
}

TEST_F(MessageQueue, ConnectsAgainWhenTheServiceRestarts) {
    startBoth();
    EXPECT_TRUE(honestClientServed());
    server.reset();
    ASSERT_TRUE(eventually([&] { return news.disconnected == 1; }));
    EXPECT_EQ(0, sendNumber(*door, 8));
    startServer();
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 2; }));
    EXPECT_EQ(8u, serverInbox.numbers[1]);
    EXPECT_EQ(2, news.connected);
    EXPECT_EQ(1u, atClient().reconnects);
    EXPECT_EQ(0u, atClient().dropped);
}

TEST_F(MessageQueue, DropsOnlyTheMessageThatABreakCutShort) {
    startServer();
    std::string hello = honestHello();
    server.reset();
    // A service that never reads, so that a large message gets through in part only.
    const int listener = boundSocket();
    ASSERT_EQ(0, ::listen(listener, 1));
    startClient();
    const int peer = ::accept(listener, nullptr, nullptr);
    ASSERT_EQ(static_cast<ssize_t>(hello.size()), ::send(peer, hello.data(), hello.size(), MSG_NOSIGNAL));
    ASSERT_TRUE(eventually([&] { return atClient().connected; }));
    EXPECT_EQ(0, sendText(*door, 4 * 1024 * 1024, 'x'));
    EXPECT_EQ(0, sendNumber(*door, 2));
    EXPECT_EQ(2u, atClient().queued);
    ::close(listener);
    ::close(peer);
    startServer();
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    EXPECT_EQ(2u, serverInbox.numbers[0]);
    EXPECT_EQ(1u, atClient().dropped);
}

TEST_F(MessageQueue, OneFullClientDoesNotHoldUpTheOthers) {
    limits.messages = 2;
    startBoth();
    RawPeer deaf(path);
    deaf.say(honestHello() + frameOf(numberMeta, 4, words({1}, false)));
    ASSERT_TRUE(eventually([&] { return serverInbox.size() == 1; }));
    for (std::size_t i = 1; i <= 6; ++i) {
        EXPECT_EQ(0, sendText(*offered, 1024 * 1024, 'x'));
        ASSERT_TRUE(eventually([&] { return clientInbox.size() == i; }));
    }
    EXPECT_EQ(4u, atServer().refused);
    EXPECT_EQ(-11, sendNumber(*offered, 1, &serverInbox.transports[0]));
}

TEST_F(MessageQueue, ReplacesALeftOverSocket) {
    leaveSocketBehind();
    startBoth();
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777u);
    server->stop();
    EXPECT_NE(0, stat(path.c_str(), &status));
}

TEST_F(MessageQueue, LeavesAnEndpointInUseAlone) {
    startBoth();
    host::MessageQueue second(limits);
    try {
        second.serve("tuner", messages, 4096);
        FAIL() << "took an endpoint in use";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ("service tuner is already offered at " + path, std::string(error.what()));
    }
    EXPECT_TRUE(honestClientServed());
}

// Between looking at a left-over socket and replacing it a server holds the lock only.
TEST_F(MessageQueue, LeavesAnEndpointAloneThatAnotherServerIsTaking) {
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
            ADD_FAILURE() << "took an endpoint that is being taken";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ("service tuner is already offered at " + path, std::string(error.what()));
        }
        ::close(other);
    }
    ASSERT_EQ(0, stat(path.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    startBoth();
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, LetsOneOfManyServersReplaceALeftOverSocket) {
    for (int round = 0; round < 20; ++round) {
        leaveSocketBehind();
        std::vector<std::unique_ptr<host::MessageQueue>> servers;
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

TEST_F(MessageQueue, SaysThatItsLockCannotBeHad) {
    std::filesystem::create_directory(path + ".lock");
    host::MessageQueue queue(limits);
    try {
        queue.serve("tuner", messages, 4096);
        ADD_FAILURE() << "served without a lock";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ("service tuner: cannot lock " + path + ".lock: Is a directory", std::string(error.what()));
    }
}

TEST_F(MessageQueue, DoesNotRemoveAFileThatIsNoSocket) {
    std::ofstream(path) << "kept";
    host::MessageQueue queue(limits);
    EXPECT_THROW(queue.serve("tuner", messages, 4096), std::runtime_error);
    EXPECT_TRUE(std::filesystem::is_regular_file(path));
}

TEST_F(MessageQueue, SurvivesAHandlerThatThrows) {
    startServer();
    const auto thrower = [](const frame::MsgMeta&, const frame::TransportInfo&, const void*, void*) -> int {
        throw std::runtime_error("not today");
    };
    EXPECT_EQ(0, offered->registerMessageHandler(strangeMeta, thrower, nullptr, numberTable));
    startClient();
    EXPECT_EQ(0, sendNumber(*door, 1, nullptr, strangeMeta));
    EXPECT_TRUE(honestClientServed());
}

TEST_F(MessageQueue, TakesItsLimitsFromTheEnvironment) {
    setenv("TVSA_QUEUE_MESSAGES", "12", 1);
    EXPECT_EQ(12u, host::QueueLimits::fromEnvironment().messages);
    setenv("TVSA_QUEUE_MESSAGES", "a dozen", 1);
    try {
        host::QueueLimits::fromEnvironment();
        ADD_FAILURE() << "took it for a number";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string::npos, std::string(error.what()).find("TVSA_QUEUE_MESSAGES")) << error.what();
    }
    unsetenv("TVSA_QUEUE_MESSAGES");
}

} // namespace
