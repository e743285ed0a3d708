// Puts a running service through the rules, as clients of it. Changes what its terminals show.
#pragma once

#include "client.h"
#include "rules.h"

#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace tvctl::conformance {

// The time after which a receiver gives a request up.
inline constexpr std::chrono::seconds answerLimit{5};

struct Settings {
    bool quick = false;
    std::chrono::milliseconds timeout{10000}; // for an answer; answerLimit if that is longer
    Terminal terminal;
    std::string address; // that the service can show on the terminal; empty: one that the reference service can show
};

// For one thread.
class Examination {
public:
    // protocol must live as long as the examination.
    Examination(const Protocol& protocol, const Settings& settings);

    // Checks all rules, in their order. Stops at the first one without which the others cannot be checked.
    Report run();

private:
    // Ends the examination: the rest cannot be checked.
    struct Stop {};

    void check(Report& report);
    void checkHandshake(Report& report);
    void checkMessageSet(Report& report);
    void checkAnswers(Report& report);
    void checkOrder(Report& report);
    void checkManyTerminals(Report& report);
    void checkEveryRequest(Report& report);
    void checkMalformed(Report& report);
    void checkReconnect(Report& report);
    void checkSlowReader(Report& report);
    void checkAtTheEnd(Report& report);

    std::string newId();
    Request stopOf(const Terminal& terminal) const;
    Request playOf(const std::string& uri) const;
    // Gives the requests one new id, sends them, waits for the answer and checks it against the rules for each answer.
    // Throws Stop when the service does not answer properly.
    Answer ask(Report& report, std::vector<Request> requests);
    Answer awaitAnswer(Report& report, const std::vector<Request>& requests, std::size_t after, Clock::time_point sent);
    void checkEntries(Report& report, const std::vector<Request>& requests, const Answer& answer) const;
    // Whether the honest client is answered. what: what happened before, for the finding that it was not.
    void checkStillServes(Report& report, const char* rule, const std::string& what);
    // Throws Stop if the honest client's connection has ended.
    void checkConnection(Report& report, const std::string& during);

    const Protocol& protocol_;
    const Settings settings_;
    const std::string prefix_; // of request ids
    std::unique_ptr<Client> honest_;
    std::set<std::string> asked_; // ids
    unsigned lastId_ = 0;
};

} // namespace tvctl::conformance
