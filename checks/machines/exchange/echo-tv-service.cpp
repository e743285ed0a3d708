// Replaces tvserviced: echoes every request with its arguments, and sends notifications on command.
#include "echo.h"
#include "marker.h"
#include "tvservice/emit.h"

#include <tvservice/messages.h>
#include <tvservice/values.h>

#include <tuple>
#include <type_traits>

namespace {

namespace messages = tvservice::messages;

class EchoTvService : public services::Service {
public:
    void offer(host::MessageQueue& queue) override {
        auto& channel = sender_.offer(queue, tvservice::serviceName, tvservice::messageSet());
#define HANDLE(service, direction, Name, ...) exchange::registerHandler<messages::Name>(channel, *this);
        TVSERVICE_REQUESTS(HANDLE)
#undef HANDLE
    }

    template <class Message> void handle(std::uint64_t client, const typename Message::Body::Arguments& arguments) {
        if constexpr (std::is_same_v<Message, messages::TvServiceReq>) {
            sender_.to<messages::TvServiceInfo>(
                client, exchange::answersTo<tvservice::TvServiceInfo_t>(std::get<0>(arguments)));
            return;
        }
        if constexpr (std::is_same_v<Message, messages::TvServiceStreamInfoReq>) {
            const int number = std::get<0>(arguments).intParam1;
            if (number >= exchange::firstMarker) {
                sender_.to<messages::TvServiceStreamInfo>(client, tvservice::TvServiceStreamInfo_t{number, ""});
                return;
            }
        }
        const auto json = [](const auto&... each) { return genrpc::textOf(genrpc::argumentsToJson<Message>(each...)); };
        const std::string text = std::string(Message::name) + ' ' + std::apply(json, arguments);
        sender_.to<messages::TvServiceNetworkChangeMsg>(client, tvservice::TvServiceNetworkChangeMessage_t{0, text});
        if constexpr (std::is_same_v<Message, messages::RequestPackagesReq>) // the client waits for its end
            sender_.to<messages::TvserviceOadStatusNotify>(
                client, static_cast<tvservice::NotifyOadStatus_t>(tvservice::oadStatus::refused), std::string());
    }

    const services::Sender& sender() const { return sender_; }

private:
    services::Sender sender_;
};

} // namespace

int main(int argc, char** argv) {
    services::Program program("tvserviced", "A TV service that echoes every request.");
    if (const auto exitCode = program.parse(argc, argv)) return *exitCode;
    EchoTvService service;
    services::EmitCommand emit(service.sender());
    program.addCommands([&](appovshell::Server& shell) { return emit.registerWith(shell); });
    return program.run(service);
}
