// A service's listener while it rejects many clients.
#include "queue/service-channel.h"
#include "support/queue-fixture.h"
#include "transport/local-transport.h"

#include <host/log-capture.h>

#include <boost/asio/io_context.hpp>
#include <utility>

namespace queue_test {
namespace {

// Rejects every client.
class StrictListener final : public host::io::Listener, private host::io::ListenerUser {
public:
    StrictListener(boost::asio::io_context& io, const std::string& path) : clients_(io, "tuner", path) {}
    void listen(host::io::ListenerUser& user) noexcept override {
        user_ = &user;
        clients_.listen(*this);
    }

private:
    void onClient(std::unique_ptr<host::io::Stream>) noexcept override { user_->onRejected("unknown"); }
    void onAuthenticated(const char*) noexcept override {}
    void onRejected(const char* reason) noexcept override { user_->onRejected(reason); }
    void onCannotAccept(const char* reason) noexcept override { user_->onCannotAccept(reason); }
    void onStalled(const char* reason) noexcept override { user_->onStalled(reason); }

    host::io::LocalListener clients_;
    host::io::ListenerUser* user_ = nullptr;
};

class ServiceListener : public MessageQueue {};

// Otherwise connected clients would wait until all new ones are rejected.
TEST_F(ServiceListener, RejectsOnlyAFewClientsAtATime) {
    const host::LogCapture log({0x0202});
    boost::asio::io_context io{1};
    host::io::ServiceChannel channel(io, std::make_unique<StrictListener>(io, path), "tuner", messages, 4096, {});
    std::vector<std::unique_ptr<RawPeer>> crowd;
    for (int i = 0; i < 200; ++i) crowd.push_back(std::make_unique<RawPeer>(path));
    std::uint64_t before = 0;
    channel.proceed();
    for (;;) {
        const auto refused = channel.statistics().refused;
        EXPECT_LE(refused - before, 16U);
        before = refused;
        if (before == crowd.size()) break;
        ASSERT_EQ(io.run_one(), 1U);
    }
    channel.end();
}

} // namespace
} // namespace queue_test
