// The play and stop requests that the control application knows of: its own, and those of other applications that it
// saw in the adapter's queue or learned of from an answer.
#pragma once

#include "table-count.h"

#include <tvservice-adapter/bundle-status.h>
#include <tvservice/client-base.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <thread-safety/mutex.h>
#include <vector>

namespace control {

// Who made a request, as far as its id shows: "shell", "zapper" or "application".
const char* askerOf(const std::string& reqId);

// Whether an id is one of a request from this application's shell commands, which are numbered.
bool isFromShell(const std::string& reqId);

struct RequestedTerminal {
    tvservice::TvServiceTerminal_t terminal;
    std::string uri;                      // empty when it is not known: the queue does not tell it
    std::optional<std::int32_t> result{}; // of the answer
};

// What the adapter waited for: the answers to the stops, or those to the starts.
struct RequestStep {
    std::string name;    // "stop" or "start"
    std::string awaited; // the services that had not answered when last looked at: "TV service", "MM service" or both
    std::chrono::microseconds begin; // since the request was made, or first seen
};

struct RecordedRequest {
    using Clock = std::chrono::steady_clock;
    enum class State { queued, sent, answered, givenUp };

    std::string id;
    std::string time; // UTC, ISO 8601 with milliseconds: when it was made, or first seen
    State state = State::queued;
    std::vector<RequestedTerminal> terminals{}; // at most RequestLog::mostTerminals
    std::size_t moreTerminals = 0;              // not kept
    std::vector<RequestStep> steps{};           // that took long enough to be seen
    // Until the answer; of one that is given up, until that was seen. Unknown when nothing was seen of it before its
    // answer, which is so for quick requests of other applications.
    std::optional<std::chrono::microseconds> duration;
    std::size_t lateAnswers = 0; // after it had been answered or given up
    Clock::time_point made{};
    std::optional<Clock::time_point> sent{}; // when the answers that are awaited now were asked for
    std::optional<Clock::time_point> gone{}; // when it was first seen to be out of the adapter's queue
    std::size_t bytes = 0;                   // of its texts and terminals, as RequestLog counts them
};

// A client of the adapter. All calls are safe from any thread.
//
// The adapter drops a request whose answers do not arrive, and tells nobody. Such a request is recognised by looking at
// the adapter's queue again and again: it is gone from there, its answers had been awaited for the adapter's limit, and
// none arrived since.
//
// Memory is bounded: the oldest requests are evicted, finished ones first. All together take less than 5 MiB.
class RequestLog : public tvservice::ClientBase {
public:
    using Clock = RecordedRequest::Clock;
    static constexpr std::size_t mostRequests = 256;
    static constexpr std::size_t mostTerminals = 64;              // of a request
    static constexpr std::size_t longestText = 1024;              // of a URI or an id; a longer one is cut
    static constexpr std::size_t mostBytes = 4 * 1024 * 1024;     // of all texts
    static constexpr std::chrono::milliseconds lookInterval{250}; // while a request is pending
    // An answer reaches the clients a moment after its request has left the queue.
    static constexpr std::chrono::milliseconds answerDelay{200};
    static constexpr std::chrono::seconds longestAnswerDelay{10}; // when the request left before the limit

    explicit RequestLog(Clock::time_point (*now)() = Clock::now) : now_(now) {}

    // Gives the requests an id of their own, unique in this process, and records them. To be called before they are
    // passed to the adapter. Returns the id.
    std::string begin(std::vector<tvservice::TvServiceReq_t>& requests);
    void cancel(const std::string& id); // the adapter did not take it

    int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override;

    // Compares with the adapter's queue, as it was at that time or later.
    void look(const std::vector<tvservice::BundleStatus>& bundles, Clock::time_point taken);
    // Waits for the next time to look: lookInterval while a request is pending, else a second. False after end.
    bool waitToLook();
    void end();

    std::vector<RecordedRequest> newest(std::size_t count) const; // oldest of them first
    std::optional<RecordedRequest> find(const std::string& id);
    TableCount table() const;

private:
    using Position = std::deque<RecordedRequest>::iterator;

    Position position(const std::string& id) TVSA_REQUIRES(mutex_);
    RecordedRequest& add(const std::string& id) TVSA_REQUIRES(mutex_);
    void remove(const Position& request) TVSA_REQUIRES(mutex_);
    void makeRoom(RecordedRequest& changed) TVSA_REQUIRES(mutex_);
    void see(const tvservice::BundleStatus& bundle, bool isFirst, Clock::time_point taken) TVSA_REQUIRES(mutex_);

    Clock::time_point (*const now_)();
    mutable thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    std::deque<RecordedRequest> requests_ TVSA_GUARDED_BY(mutex_); // at most mostRequests, with mostBytes; newest last
    std::size_t bytes_ TVSA_GUARDED_BY(mutex_) = 0;
    std::uint64_t lastId_ TVSA_GUARDED_BY(mutex_) = 0;
    std::uint64_t dropped_ TVSA_GUARDED_BY(mutex_) = 0;
    bool ended_ TVSA_GUARDED_BY(mutex_) = false;
};

} // namespace control
