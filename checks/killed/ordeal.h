// One receiver that goes through one situation after the other.
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

// What is played: by the TV service, and by the MM service. So short that a text of either takes no memory of its own,
// and what the histories take does not depend on how often each was played.
inline constexpr const char* live = "dvb://1.1.1";
inline constexpr const char* media = "rtp://1.1.1.1:1";

struct Outcome {
    std::chrono::milliseconds nextPlay{0}; // from the victim's return, or the end of the request before it
    bool exact = false;                    // whether it happened at the moment that was meant
    unsigned dropped = 0;                  // requests that were given up
};

struct SizeAtRest : ProcessSize {
    long heapBytes, heapBlocks; // allocated and not freed
};

// For one thread. Whatever is not as it must be throws ReceiverError; the receiver is then of no more use.
class Ordeal {
public:
    Ordeal(); // starts the receiver

    // number: varies what may vary between situations of the same name.
    Outcome endure(const Situation& situation, unsigned number);

    // Ends the receiver; returns what was not as it should be.
    std::string end() { return kit_.stop(); }
    SizeAtRest sizeAtRest(Part part);
    std::string logTails() const { return kit_.logTails(12); }

private:
    using Clock = std::chrono::system_clock; // as in the log

    // What happens, in order.
    void comeTo();
    bool isExact();
    void strike();
    void recover();
    bool waitForEnd(const std::string& reqId);
    void waitForEnds(Outcome& outcome);
    std::string playNext(Clock::time_point returned, bool atOnce, Outcome& outcome);
    void requireOneAnswer(const std::string& reqId, const std::string& terminal, const std::string& uri);
    void comeToRest();

    void fillHistories();
    void withholdAnswers();
    void comeToStopAsked();
    void comeToStopAnswered();
    void comeToStartAsked();
    void comeToFirstExchange();
    void askOnOtherTerminals();
    void exitOrderly();
    void repeatOldAnswers();
    nlohmann::json connection();

    std::string ask(const std::string& terminal, const std::string& uri);
    std::string newestReqId();
    std::string play(const std::string& terminal, const std::string& uri);
    void awaitLine(const std::string& words, const std::string& reqId, const std::string& after = {});
    void setFault(Part part, const std::vector<std::string>& fault);
    void clearFaults();
    std::uint64_t receivedBy(Part service);
    void awaitReceived(Part service, std::uint64_t count);
    void await(const std::function<bool()>& condition, const std::string& what,
               receiver::Milliseconds limit = receiver::defaultTimeout);
    bool hostEnds() const;
    std::string socketOf(Part service) const;
    std::filesystem::path heapCountOf(Part part) const;

    // Freed memory goes back to the system as soon as nothing lies above it, so that a process's size tells about what
    // it uses.
    receiver::ReceiverKit kit_{{},
                               {},
                               {{"LD_PRELOAD", COUNTING_HEAP},
                                {"GLIBC_TUNABLES",
                                 "glibc.malloc.trim_threshold=0:glibc.malloc.top_pad=0:"
                                 "glibc.malloc.arena_max=1:glibc.malloc.tcache_count=0"}}};
    HostLog log_{kit_.folder() / "frame-host.log"};
    std::string tvHello_, mmHello_;

    Situation situation_{};
    Part partner_{}, other_{}; // the service whose moment it is, and the other one
    unsigned number_ = 0;
    std::uint64_t undecodable_ = 0; // messages of the connection, before the garbage
    std::string uri_, earlier_;     // what the partner plays, and the id of a request that is long done
    std::string reqId_;             // of the request under way; empty when there is none
    struct Queued {
        std::string id, terminal, uri;
        bool dropped = false;
    };
    std::vector<Queued> queued_; // behind it, on other terminals
    bool exchanging_ = false;    // whether the first exchange was under way
    Clock::time_point struck_;
};

} // namespace killed
