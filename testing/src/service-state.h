// The script of a service, and whether it runs.
#pragma once

#include "journal.h"
#include "link.h"
#include "simulated-time.h"

#include <tvservice-adapter/testing/receiver.h>

#include <algorithm>
#include <deque>
#include <map>
#include <string>
#include <thread-safety/mutex.h>
#include <utility>
#include <vector>

namespace tvtest {

// The manager's worker asks for reactions; the test's thread calls the rest.
struct Service::State {
    State(const char* ownName, Link::Receive receive) : name(ownName), link(std::move(receive)) {}

    template <class Requests> Reaction reactionTo(const Requests& requests) TVSA_EXCLUDES(mutex) {
        const thread_safety::LockGuard lock(mutex);
        if (!next.empty()) {
            const Reaction reaction = next.front();
            next.pop_front();
            return reaction;
        }
        for (const auto& request : requests)
            if (const auto found = when.find(request.uri); found != when.end()) return found->second;
        return always;
    }
    // The number of the service's present life, counted from 1; 0 while it is dead.
    unsigned life() TVSA_EXCLUDES(mutex) {
        const thread_safety::LockGuard lock(mutex);
        return dead ? 0 : lives;
    }

    const std::string name;
    Link link;
    thread_safety::Mutex mutex;
    std::deque<Reaction> next TVSA_GUARDED_BY(mutex);
    std::map<std::string, Reaction> when TVSA_GUARDED_BY(mutex);
    Reaction always TVSA_GUARDED_BY(mutex);
    bool dead TVSA_GUARDED_BY(mutex) = false;
    unsigned lives TVSA_GUARDED_BY(mutex) = 1;
};

} // namespace tvtest
