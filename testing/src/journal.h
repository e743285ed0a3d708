// What happened in a Receiver.
#pragma once

#include <tvservice-adapter/testing/receiver.h>

#include <thread-safety/mutex.h>
#include <utility>
#include <vector>

namespace tvtest {

// A list to which any thread adds.
template <class Entry> class Journal {
public:
    void add(Entry entry) TVSA_EXCLUDES(mutex_) {
        const thread_safety::LockGuard lock(mutex_);
        entries_.push_back(std::move(entry));
    }
    std::vector<Entry> entries() TVSA_EXCLUDES(mutex_) {
        const thread_safety::LockGuard lock(mutex_);
        return entries_;
    }
    void clear() TVSA_EXCLUDES(mutex_) {
        const thread_safety::LockGuard lock(mutex_);
        entries_.clear();
    }

private:
    thread_safety::Mutex mutex_;
    std::vector<Entry> entries_ TVSA_GUARDED_BY(mutex_);
};

struct Journals {
    Journal<Request> requests;
    Journal<Message> calls;
    Journal<Answer> answers;
    Journal<Message> notifications;
    Journal<DroppedRequest> dropped;
};

// "TYPE:ID" of a terminal of either service.
template <class Terminal> std::string nameOf(const Terminal& terminal) {
    return std::to_string(terminal.type) + ':' + std::to_string(terminal.id);
}
// Throws std::invalid_argument.
tvservice::TvServiceTerminal_t terminalOf(const std::string& name);

} // namespace tvtest
