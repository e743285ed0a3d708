// A service that many clients want at once.
#include "support/queue-fixture.h"

#include <filesystem>
#include <iterator>
#include <memory>
#include <vector>

namespace queue_test {
namespace {

long openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(all, std::filesystem::directory_iterator());
}

struct FirstMessage {
    static int take(const frame::MsgMeta&, const frame::TransportInfo&, const void*, void* context) {
        auto& self = *static_cast<FirstMessage*>(context);
        if (self.taken++ == 0) self.descriptors = openDescriptors();
        bell.ring();
        return 0;
    }
    std::atomic<std::size_t> taken{0};
    std::atomic<long> descriptors{0};
};

// Else clients that keep coming would keep it from serving, and take its memory before they are served.
TEST_F(MessageQueue, ServesItsFirstClientsBeforeItHasAcceptedTheLast) {
    startServer();
    const std::string hello = honestHello();
    server.reset();
    server = std::make_unique<host::MessageQueue>(limits);
    FirstMessage first;
    EXPECT_EQ(0, server->serve("tuner", messages, 4096)
                     .registerMessageHandler(numberMeta, FirstMessage::take, &first, numberTable));
    constexpr std::size_t crowd = 300;
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (std::size_t i = 0; i < crowd; ++i) {
        peers.push_back(std::make_unique<RawPeer>(path));
        peers.back()->say(hello + frameOf(numberMeta, 4, words({1}, false)));
    }
    const long before = openDescriptors();
    server->start();
    EXPECT_TRUE(eventually([&] { return first.taken == crowd; }));
    EXPECT_LT(first.descriptors - before, static_cast<long>(crowd / 3));
    server.reset(); // before what its handler looks at
}

} // namespace
} // namespace queue_test
