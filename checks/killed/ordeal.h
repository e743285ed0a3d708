// One receiver that goes through one situation after the other.
#pragma once

#include "host-log.h"
#include "situation.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <receiver-kit/receiver-kit.h>
#include <string>

namespace killed {

struct Outcome {
    std::chrono::milliseconds nextPlay; // from the victim's return, or the end of the request before it
    bool exact;                         // whether it happened at the moment that was meant
    bool dropped;                       // whether the request under way was given up
};

// For one thread. Whatever is not as it must be throws ReceiverError; the receiver is then of no more use.
class Ordeal {
public:
    Ordeal(); // starts the receiver

    // number: varies what may vary between situations of the same name.
    Outcome endure(const Situation& situation, unsigned number);

    // Ends the receiver; returns what was not as it should be.
    std::string end() { return kit_.stop(); }
    pid_t processId(Part part) { return kit_.processId(part); }
    std::string logTails() const { return kit_.logTails(12); }

private:
    using Clock = std::chrono::system_clock; // as in the log

    // What happens, in order.
    void comeTo();
    bool isExact();
    void strike();
    void recover();
    bool waitForEnd();
    std::chrono::milliseconds playNext(Clock::time_point returned, bool atOnce);
    void comeToRest();

    void withholdAnswers();
    void comeToStopAsked();
    void comeToStopAnswered();
    void comeToStartAsked();
    void comeToFirstExchange();
    void exitOrderly();
    void repeatOldAnswers();
    nlohmann::json connection();

    std::string ask(const std::string& terminal, const std::string& uri);
    std::string play(const std::string& terminal, const std::string& uri);
    void awaitLine(const std::string& words, const std::string& reqId, const std::string& after = {});
    void setFault(Part part, const std::vector<std::string>& fault);
    void clearFaults();
    std::uint64_t receivedBy(Part service);
    void awaitReceived(Part service, std::uint64_t count);
    void await(const std::function<bool()>& condition, const std::string& what,
               receiver::Milliseconds limit = receiver::patience);
    bool hostEnds() const;
    std::string socketOf(Part service) const;

    receiver::ReceiverKit kit_;
    HostLog log_{kit_.folder() / "frame-host.log"};
    std::string tvHello_, mmHello_;

    Situation situation_{};
    Part partner_{}, other_{}; // the service whose moment it is, and the other one
    unsigned number_ = 0;
    std::uint64_t undecodable_ = 0; // messages of the connection, before the garbage
    std::string uri_, earlier_;     // what the partner plays, and the id of a request that is long done
    std::string reqId_;             // of the request under way; empty when there is none
    Clock::time_point struck_;
};

} // namespace killed
