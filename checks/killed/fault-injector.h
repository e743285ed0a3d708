// One receiver into which faults are injected, one situation after the other.
#pragma once

#include "host-log.h"
#include "process-size.h"
#include "situation.h"

#include <chrono>
#include <cstdint>
#include <kit/receiver-kit.h>
#include <optional>
#include <string>
#include <vector>

namespace killed {

// URIs of the TV service and of the MM service. They are so short that std::string does not allocate, so the size of
// the histories does not depend on how often each was played.
inline constexpr const char* live = "dvb://1.1.1";
inline constexpr const char* media = "rtp://1.1.1.1:1";

struct Outcome {
    std::chrono::milliseconds nextPlay{0}; // since the victim's return, or the end of the previous request
    bool exact = false;                    // the fault was injected at the intended moment
    unsigned dropped = 0;                  // requests
};

struct IdleSize : ProcessSize {
    long heapBytes, heapBlocks; // allocated and not freed
};

// For one thread. Throws ReceiverError for every violation; the receiver must not be used after that.
class FaultInjector {
public:
    FaultInjector(); // starts the receiver

    // number: varies the details of a situation.
    Outcome run(const Situation& situation, unsigned number);

    // The control application keeps the newest thousand answers, and as many notifications: its memory grows until
    // these histories are full, and then varies with what they hold. This makes them hold the same each time.
    void fillHistories();

    // Ends the receiver and returns the problems.
    std::string end() { return kit_.stop(); }
    IdleSize idleSize(Part part);
    std::string logTails() const { return kit_.logTails(12); }

private:
    using Clock = std::chrono::system_clock; // as in the log

    // The steps of a run, in order.
    void reachMoment();
    bool isExact();
    void injectFault();
    void recover();
    bool waitForEnd(const std::string& reqId);
    void waitForEnds(Outcome& outcome);
    std::string playNext(Clock::time_point returned, bool atOnce, Outcome& outcome);
    void requireOneAnswer(const std::string& reqId, const std::string& terminal, const std::string& uri);
    void settle();

    void withholdAnswers();
    void reachStopSent();
    void reachStopAnswered();
    void reachStartSent();
    void reachFirstExchange();
    void requestOtherTerminals();
    void exitOrderly();
    void repeatOldAnswers();
    nlohmann::json connection();

    std::string requestPlay(const std::string& terminal, const std::string& uri);
    std::string newestReqId();
    std::string play(const std::string& terminal, const std::string& uri);
    void awaitLine(const std::string& words, const std::string& reqId, const std::string& after = {});
    void setFault(Part part, const std::vector<std::string>& fault);
    void clearFaults();
    std::uint64_t receivedBy(Part service);
    void awaitReceived(Part service, std::uint64_t count);
    void await(const std::function<bool()>& condition, const std::string& what,
               receiver::Milliseconds limit = receiver::defaultTimeout);
    bool hostRestarts() const;
    std::string socketOf(Part service) const;
    std::filesystem::path heapCountOf(Part part) const;

    // Freed memory returns to the system as soon as no allocated block lies above it, so that a process's size shows
    // what it uses.
    receiver::ReceiverKit kit_{{},
                               {},
                               {{"LD_PRELOAD", COUNTING_HEAP},
                                {"GLIBC_TUNABLES",
                                 "glibc.malloc.trim_threshold=0:glibc.malloc.top_pad=0:"
                                 "glibc.malloc.arena_max=1:glibc.malloc.tcache_count=0"}}};
    HostLog log_{kit_.folder() / "frame-host.log"};
    std::string tvHello_, mmHello_;

    Situation situation_{};
    Part partner_{}, other_{}; // the service that the situation involves, and the other one
    unsigned number_ = 0;
    std::uint64_t undecodable_ = 0; // messages of the connection, before the garbage
    std::string uri_, earlier_;     // what the partner plays, and the id of a finished request
    std::string reqId_;             // of the pending request; empty if there is none
    struct Queued {
        std::string id, terminal, uri;
        bool dropped = false;
    };
    std::vector<Queued> queued_; // behind it, on other terminals
    bool exchanging_ = false;    // whether the first exchange was in progress
    Clock::time_point injected_;
};

} // namespace killed
