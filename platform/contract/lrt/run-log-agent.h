// The run log: the receiver's persistent record of failures, in the state folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace lrt {

struct RunLogRecord {
    std::string logCode;
    std::string logTime; // UTC, in the format of getLogCurrentUTCTime
    std::string errorCode;
    std::int32_t logKind = 0;
    std::int32_t eventId = 0;
    std::string logText;
};

// The process-wide agent; it exists from its first use until the process exits. Every operation may be called from any
// thread and with locks held: the agent stores records on its own thread and never calls back.
class RunLogAgentImpl {
public:
    static RunLogAgentImpl& getInstance();

    // Now, ISO 8601 in UTC with milliseconds: "2024-05-17T08:30:00.123Z".
    std::string getLogCurrentUTCTime() const;

    // Queues a copy of the record for storing and returns at once. A record that cannot be stored (queue full, disk
    // full, store broken, record too long) is dropped and counted. The count is written to the debug output, at the
    // latest when storing works again.
    void writeRunLog(const RunLogRecord& record);

    // Waits until all records queued so far are stored or dropped: at most half a second, and not at all once the
    // process has been asked to end. Returns whether they are.
    bool flush();
    // The newest records, newest first, up to count and about 1 MiB of text. Flushes first, and throws
    // std::runtime_error when that fails. Empty when the store cannot be read.
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
