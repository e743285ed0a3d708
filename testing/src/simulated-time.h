// The time of a Receiver: a clock that only the test moves, and the events that are due at some time.
#pragma once

#include <tvservice-adapter/testing/receiver.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <thread-safety/mutex.h>
#include <utility>

namespace tvtest {

// From any thread.
class SimulatedTime {
public:
    using Point = std::chrono::steady_clock::time_point;

    Time now() const { return Time(now_); }
    Point point() const { return Point(std::chrono::hours(1) + now()); }
    void moveTo(Time time) { now_ = time.count(); }

    // Events of one time happen in the order of these calls.
    void at(Time when, std::function<void()> happens) TVSA_EXCLUDES(mutex_) {
        const thread_safety::LockGuard lock(mutex_);
        events_.emplace(std::pair(when, ++lastEvent_), std::move(happens));
    }
    // When the next event happens.
    std::optional<Time> next() TVSA_EXCLUDES(mutex_) {
        const thread_safety::LockGuard lock(mutex_);
        return events_.empty() ? std::nullopt : std::optional(events_.begin()->first.first);
    }
    // Removes and returns the next event that is due; empty when there is none.
    std::function<void()> takeDue() TVSA_EXCLUDES(mutex_) {
        const thread_safety::LockGuard lock(mutex_);
        if (events_.empty() || events_.begin()->first.first > now()) return {};
        return std::move(events_.extract(events_.begin()).mapped());
    }

private:
    std::atomic<Time::rep> now_{0};
    thread_safety::Mutex mutex_;
    std::map<std::pair<Time, std::uint64_t>, std::function<void()>> events_ TVSA_GUARDED_BY(mutex_);
    std::uint64_t lastEvent_ TVSA_GUARDED_BY(mutex_) = 0;
};

} // namespace tvtest
