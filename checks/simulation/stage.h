// On which a schedule is played: once by the reference model, once by the manager itself. What either does is written
// down in one text, in order; the texts are to be equal after every event.
#pragma once

#include "events.h"

#include <lrt/run-log-agent.h>

#include <string>
#include <vector>

namespace simulation {

class Stage {
public:
    virtual ~Stage() = default;
    void play(const Event& event);

    std::string trace;                           // what has been done since somebody cleared it
    Nanoseconds now = std::chrono::seconds(100); // each stage has a clock of its own

    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

protected:
    Stage() = default;
    virtual int request(const Event& event) = 0;
    virtual int answer(const Event& event) = 0;
    virtual void work() = 0;

    // Lets happen what the schedule has for this place; whether it has anything.
    bool reach(Place place);
    // A wait of the worker; whether its whole second has passed.
    bool waitASecond();
    // The time as the run log tells it.
    std::string utcTime() const { return "at " + std::to_string(now.count()); }

    void noteLine(unsigned levelWord, const std::string& place, const std::string& text);
    template <typename Records>
    void noteSending(const char* service, const frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const Records& requests) {
        (trace += "to ") += service;
        append(trace, ids, transport);
        append(trace, requests);
    }
    void noteRecord(const lrt::RunLogRecord& record);
    void noteReport(int client, const frame::MsgIds& ids, const frame::TransportInfo& transport, const Infos& infos);

    static constexpr int clients = 2;

private:
    struct Frame {
        const Event* event;
        std::uint32_t used; // one bit for each entry of event->inside
    };
    std::vector<Frame> frames_;
};

} // namespace simulation
