// A client that ignores all notifications: derive from it and override those that you need.
#pragma once

#include <tvservice/interfaces.h>

namespace tvservice {

#define TVSERVICE_HEAR_NOTHING(service, direction, Name, method, id, ...)                                      \
    int method(frame::MsgIds&, const frame::TransportInfo& GENRPC_EACH(GENRPC_UNNAMED_PARAMETER, __VA_ARGS__)) \
        override {                                                                                             \
        return 0;                                                                                              \
    }

class ClientBase : public ClientInterface {
public:
    TVSERVICE_NOTIFICATIONS(TVSERVICE_HEAR_NOTHING)
};

#undef TVSERVICE_HEAR_NOTHING

} // namespace tvservice
