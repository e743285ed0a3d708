// One notification to many clients. Each client gets its own records, so each should cost little more than one decode.
#include "app-tvservice-proxy-main.h"
#include "cases.h"

#include <tvservice/client-base.h>
#include <tvservice/messages.h>

#include <boost/make_shared.hpp>
#include <chrono>
#include <memory>

namespace bench {
namespace {

namespace messages = tvservice::messages;

tvservice::TvServiceInfo_t info() {
    return {{2, 1},
            0,
            "dvb://8468.1537.28225/present?network=9018&transport=4102",
            "3f0c51de-9f4b-4f1d-8d5e-0d6c5d1f7a20",
            "9a0c51de-9f4b-4f1d-8d5e-0d6c5d1f7a21",
            "123"};
}

tvservice::TvServiceAudioInfo_t audioInfo() {
    tvservice::TvServiceAudioInfo_t audio;
    audio.terminal = {2, 1};
    audio.streams.resize(8);
    for (auto& stream : audio.streams) {
        stream.strParam1 = "eng";
        stream.strParam3 = "aac";
        stream.strParam4 = "Main audio, stereo";
    }
    return audio;
}

// A message's flat body, as on the receiving thread.
template <class Message> class Payload {
public:
    template <class... Args> explicit Payload(const Args&... args) : body_(Message::Body::build(*region_, args...)) {}
    const char* body() const { return body_; }

private:
    genrpc::FlatRegion::Owner region_ = genrpc::FlatRegion::create(16384);
    const char* body_;
};

std::unique_ptr<tvservice::Proxy> proxyWith(std::size_t clients) {
    auto proxy = std::make_unique<tvservice::Proxy>();
    for (std::size_t i = 0; i < clients; ++i) proxy->addClient(boost::make_shared<tvservice::ClientBase>());
    return proxy;
}

// The cost per client of copying the list of clients, which happens for each delivery of a message.
Side copiedList(std::chrono::nanoseconds length, std::size_t clients) {
    genrpc::ClientList<tvservice::ClientInterface> list(clients);
    for (auto& client : list) client = boost::make_shared<tvservice::ClientBase>();
    return timedSide<ThreadClock>("list copy", clients, length, [list] {
        const auto copy = list;
        keep(&copy);
    });
}

Figures without(Figures figures, const Figures& part) {
    figures.side += " without the " + part.side;
    for (std::size_t i = 0; i < figures.rounds.size(); ++i) figures.rounds[i] -= part.rounds[i];
    return figures;
}

// The cost of each further client, from two sides with few and with many clients.
Figures furtherClient(const Figures& few, std::size_t fewClients, const Figures& many, std::size_t manyClients) {
    Figures further{"own " + std::to_string(fewClients) + " to " + std::to_string(manyClients), many.rounds};
    for (std::size_t i = 0; i < further.rounds.size(); ++i)
        further.rounds[i] = (many.rounds[i] - few.rounds[i]) / static_cast<double>(manyClients - fewClients);
    return further;
}

template <class Message>
void compare(const Options& options, const std::string& caseName, frame::MessageHandler handler,
             const Payload<Message>& payload) {
    if (!options.wants(caseName)) return;
    const std::chrono::milliseconds length(options.quick ? 4 : 20);
    std::vector<Side> sides;
    for (const std::size_t clients : {1U, 8U, 64U})
        sides.push_back(timedSide<ThreadClock>("own " + std::to_string(clients), 1, length,
                                               [proxy = std::shared_ptr(proxyWith(clients)), handler, &payload] {
                                                   handler(Message::meta, {}, payload.body(), proxy.get());
                                               }));
    sides.push_back(timedSide<ThreadClock>("decode", 1, length, [&payload] {
        const auto arguments = Message::Body::read(payload.body());
        keep(&arguments);
    }));
    sides.push_back(copiedList(length, 64));
    const auto figures = interleaved(sides, options.rounds({3, 31}));
    for (const Figures& side : figures) managerReport.figures(caseName, side, {"ns", "notification"});
    managerReport.ratio(caseName, furtherClient(figures[0], 1, figures[1], 8), figures[3], Goal{10, 1.1});
    const Figures further = furtherClient(figures[1], 8, figures[2], 64);
    managerReport.ratio(caseName, further, figures[3], Goal{10, 1.1});
    managerReport.ratio(caseName, without(further, figures[4]), figures[3]);
}

} // namespace

void fanOut(const Options& options) {
    compare(options, "fan-out/info", tvservice::Proxy::callTvServiceInfo,
            Payload<messages::TvServiceInfo>(std::vector{info()}));
    compare(options, "fan-out/audio", tvservice::Proxy::callTvServiceAudioInfo,
            Payload<messages::TvServiceAudioInfo>(audioInfo()));
}

} // namespace bench
