#include "failure.h"

#include "process-state.h"

#include <host/printable.h>
#include <host/result.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <ostream>

namespace tvctl {
namespace {

int exitCodeOf(int status) {
    switch (status) {
        case -EINVAL:
        case -ENOSYS:
            return exitUsage;
        case -EACCES:
            return exitRefused;
        default:
            return exitFailed;
    }
}

Failure failureOf(host::ShellError::Kind kind) {
    switch (kind) {
        case host::ShellError::Kind::NotAvailable:
            return {exitNotAvailable, -ENOTCONN};
        case host::ShellError::Kind::Refused:
            return {exitRefused, -EACCES};
        case host::ShellError::Kind::TimedOut:
            return {exitTimedOut, -ETIMEDOUT};
        case host::ShellError::Kind::BadData:
            break;
    }
    return {exitBadData, -EBADMSG};
}

// A command explains its failure in its output, the shell in the reply's error.
std::string explanationOf(const host::ShellReply& reply) {
    auto text = withoutFinalLineFeed(reply.output);
    if (!reply.error.empty()) text += (text.empty() ? "" : "\n") + reply.error;
    return text.empty() ? std::string("failed: ") + host::ResultText(reply.status).text() : text;
}

} // namespace

std::string withoutFinalLineFeed(std::string text) {
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

std::string toText(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

CommandFailure::CommandFailure(const host::ShellReply& reply)
    : std::runtime_error(explanationOf(reply)), failure_{exitCodeOf(reply.status), reply.status} {}

int finish(std::ostream& output, std::ostream& errors, bool json) {
    if (output.flush()) return exitDone;
    return report(errors, json, {exitFailed, -EIO}, "cannot write to standard output");
}

int report(std::ostream& errors, bool json, Failure failure, const std::string& text) {
    if (json)
        errors << toText({{"error", text}, {"status", failure.status}}) << '\n';
    else
        errors << "tvctl: " << host::printable(text, "\n") << '\n';
    return failure.exitCode;
}

int report(std::ostream& errors, bool json, const host::ShellError& error) {
    return report(errors, json, failureOf(error.kind()), textOf(error));
}

std::string textOf(const host::ShellError& error) {
    std::string text = error.what();
    if (error.kind() != host::ShellError::Kind::TimedOut || error.process() == 0) return text;
    const Silence silence = silenceOf(error.process());
    return text + "; " + silence.what + ": " + silence.remedy;
}

} // namespace tvctl
