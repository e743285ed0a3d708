#include "remote/relay.h"

#include "remote/client-side.h"
#include "remote/log.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <future>
#include <pthread.h>
#include <stdexcept>
#include <utility>

namespace host::remote {
namespace {

using namespace std::chrono_literals;

constexpr const char* doorkeepersPlace = "inproc://zeromq.zap.01"; // where the library asks
constexpr std::size_t zapParts = 7, keyBytes = 32;
constexpr auto faultPause = 100ms; // until memory may be there again

} // namespace

Relay::Relay(const KeyPair& keys, std::chrono::milliseconds heartbeat)
    : context_(1),
      common_{context_, keys, heartbeat},
      doorkeeper_(context_, zmq::socket_type::rep),
      orders_(std::make_shared<Orders>()) {
    doorkeeper_.set(zmq::sockopt::linger, 0);
    doorkeeper_.bind(doorkeepersPlace);
    thread_ = std::thread([this] { run(); });
}

Relay::~Relay() {
    orders_->close();
    thread_.join();
}

void Relay::connect(const std::string& address, const std::string& serviceKey,
                    const std::shared_ptr<Mailbox>& mailbox) {
    orders_->add([this, address, serviceKey, mailbox] { begin(address, serviceKey, mailbox); });
}

// Nobody waits for the thread: a name may take many seconds. When the relay has gone before it, its order is dropped.
void Relay::connect(const std::function<std::string()>& findAddress, const std::string& serviceKey,
                    const std::shared_ptr<Mailbox>& mailbox) {
    std::thread([this, orders = orders_, findAddress, serviceKey, mailbox] {
        pthread_setname_np(pthread_self(), "resolver");
        for (;;) {
            try {
                std::string address, reason;
                try {
                    address = findAddress();
                } catch (const std::runtime_error& error) {
                    reason = error.what();
                }
                return orders->add([this, address, reason, serviceKey, mailbox] {
                    if (!reason.empty()) return mailbox->put({io::FileDescriptor{}, reason});
                    begin(address, serviceKey, mailbox);
                });
            } catch (const std::exception&) { // no memory; the answer is waited for
                std::this_thread::sleep_for(faultPause);
            }
        }
    }).detach();
}

void Relay::begin(const std::string& address, const std::string& serviceKey, const std::shared_ptr<Mailbox>& mailbox) {
    try {
        participants_.push_back(std::make_unique<ClientSide>(common_, address, serviceKey, mailbox));
    } catch (const std::exception& error) {
        mailbox->put({io::FileDescriptor{}, error.what()});
    }
}

std::string Relay::serve(const std::string& service, const std::string& address,
                         const std::set<std::string>& clientKeys, std::shared_ptr<Mailbox> mailbox) {
    std::string taken;
    orderAndWait([&] {
        auto side = std::make_unique<ServiceSide>(common_, service, address, clientKeys, mailbox);
        taken = side->address();
        services_.push_back(side.get());
        participants_.push_back(std::move(side));
    });
    return taken;
}

void Relay::stopServing(const std::string& address) {
    orderAndWait([&] {
        const auto service = std::find_if(services_.begin(), services_.end(),
                                          [&](const ServiceSide* side) { return side->address() == address; });
        if (service == services_.end()) return;
        (*service)->speakOut();
        std::erase_if(participants_, [&](const auto& one) { return one.get() == *service; });
        services_.erase(service);
    });
}

void Relay::orderAndWait(const std::function<void()>& what) {
    std::packaged_task<void()> task(what);
    auto done = task.get_future();
    orders_->add([&task] { task(); });
    done.get();
}

void Relay::run() {
    pthread_setname_np(pthread_self(), "remote");
    while (!orders_->isClosed()) {
        try {
            if (orders_->haveToRunAgain()) orders_->run();
            work();
        } catch (const std::exception& error) { // memory, or a signal
            REMOTE_LOG_LIMITED(vdlDebugFailure, "connections to other hosts: %s\n", error.what());
            std::this_thread::sleep_for(faultPause);
        }
    }
    for (const auto& participant : participants_) participant->speakOut();
    // Their sockets are this thread's.
    services_.clear();
    participants_.clear();
    doorkeeper_.close();
}

void Relay::work() {
    std::vector<zmq_pollitem_t> items{{nullptr, orders_->descriptor(), ZMQ_POLLIN, 0}, readable(doorkeeper_)};
    std::vector<std::size_t> first;
    auto due = Participant::Clock::time_point::max();
    for (const auto& participant : participants_) {
        first.push_back(items.size());
        participant->collect(items);
        due = std::min(due, participant->due());
    }
    auto patience = std::chrono::milliseconds(-1);
    if (due != Participant::Clock::time_point::max())
        patience = std::max(std::chrono::ceil<std::chrono::milliseconds>(due - Participant::Clock::now()),
                            std::chrono::milliseconds(0));
    zmq::poll(items, patience);

    if ((items[1].revents & ZMQ_POLLIN) != 0) answerForKeys();
    for (std::size_t i = 0; i < first.size(); ++i) handle(i, &items[first[i]]);
    std::erase_if(participants_, [](const auto& one) { return one->isOver(); });
    if ((items[0].revents & ZMQ_POLLIN) != 0) orders_->run();
}

void Relay::handle(std::size_t participant, const zmq_pollitem_t* items) {
    auto& one = *participants_[participant];
    try {
        one.handle(items);
        one.lookAfter(Participant::Clock::now());
    } catch (const std::exception& error) {
        one.onFault(error.what());
    }
}

// Answers one question of the library in its form (ZAP 1.0). The library asks nothing more before it has its answer, so
// there is one even without memory; what is sent for it is there before its first part is.
void Relay::answerForKeys() {
    std::array<zmq::message_t, zapParts> question;
    std::size_t parts = 0;
    for (bool more = true; more; ++parts) {
        zmq::message_t surplus;
        zmq::message_t& part = parts < zapParts ? question[parts] : surplus;
        if (!doorkeeper_.recv(part, zmq::recv_flags::dontwait)) return;
        more = part.more();
    }
    auto& [version, id, domain, from, identity, mechanism, clientKey] = question;
    std::string verdict = "400";
    zmq::message_t user;
    try {
        std::array<char, 41> key{};
        if (parts == zapParts && mechanism.to_string_view() == "CURVE" && clientKey.size() == keyBytes) {
            zmq_z85_encode(key.data(), static_cast<const std::uint8_t*>(clientKey.data()), keyBytes);
            ServiceSide* const service = serviceNamed(domain.to_string());
            if (service && service->lets(key.data(), from.to_string())) {
                user.rebuild(key.data(), key.size() - 1);
                verdict = "200";
            }
        }
    } catch (const std::exception& error) { // no memory
        verdict = std::to_string(cannotTell);
        REMOTE_LOG_LIMITED(vdlDebugFailure, "whether to let a client in cannot be told: %s\n", error.what());
    }
    doorkeeper_.send(zmq::str_buffer("1.0"), zmq::send_flags::sndmore);
    doorkeeper_.send(id, zmq::send_flags::sndmore);
    doorkeeper_.send(zmq::buffer(verdict), zmq::send_flags::sndmore);
    doorkeeper_.send(zmq::message_t(), zmq::send_flags::sndmore);
    doorkeeper_.send(user, zmq::send_flags::sndmore);
    doorkeeper_.send(zmq::message_t(), zmq::send_flags::none);
}

ServiceSide* Relay::serviceNamed(const std::string& name) const {
    const auto service = std::find_if(services_.begin(), services_.end(),
                                      [&](const ServiceSide* side) { return side->service() == name; });
    return service == services_.end() ? nullptr : *service;
}

} // namespace host::remote
