// A service that plays and stops by calling two functions: the whole of an MM service, and the base of a TV service.
//
//     services::Program program("mm-service", "Plays what it is asked for.");
//     return program.main(argc, argv, [&] {
//         services::MmPlayService service(program.table(), program.faults(), play);
//         return program.run(service);
//     });
//
// It sends one answer for each list of requests, with an entry per request that repeats the request's terminal,
// address, uuid and id. docs/services.md has the rules that it keeps.
#pragma once

#include <mmservice/messages.h>
#include <tvservice-adapter/service/answer-line.h>
#include <tvservice-adapter/service/answers.h>
#include <tvservice-adapter/service/handlers.h>
#include <tvservice-adapter/service/sender.h>
#include <tvservice-adapter/service/service.h>
#include <tvservice-adapter/service/terminal-table.h>
#include <tvservice/messages.h>

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace services {

// A service and the messages with which it plays and answers.
struct MmMessages {
    using Request = mmservice::messages::MmServiceReq;
    using Answer = mmservice::messages::MmServiceInfo;
    static constexpr const char* name = mmservice::serviceName;
    static frame::MessageSet set() { return mmservice::messageSet(); }
};
struct TvMessages {
    using Request = tvservice::messages::TvServiceReq;
    using Answer = tvservice::messages::TvServiceInfo;
    static constexpr const char* name = tvservice::serviceName;
    static frame::MessageSet set() { return tvservice::messageSet(); }
};

template <class Messages> class PlayService : public Service {
public:
    // Shows uri on a terminal, in place of what it shows, and returns a result (result.h). The answer waits for it, and
    // so do all other requests, so it starts playing and returns.
    using Play = std::function<std::int32_t(const Terminal& terminal, const std::string& uri)>;
    // Ends what a terminal shows, if anything: at a stop, or because there is no room for it in the table.
    using Stop = std::function<void(const Terminal& terminal)>;

    // Both functions are called on the receiving thread. The table and the switches must outlive the service; those of
    // the program do.
    PlayService(
        TerminalTable& table, FaultSwitches& faults, Play play, Stop stop = [](const Terminal&) {})
        : table_(table), play_(std::move(play)), stop_(std::move(stop)), answers_(sender_, faults) {}

    void offer(host::MessageQueue& queue) override {
        auto& offered = sender_.offer(queue, Messages::name, Messages::set());
        bind<typename Messages::Request, &PlayService::take>(offered, *this);
        bindOthers(offered);
    }
    std::vector<TableCount> tables() const override { return {answers_.delayed()}; }

protected:
    // Binds the handlers of other requests. A request without a handler is dropped and counted as undecodable.
    virtual void bindOthers(host::QueueChannel&) {}

    const Sender& sender() const { return sender_; } // after offer, from any thread

private:
    using Requests = std::tuple_element_t<0, typename Messages::Request::Body::Arguments>;
    using Infos = typename AnswerLine<typename Messages::Answer>::Infos;

    void take(std::uint64_t client, const Requests& requests) {
        Evictions evictions([this] { return sender_.clients(); }, stop_);
        answers_.schedule(execute<typename Infos::value_type>(requests, client, table_, play_, &evictions, stop_),
                          client);
    }

    TerminalTable& table_;
    const Play play_;
    const Stop stop_;
    Sender sender_;
    AnswerLine<typename Messages::Answer> answers_;
};

using MmPlayService = PlayService<MmMessages>;
using TvPlayService = PlayService<TvMessages>;

} // namespace services
