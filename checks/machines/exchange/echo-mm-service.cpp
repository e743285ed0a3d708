// Replaces mmserviced: answers every request with the request itself.
#include "echo.h"

#include <mmservice/messages.h>

#include <tuple>

namespace {

namespace messages = mmservice::messages;

class EchoMmService : public services::Service {
public:
    void offer(host::MessageQueue& queue) override {
        auto& channel = sender_.offer(queue, mmservice::serviceName, mmservice::messageSet());
        exchange::registerHandler<messages::MmServiceReq>(channel, *this);
    }

    template <class Message> void handle(std::uint64_t client, const typename Message::Body::Arguments& arguments) {
        sender_.to<messages::MmServiceInfo>(client,
                                            exchange::answersTo<mmservice::MMServiceInfo_t>(std::get<0>(arguments)));
    }

private:
    services::Sender sender_;
};

} // namespace

int main(int argc, char** argv) {
    services::Program program("mmserviced", "An MM service that answers every request with the request itself.");
    if (const auto exitCode = program.parse(argc, argv)) return *exitCode;
    EchoMmService service;
    return program.run(service);
}
