// A table of what clients set for terminals, within bounds::terminals and the related bounds.
#pragma once

#include <tvservice-adapter/service/bounds.h>
#include <tvservice-adapter/service/log.h>
#include <tvservice-adapter/service/swap-keys.h>
#include <tvservice-adapter/service/terminal.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace services {

// How a table evicts entries while it handles one message.
class Evictions {
public:
    // connected: returns the connected clients; called at most once. evicted: called for each evicted terminal; must
    // not throw or use the table.
    explicit Evictions(std::function<std::vector<std::uint64_t>()> connected,
                       std::function<void(const Terminal&)> evicted = {})
        : connected_(std::move(connected)), evicted_(std::move(evicted)) {}

    // Calls handle with the connected clients, sorted, but only the first time.
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

// Entry: has the client that requested it, and textBytes(), the bytes of its text. For one thread at a time. The cost
// of a request does not depend on how full the table is; only finding the disconnected clients, once per message, and
// evicting an entry traverse it.
template <class Entry> class ClientTable {
public:
    struct Held {
        Entry entry;
        std::uint64_t number = 0; // counts entries, so the oldest has the lowest
    };

    explicit ClientTable(const char* name) : name_(name) {}

    // Sets the entry of a terminal, replacing its current one. A full table evicts the oldest entries of disconnected
    // clients, then the oldest of the client with the most, as long as that client has more than the requesting one
    // gets; without evictions it evicts none. Returns false when there is no room; the terminal then keeps its entry.
    bool put(const Terminal& terminal, Entry entry, Evictions* evictions) {
        const std::size_t bytes = entry.textBytes();
        const std::uint64_t client = entry.client;
        const auto own = entries_.find(terminal);
        if (!shareHasRoom(client, bytes, own) || !makeRoom(client, bytes, own, evictions)) {
            ++refused_;
            return false;
        }
        // Allocates all memory first: an exception has changed nothing except evictions.
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

    // Swaps the entries of two terminals at a client's request. An entry that moves to a terminal without one counts as
    // that client's from then on: otherwise the client could fill another one's share. Returns false, with nothing
    // changed, when there is nothing to swap or no room.
    bool swap(const Terminal& a, const Terminal& b, std::uint64_t client) {
        const auto atA = entries_.find(a), atB = entries_.find(b);
        const auto held = atA == entries_.end() ? atB : atA;
        if (held == entries_.end()) return false;
        const bool movesAlone = atA == entries_.end() || atB == entries_.end();
        if (movesAlone && held->second.entry.client != client && !assign(held, client)) return false;
        swapKeys(entries_, a, b);
        return true;
    }

    const std::map<Terminal, Held>& entries() const { return entries_; }
    TableCount count() const { return {name_, entries_.size(), bounds::terminals, refused_}; }

private:
    using Iterator = typename std::map<Terminal, Held>::iterator;

    struct Use {
        std::size_t count = 0, bytes = 0;
        void add(std::size_t added) {
            ++count;
            bytes += added;
        }
        void remove(std::size_t removed) {
            --count;
            bytes -= removed;
        }
        bool hasRoomFor(std::size_t added, std::size_t most, std::size_t mostBytes) const {
            return count < most && bytes + added <= mostBytes;
        }
    };
    struct Share {
        Use use;
        bool disconnected = false;
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
            if (!evictions ||
                !(evictOfDisconnected(client, own, *evictions) || evictOfLargest(client, bytes, own, *evictions)))
                return false;
        return true;
    }

    // Evicts the oldest entry of a disconnected client, except own; false when there is none.
    bool evictOfDisconnected(std::uint64_t client, Iterator own, Evictions& evictions) {
        const auto isDisconnected = [&](const Held& held) { return shares_.at(held.entry.client).disconnected; };
        const auto hasCandidates = [&] {
            return entriesOfDisconnected_ > (own != entries_.end() && isDisconnected(own->second) ? 1U : 0U);
        };
        if (!hasCandidates())
            evictions.askOnce(
                [&](const std::vector<std::uint64_t>& connected) { markDisconnected(client, connected); });
        return hasCandidates() && evictOldest(isDisconnected, own, "has disconnected", evictions);
    }

    // Evicts the oldest entry of the client with the most of what the table has run out of; false when that is not more
    // than the requesting client would have with these bytes. So all clients end with equal shares, and none evict each
    // other in turns.
    bool evictOfLargest(std::uint64_t client, std::size_t bytes, Iterator own, Evictions& evictions) {
        const bool lacksEntries = own == entries_.end() && all_.count >= bounds::terminals;
        const auto shareOf = [&](const Use& use) { return lacksEntries ? use.count : use.bytes; };
        const auto hasLess = [&](const auto& a, const auto& b) {
            return shareOf(a.second.use) < shareOf(b.second.use);
        };
        const auto largest = std::max_element(shares_.begin(), shares_.end(), hasLess);
        const auto requester = shares_.find(client);
        Use wanted = requester == shares_.end() ? Use{} : requester->second.use;
        wanted.add(bytes);
        if (largest == shares_.end() || shareOf(largest->second.use) <= shareOf(wanted)) return false;
        const auto isOfLargest = [number = largest->first](const Held& held) { return held.entry.client == number; };
        return evictOldest(isOfLargest, own, "has the most", evictions);
    }

    // clientState: for the log.
    template <class Condition>
    bool evictOldest(const Condition& isCandidate, Iterator own, const char* clientState, Evictions& evictions) {
        Iterator oldest = entries_.end();
        for (auto at = entries_.begin(); at != entries_.end(); ++at)
            if (at != own && isCandidate(at->second) &&
                (oldest == entries_.end() || at->second.number < oldest->second.number))
                oldest = at;
        if (oldest == entries_.end()) return false;
        const Terminal terminal = oldest->first;
        SERVICE_LOG(vdlDebugWarning, "terminal %d:%d is evicted: the table of %s is full and its client %s\n",
                    terminal.type, terminal.id, name_, clientState);
        erase(oldest);
        evictions.evicted(terminal);
        return true;
    }

    // The requesting client counts as connected.
    void markDisconnected(std::uint64_t requester, const std::vector<std::uint64_t>& connected) {
        for (auto& [client, share] : shares_) {
            if (share.disconnected || client == requester ||
                std::binary_search(connected.begin(), connected.end(), client))
                continue;
            share.disconnected = true;
            entriesOfDisconnected_ += share.use.count;
        }
    }

    bool assign(Iterator held, std::uint64_t client) {
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
        if (share.disconnected) ++entriesOfDisconnected_;
    }

    void removeFromShare(Iterator held, std::size_t bytes) {
        const auto share = shares_.find(held->second.entry.client);
        share->second.use.remove(bytes);
        if (share->second.disconnected) --entriesOfDisconnected_;
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
    std::size_t entriesOfDisconnected_ = 0;
    std::uint64_t lastNumber_ = 0, refused_ = 0;
};

} // namespace services
