// The run log: the receiver's lasting record of what went wrong, kept in the state folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace lrt {

struct RunLogRecord {
    std::string logCode;
    std::string logTime; // UTC, as getLogCurrentUTCTime gives it
    std::string errorCode;
    std::int32_t logKind = 0;
    std::int32_t eventId = 0;
    std::string logText;
};

// The process-wide agent, there from its first use to the very end of the process. Every operation may be called from
// any thread and with locks held: the agent stores records on a thread of its own and never calls back.
class RunLogAgentImpl {
public:
    static RunLogAgentImpl& getInstance();

    // Now, ISO 8601 in UTC with milliseconds: "2024-05-17T08:30:00.123Z".
    std::string getLogCurrentUTCTime() const;

    // Queues a copy of the record for storing and returns at once. A record that cannot be stored (queue full, disk
    // full, store broken, too long) is dropped and counted; the count goes into the debug output, at the latest when
    // storing works again.
    void writeRunLog(const RunLogRecord& record);

    // Waits until everything queued so far is stored or dropped: half a second at most, and not at all once the process
    // is asked to end. Returns whether it is.
    bool flush();
    // The newest records, newest first, as many as fill a mebibyte. Waits as flush does, and throws std::runtime_error
    // when that is not enough. Empty when the store cannot be read.
    std::vector<RunLogRecord> readNewest(std::size_t count);
    // Records dropped since the process started.
    std::uint64_t dropped() const;

    RunLogAgentImpl(const RunLogAgentImpl&) = delete;
    RunLogAgentImpl& operator=(const RunLogAgentImpl&) = delete;

private:
    RunLogAgentImpl();
    ~RunLogAgentImpl() = delete; // it lasts as long as the process
    struct State;
    State* state_;
};

} // namespace lrt
