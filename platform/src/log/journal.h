// Lines with fields for the systemd journal.
#pragma once

#include "base/file-descriptor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace host::debug {

class Journal {
public:
    // The journal to which stderr leads; nullopt when it leads elsewhere, as when people redirect it. systemd names the
    // file behind stderr in JOURNAL_STREAM.
    static std::optional<Journal> ofStandardError(const std::string& socketPath = "/run/systemd/journal/socket");

    struct Line {
        std::uint32_t severity; // vdlDebugFailure, ...
        std::string_view process, module, level, text;
    };
    // Does not wait. False when the journal does not take the line, because it is not there, is behind, or the line is
    // too long for it.
    bool write(const Line& line) const;

private:
    explicit Journal(io::FileDescriptor socket) : socket_(std::move(socket)) {}

    io::FileDescriptor socket_; // connected
};

} // namespace host::debug
