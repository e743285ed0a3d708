// What a Zapper (zapper.h) asks for next and what became of it. Knows neither the adapter nor a thread, and is handed
// its clock, so that a test or a simulation can play it in a time of its own.
#pragma once

#include <tvservice-adapter/bundle-status.h>
#include <tvservice/core-records.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread-safety/mutex.h>
#include <utility>
#include <vector>

namespace tvservice {

// What became of a request. Every request that want() accepted gets exactly one, unless the queue ends first.
struct ZapOutcome {
    enum class Kind {
        answered, // `result` is the answer's
        dropped,  // sent, and given up by the adapter because its answer did not come in time
        replaced, // never sent: a newer request for its terminal took its place
        notSent,  // the adapter could not take it, because it ran out of memory
    };
    Kind kind;
    const TvServiceReq_t& request; // as it was or would have been sent; valid during the call
    std::int32_t result = 0;
};

// At most one request is under way; for every other wanted terminal the newest request waits, in the order in which the
// terminals were first wanted. The adapter carries out one request after the other in any case, so holding them back
// costs nothing, and the adapter hears nothing from here while an answer is overdue.
//
// All functions may be called from any thread, and from inside each function of Surroundings. None of those is called
// with a lock held.
class ZapQueue {
public:
    using Clock = std::chrono::steady_clock;

    // The adapter drops no request earlier than this after it was sent.
    static constexpr std::chrono::seconds answerLimit = bundleAnswerLimit;
    // Terminals for which a request may wait.
    static constexpr std::size_t mostWaiting = 256;
    // A request's id is this, what tells the queue from others, and a number that counts the queue's requests.
    static constexpr const char* idBeginning = "zap-";
    static constexpr int tooManyWaiting = -11, hasEnded = -108; // what want() refuses with

    struct Surroundings {
        // Hands a request to the adapter: 0 when it is queued there. What it throws means that it is not.
        std::function<int(const TvServiceReq_t&)> send;
        // Whether the adapter still has a request, by its id. What it throws means that nobody knows: asked again.
        std::function<bool(const std::string& reqId)> hasRequest;
        std::function<Clock::time_point()> now;
        // Takes an outcome; may be empty, must not throw.
        std::function<void(const ZapOutcome&)> report;
    };

    explicit ZapQueue(Surroundings surroundings) : surroundings_(std::move(surroundings)), idPrefix_(newIdPrefix()) {}

    ZapQueue(const ZapQueue&) = delete;
    ZapQueue& operator=(const ZapQueue&) = delete;

    // Makes a request the newest wanted one of its terminal; its reqId is replaced. 0, tooManyWaiting or hasEnded.
    // Throws when there is no memory, and has then changed nothing.
    int want(TvServiceReq_t request) {
        request.reqId = idPrefix_ + std::to_string(++lastId_);
        Request made = std::make_shared<const TvServiceReq_t>(std::move(request));
        bool idle = false;
        {
            const thread_safety::LockGuard lock(mutex_);
            if (ended_) return hasEnded;
            if (const auto found = find(made->terminal); found != wanted_.end())
                found->swap(made);
            else if (wanted_.size() == mostWaiting)
                return tooManyWaiting;
            else
                wanted_.push_back(std::exchange(made, nullptr));
            idle = !std::exchange(busy_, true);
        }
        if (made) report({ZapOutcome::Kind::replaced, *made});
        if (idle) sendNext();
        return 0;
    }

    // Forgets what waits for a terminal, for which the caller is about to send a newer request by another way.
    void forget(const TvServiceTerminal_t& terminal) {
        Request forgotten;
        {
            const thread_safety::LockGuard lock(mutex_);
            const auto found = find(terminal);
            if (found == wanted_.end()) return;
            forgotten = std::move(*found);
            wanted_.erase(found);
        }
        report({ZapOutcome::Kind::replaced, *forgotten});
    }

    // Takes an answer, as the adapter's clients get it. Answers to other requests, and late ones, change nothing.
    void answer(const std::vector<TvServiceInfo_t>& infos) {
        if (infos.empty()) return;
        Request answered;
        {
            const thread_safety::LockGuard lock(mutex_);
            if (!underWay_ || infos.front().reqId != underWay_->reqId) return;
            answered = underWay_;
        }
        if (!take(answered)) return;
        const auto own = std::find_if(infos.begin(), infos.end(), [&](const TvServiceInfo_t& info) {
            return same(info.terminal, answered->terminal);
        });
        report({ZapOutcome::Kind::answered, *answered, (own == infos.end() ? infos.front() : *own).result});
        sendNext();
    }

    // Looks whether the adapter has dropped the request under way. To be called now and then; see waitToLook().
    void look() {
        const Clock::time_point now = surroundings_.now();
        Request overdue;
        {
            const thread_safety::LockGuard lock(mutex_);
            if (!underWay_ || now < lookFrom_) return;
            overdue = underWay_;
        }
        try {
            if (surroundings_.hasRequest(overdue->reqId)) return;
        } catch (const std::exception&) { // no memory to ask: the next look asks again
            return;
        }
        if (!take(overdue)) return; // its answer was on its way
        report({ZapOutcome::Kind::dropped, *overdue});
        sendNext();
    }

    // For the thread that looks: waits while nothing is under way, then for the interval. False once the queue ended.
    bool waitToLook(Clock::duration interval) {
        thread_safety::UniqueLock lock(mutex_);
        changed_.wait(lock, [&]() TVSA_REQUIRES(mutex_) { return ended_ || underWay_; });
        changed_.wait_for(lock, interval, [&]() TVSA_REQUIRES(mutex_) { return ended_; });
        return !ended_;
    }

    // Forgets what waits and sends and reports nothing more. Waits for a report that is being made; so not from inside
    // one.
    void end() {
        thread_safety::UniqueLock lock(mutex_);
        ended_ = true;
        wanted_.clear();
        changed_.notify_all();
        changed_.wait(lock, [&]() TVSA_REQUIRES(mutex_) { return !busy_ || underWay_; });
    }

private:
    using Request = std::shared_ptr<const TvServiceReq_t>;

    // No two queues share one, in whichever process or library they are. Ids reach other hosts and logs, so they show
    // nothing of this process. Each library may have a number of its own.
    static std::string newIdPrefix() {
        static const std::uint32_t number = std::random_device{}();
        static std::atomic<std::uint64_t> queues{0};
        return idBeginning + std::to_string(number) + '-' + std::to_string(++queues) + '-';
    }

    static bool same(const TvServiceTerminal_t& a, const TvServiceTerminal_t& b) {
        return a.type == b.type && a.id == b.id;
    }

    std::deque<Request>::iterator find(const TvServiceTerminal_t& terminal) TVSA_REQUIRES(mutex_) {
        return std::find_if(wanted_.begin(), wanted_.end(),
                            [&](const Request& each) { return same(each->terminal, terminal); });
    }

    void report(const ZapOutcome& outcome) const {
        if (surroundings_.report) surroundings_.report(outcome);
    }

    // Ends a request's being under way; false when somebody else did, or the queue ended. The caller goes on with the
    // report and then with sendNext(): until then nothing else is sent, which keeps the outcomes in order.
    bool take(const Request& request) {
        const thread_safety::LockGuard lock(mutex_);
        if (ended_ || underWay_ != request) return false;
        underWay_.reset();
        return true;
    }

    // Sends what has waited longest, for the one who made the queue busy or has taken the request that was under way.
    void sendNext() {
        for (;;) {
            Request request;
            {
                const thread_safety::LockGuard lock(mutex_);
                if (ended_ || wanted_.empty()) {
                    busy_ = false;
                    changed_.notify_all(); // end() may wait for it
                    return;
                }
                request = std::move(wanted_.front());
                wanted_.pop_front();
                underWay_ = request;
                lookFrom_ = Clock::time_point::max(); // the adapter does not have it yet
                changed_.notify_all();
            }
            int result = -1;
            try {
                result = surroundings_.send(*request);
            } catch (const std::exception&) { // the adapter has not queued it
                result = -1;
            }
            if (result == 0) {
                const Clock::time_point limit = surroundings_.now() + answerLimit;
                const thread_safety::LockGuard lock(mutex_);
                if (underWay_ == request) lookFrom_ = limit;
                return;
            }
            if (!take(request)) return;
            report({ZapOutcome::Kind::notSent, *request});
        }
    }

    const Surroundings surroundings_;
    const std::string idPrefix_; // no two queues share one
    std::atomic<std::uint64_t> lastId_{0};

    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    std::deque<Request> wanted_ TVSA_GUARDED_BY(mutex_); // at most one for a terminal, at most mostWaiting
    Request underWay_ TVSA_GUARDED_BY(mutex_);
    Clock::time_point lookFrom_ TVSA_GUARDED_BY(mutex_); // of the request under way
    // One is under way, or somebody is about to report one or to send the next.
    bool busy_ TVSA_GUARDED_BY(mutex_) = false;
    bool ended_ TVSA_GUARDED_BY(mutex_) = false;
};

} // namespace tvservice
