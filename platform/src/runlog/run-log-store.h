// The file behind the run log.
#pragma once

#include <lrt/run-log-agent.h>

#include <memory>

namespace lrt {

// A log file of the newest records, of mode 0600 as those beside it. Several processes may have the same one open. For
// one thread at a time.
class RunLogStore {
public:
    static constexpr std::int64_t defaultLimit = 10000;
    static constexpr std::size_t defaultBytes = std::size_t{1} << 20; // as much as a command may print

    // Touches no file; the first write opens it.
    explicit RunLogStore(std::string path, std::int64_t limit = defaultLimit);
    ~RunLogStore();

    // Stores all records, in order, or none, and removes all but the newest limit. A record that the file does not take
    // for what is in it (it is too long) is left out, with a warning; returns how many were. A file that is damaged, or
    // not a run log, is moved aside to "<path>.broken", with a warning, and a new one begun. Throws std::exception
    // saying what was wrong; the next write then opens the file anew.
    std::size_t write(const std::vector<RunLogRecord>& records);

    // The newest records of the file at path, newest first, through a connection of its own that cannot write; none
    // when there is no such file. Reads no further than the record with which their texts have that many bytes. Throws
    // std::exception.
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
