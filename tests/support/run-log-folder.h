// A folder for the run log of a test program. The run log stays in the folder of its first record.
#pragma once

#include <lrt/run-log-agent.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace support {

// Waits until all records so far are stored, however long that takes on a busy machine.
inline void waitForTheRunLog() {
    while (!lrt::RunLogAgentImpl::getInstance().flush()) {
    }
}

// Call it before the first record of the program. The folder is removed when the program ends.
inline void useOwnRunLogFolder() {
    static const struct Folder {
        std::string name = "/tmp/run-log-XXXXXX";
        lrt::RunLogAgentImpl& runLog =
            lrt::RunLogAgentImpl::getInstance(); // created first, so destroyed after the folder
        Folder() { setenv("STATE_DIRECTORY", mkdtemp(name.data()), 1); }
        ~Folder() {
            waitForTheRunLog();
            std::filesystem::remove_all(name);
        }
    } folder;
}

} // namespace support
