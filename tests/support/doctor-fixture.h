// Gives each test its own folders for tvctl doctor to examine, and matchers for its findings.
#pragma once

#include "support/configuration-folder.h"

#include <doctor/checks.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace doctor_test {

using tvctl::doctor::Diagnosis;
using tvctl::doctor::Severity;

// The number of findings worse than ok.
inline std::size_t problemsIn(const Diagnosis& diagnosis) {
    std::size_t count = 0;
    for (const auto& finding : diagnosis.findings) count += finding.severity != Severity::ok ? 1 : 0;
    return count;
}

// Whether a diagnosis has a finding of this severity and subject whose text contains part. A finding worse than ok must
// also have a remedy.
MATCHER_P3(finds, severity, subject, part, "") {
    for (const auto& finding : arg.findings)
        if (finding.severity == severity && finding.subject == subject &&
            finding.what.find(part) != std::string::npos && (severity == Severity::ok) == finding.remedy.empty())
            return true;
    for (const auto& finding : arg.findings)
        *result_listener << '\n'
                         << static_cast<int>(finding.severity) << ' ' << finding.subject << ": " << finding.what;
    return false;
}

class Doctor : public ConfigurationFolder {
protected:
    Doctor() {
        runtimeFolder = folder + "/run";
        stateFolder = folder + "/state";
        for (const std::string& one : {runtimeFolder, stateFolder}) mkdir(one.c_str(), 0700);
        setenv("RUNTIME_DIRECTORY", runtimeFolder.c_str(), 1);
        setenv("STATE_DIRECTORY", stateFolder.c_str(), 1);
        configure("");
    }

    // listenAt returns a listening socket, where that many clients and one may wait; leaveSocketAt leaves only the
    // socket's file.
    static int listenAt(const std::string& path, int waiting = 8) {
        const int listener = bindAt(path);
        EXPECT_EQ(0, ::listen(listener, waiting));
        return listener;
    }
    static void leaveSocketAt(const std::string& path) { ::close(bindAt(path)); }

    std::string runtimeFolder, stateFolder;

private:
    static int bindAt(const std::string& path) {
        const int bound = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, ::bind(bound, reinterpret_cast<const sockaddr*>(&address), sizeof address)) << path;
        EXPECT_EQ(0, ::chmod(path.c_str(), 0600));
        return bound;
    }
};

} // namespace doctor_test
