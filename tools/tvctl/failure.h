// Failures, as an exit code, a result and a text.
#pragma once

#include "options.h"

#include <host/shell-client.h>

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>

namespace tvctl {

// JSON for programs. Invalid UTF-8 becomes replacement characters.
std::string toText(const nlohmann::json& json);
std::string withoutFinalLineFeed(std::string text);

struct Failure {
    int exitCode;
    int status; // the negative result with the same meaning
};

// A reply with a negative status; what() is the process's explanation.
class CommandFailure : public std::runtime_error {
public:
    explicit CommandFailure(const host::ShellReply& reply);
    Failure failure() const { return failure_; }

private:
    Failure failure_;
};

// Flushes a command's output. Returns the exit code; unless it is exitDone, the failure has been reported on errors.
int finish(std::ostream& output, std::ostream& errors, bool json);

// Reports a failure on errors, as JSON if requested. Returns the exit code.
int report(std::ostream& errors, bool json, Failure failure, const std::string& text);
int report(std::ostream& errors, bool json, const host::ShellError& error);
// The text of the error and, for a process that did not answer, what is known of it.
std::string textOf(const host::ShellError& error);

} // namespace tvctl
