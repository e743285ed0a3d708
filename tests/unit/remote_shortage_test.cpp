// Connections to other hosts when memory or descriptors run out.
#include "remote/relay.h"
#include "support/queue-fixture.h"
#include "support/relay-attempt.h"

#include <host/keys.h>
#include <host/log-capture.h>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <new>
#include <pthread.h>

namespace {

// Of this size the relay's thread gets no block, so many times.
std::atomic<std::size_t> scarceSize{0};
std::atomic<int> shortages{0};
std::atomic<bool> descriptorsAreOut{false};

bool isTheRelay() {
    char name[16] = "";
    pthread_getname_np(pthread_self(), name, sizeof name);
    return std::strcmp(name, "remote") == 0;
}

} // namespace

// All that the library's code may call, so that each block is given back as it was got. Out of line: the compiler would
// take a malloc that it sees for a block that delete must not get.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (size == scarceSize && shortages > 0 && isTheRelay() && shortages.fetch_sub(1) > 0) throw std::bad_alloc();
    if (void* block = std::malloc(size)) return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }
[[gnu::noinline]] void* operator new[](std::size_t size) { return ::operator new(size); }
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete[](void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

// Visible, so that the library that accepts calls it.
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

using namespace host::remote;

class AServiceInNeed : public testing::Test {
protected:
    std::string outcome() {
        relay.connect(address, keys.publicKey, mailbox);
        return support::answerTo(io, *mailbox).reason;
    }

    boost::asio::io_context io;
    const std::shared_ptr<Mailbox> mailbox = std::make_shared<Mailbox>(io), offered = std::make_shared<Mailbox>(io);
    const host::KeyPair keys = host::makeKeys();
    const std::string service = std::string(200, 's'); // whose name needs a block of a size of its own
    Relay relay{keys, 50ms};
    const std::string address = relay.serve(service, "tcp://127.0.0.1:*", {keys.publicKey}, offered);
};

TEST_F(AServiceInNeed, LetsClientsInAgainWhenItHadNoMemoryToLookAKeyUp) {
    const host::LogCapture log({0x0202});
    scarceSize = service.size() + 1;
    shortages = 1;
    EXPECT_EQ(outcome(), "it cannot tell now whether it lets this machine's key in");
    EXPECT_EQ(shortages, 0);
    EXPECT_EQ(outcome(), "a stream");
    EXPECT_TRUE(log.waitFor("whether to let a client in cannot be told: std::bad_alloc", 10s));
    EXPECT_TRUE(eventually([&] {
        const auto item = offered->take();
        return item && item->reason == "a stranger whose key could not be looked up for want of memory";
    }));
}

TEST_F(AServiceInNeed, TellsThatThereIsNoDescriptorForItsClients) {
    const host::LogCapture log({0x0202});
    descriptorsAreOut = true;
    relay.connect(address, keys.publicKey, mailbox);
    EXPECT_TRUE(log.waitFor("cannot accept clients from other hosts: Too many open files", 10s));
    descriptorsAreOut = false;
    EXPECT_TRUE(eventually([&] {
        const auto item = offered->take();
        return item && item->socket;
    }));
}

} // namespace
} // namespace queue_test
