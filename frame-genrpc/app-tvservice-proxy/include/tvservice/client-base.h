// A client that hears nothing: derive from it and override what you want to hear.
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
