// What the control application knows of the terminals: the answers that came, newest last, and per terminal the last
// one.
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

// The adapter's client. Answers come on the framework's threads, readers on the shell's; all from any thread.
class TerminalView : public tvservice::ClientBase {
public:
    int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<tvservice::TvServiceInfo_t>& infos) override;

    // The newest answers, oldest of them first.
    std::vector<Answer> newest(std::size_t count) const;
    // The last answer of each terminal, in order of terminal.
    std::vector<Answer> terminals() const;

private:
    static constexpr std::size_t kept = 1000; // answers, for people who look back

    mutable std::mutex mutex_;
    std::deque<Answer> answers_;
    std::map<std::pair<int, int>, Answer> terminals_;
};

} // namespace control
