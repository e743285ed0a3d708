// Clients that violate the protocol between hosts, with an unknown key or with a known one.
//
// usage: check-hosts-clients KIND ADDRESS COUNT ..., where ADDRESS is tcp://HOST:PORT and KIND is
//   unknown-keys ADDRESS COUNT PER_SECOND   clients with new keys, of which every fourth expects another key of the
//                                           service; as fast as they can if PER_SECOND is 0
// or one of these, with the key in FILE:
//   junk ADDRESS COUNT FILE                 connections that send something other than a hello
//   unproven ADDRESS COUNT FILE             connections that show the public key, do not prove that they have the
//                                           secret key, and wait
//   garbage ADDRESS COUNT FILE              records of five bytes, over as many connections as necessary; then a
//                                           connection that closes in the middle of a record
//   messages ADDRESS COUNT FILE BYTES       messages of an unknown type, each of that size
//   key-updates ADDRESS COUNT FILE          key updates, of which every second one requests one from the service
//   hold ADDRESS COUNT FILE                 connections that send a hello and never read, until standard input ends
//
// junk and garbage print how many connections they have made, without the one that closes in a record; hold prints how
// many the service has accepted. Exits with 0 if the service handled the clients correctly.
#include "base/endpoint.h"
#include "base/file-descriptor.h"
#include "remote/tls.h"

#include <host/endpoint.h>
#include <host/keys.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using host::net::Address;
using host::remote::KeyCheck;
using Arguments = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

constexpr timeval timeout{20, 0};                   // for each system call
constexpr std::size_t atATime = 40;                 // fewer than the connections that one key may have
constexpr std::size_t unknownAtATime = 50;          // fewer than the listen backlog, so that no connect is repeated
constexpr std::size_t maxBufferedBytes = 16 * 1024; // of small records, for one system call
constexpr std::size_t recordBytes = 16 * 1024;      // of the longest record
constexpr std::size_t frameHeaderBytes = 32, helloHeadBytes = 32;

class FixedAnswer final : public KeyCheck {
public:
    explicit FixedAnswer(Answer answer) : answer_(answer) {}
    Answer check(const std::string&) override { return answer_; }

private:
    Answer answer_;
};

host::remote::Context blockingContext(const host::KeyPair& keys) {
    auto context = host::remote::makeContext(keys);
    SSL_CTX_set_mode(context.get(), SSL_MODE_AUTO_RETRY);
    SSL_CTX_clear_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE);
    return context;
}

// A blocking connection. Throws std::runtime_error on timeout.
class Client {
public:
    Client(const Address& service, SSL_CTX& context, KeyCheck::Answer answer = KeyCheck::Answer::accepted)
        : check_(answer), socket_(::socket(service.data()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
        if (::connect(socket_.get(), service.data(), static_cast<socklen_t>(service.size())) != 0)
            throw std::runtime_error(std::string("cannot connect: ") + std::strerror(errno));
        ssl_.reset(SSL_new(&context));
        if (!ssl_ || SSL_set_fd(ssl_.get(), socket_.get()) != 1 || SSL_set_app_data(ssl_.get(), &check_) != 1)
            throw std::bad_alloc();
    }

    // Sends the ClientHello. Reads nothing: where the service has already answered, this would finish the handshake.
    void begin() {
        SSL_set0_rbio(ssl_.get(), BIO_new(BIO_s_mem()));
        SSL_connect(ssl_.get());
        ERR_clear_error();
        if (SSL_set_rfd(ssl_.get(), socket_.get()) != 1) throw std::bad_alloc();
    }
    bool handshake() { return done(SSL_connect(ssl_.get())); }
    bool isAccepted() {
        char first;
        return done(SSL_peek(ssl_.get(), &first, 1));
    }
    bool send(const std::string& bytes) {
        return done(SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size())));
    }

    // Runs the handshake up to the client's certificate, which is in the first encrypted record. Sends nothing if the
    // service has already closed the connection, as it may if there are too many.
    void showCertificate() {
        bufferRecords();
        SSL_connect(ssl_.get());
        ERR_clear_error();
        char* data;
        const auto size = static_cast<std::size_t>(BIO_get_mem_data(SSL_get_wbio(ssl_.get()), &data));
        constexpr char encrypted = 23;
        std::size_t end = 0;
        bool found = false;
        while (!found && end + 5 < size) {
            found = data[end] == encrypted;
            end += 5 + (static_cast<std::size_t>(static_cast<unsigned char>(data[end + 3])) << 8 |
                        static_cast<unsigned char>(data[end + 4]));
        }
        if (!found) return;
        if (end >= size) throw std::runtime_error("the certificate and the proof of the key are in one record");
        sendRaw({data, end});
    }

    // Sends the service's own hello back: both sides have the same messages. Returns false if the connection is closed.
    bool exchangeHello() {
        std::string hello = receive(helloHeadBytes);
        if (hello.size() < helloHeadBytes) return false;
        std::uint32_t size;
        std::memcpy(&size, hello.data() + 12, sizeof size);
        if (size < helloHeadBytes || size > 64 * 1024) throw std::runtime_error("the service's hello is malformed");
        hello += receive(size - helloHeadBytes);
        return hello.size() == size && send(hello);
    }

    // From now on records are buffered; flushAbove() sends all of them once they exceed `most` bytes.
    void bufferRecords() { SSL_set0_wbio(ssl_.get(), BIO_new(BIO_s_mem())); }
    bool flushAbove(std::size_t most) {
        char* data;
        const auto size = static_cast<std::size_t>(BIO_get_mem_data(SSL_get_wbio(ssl_.get()), &data));
        if (size <= most) return true;
        const bool sent = sendRaw({data, size});
        (void)BIO_reset(SSL_get_wbio(ssl_.get()));
        return sent;
    }
    // Discards what the service has sent, without decrypting it: nothing can be received after this.
    void discard() {
        char bytes[4096];
        while (::recv(socket_.get(), bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
        }
    }
    bool updateKeys(int kind) { return SSL_key_update(ssl_.get(), kind) == 1 && done(SSL_do_handshake(ssl_.get())); }

    bool sendRaw(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count < 0 && errno == EAGAIN) throw std::runtime_error("the service does not read");
            if (count < 0) return false;
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

    // Waits until the service has read everything and closed the connection. Closing a socket with unread bytes would
    // reset the connection.
    void end() {
        ::shutdown(socket_.get(), SHUT_WR);
        char bytes[4096];
        ssize_t count;
        while ((count = ::recv(socket_.get(), bytes, sizeof bytes, 0)) > 0) {
        }
        if (count < 0 && errno == EAGAIN) throw std::runtime_error("the service does not close a connection");
    }

private:
    bool done(int result) {
        const int error = SSL_get_error(ssl_.get(), result);
        ERR_clear_error();
        if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE)
            throw std::runtime_error("the service does not answer");
        return result > 0;
    }
    std::string receive(std::size_t size) {
        std::string bytes(size, '\0');
        std::size_t received = 0;
        for (int count; received < size; received += static_cast<std::size_t>(count)) {
            count = SSL_read(ssl_.get(), bytes.data() + received, static_cast<int>(size - received));
            if (!done(count)) break;
        }
        bytes.resize(received);
        return bytes;
    }

    FixedAnswer check_;
    host::io::FileDescriptor socket_;
    std::unique_ptr<SSL, host::remote::Releaser<SSL_free>> ssl_;
};

struct Options {
    Address service;
    std::size_t count;
    Arguments rest;

    host::remote::Context context() const { return blockingContext(host::readKeys(rest.at(0))); }
};

void printCount(std::size_t connections) {
    std::printf("%zu\n", connections);
    std::fflush(stdout);
}

// Opens all connections at once. A single thread serves them, so that they do not use more processor time than a
// service.
std::vector<std::unique_ptr<Client>> clientsAtOnce(std::size_t count,
                                                   const std::function<std::unique_ptr<Client>()>& make) {
    std::vector<std::unique_ptr<Client>> clients;
    while (clients.size() < count) {
        clients.push_back(make());
        clients.back()->begin();
    }
    return clients;
}

void connectWithUnknownKeys(const Options& options) {
    const unsigned long perSecond = std::stoul(options.rest.at(0));
    // At a constant rate run only on idle processors, so that the measurement shows the load on the service alone.
    const sched_param priority{};
    if (perSecond > 0) sched_setscheduler(0, SCHED_IDLE, &priority);
    const auto started = Clock::now();
    std::size_t made = 0;
    const auto make = [&] {
        const bool expectsAnother = made++ % 4 == 3;
        return std::make_unique<Client>(options.service, *blockingContext(host::makeKeys()),
                                        expectsAnother ? KeyCheck::Answer::unknown : KeyCheck::Answer::accepted);
    };
    while (made < options.count) {
        for (auto& client : clientsAtOnce(perSecond > 0 ? 1 : std::min(unknownAtATime, options.count - made), make)) {
            if (client->handshake() && client->isAccepted())
                throw std::runtime_error("the service accepted a client with an unknown key");
            client->end();
        }
        if (perSecond > 0)
            std::this_thread::sleep_until(started + made * std::chrono::microseconds(1'000'000) / perSecond);
    }
}

void sendJunk(const Options& options) {
    const auto context = options.context();
    for (std::size_t made = 0; made < options.count;) {
        const auto clients = clientsAtOnce(std::min(atATime, options.count - made),
                                           [&] { return std::make_unique<Client>(options.service, *context); });
        for (const auto& client : clients) {
            if (client->handshake()) client->send("junk");
            client->end();
        }
        made += clients.size();
    }
    printCount(options.count);
}

void showCertificates(const Options& options) {
    const auto context = options.context();
    const auto clients =
        clientsAtOnce(options.count, [&] { return std::make_unique<Client>(options.service, *context); });
    for (const auto& client : clients) client->showCertificate();
    for (const auto& client : clients) client->end();
}

void closeInARecord(const Options& options, SSL_CTX& context) {
    Client client(options.service, context);
    if (!client.handshake() || !client.exchangeHello()) throw std::runtime_error("the service rejects a valid hello");
    client.sendRaw(std::string_view("\x17\x03\x03\x10\x00half", 9));
    client.end();
}

void sendGarbage(const Options& options) {
    const auto context = options.context();
    std::size_t connections = 0;
    for (std::size_t sent = 0; sent < options.count; ++connections) {
        Client client(options.service, *context);
        if (client.handshake()) {
            client.bufferRecords();
            for (bool connected = true; connected && sent < options.count; ++sent)
                connected = client.send("junk!") && client.flushAbove(maxBufferedBytes);
            client.flushAbove(0);
        }
        client.end();
    }
    closeInARecord(options, *context);
    printCount(connections);
}

std::string unknownMessage(std::size_t size) {
    const std::uint32_t words[] = {static_cast<std::uint32_t>(size - frameHeaderBytes), 1, 1, 0x7FFFFFFF, 0, 0, 0, 0};
    static_assert(sizeof words == frameHeaderBytes);
    return std::string(reinterpret_cast<const char*>(words), sizeof words) + std::string(size - frameHeaderBytes, 'x');
}

void sendMessages(const Options& options) {
    const auto context = options.context();
    const std::string message = unknownMessage(std::stoul(options.rest.at(1)));
    Client client(options.service, *context);
    if (!client.handshake() || !client.exchangeHello()) throw std::runtime_error("the service rejects a valid hello");
    const std::size_t messagesPerRecord = std::max<std::size_t>(recordBytes / message.size(), 1);
    std::string record;
    for (std::size_t i = 0; i < messagesPerRecord; ++i) record += message;
    for (std::size_t sent = 0; sent < options.count; sent += messagesPerRecord) {
        record.resize(std::min(messagesPerRecord, options.count - sent) * message.size());
        if (!client.send(record))
            throw std::runtime_error("the service closes a connection because of unknown messages");
    }
    client.end();
}

void updateKeys(const Options& options) {
    const auto context = options.context();
    Client client(options.service, *context);
    if (!client.handshake() || !client.exchangeHello()) throw std::runtime_error("the service rejects a valid hello");
    client.bufferRecords();
    for (std::size_t i = 0; i < options.count; ++i) {
        const int kind = i % 2 == 0 ? SSL_KEY_UPDATE_NOT_REQUESTED : SSL_KEY_UPDATE_REQUESTED;
        if (!client.updateKeys(kind) || !client.flushAbove(maxBufferedBytes))
            throw std::runtime_error("the service closes a connection because of key updates");
        client.discard();
    }
    client.flushAbove(0);
    client.end();
}

void hold(const Options& options) {
    const auto context = options.context();
    const auto clients =
        clientsAtOnce(options.count, [&] { return std::make_unique<Client>(options.service, *context); });
    const auto accepted = std::count_if(clients.begin(), clients.end(), [](const auto& client) {
        return client->handshake() && client->exchangeHello();
    });
    printCount(static_cast<std::size_t>(accepted));
    char byte;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
}

int run(int count, char** words) {
    static const std::map<std::string, void (*)(const Options&)> kinds{
        {"unknown-keys", connectWithUnknownKeys},
        {"junk", sendJunk},
        {"garbage", sendGarbage},
        {"messages", sendMessages},
        {"key-updates", updateKeys},
        {"hold", hold},
        {"unproven", showCertificates},
    };
    const Arguments arguments(words + 1, words + count);
    const auto kind = kinds.find(arguments.at(0));
    if (kind == kinds.end()) throw std::runtime_error("no such kind of clients: " + arguments.at(0));
    const std::string& address = arguments.at(1);
    const auto addresses = host::net::addressesOf("service", address, host::hostPortOf("service", address));
    const Options options{addresses.at(0), std::stoul(arguments.at(2)), {arguments.begin() + 3, arguments.end()}};
    kind->second(options);
    return 0;
}

} // namespace

int main(int count, char** words) {
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return run(count, words);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "check-hosts-clients: %s: %s\n", count > 1 ? words[1] : "usage", error.what());
        return 1;
    }
}
