// A service and a client on the message queue, peers that send whatever a test wants, and the messages they exchange.
#pragma once

#include "support/remote-endpoint.h"
#include "support/remote-socket.h"

#include <host/message-queue.h>
#include <vdl/flat.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace queue_test {

using namespace std::chrono_literals;

inline const vdl::EndianEntry endOfList{0, 0, vdl::EndianEntry::terminator};
inline const vdl::EndianEntry numberEntries[] = {{0, vdl::EndianScalar4, std::uintptr_t{0}}, endOfList};
inline const vdl::EndianTable numberTable{4, numberEntries};
inline const vdl::EndianEntry textEntries[] = {{0, vdl::EndianNested, &__vdl_EndianTable_vdlDeserString_t}, endOfList};
inline const vdl::EndianTable textTable{8, textEntries};

inline const frame::MsgMeta numberMeta{1, 0x100, 0x2001, 1}, textMeta{1, 0x100, 0x2002, 1},
    unknownMeta{1, 0x100, 0x2003, 1};
inline const frame::MessageDescription descriptions[] = {{"Number", numberMeta, &numberTable},
                                                         {"Text", textMeta, &textTable}};
inline const frame::MessageSet messages{descriptions, 2};

// Notified of every message that arrives and every change of a connection.
class ChangeSignal {
public:
    void notify() {
        std::lock_guard lock(mutex_);
        ++count_;
        changed_.notify_all();
    }
    unsigned count() {
        std::lock_guard lock(mutex_);
        return count_;
    }
    void waitForChangeFrom(unsigned count, std::chrono::milliseconds timeout) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, timeout, [&] { return count_ != count; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    unsigned count_ = 0;
};
inline ChangeSignal changes;

// Checks again at each notification, and also every 5 ms, because the queue's counters change without one.
inline bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    for (;;) {
        const unsigned seen = changes.count();
        if (condition()) return true;
        if (std::chrono::steady_clock::now() > deadline) return false;
        changes.waitForChangeFrom(seen, 5ms);
    }
}

// The messages that arrive through one module.
struct Inbox {
    int add(const frame::TransportInfo& transport, std::uint32_t number, std::string text) {
        {
            std::lock_guard lock(mutex);
            transports.push_back(transport);
            numbers.push_back(number);
            texts.push_back(std::move(text));
        }
        changes.notify();
        return 0;
    }
    std::size_t size() {
        std::lock_guard lock(mutex);
        return numbers.size();
    }
    void registerWith(frame::OmqIOModule& channel) {
        EXPECT_EQ(0, channel.registerMessageHandler(numberMeta, &Inbox::onNumber, this, numberTable));
        EXPECT_EQ(0, channel.registerMessageHandler(textMeta, &Inbox::onText, this, textTable));
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

struct ConnectionEvents : frame::IOConnectionListener {
    void onIOConnectionConnected() override { note(connected); }
    void onIOConnectionConnectionFailed() override { note(failed); }
    void onIOConnectionDisconnected() override { note(disconnected); }
    static void note(std::atomic<int>& event) {
        ++event;
        changes.notify();
    }
    std::atomic<int> connected{0}, failed{0}, disconnected{0};
};

inline int sendNumber(frame::OmqIOModule& channel, std::uint32_t value, const frame::TransportInfo* transport = nullptr,
                      const frame::MsgMeta& meta = numberMeta) {
    int completions = 0;
    const int result = channel.asyncSend({7, value}, meta, transport, numberTable, &value, [&] { ++completions; });
    EXPECT_EQ(1, completions);
    return result;
}

inline int sendText(frame::OmqIOModule& channel, std::size_t size, char letter,
                    const frame::TransportInfo* transport = nullptr) {
    char* data = static_cast<char*>(vdlFlatAlloc(size + 1));
    std::memset(data, letter, size);
    data[size] = '\0';
    vdlDeserString_t text{static_cast<std::uint32_t>(size), data};
    int completions = 0;
    const int result = channel.asyncSend({}, textMeta, transport, textTable, &text, [&] { ++completions; });
    EXPECT_EQ(1, completions);
    vdlFlatFree(data);
    return result;
}

inline std::uint32_t byteSwapped(std::uint32_t value) { return __builtin_bswap32(value); }

// A peer that sends whatever a test wants.
class RawPeer {
public:
    // The path of a socket, or the service's address on the other transport.
    explicit RawPeer(const std::string& path) {
        if (path.rfind("tcp://", 0) == 0) {
            remote_ = std::make_unique<support::RemotePeer>(path);
            return;
        }
        socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, ::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address));
        const timeval timeout{10, 0};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    }
    ~RawPeer() {
        if (socket_ >= 0) ::close(socket_);
    }
    void send(const std::string& bytes) { EXPECT_TRUE(trySend(bytes)); }
    bool trySend(const std::string& bytes) { // whether all of them were sent
        if (remote_) return remote_->send(bytes);
        return ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    std::string receive(std::size_t size) {
        if (remote_) return remote_->receive(size);
        std::string bytes(size, '\0');
        const ssize_t count = ::recv(socket_, bytes.data(), size, MSG_WAITALL);
        bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return bytes;
    }
    bool isRejected() { // it may send a hello first
        if (remote_) return remote_->isEnded();
        char byte[4096];
        ssize_t count;
        while ((count = ::recv(socket_, byte, sizeof byte, 0)) > 0) {
        }
        return count == 0 || errno == ECONNRESET;
    }

private:
    std::unique_ptr<support::RemotePeer> remote_;
    int socket_ = -1;
};

inline std::string words(std::initializer_list<std::uint32_t> values, bool swap) {
    std::string bytes;
    for (std::uint32_t value : values) {
        if (swap) value = byteSwapped(value);
        bytes.append(reinterpret_cast<const char*>(&value), 4);
    }
    return bytes;
}

// A frame's bytes in this machine's byte order or the other one.
inline std::string frameOf(const frame::MsgMeta& meta, std::uint32_t size, const std::string& body, bool swap = false) {
    std::string bytes = words({size, meta.instance, meta.interfaceCode, meta.messageId}, swap);
    bytes += std::string{static_cast<char>(meta.flag), 0, 0, 0};
    return bytes + words({7, 9, 0}, swap) + body;
}

// With QUEUE_TRANSPORT=tcp in the environment, the service "tuner" uses the transport between hosts.
class MessageQueue : public testing::Test {
protected:
    MessageQueue() {
        char name[] = "/tmp/message-queue-XXXXXX";
        folder = mkdtemp(name);
        setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
        path = folder + "/tuner.sock";
        const char* transport = std::getenv("QUEUE_TRANSPORT");
        if (transport && std::string(transport) == "tcp") path = remote.emplace(folder, "TUNER").address;
    }
    ~MessageQueue() override {
        client.reset();
        server.reset();
        std::filesystem::remove_all(folder);
    }

    void startServer(const frame::MessageSet& set = messages) {
        server = std::make_unique<host::MessageQueue>(limits);
        offered = &server->serve("tuner", set, 4096);
        serverInbox.registerWith(*offered);
        server->start();
    }
    void startClient(const frame::MessageSet& set = messages) {
        client = std::make_unique<host::MessageQueue>(limits);
        channel = &client->connectTo("tuner", set, 4096, &connectionEvents);
        clientInbox.registerWith(*channel);
        client->open(*channel);
        client->start();
    }
    void startBoth() {
        startServer();
        startClient();
        ASSERT_TRUE(eventually([&] { return clientStatistics().connected && serverStatistics().connected; }));
    }
    frame::IOStatistics serverStatistics() { return server->statistics().at(0); }
    frame::IOStatistics clientStatistics() { return client->statistics().at(0); }
    int boundSocket() {
        const int bound = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, ::bind(bound, reinterpret_cast<sockaddr*>(&address), sizeof address));
        return bound;
    }
    // Leaves a socket file behind, as a killed server does.
    void leaveSocketBehind() { ::close(boundSocket()); }
    // The hello that a peer of the server must send.
    std::string validHello() { return RawPeer(path).receive(helloSize); }
    bool honestClientServed() {
        const auto before = serverInbox.size();
        return sendNumber(*channel, 77) == 0 && eventually([&] { return serverInbox.size() > before; });
    }

    static constexpr std::size_t helloSize = 32 + 5 + 2 * 24;
    host::QueueLimits limits;
    std::string folder, path;
    std::optional<support::RemoteEndpoint> remote;
    Inbox serverInbox, clientInbox;
    ConnectionEvents connectionEvents;
    std::unique_ptr<host::MessageQueue> server, client;
    host::QueueChannel *offered = nullptr, *channel = nullptr;
};

} // namespace queue_test
