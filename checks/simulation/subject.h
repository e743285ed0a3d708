// The manager itself on its stage: without its thread, in the schedule's time, with both services, the clients, the
// debug output and the run log in the hands of the schedule.
#pragma once

#include "stage.h"

#include <memory>
#include <string>

namespace simulation {

class Subject final : public Stage {
public:
    // Has the managers find their services, which they do once in a process. To be called first.
    static void offerServices();

    explicit Subject(const Schedule& schedule);
    ~Subject() override;

    std::string queueText();
    // Makes the managers, which share what they believe the MM service to play, forget these terminals.
    static void forget(const std::vector<tvservice::TvServiceTerminal_t>& terminals);

    // For those whom the manager calls.
    static Subject* current();
    void line(unsigned levelWord, const std::string& place, const std::string& text) {
        noteLine(levelWord, place, text);
    }
    template <typename Records>
    void send(const char* service, const frame::MsgIds& ids, const frame::TransportInfo& transport,
              const Records& requests, Place place) {
        noteSending(service, ids, transport, requests);
        reach(place);
    }
    void record(const lrt::RunLogRecord& record) { noteRecord(record); }
    std::string time() const { return utcTime(); }

private:
    class Manager;
    int request(const Event& event) override;
    int answer(const Event& event) override;
    void work() override;

    std::unique_ptr<Manager> manager_;
};

} // namespace simulation
