// A client and a service of the TV interfaces that record their calls.
#pragma once

#include <genrpc/json.h>
#include <tvservice/interfaces.h>
#include <tvservice/messages.h>

#include <functional>
#include <string>
#include <vector>

namespace support {

struct Call {
    std::string message; // "TvServiceAudioReq"
    genrpc::Json arguments;
    frame::MsgIds ids;
    frame::TransportInfo transport;
};

// Every method of a double records the call, runs the test's hook and returns the test's result. Not thread-safe.
struct Recorder {
    std::vector<Call> calls;
    std::function<void(frame::MsgIds&)> then;
    int result = 0;

    int record(Call call, frame::MsgIds& ids) {
        calls.push_back(std::move(call));
        if (then) then(ids);
        return result;
    }
};

#define SUPPORT_RECORD(service, direction, Name, method, id, ...)                                                   \
    int method(GENRPC_PARAMETERS(__VA_ARGS__)) override {                                                           \
        return record(                                                                                              \
            {#Name, genrpc::argumentsToJson<tvservice::messages::Name>(GENRPC_NAMES(__VA_ARGS__)), ids, transport}, \
            ids);                                                                                                   \
    }

class RecordingTvClient : public tvservice::ClientInterface, public Recorder {
public:
    TVSERVICE_NOTIFICATIONS(SUPPORT_RECORD)
};

// Its registry accepts every client. Its methods also return `result`.
class RecordingTvService : public tvservice::ServiceInterface, public Recorder {
public:
    TVSERVICE_REQUESTS(SUPPORT_RECORD)
    int addClient(boost::shared_ptr<tvservice::ClientInterface> client) override {
        clients.push_back(std::move(client));
        return result;
    }
    int removeClient(boost::shared_ptr<tvservice::ClientInterface>) override { return result; }

    std::vector<boost::shared_ptr<tvservice::ClientInterface>> clients;
};

#undef SUPPORT_RECORD

} // namespace support
