#include "stage.h"

namespace simulation {

void Stage::play(const Event& event) {
    frames_.push_back({&event, 0});
    switch (event.kind) {
        case Event::Kind::Request:
            trace += "returned " + std::to_string(request(event)) + "\n";
            break;
        case Event::Kind::Answer:
            trace += "returned " + std::to_string(answer(event)) + "\n";
            break;
        case Event::Kind::Work:
            work();
            break;
        case Event::Kind::Pass:
            now += event.time;
            break;
    }
    frames_.pop_back();
}

bool Stage::reach(Place place) {
    Frame& frame = frames_.back();
    const auto& inside = frame.event->inside;
    for (std::size_t i = 0; i < inside.size(); ++i) {
        const std::uint32_t bit = 1U << i;
        if (inside[i].place != place || (frame.used & bit) != 0) continue;
        frame.used |= bit; // before the frame moves, as others come on top of it
        for (const Event& event : inside[i].events) play(event);
        return true;
    }
    return false;
}

bool Stage::waitASecond() {
    if (reach(Place::Waiting)) return false;
    now += std::chrono::seconds(1);
    reach(Place::Expiring);
    return true;
}

void Stage::noteLine(unsigned levelWord, const std::string& place, const std::string& text) {
    trace += "log " + std::to_string(levelWord >> 16) + "/" + std::to_string(levelWord & 0xFFFF);
    ((trace += ' ') += place) += text;
}

void Stage::noteRecord(const lrt::RunLogRecord& record) {
    trace += "to the run log " + record.logCode + " " + record.logTime + " " + record.errorCode + " " +
             std::to_string(record.logKind) + " " + std::to_string(record.eventId) + " " + record.logText + "\n";
}

void Stage::noteReport(int client, const frame::MsgIds& ids, const frame::TransportInfo& transport,
                       const Infos& infos) {
    trace += "to client " + std::to_string(client);
    append(trace, ids, transport);
    append(trace, infos);
}

} // namespace simulation
