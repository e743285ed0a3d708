// A service's door when its transport turns many clients away.
#include "io/server-door.h"
#include "support/queue-fixture.h"

#include <host/log-capture.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <stdexcept>
#include <utility>

namespace queue_test {
namespace {

// Of whose clients none is let in.
class StrictListener final : public host::io::Listener {
public:
    StrictListener(boost::asio::io_context& io, unsigned clients) : io_(io), clients_(clients) {}
    void wait(std::function<void()> ready) override {
        if (clients_ > 0) boost::asio::post(io_, std::move(ready));
    }
    std::unique_ptr<host::io::Stream> accept(std::error_code&) override {
        if (clients_ == 0) return nullptr;
        --clients_;
        throw std::runtime_error("a stranger");
    }

private:
    boost::asio::io_context& io_;
    unsigned clients_;
};

// Else those that are there already would wait until the last of a crowd is turned away.
TEST(AServersDoor, TurnsAFewClientsAwayAtATime) {
    const host::LogCapture log({0x0202});
    constexpr unsigned crowd = 1000;
    boost::asio::io_context io{1};
    host::io::ServerDoor door(io, std::make_unique<StrictListener>(io, crowd), "tuner", messages, 4096, {});
    std::uint64_t before = 0;
    door.proceed();
    for (;;) {
        const auto refused = door.statistics().refused;
        EXPECT_LE(refused - before, 16U);
        before = refused;
        if (io.run_one() == 0) break;
    }
    EXPECT_EQ(before, crowd);
    door.end();
}

} // namespace
} // namespace queue_test
