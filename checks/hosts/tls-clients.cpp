// Clients on the transport between hosts that break its rules, with a key that nobody knows or with a known one.
//
// usage: check-hosts-clients KIND ADDRESS COUNT ..., where ADDRESS is tcp://HOST:PORT and KIND is
//   unknown-keys ADDRESS COUNT PER_SECOND   clients with keys of their own, every fourth of which expects another key
//   of
//                                           the service; as fast as they can when PER_SECOND is 0
// or one of those with the key in FILE:
//   junk ADDRESS COUNT FILE                 connections that say something that is no hello
//   unproven ADDRESS COUNT FILE             connections that show the public key, do not prove that they have the
//   secret
//                                           one, and wait
//   garbage ADDRESS COUNT FILE              records of five bytes, over as many connections as it takes; then a
//                                           connection that breaks in the middle of a record
//   messages ADDRESS COUNT FILE BYTES       messages that the service does not know, each of that many bytes
//   key-updates ADDRESS COUNT FILE          new keys, one after the other, every second of which asks for an answer
//   hold ADDRESS COUNT FILE                 connections that say hello and never read again, until standard input ends
//
// junk and garbage print how many connections they have made, without that which breaks; hold prints how many the
// service has accepted. Ends with 0 when the service did what it has to do with such clients.
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
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using host::net::Address;
using host::remote::KeyCheck;
using Arguments = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

constexpr timeval timeout{20, 0};              // for whatever the service has to do
constexpr std::size_t atATime = 40;            // fewer than the streams that one key may have
constexpr std::size_t unknownAtATime = 50;     // fewer than may wait to be accepted, so that none comes twice
constexpr std::size_t gathered = 16 * 1024;    // bytes of small records for one call of the system
constexpr std::size_t recordBytes = 16 * 1024; // the longest record's
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

// A connection whose calls wait. Throws std::runtime_error when the service takes too long.
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

    // Says the first word of the handshake and does not wait for the answer.
    void begin() {
        setBlocking(false);
        SSL_connect(ssl_.get());
        ERR_clear_error();
        setBlocking(true);
    }
    bool shakeHands() { return done(SSL_connect(ssl_.get())); }
    bool isAccepted() {
        char first;
        return done(SSL_peek(ssl_.get(), &first, 1));
    }
    bool say(const std::string& bytes) {
        return done(SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size())));
    }

    // The handshake up to its certificate, which is in the first encrypted record that it says. Nothing when the
    // service has ended it before, as it may when there are many at once.
    void showCertificate() {
        gather();
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
        if (end >= size) throw std::runtime_error("the proof comes with the certificate");
        sayRaw({data, end});
    }

    // Repeats the service's own hello, as both sides have the same messages. Returns whether the service is there.
    bool sayHello() {
        std::string hello = hear(helloHeadBytes);
        if (hello.size() < helloHeadBytes) return false;
        std::uint32_t size;
        std::memcpy(&size, hello.data() + 12, sizeof size);
        if (size < helloHeadBytes || size > 64 * 1024) throw std::runtime_error("the service's hello is malformed");
        hello += hear(size - helloHeadBytes);
        return hello.size() == size && say(hello);
    }

    // From then on small records wait for those that follow, until flush sends all of them.
    void gather() { SSL_set0_wbio(ssl_.get(), BIO_new(BIO_s_mem())); }
    bool flushMoreThan(std::size_t most) {
        char* data;
        const auto size = static_cast<std::size_t>(BIO_get_mem_data(SSL_get_wbio(ssl_.get()), &data));
        if (size <= most) return true;
        const bool sent = sayRaw({data, size});
        (void)BIO_reset(SSL_get_wbio(ssl_.get()));
        return sent;
    }
    // Takes what the service has said so far from the system, encrypted as it is: nothing can be heard after this.
    void discard() {
        char bytes[4096];
        while (::recv(socket_.get(), bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
        }
    }
    bool updateKeys(int kind) { return SSL_key_update(ssl_.get(), kind) == 1 && done(SSL_do_handshake(ssl_.get())); }

    bool sayRaw(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count < 0 && errno == EAGAIN) throw std::runtime_error("the service does not read");
            if (count < 0) return false;
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

    // Lets the service read all that was said: were the socket closed with bytes that nobody has read, the system would
    // break the connection.
    void end() {
        ::shutdown(socket_.get(), SHUT_WR);
        char bytes[4096];
        ssize_t count;
        while ((count = ::recv(socket_.get(), bytes, sizeof bytes, 0)) > 0) {
        }
        if (count < 0 && errno == EAGAIN) throw std::runtime_error("the service does not end a connection");
    }

private:
    void setBlocking(bool blocking) {
        int nonBlocking = blocking ? 0 : 1;
        ::ioctl(socket_.get(), FIONBIO, &nonBlocking);
    }
    bool done(int result) {
        const int error = SSL_get_error(ssl_.get(), result);
        ERR_clear_error();
        if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE)
            throw std::runtime_error("the service does not answer");
        return result > 0;
    }
    std::string hear(std::size_t size) {
        std::string bytes(size, '\0');
        std::size_t heard = 0;
        for (int count; heard < size; heard += static_cast<std::size_t>(count)) {
            count = SSL_read(ssl_.get(), bytes.data() + heard, static_cast<int>(size - heard));
            if (!done(count)) break;
        }
        bytes.resize(heard);
        return bytes;
    }

    FixedAnswer check_;
    host::io::FileDescriptor socket_;
    std::unique_ptr<SSL, host::remote::Releaser<SSL_free>> ssl_;
};

struct Order {
    Address service;
    std::size_t count;
    Arguments rest;

    host::remote::Context context() const { return blockingContext(host::readKeys(rest.at(0))); }
};

void tell(std::size_t connections) {
    std::printf("%zu\n", connections);
    std::fflush(stdout);
}

// One thread, so that of the processors they take no more than a service does; but the service meets all of these at
// once.
std::vector<std::unique_ptr<Client>> clientsAtOnce(std::size_t count,
                                                   const std::function<std::unique_ptr<Client>()>& make) {
    std::vector<std::unique_ptr<Client>> clients;
    while (clients.size() < count) {
        clients.push_back(make());
        clients.back()->begin();
    }
    return clients;
}

void comeWithUnknownKeys(const Order& order) {
    const unsigned long perSecond = std::stoul(order.rest.at(0));
    // Only what nobody else wants of the processors: at an even pace they are to show what they do to the service.
    const sched_param priority{};
    if (perSecond > 0) sched_setscheduler(0, SCHED_IDLE, &priority);
    const auto begun = Clock::now();
    std::size_t made = 0;
    const auto make = [&] {
        const bool expectsAnother = made++ % 4 == 3;
        return std::make_unique<Client>(order.service, *blockingContext(host::makeKeys()),
                                        expectsAnother ? KeyCheck::Answer::unknown : KeyCheck::Answer::accepted);
    };
    while (made < order.count) {
        for (auto& client : clientsAtOnce(perSecond > 0 ? 1 : std::min(unknownAtATime, order.count - made), make)) {
            if (client->shakeHands() && client->isAccepted())
                throw std::runtime_error("a client with an unknown key was let in");
            client->end();
        }
        if (perSecond > 0)
            std::this_thread::sleep_until(begun + made * std::chrono::microseconds(1'000'000) / perSecond);
    }
}

void sayJunk(const Order& order) {
    const auto context = order.context();
    for (std::size_t made = 0; made < order.count;) {
        const auto clients = clientsAtOnce(std::min(atATime, order.count - made),
                                           [&] { return std::make_unique<Client>(order.service, *context); });
        for (const auto& client : clients) {
            if (client->shakeHands()) client->say("junk");
            client->end();
        }
        made += clients.size();
    }
    tell(order.count);
}

void showKeysOnly(const Order& order) {
    const auto context = order.context();
    const auto clients = clientsAtOnce(order.count, [&] { return std::make_unique<Client>(order.service, *context); });
    for (const auto& client : clients) client->showCertificate();
    for (const auto& client : clients) client->end();
}

void breakInARecord(const Order& order, SSL_CTX& context) {
    Client client(order.service, context);
    if (!client.shakeHands() || !client.sayHello()) throw std::runtime_error("the service rejects a good hello");
    client.sayRaw(std::string_view("\x17\x03\x03\x10\x00half", 9));
    client.end();
}

void sayGarbage(const Order& order) {
    const auto context = order.context();
    std::size_t connections = 0;
    for (std::size_t said = 0; said < order.count; ++connections) {
        Client client(order.service, *context);
        if (client.shakeHands()) {
            client.gather();
            for (bool there = true; there && said < order.count; ++said)
                there = client.say("junk!") && client.flushMoreThan(gathered);
            client.flushMoreThan(0);
        }
        client.end();
    }
    breakInARecord(order, *context);
    tell(connections);
}

std::string unknownMessage(std::size_t size) {
    const std::uint32_t words[] = {static_cast<std::uint32_t>(size - frameHeaderBytes), 1, 1, 0x7FFFFFFF, 0, 0, 0, 0};
    static_assert(sizeof words == frameHeaderBytes);
    return std::string(reinterpret_cast<const char*>(words), sizeof words) + std::string(size - frameHeaderBytes, 'x');
}

void sayMessages(const Order& order) {
    const auto context = order.context();
    const std::string one = unknownMessage(std::stoul(order.rest.at(1)));
    Client client(order.service, *context);
    if (!client.shakeHands() || !client.sayHello()) throw std::runtime_error("the service rejects a good hello");
    const std::size_t together = std::max<std::size_t>(recordBytes / one.size(), 1);
    std::string record;
    for (std::size_t i = 0; i < together; ++i) record += one;
    for (std::size_t said = 0; said < order.count; said += together) {
        record.resize(std::min(together, order.count - said) * one.size());
        if (!client.say(record))
            throw std::runtime_error("the service ends a connection for messages it does not know");
    }
    client.end();
}

void updateKeys(const Order& order) {
    const auto context = order.context();
    Client client(order.service, *context);
    if (!client.shakeHands() || !client.sayHello()) throw std::runtime_error("the service rejects a good hello");
    client.gather();
    for (std::size_t i = 0; i < order.count; ++i) {
        const int kind = i % 2 == 0 ? SSL_KEY_UPDATE_NOT_REQUESTED : SSL_KEY_UPDATE_REQUESTED;
        if (!client.updateKeys(kind) || !client.flushMoreThan(gathered))
            throw std::runtime_error("the service ends a connection for new keys");
        client.discard();
    }
    client.flushMoreThan(0);
    client.end();
}

void hold(const Order& order) {
    const auto context = order.context();
    const auto clients = clientsAtOnce(order.count, [&] { return std::make_unique<Client>(order.service, *context); });
    const auto accepted = std::count_if(clients.begin(), clients.end(),
                                        [](const auto& client) { return client->shakeHands() && client->sayHello(); });
    tell(static_cast<std::size_t>(accepted));
    char byte;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
}

int run(int count, char** words) {
    static const std::map<std::string, void (*)(const Order&)> kinds{
        {"unknown-keys", comeWithUnknownKeys}, {"junk", sayJunk}, {"garbage", sayGarbage},    {"messages", sayMessages},
        {"key-updates", updateKeys},           {"hold", hold},    {"unproven", showKeysOnly},
    };
    const Arguments arguments(words + 1, words + count);
    const auto kind = kinds.find(arguments.at(0));
    if (kind == kinds.end()) throw std::runtime_error("no such kind of clients: " + arguments.at(0));
    const std::string& address = arguments.at(1);
    const auto addresses = host::net::addressesOf("service", address, host::hostPortOf("service", address));
    const Order order{addresses.at(0), std::stoul(arguments.at(2)), {arguments.begin() + 3, arguments.end()}};
    kind->second(order);
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
