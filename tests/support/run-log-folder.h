// A folder for the run log of a test program, which keeps it open where its first record went.
#pragma once

#include <lrt/run-log-agent.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace support {

// Until all records so far are stored, however long that takes on a busy machine.
inline void waitForTheRunLog() {
    while (!lrt::RunLogAgentImpl::getInstance().flush()) {
    }
}

// Before the first record of the program; the folder goes when the program ends.
inline void keepRunLogInAFolderOfItsOwn() {
    static const struct Folder {
        std::string name = "/tmp/run-log-XXXXXX";
        lrt::RunLogAgentImpl& runLog = lrt::RunLogAgentImpl::getInstance(); // which then ends after the folder
        Folder() { setenv("STATE_DIRECTORY", mkdtemp(name.data()), 1); }
        ~Folder() {
            waitForTheRunLog();
            std::filesystem::remove_all(name);
        }
    } folder;
}

} // namespace support
