// What clients make a service keep for terminals, within bounds::terminals and the bounds beside it.
#pragma once

#include "common/bounds.h"
#include "common/log.h"
#include "common/swap-keys.h"
#include "common/terminal.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace services {

// How a table makes room while it handles one message.
class Evictions {
public:
    // connected: the clients that are connected, asked for at most once. evicted: called for each terminal that the
    // table forgets, must not throw and must not use the table.
    explicit Evictions(std::function<std::vector<std::uint64_t>()> connected,
                       std::function<void(const Terminal&)> evicted = {})
        : connected_(std::move(connected)), evicted_(std::move(evicted)) {}

    // Calls handle with the clients that are connected, sorted: the first time only.
    template <class Handle> void askOnce(const Handle& handle) {
        if (!connected_) return;
        auto clients = std::exchange(connected_, nullptr)();
        std::sort(clients.begin(), clients.end());
        handle(clients);
    }
    void evicted(const Terminal& terminal) const {
        if (evicted_) evicted_(terminal);
    }

private:
    std::function<std::vector<std::uint64_t>()> connected_;
    std::function<void(const Terminal&)> evicted_;
};

// Entry: has a client, whose request it was, and says how many bytes of text it has (textBytes). For one thread at a
// time. A request costs the same however full the table is; only finding out who has gone, once for a message, and
// forgetting an entry walk through it.
template <class Entry> class ClientTable {
public:
    struct Held {
        Entry entry;
        std::uint64_t number = 0; // counts entries, so the oldest has the lowest
    };

    explicit ClientTable(const char* name) : name_(name) {}

    // Makes this the entry of a terminal, in place of the one it has. When the table is full it forgets the oldest
    // entries of clients that have gone, then the oldest of the client that has the most, as long as that has more than
    // the one that asks gets; without evictions it forgets none. False when there is no room; the terminal then keeps
    // its entry.
    bool put(const Terminal& terminal, Entry entry, Evictions* evictions) {
        const std::size_t bytes = entry.textBytes();
        const std::uint64_t client = entry.client;
        const auto own = entries_.find(terminal);
        if (!shareHasRoom(client, bytes, own) || !makeRoom(client, bytes, own, evictions)) {
            ++refused_;
            return false;
        }
        // All memory first: what throws has changed nothing but evictions.
        std::map<Terminal, Held> made;
        made.try_emplace(terminal, Held{std::move(entry), lastNumber_ + 1});
        Share& share = shares_[client];
        ++lastNumber_;
        addTo(share, bytes);
        all_.add(bytes);
        if (own != entries_.end()) erase(own);
        entries_.insert(made.extract(made.begin()));
        return true;
    }

    // Returns whether there was an entry.
    bool erase(const Terminal& terminal) {
        const auto held = entries_.find(terminal);
        if (held == entries_.end()) return false;
        erase(held);
        return true;
    }

    // Swaps what two terminals have for a client that asks. An entry that moves to a terminal without one counts as
    // that client's from then on: else it could fill the share of another one. False, with nothing changed, when there
    // is nothing to swap or no room for that.
    bool swap(const Terminal& a, const Terminal& b, std::uint64_t client) {
        const auto atA = entries_.find(a), atB = entries_.find(b);
        const auto held = atA == entries_.end() ? atB : atA;
        if (held == entries_.end()) return false;
        const bool movesAlone = atA == entries_.end() || atB == entries_.end();
        if (movesAlone && held->second.entry.client != client && !give(held, client)) return false;
        swapKeys(entries_, a, b);
        return true;
    }

    const std::map<Terminal, Held>& entries() const { return entries_; }
    TableCount count() const { return {name_, entries_.size(), bounds::terminals, refused_}; }

private:
    using Iterator = typename std::map<Terminal, Held>::iterator;

    struct Use {
        std::size_t count = 0, bytes = 0;
        void add(std::size_t more) {
            ++count;
            bytes += more;
        }
        void remove(std::size_t less) {
            --count;
            bytes -= less;
        }
        bool hasRoomFor(std::size_t more, std::size_t most, std::size_t mostBytes) const {
            return count < most && bytes + more <= mostBytes;
        }
    };
    struct Share {
        Use use;
        bool gone = false;
    };

    bool shareHasRoom(std::uint64_t client, std::size_t bytes, Iterator own) const {
        const auto share = shares_.find(client);
        Use use = share == shares_.end() ? Use{} : share->second.use;
        if (own != entries_.end() && own->second.entry.client == client) use.remove(own->second.entry.textBytes());
        return use.hasRoomFor(bytes, bounds::terminalsOfAClient, bounds::textBytesOfAClient);
    }

    bool makeRoom(std::uint64_t client, std::size_t bytes, Iterator own, Evictions* evictions) {
        const auto isFull = [&] {
            Use use = all_;
            if (own != entries_.end()) use.remove(own->second.entry.textBytes());
            return !use.hasRoomFor(bytes, bounds::terminals, bounds::textBytes);
        };
        while (isFull())
            if (!evictions || !(evictOfGone(client, own, *evictions) || evictOfLargest(client, bytes, own, *evictions)))
                return false;
        return true;
    }

    // Forgets the oldest entry of a client that has gone, but not own; false when there is none.
    bool evictOfGone(std::uint64_t client, Iterator own, Evictions& evictions) {
        const auto isGone = [&](const Held& held) { return shares_.at(held.entry.client).gone; };
        const auto hasCandidates = [&] {
            return entriesOfGone_ > (own != entries_.end() && isGone(own->second) ? 1U : 0U);
        };
        if (!hasCandidates())
            evictions.askOnce([&](const std::vector<std::uint64_t>& connected) { noteGone(client, connected); });
        return hasCandidates() && evictOldest(isGone, own, "gone", evictions);
    }

    // The same of the client that has the most of what the table has run out of; false when that is not more than what
    // the client that asks would have with so many bytes more. So all end with equal parts, and nobody takes turns.
    bool evictOfLargest(std::uint64_t client, std::size_t bytes, Iterator own, Evictions& evictions) {
        const bool lacksEntries = own == entries_.end() && all_.count >= bounds::terminals;
        const auto partOf = [&](const Use& use) { return lacksEntries ? use.count : use.bytes; };
        const auto hasLess = [&](const auto& a, const auto& b) { return partOf(a.second.use) < partOf(b.second.use); };
        const auto largest = std::max_element(shares_.begin(), shares_.end(), hasLess);
        const auto asker = shares_.find(client);
        Use wanted = asker == shares_.end() ? Use{} : asker->second.use;
        wanted.add(bytes);
        if (largest == shares_.end() || partOf(largest->second.use) <= partOf(wanted)) return false;
        const auto isLargest = [number = largest->first](const Held& held) { return held.entry.client == number; };
        return evictOldest(isLargest, own, "the most", evictions);
    }

    // What its client has: for the log.
    template <class Condition>
    bool evictOldest(const Condition& isCandidate, Iterator own, const char* has, Evictions& evictions) {
        Iterator oldest = entries_.end();
        for (auto at = entries_.begin(); at != entries_.end(); ++at)
            if (at != own && isCandidate(at->second) &&
                (oldest == entries_.end() || at->second.number < oldest->second.number))
                oldest = at;
        if (oldest == entries_.end()) return false;
        const Terminal terminal = oldest->first;
        SERVICE_LOG(vdlDebugWarning, "terminal %d:%d is forgotten: the table of %s is full and its client has %s\n",
                    terminal.type, terminal.id, name_, has);
        erase(oldest);
        evictions.evicted(terminal);
        return true;
    }

    // The client that asks counts as connected.
    void noteGone(std::uint64_t asker, const std::vector<std::uint64_t>& connected) {
        for (auto& [client, share] : shares_) {
            if (share.gone || client == asker || std::binary_search(connected.begin(), connected.end(), client))
                continue;
            share.gone = true;
            entriesOfGone_ += share.use.count;
        }
    }

    bool give(Iterator held, std::uint64_t client) {
        const std::size_t bytes = held->second.entry.textBytes();
        if (!shareHasRoom(client, bytes, entries_.end())) {
            ++refused_;
            return false;
        }
        addTo(shares_[client], bytes);
        removeFromShare(held, bytes);
        held->second.entry.client = client;
        return true;
    }

    void addTo(Share& share, std::size_t bytes) {
        share.use.add(bytes);
        if (share.gone) ++entriesOfGone_;
    }

    void removeFromShare(Iterator held, std::size_t bytes) {
        const auto share = shares_.find(held->second.entry.client);
        share->second.use.remove(bytes);
        if (share->second.gone) --entriesOfGone_;
        if (share->second.use.count == 0) shares_.erase(share);
    }

    void erase(Iterator held) {
        const std::size_t bytes = held->second.entry.textBytes();
        removeFromShare(held, bytes);
        all_.remove(bytes);
        entries_.erase(held);
    }

    const char* const name_;
    std::map<Terminal, Held> entries_;      // at most bounds::terminals
    std::map<std::uint64_t, Share> shares_; // of the clients that have entries
    Use all_;
    std::size_t entriesOfGone_ = 0;
    std::uint64_t lastNumber_ = 0, refused_ = 0;
};

} // namespace services
