#include "remote/connector.h"

#include "remote/negotiation.h"
#include "remote/tls-stream.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/post.hpp>
#include <exception>
#include <mutex>
#include <netdb.h>
#include <pthread.h>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace host::remote {
namespace {

using namespace std::chrono_literals;

constexpr auto attemptLimit = 5s; // for everything that it takes to be accepted

class Attempt final : public Negotiation {
public:
    Attempt(boost::asio::io_context& io, std::shared_ptr<Common> common, std::shared_ptr<const std::string> serviceKey,
            io::Connector::Answer answer)
        : Negotiation(io), common_(std::move(common)), serviceKey_(std::move(serviceKey)), answer_(std::move(answer)) {}

    void begin() { failAfter(attemptLimit, "no answer within 5 s"); }

    void connectTo(const std::vector<Address>& addresses) {
        if (isOver()) return; // finding the addresses took too long
        boost::asio::async_connect(socket, addresses,
                                   [this, self = shared_from_this()](const boost::system::error_code& error,
                                                                     const Address&) { onConnected(error); });
    }

private:
    void onConnected(const boost::system::error_code& error) {
        if (isOver()) return;
        if (error) return fail(("nobody answers there: " + error.message()).c_str());
        proceed();
    }

    Answer check(const std::string& publicKey) override {
        if (publicKey == *serviceKey_) return Answer::welcome;
        otherKey_ = publicKey;
        return Answer::unknown;
    }

    Session::Progress advance() override {
        if (!session) session = std::make_unique<Session>(*common_->tls, socket.native_handle(), false, *this);
        if (!proven_) {
            const auto progress = session->handshake();
            if (progress != Session::Progress::done) return progress;
            proven_ = true;
        }
        return session->awaitAcceptance();
    }

    void onDone() override {
        auto stream = makeStream(common_, std::move(socket), std::move(session), serviceKey_);
        std::exchange(answer_, nullptr)(std::move(stream), {});
    }

    void onFailed(const char* reason) noexcept override {
        std::string text;
        try {
            text = reason;
        } catch (const std::exception&) { // no memory
        }
        if (answer_) std::exchange(answer_, nullptr)(nullptr, text);
    }

    std::string whyOver() const override {
        if (!otherKey_.empty()) return "it has another key than this machine expects of the service: " + otherKey_;
        return std::string("it broke off while the keys were proven: ") + session->reason();
    }

    const std::shared_ptr<Common> common_;
    const std::shared_ptr<const std::string> serviceKey_;
    io::Connector::Answer answer_;
    std::string otherKey_;
    bool proven_ = false;
};

// By which a thread that nobody waits for hands over what it found, as long as somebody may want it.
class Line {
public:
    explicit Line(boost::asio::io_context& io) : io_(&io) {}
    template <class Step> void post(Step step) {
        std::lock_guard lock(mutex_);
        if (io_) boost::asio::post(*io_, std::move(step));
    }
    void cut() {
        std::lock_guard lock(mutex_);
        io_ = nullptr;
    }

private:
    std::mutex mutex_;
    boost::asio::io_context* io_;
};

class RemoteConnector final : public io::Connector {
public:
    RemoteConnector(boost::asio::io_context& io, std::shared_ptr<Common> common, std::string service,
                    std::string endpoint, const std::string& key)
        : io_(io),
          common_(std::move(common)),
          service_(std::move(service)),
          endpoint_(std::move(endpoint)),
          key_(std::make_shared<const std::string>(key)),
          place_(placeOf(service_, endpoint_, 1)),
          line_(std::make_shared<Line>(io)) {
        try {
            fixed_ = addressesOf(service_, endpoint_, place_, AI_NUMERICHOST);
        } catch (const std::runtime_error&) {
            (void)addressesOf(service_, endpoint_, place_); // a name, which somebody has to know
        }
    }
    ~RemoteConnector() override { line_->cut(); }

    const std::string& address() const override { return endpoint_; }

    void connect(const Answer& answer) override {
        const auto attempt = std::make_shared<Attempt>(io_, common_, key_, answer);
        attempt->begin();
        try {
            fixed_.empty() ? findAddresses(attempt) : attempt->connectTo(fixed_);
        } catch (const std::exception& error) { // no memory, or no thread
            attempt->fail(error.what());
        }
    }

private:
    // Asked anew for each attempt, on a thread of its own: the answer may take many seconds, and the host may have
    // moved.
    void findAddresses(const std::weak_ptr<Attempt>& attempt) {
        std::thread([service = service_, endpoint = endpoint_, place = place_, line = line_, attempt] {
            pthread_setname_np(pthread_self(), "resolver");
            const auto hand = [&](std::vector<Address> addresses, std::string reason) {
                line->post([attempt, addresses = std::move(addresses), reason = std::move(reason)] {
                    const auto waiting = attempt.lock();
                    if (!waiting) return;
                    reason.empty() ? waiting->connectTo(addresses) : waiting->fail(reason.c_str());
                });
            };
            try {
                hand(addressesOf(service, endpoint, place), {});
            } catch (const std::runtime_error& error) {
                try {
                    hand({}, error.what());
                } catch (const std::exception&) { // no memory: the attempt ends when its time is over
                }
            } catch (const std::exception&) { // as above
            }
        }).detach();
    }

    boost::asio::io_context& io_;
    const std::shared_ptr<Common> common_;
    const std::string service_, endpoint_;
    const std::shared_ptr<const std::string> key_;
    const Place place_;
    const std::shared_ptr<Line> line_;
    std::vector<Address> fixed_; // none when the host is a name
};

} // namespace

std::unique_ptr<io::Connector> makeConnectorTo(boost::asio::io_context& io, std::shared_ptr<Common> common,
                                               const std::string& service, const std::string& endpoint,
                                               const std::string& serviceKey) {
    return std::make_unique<RemoteConnector>(io, std::move(common), service, endpoint, serviceKey);
}

} // namespace host::remote
