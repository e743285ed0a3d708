// Faults that a service injects on demand, to test how its clients handle them.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <thread-safety/mutex.h>

namespace services {

// The switches' state; all off at first.
struct Faults {
    std::chrono::milliseconds delay{0}; // "delay MS": answers are sent that much later, in order
    bool mute = false;                  // "mute on": no answers
    bool wrong = false;                 // "wrong on": answers have result::wrongByFault, whatever the outcome
    bool duplicate = false;             // "duplicate on": every answer is sent twice
    bool otherId = false;               // "other-id on": answers carry another request id
    std::uint32_t exitAfter = 0;        // "exit-after N": the process fails after N more answers; 0: never

    bool operator==(const Faults&) const = default;
};

// Set by the shell or the command line, read where answers are made and sent.
class FaultSwitches {
public:
    // Names and values of the switches, as help text.
    static const char* help();

    // Sets one switch: "delay" "250", "mute" "on", ... or all off: "clear" with an empty value. Returns an empty
    // string, or the error; then nothing has changed.
    std::string set(const std::string& name, const std::string& value);
    // The same from one text: "delay=250".
    std::string set(const std::string& assignment);

    Faults get() const;
    // Counts an answer as sent; true when the process must end after it.
    bool countAnswer();

private:
    mutable thread_safety::Mutex mutex_;
    Faults faults_ TVSA_GUARDED_BY(mutex_);
};

} // namespace services
