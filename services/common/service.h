// A service: takes requests from its clients, carries them out and answers them.
#pragma once

#include "common/answers.h"
#include "common/delay-line.h"
#include "common/log.h"

#include <frame/omq-io-module.h>
#include <genrpc/flat-region.h>
#include <host/message-queue.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace services {

// First size of a message's memory and of a connection's send buffer: room for a screenful of terminals.
inline constexpr std::size_t sendBufferBytes = 16384;

// Sends one message to the connection that transport names.
template <class Message, class... Args>
void sendTo(frame::OmqIOModule& door, const frame::TransportInfo& transport, const Args&... args) {
    genrpc::FlatRegion* const region = genrpc::FlatRegion::create(sendBufferBytes);
    const char* body = nullptr;
    try {
        body = Message::Body::build(*region, args...);
    } catch (...) {
        genrpc::FlatRegion::release(region);
        throw;
    }
    door.asyncSend(frame::MsgIds::none, Message::meta, &transport, *Message::table(), body,
                   [region] { genrpc::FlatRegion::release(region); });
}

// Request and Info are the service's two messages, InfoRecord is what the latter is a list of.
template <class Request, class Info, class InfoRecord> class Service {
public:
    // Says whether a URI can be shown: result::done, or why not. Called on the receiving thread.
    using Check = std::function<std::int32_t(const std::string& uri)>;

    Service(TerminalTable& table, FaultSwitches& faults, Check check)
        : table_(table), faults_(faults), check_(std::move(check)) {}

    // Offers the service; it must outlive the queue's receiving. Throws std::runtime_error when its endpoint cannot be
    // had.
    void offer(host::MessageQueue& queue, const std::string& name, const frame::MessageSet& messages) {
        door_ = &queue.serve(name, messages, sendBufferBytes);
        door_->registerMessageHandler(Request::meta, &Service::take, this, *Request::table());
    }

private:
    static int take(const frame::MsgMeta&, const frame::TransportInfo& transport, const void* payload, void* context) {
        auto& service = *static_cast<Service*>(context);
        const auto [requests] = Request::Body::read(payload);
        auto infos = carryOut<InfoRecord>(requests, transport.connection, service.table_, service.check_);
        service.answer(std::move(infos), transport);
        return 0;
    }

    void answer(std::vector<InfoRecord> infos, const frame::TransportInfo& transport) {
        const Faults faults = faults_.get();
        if (faults.mute) return;
        falsify(infos, faults);
        line_.give(
            [this, infos = std::move(infos), transport, duplicate = faults.duplicate] {
                send(infos, transport);
                if (duplicate) send(infos, transport);
            },
            faults.delay);
    }

    void send(const std::vector<InfoRecord>& infos, const frame::TransportInfo& transport) {
        sendTo<Info>(*door_, {transport.connection, {}}, infos);
        if (!faults_.countAnswer()) return;
        SERVICE_LOG(vdlDebugWarning, "ending with a failure, as the fault switch exit-after asks\n");
        // A crash, as clients see it: nothing is closed or unlinked in an orderly way.
        _exit(1);
    }

    TerminalTable& table_;
    FaultSwitches& faults_;
    Check check_;
    frame::OmqIOModule* door_ = nullptr;
    DelayLine line_;
};

} // namespace services
