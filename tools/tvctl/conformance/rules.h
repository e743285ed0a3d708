// The rules that a service keeps, and what a check of a service found out about them.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace tvctl::conformance {

struct Rule {
    const char* id;     // for scripts
    const char* text;   // what a service does that keeps it
    const char* remedy; // what to do in a service that breaks it
    bool quick;         // whether --quick checks it
};

// docs/services.md gives the reasons. In the order in which they are checked.
inline constexpr std::array rules{
    Rule{"handshake", "accepts a client with the same messages",
         "see why it rejects clients in its log; build it with the messages of this version", true},
    Rule{"message-set", "rejects a client with other messages",
         "offer the service with its whole message set, for example with Sender::offer", true},
    Rule{"answer", "answers each list of play and stop requests",
         "send the answer also when a request fails; a lost answer blocks the receiver for 5 s", true},
    Rule{"in-time", "answers within 5 s", "answer when playing has begun, and do slow work on another thread", true},
    Rule{"request-id", "repeats the request's id in each entry of the answer", "copy reqId from request to answer",
         true},
    Rule{"entries", "answers with one entry per request, with its terminal, address and uuid",
         "send all entries of a list in one answer, and copy these fields", true},
    Rule{"stop", "stops a terminal with result 0, also one that shows nothing",
         "answer each stop with result 0: the receiver gives up a request whose stop fails", true},
    Rule{"play", "shows an address with result 0", "name an address and a terminal that it can show, with --address",
         true},
    Rule{"refusal", "refuses an address that it cannot show", "answer with a result other than 0", true},
    Rule{"result", "answers only with results that have a name", "use a result of tvservice/results.h", true},
    Rule{"order", "answers lists that are sent together, each with its own id", "queue lists, and drop none", true},
    Rule{"many-terminals", "answers a list with 300 terminals completely",
         "send one answer however long the list is; refuse terminals with result 9 when a table is full", true},
    Rule{"every-request", "answers on after each request of its interface with sample values",
         "ignore requests and values that it does not support", true},
    Rule{"malformed", "serves honest clients after malformed messages", "never trust lengths and offsets of a peer",
         true},
    Rule{"reconnect", "serves new clients after others left without reading their answers",
         "ignore the result of sending to a client that has gone", false},
    Rule{"slow-reader", "answers other clients while one does not read",
         "never wait for a client to take a message; bound what is queued for it", false},
    Rule{"once", "answers each list once", "send no second answer: the receiver takes it for another service's", true},
    Rule{"decodable", "sends only messages that clients can decode", "send the records of this version", true},
    Rule{"connection", "keeps the connection of a client that keeps the rules",
         "see its log for a crash or a limit that this client exceeded", true},
};

enum class Outcome { kept, broken, notChecked };

struct Finding {
    const Rule* rule;
    Outcome outcome = Outcome::notChecked;
    std::string what{}; // how it was broken
};

// What a check found, for each rule that it was to check.
class Report {
public:
    explicit Report(bool quick);

    void keeps(const char* id); // unless it is broken already
    // what: how, for people. Only the first one counts.
    void breaks(const char* id, const std::string& what);
    bool isBroken(const char* id) const;

    const std::vector<Finding>& findings() const { return findings_; }
    std::size_t count(Outcome outcome) const;

private:
    Finding* find(const char* id);

    std::vector<Finding> findings_;
};

std::string asText(const Report& report, bool quiet);
std::string asJson(const std::string& service, const Report& report);

} // namespace tvctl::conformance
