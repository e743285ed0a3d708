// In the place of mmserviced: answers every request with the request.
#include "telling.h"

#include <mmservice/messages.h>

#include <tuple>

namespace {

namespace messages = mmservice::messages;

class TellingMmService {
public:
    void offer() {
        auto& channel = sender_.offer(host::messageQueue(), mmservice::serviceName, mmservice::messageSet());
        exchange::takeAll<messages::MmServiceReq>(channel, *this);
    }

    template <class Message> void take(std::uint64_t client, const typename Message::Body::Arguments& arguments) {
        sender_.to<messages::MmServiceInfo>(client,
                                            exchange::answersTo<mmservice::MMServiceInfo_t>(std::get<0>(arguments)));
    }

private:
    services::Sender sender_;
};

} // namespace

int main(int argc, char** argv) {
    services::Program program("mmserviced", "An MM service that answers every request with the request.");
    if (const auto exitCode = program.parse(argc, argv)) return *exitCode;
    TellingMmService service;
    return program.run([&] { service.offer(); });
}
