// The clients of both ends: one notes what the adapter's clients receive, the other sends what the TV service notifies.
#pragma once

#include "core.h"

#include <genrpc/json.h>
#include <tvservice/messages.h>

#include <tuple>

namespace tvtest {

// A message's arguments as JSON.
template <class Message, class... Arguments> std::string textOf(const Arguments&... arguments) {
    return genrpc::textOf(genrpc::argumentsToJson<Message>(arguments...));
}

// A client of the adapter.
class NotingClient : public tvservice::ClientInterface {
public:
    explicit NotingClient(Core& core) : core_(core) {}

    int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override {
        for (const auto& info : infos)
            core_.journals.answers.add({nameOf(info.terminal), info.uri, info.result, info.reqId, core_.time.now()});
        return 0;
    }

#define TVTEST_NOTE(service, direction, Name, method, id, ...)                                        \
    int method(GENRPC_PARAMETERS(__VA_ARGS__)) override {                                             \
        static_cast<void>(ids), static_cast<void>(transport);                                         \
        core_.journals.notifications.add(                                                             \
            {#Name, textOf<tvservice::messages::Name>(GENRPC_NAMES(__VA_ARGS__)), core_.time.now()}); \
        return 0;                                                                                     \
    }
    TVSERVICE_NEWS(TVTEST_NOTE)
#undef TVTEST_NOTE

private:
    Core& core_;
};

// Sends each notification that it is called with, as the TV service.
class Sender : public tvservice::ClientInterface {
public:
    explicit Sender(Core& core) : core_(core) {}

#define TVTEST_SEND(service, direction, Name, method, id, ...)             \
    int method(GENRPC_PARAMETERS(__VA_ARGS__)) override {                  \
        static_cast<void>(ids), static_cast<void>(transport);              \
        return send<tvservice::messages::Name>(GENRPC_NAMES(__VA_ARGS__)); \
    }
    TVSERVICE_NOTIFICATIONS(TVTEST_SEND)
#undef TVTEST_SEND

private:
    template <class Notification, class... Arguments> int send(const Arguments&... arguments) {
        core_.time.at(core_.time.now(), [this, life = core_.tvState.life(), kept = std::tuple(arguments...)] {
            if (life == 0 || life != core_.tvState.life()) return;
            std::apply([this](const auto&... each) { core_.tvState.link.deliver<Notification>(each...); }, kept);
        });
        core_.settle();
        return 0;
    }

    Core& core_;
};

} // namespace tvtest
