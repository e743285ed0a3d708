// Decides what a Zapper (zapper.h) requests next, and reports the outcomes. Depends on neither the adapter nor a
// thread, and gets its clock from outside, so that a test or a simulation can control the time.
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

// The outcome of a request. Every request that want() accepted gets exactly one, unless the queue ends first.
struct ZapOutcome {
    enum class Kind {
        answered, // `result` is that of the answer
        dropped,  // sent, and dropped by the adapter because its answer did not arrive in time
        replaced, // never sent: a newer request for its terminal replaced it
        notSent,  // the adapter could not queue it, because it ran out of memory
    };
    Kind kind;
    const TvServiceReq_t& request; // as it was or would have been sent; valid during the call
    std::int32_t result = 0;
};

// At most one request is pending at the adapter. For every other terminal with requests, the newest one is queued here,
// in the order in which the terminals were first requested. The adapter executes one request after the other in any
// case, so queueing the others here costs nothing. While an answer is overdue, the adapter receives no requests from
// here.
// All functions may be called from any thread, and from inside each function of Surroundings. None of those is called
// with a lock held.
class ZapQueue {
public:
    using Clock = std::chrono::steady_clock;

    // The adapter drops no request earlier than this after it was sent.
    static constexpr std::chrono::seconds answerLimit = bundleAnswerLimit;
    // The maximum number of terminals with a queued request.
    static constexpr std::size_t mostWaiting = 256;
    // A request's id is this, a part that is unique to the queue, and a number that counts the queue's requests.
    static constexpr const char* idBeginning = "zap-";
    static constexpr int tooManyWaiting = -11, hasEnded = -108; // errors of want()

    struct Surroundings {
        // Passes a request to the adapter: 0 when it is queued there. An exception means that it is not.
        std::function<int(const TvServiceReq_t&)> send;
        // Whether the adapter still has a request, by its id. After an exception it is called again later.
        std::function<bool(const std::string& reqId)> hasRequest;
        std::function<Clock::time_point()> now;
        // Receives an outcome; may be empty, must not throw.
        std::function<void(const ZapOutcome&)> report;
    };

    explicit ZapQueue(Surroundings surroundings) : surroundings_(std::move(surroundings)), idPrefix_(newIdPrefix()) {}

    ZapQueue(const ZapQueue&) = delete;
    ZapQueue& operator=(const ZapQueue&) = delete;

    // Makes a request the newest one of its terminal; its reqId is replaced. Returns 0, tooManyWaiting or hasEnded.
    // Throws when memory runs out; nothing has changed then.
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

    // Removes the queued request for a terminal, to which the caller is about to send a newer one without this queue.
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

    // Handles an answer as the adapter's clients receive it. Late answers and those to other requests have no effect.
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

    // Checks whether the adapter has dropped the pending request. To be called periodically; see waitToLook().
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
        } catch (const std::exception&) { // out of memory: the next look() tries again
            return;
        }
        if (!take(overdue)) return; // its answer has arrived in the meantime
        report({ZapOutcome::Kind::dropped, *overdue});
        sendNext();
    }

    // For the thread that calls look(): waits for a pending request, then for the interval. False once the queue ended.
    bool waitToLook(Clock::duration interval) {
        thread_safety::UniqueLock lock(mutex_);
        changed_.wait(lock, [&]() TVSA_REQUIRES(mutex_) { return ended_ || underWay_; });
        changed_.wait_for(lock, interval, [&]() TVSA_REQUIRES(mutex_) { return ended_; });
        return !ended_;
    }

    // Removes all queued requests, and sends and reports nothing more. Waits for a report in progress, so it must not
    // be called from inside one.
    void end() {
        thread_safety::UniqueLock lock(mutex_);
        ended_ = true;
        wanted_.clear();
        changed_.notify_all();
        changed_.wait(lock, [&]() TVSA_REQUIRES(mutex_) { return !busy_ || underWay_; });
    }

private:
    using Request = std::shared_ptr<const TvServiceReq_t>;

    // Unique to each queue, across all processes and libraries. Ids reach other hosts and logs, so they reveal nothing
    // about this process. Each library may have a number of its own.
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

    // Ends the pending state of a request; false when another thread did, or the queue ended. The caller then calls
    // report() and sendNext(): until then nothing else is sent, which keeps the outcomes in order.
    bool take(const Request& request) {
        const thread_safety::LockGuard lock(mutex_);
        if (ended_ || underWay_ != request) return false;
        underWay_.reset();
        return true;
    }

    // Sends the oldest queued request. For the thread that made the queue busy or has taken the pending request.
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
    const std::string idPrefix_; // unique to this queue
    std::atomic<std::uint64_t> lastId_{0};

    thread_safety::Mutex mutex_;
    std::condition_variable changed_;
    std::deque<Request> wanted_ TVSA_GUARDED_BY(mutex_); // at most one per terminal, at most mostWaiting
    Request underWay_ TVSA_GUARDED_BY(mutex_);
    Clock::time_point lookFrom_ TVSA_GUARDED_BY(mutex_); // for the pending request
    // A request is pending, or a thread is about to report an outcome or to send the next request.
    bool busy_ TVSA_GUARDED_BY(mutex_) = false;
    bool ended_ TVSA_GUARDED_BY(mutex_) = false;
};

} // namespace tvservice
