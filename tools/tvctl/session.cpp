#include "session.h"

#include <host/environment.h>

#include <cerrno>
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>
#include <system_error>

namespace tvctl {
namespace {

// The form of an error for programs. Text that is no UTF-8 gets replacement characters.
std::string toText(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string withoutFinalLineFeed(std::string text) {
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

struct Failure {
    int exitCode;
    int status; // the negative result that says the same
};

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

} // namespace

int Session::run(const std::vector<std::string>& words) { return runAndReport(words); }
int Session::run(const std::string& line) { return runAndReport(line); }

std::vector<std::string> Session::commandWords() {
    std::vector<std::string> words;
    try {
        const auto list = nlohmann::json::parse(ask(std::string("help"), true).output);
        for (const auto& entry : list) words.push_back(entry.at("command").get<std::string>());
    } catch (const std::exception&) {
        // Completion is a convenience: the next command says what is wrong.
        words.clear();
    }
    return words;
}

template <class Command> host::ShellReply Session::ask(const Command& command, bool json) {
    if (!client_.isConnected()) client_.connect(host::shellEndpointOf(options_.target));
    return client_.run(command, json, options_.timeout);
}

template <class Command> int Session::runAndReport(const Command& command) {
    try {
        return report(ask(command, options_.json));
    } catch (const host::ShellError& error) {
        const auto failure = failureOf(error.kind());
        return fail(failure.exitCode, failure.status, error.what());
    } catch (const std::exception& error) {
        return fail(exitNotAvailable, -ENOTCONN, error.what());
    }
}

int Session::report(const host::ShellReply& reply) const {
    if (reply.status < 0) {
        // A command explains its failure in what it prints, the shell in the error.
        auto text = withoutFinalLineFeed(reply.output);
        if (!reply.error.empty()) text += (text.empty() ? "" : "\n") + reply.error;
        if (text.empty()) text = "failed: " + std::system_category().message(-reply.status);
        return fail(exitCodeOf(reply.status), reply.status, text);
    }
    if (!options_.quiet) {
        if (options_.json && !nlohmann::json::accept(reply.output))
            std::cout << toText({{"output", reply.output}}) << '\n';
        else if (!reply.output.empty())
            std::cout << withoutFinalLineFeed(reply.output) << '\n';
    }
    if (!std::cout.flush()) return fail(exitFailed, -EIO, "cannot write to standard output");
    return exitDone;
}

int Session::fail(int exitCode, int status, const std::string& error) const {
    if (options_.json)
        std::cerr << toText({{"error", error}, {"status", status}}) << '\n';
    else
        std::cerr << "tvctl: " << error << '\n';
    return exitCode;
}

} // namespace tvctl
