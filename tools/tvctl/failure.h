// What went wrong, as an exit code, a result and a text.
#pragma once

#include "options.h"

#include <host/shell-client.h>

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>

namespace tvctl {

// JSON for programs. Text that is no UTF-8 gets replacement characters.
std::string toText(const nlohmann::json& json);
std::string withoutFinalLineFeed(std::string text);

struct Failure {
    int exitCode;
    int status; // the negative result that says the same
};

Failure failureOf(host::ShellError::Kind kind);

// A reply with a negative status; its text is the process's explanation.
class CommandFailure : public std::runtime_error {
public:
    explicit CommandFailure(const host::ShellReply& reply);
    Failure failure() const { return failure_; }

private:
    Failure failure_;
};

// Ends what a command prints. Returns the exit code, having said on errors what is not out when it is not exitDone.
int finish(std::ostream& output, std::ostream& errors, bool json);

// Says on errors what is wrong, as JSON when that is wanted. Returns the exit code.
int report(std::ostream& errors, bool json, Failure failure, const std::string& text);

} // namespace tvctl
