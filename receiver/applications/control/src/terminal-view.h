// What the control application knows of the terminals: the answers that came, newest last, and per terminal what it
// shows and how its last request ended.
#pragma once

#include "table-count.h"

#include <tvservice/client-base.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <thread-safety/mutex.h>
#include <utility>
#include <vector>

namespace control {

struct Answer {
    std::string time; // UTC, ISO 8601 with milliseconds
    tvservice::TvServiceInfo_t info;
};

struct TerminalState {
    Answer shown; // brought what the terminal shows: stopUri when it was stopped, empty when nothing was shown yet
    Answer last;  // to its newest request that was answered, whatever the result
};

// The adapter's client. Answers come on the framework's threads, readers on the shell's; all from any thread.
//
// What a terminal shows changes with an answer of result 0 to a play or stop request. It stays when a play failed, when
// a newer request is queued, and when the answer comes late: after that to a newer request, as far as their ids show
// which is newer. Answers without a request id are what the TV service tells of itself, not of the terminal: the MM
// service may be playing there.
//
// What is kept is bounded, whatever services send: the oldest answers go first, and the terminal whose last answer is
// the oldest. With the answers that belong to terminals it all holds less than 40 MiB.
class TerminalView : public tvservice::ClientBase {
public:
    static constexpr std::size_t mostAnswers = 1000;           // for people who look back
    static constexpr std::size_t mostBytes = 16 * 1024 * 1024; // of texts in them together
    static constexpr std::size_t mostTerminals = 256;          // with two answers each
    // Of each text in an answer. A longer one is cut and says how long it was.
    static constexpr std::size_t longestText = 8 * 1024;

    int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override;

    // The newest answers, oldest of them first.
    std::vector<Answer> newest(std::size_t count) const;
    // Every terminal that a request was answered for, in order of terminal.
    std::vector<TerminalState> terminals() const;

    std::vector<TableCount> tables() const;

private:
    struct Known {
        TerminalState state;
        std::uint64_t answered = 0; // the number of its last answer
    };

    void keep(Answer answer) TVSA_REQUIRES(mutex_);
    Known& known(const tvservice::TvServiceTerminal_t& terminal) TVSA_REQUIRES(mutex_);

    mutable thread_safety::Mutex mutex_;
    std::deque<Answer> answers_ TVSA_GUARDED_BY(mutex_);                     // at most mostAnswers, with mostBytes
    std::size_t bytes_ TVSA_GUARDED_BY(mutex_) = 0;                          // of texts, in answers_
    std::map<std::pair<int, int>, Known> terminals_ TVSA_GUARDED_BY(mutex_); // at most mostTerminals
    std::uint64_t lastAnswer_ TVSA_GUARDED_BY(mutex_) = 0;                   // counts answers
    std::uint64_t droppedAnswers_ TVSA_GUARDED_BY(mutex_) = 0;
    std::uint64_t droppedTerminals_ TVSA_GUARDED_BY(mutex_) = 0;
};

} // namespace control
