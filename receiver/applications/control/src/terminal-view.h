// What the control application knows of the terminals: the received answers, newest last, and for each terminal what it
// shows and the result of its last request.
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
    // Set what the terminal shows: stopUri after a stop and after a failure that left it dark, empty when nothing was
    // shown yet.
    Answer shown;
    Answer last; // to its newest answered request, whatever the result
};

// A client of the adapter. All calls are safe from any thread: answers arrive on the framework's threads, readers run
// on the shell's.
//
// An answer with result 0 to a play or stop request changes what a terminal shows. So does a failed play before which
// something was stopped: the terminal is dark then. Other failed plays, a newer queued request and a late answer change
// nothing: a late answer arrives after the answer to a newer request, as far as their ids show which is newer. Answers
// without a request id report the TV service's own state, not the terminal's: the MM service may be playing there.
//
// Memory is bounded, whatever services send: the oldest answers are evicted, and the terminal whose last answer is the
// oldest. Everything, including the answers of terminals, takes less than 40 MiB.
class TerminalView : public tvservice::ClientBase {
public:
    static constexpr std::size_t mostAnswers = 1000;           // enough to look back
    static constexpr std::size_t mostBytes = 16 * 1024 * 1024; // of texts in them together
    static constexpr std::size_t mostTerminals = 256;          // with two answers each
    // Of each text in an answer. A longer text is truncated and states its full length.
    static constexpr std::size_t longestText = 8 * 1024;

    int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override;

    // The newest answers, oldest of them first.
    std::vector<Answer> newest(std::size_t count) const;
    // Every terminal with an answered request, ordered by terminal.
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
