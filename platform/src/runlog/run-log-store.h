// The file behind the run log.
#pragma once

#include <lrt/run-log-agent.h>

#include <memory>

namespace lrt {

// A log file of the newest records. It and the files beside it have mode 0600. Several processes may have the same file
// open. For one thread at a time.
class RunLogStore {
public:
    static constexpr std::int64_t defaultLimit = 10000;
    static constexpr std::size_t defaultBytes = std::size_t{1} << 20; // the limit of a command's output

    // Opens no file; the first write does.
    explicit RunLogStore(std::string path, std::int64_t limit = defaultLimit);
    ~RunLogStore();

    // Stores all records in order, or none, and removes all but the newest limit. A record that the file cannot store
    // because of its content (it is too long) is left out with a warning; returns how many were. A file that is damaged
    // or not a run log is moved to "<path>.broken" with a warning, and a new one is created. Throws std::exception with
    // the reason; the next write then reopens the file.
    std::size_t write(const std::vector<RunLogRecord>& records);

    // The newest records of the file at path, newest first, read through a separate read-only connection; none when the
    // file does not exist. Stops at the record with which the texts reach that many bytes. Throws std::exception.
    static std::vector<RunLogRecord> readNewest(const std::string& path, std::size_t count,
                                                std::size_t bytes = defaultBytes);

    RunLogStore(const RunLogStore&) = delete;
    RunLogStore& operator=(const RunLogStore&) = delete;

private:
    struct Connection;
    std::size_t writeOnce(const std::vector<RunLogRecord>& records);
    void moveAside(const std::string& why);

    std::string path_;
    std::int64_t limit_;
    std::unique_ptr<Connection> connection_;
};

} // namespace lrt
