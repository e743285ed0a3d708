// The manager itself on its stage: without its thread, in the schedule's time, with both services, the clients, the
// debug output and the run log in the hands of the schedule.
#pragma once

#include "stage.h"

#include <memory>
#include <string>

namespace simulation {

class Subject final : public Stage {
public:
    explicit Subject(const Schedule& schedule);
    ~Subject() override;

    std::string queueText();
    // Makes the managers, which share what they believe the MM service to play, forget these terminals.
    static void forget(const std::vector<tvservice::TvServiceTerminal_t>& terminals);

    // For the platform's places that the manager calls.
    static Subject* current();
    void line(unsigned levelWord, const std::string& place, const std::string& text) {
        noteLine(levelWord, place, text);
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
