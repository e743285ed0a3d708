// What the control application knows of the terminals: the answers that came, newest last, and per terminal what it
// shows and how its last request ended.
#pragma once

#include <tvservice/client-base.h>

#include <deque>
#include <map>
#include <mutex>
#include <string>
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
// a newer request is queued, and when the answer comes late: after that to a newer request. Answers without a request
// id are what the TV service tells of itself, not of the terminal: the MM service may be playing there.
class TerminalView : public tvservice::ClientBase {
public:
    int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override;

    // The newest answers, oldest of them first.
    std::vector<Answer> newest(std::size_t count) const;
    // Every terminal that a request was answered for, in order of terminal.
    std::vector<TerminalState> terminals() const;

private:
    static constexpr std::size_t kept = 1000; // answers, for people who look back

    mutable std::mutex mutex_;
    std::deque<Answer> answers_;
    std::map<std::pair<int, int>, TerminalState> terminals_;
};

} // namespace control
