// Connects a proxy to its scripted service, in place of the message queue: requests arrive as the proxy flattened them,
// and notifications reach the proxy's own handlers.
#pragma once

#include <frame/omq-io-module.h>
#include <genrpc/flat-region.h>
#include <genrpc/message.h>

#include <functional>
#include <utility>
#include <vector>

namespace tvtest {

class Link : public frame::OmqIOModule {
public:
    // Receives a request on the thread that sends it; its result is that of sending.
    using Receive = std::function<int(const frame::MsgMeta& meta, const void* payload)>;

    explicit Link(Receive receive) : receive_(std::move(receive)) {}

    int registerMessageHandler(const frame::MsgMeta& meta, frame::MessageHandler handler, void* context,
                               const vdl::EndianTable&) override {
        handlers_.push_back({meta, handler, context});
        return 0;
    }
    int asyncSend(const frame::MsgIds&, const frame::MsgMeta& meta, const frame::TransportInfo*,
                  const vdl::EndianTable&, const void* payload, const boost::function<void()>& completed) override {
        const int result = receive_(meta, payload);
        completed();
        return result;
    }

    // On the test's thread.
    template <class Notification, class... Arguments> void deliver(const Arguments&... arguments) {
        const auto region = genrpc::FlatRegion::create(firstBytes);
        const char* const payload = Notification::Body::build(*region, arguments...);
        for (const Handler& handler : handlers_)
            if (handler.meta == Notification::meta)
                handler.call(handler.meta, frame::TransportInfo{connection, {}}, payload, handler.context);
    }

private:
    static constexpr std::size_t firstBytes = 1024;
    static constexpr std::uint64_t connection = 1;

    struct Handler {
        frame::MsgMeta meta;
        frame::MessageHandler call;
        void* context;
    };
    const Receive receive_;
    std::vector<Handler> handlers_; // fixed once the proxy has started
};

} // namespace tvtest
