#include "session.h"

#include "failure.h"

#include <host/environment.h>
#include <host/printable.h>

#include <cerrno>
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>

namespace tvctl {

int Session::run(const std::vector<std::string>& words) { return runAndReport(words); }
int Session::run(const std::string& line) { return runAndReport(line); }

template <class Command> host::ShellReply Session::ask(const Command& command, bool json) {
    if (!client_.isConnected()) client_.connect(host::shellEndpointOf(options_.target));
    return client_.run(command, json, options_.timeoutOr(answerTimeout));
}

template <class Command> int Session::runAndReport(const Command& command) {
    try {
        return print(ask(command, options_.json));
    } catch (const CommandFailure& failure) {
        return report(std::cerr, options_.json, failure.failure(), failure.what());
    } catch (const host::ShellError& error) {
        return report(std::cerr, options_.json, error);
    } catch (const std::exception& error) {
        return report(std::cerr, options_.json, {exitNotAvailable, -ENOTCONN}, error.what());
    }
}

int Session::print(const host::ShellReply& reply) const {
    if (reply.status < 0) throw CommandFailure(reply);
    if (!options_.quiet) {
        if (options_.json && !nlohmann::json::accept(reply.output))
            std::cout << toText({{"output", reply.output}}) << '\n';
        else if (!reply.output.empty())
            std::cout << host::printable(withoutFinalLineFeed(reply.output), "\n") << '\n';
    }
    return finish(std::cout, std::cerr, options_.json);
}

} // namespace tvctl
