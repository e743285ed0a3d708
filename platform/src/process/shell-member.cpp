// The member that provides a process's shell.
#include "log/log.h"
#include "shell/shell-server.h"

#include <frame/abstract-application.h>
#include <frame/process.h>
#include <host/environment.h>
#include <host/receiver.h>
#include <host/result.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>

namespace appovshell {
namespace {

// Why the last start of a shell failed; empty when it did not. Used on the framework's thread only.
std::string& failure() {
    static std::string text;
    return text;
}

int fail(const std::string& why, int result) {
    failure() = why;
    HOST_LOG(shell, vdlDebugFailure, "%s\n", why.c_str());
    return result;
}

// What the user can do about the error.
const char* adviceFor(int error) {
    switch (error) {
        case EADDRINUSE:
            return "; another process of this user uses it: end that process (tvctl doctor names it), or set "
                   "RUNTIME_DIRECTORY to another folder for this one";
        case EEXIST:
        case EISDIR:
        case ELOOP:
        case ENXIO:
            return "; something else is there: remove it";
        case EMFILE:
        case ENFILE:
            return "; out of file descriptors: allow more (ulimit -n)";
        default:
            return "; tvctl doctor examines the folder";
    }
}

class ShellMember final : public frame::AbstractApplication, public ShellServer {
protected:
    // One step for all, so that a failed start-up, of this or another member, leaves no socket and no lock behind.
    int performStarting() override {
        failure().clear();
        if (const int result = AbstractApplication::performStarting(); result != 0) return result;
        const int result = setUp();
        if (result != 0) tearDown();
        return result;
    }

    int performStopping() override {
        tearDown();
        return AbstractApplication::performStopping();
    }

private:
    int setUp() {
        const int opened = attempt([this] { open(host::shellEndpointOf(host::processName()), geteuid()); });
        if (opened != 0) return opened;
        const int registered = registerInterface<Server>(static_cast<Server*>(this), name());
        if (registered != 0)
            return fail(std::string("cannot register ") + name() + ": " + std::to_string(registered), registered);
        return attempt([this] { ShellServer::start(); });
    }

    void tearDown() {
        ShellServer::stop();
        unregisterInterface<Server>(this);
    }

    // Runs a step of the start-up. Logs an exception and converts it to a result.
    template <class Step> static int attempt(const Step& step) {
        try {
            step();
            return 0;
        } catch (const std::system_error& error) {
            return fail(error.what(), -error.code().value());
        } catch (const std::exception& error) {
            return fail(error.what(), -EIO);
        }
    }
};

} // namespace

const char* Server::name() { return "orvel.lm.interfaces.appovshell"; }

} // namespace appovshell

namespace host {

void startShell() {
    (void)shellEndpointOf(processName()); // throws its own error for the folder or the configuration
    const int result = frame::Process::getInstance()->startAppMembersSync(CreateOvshellProxy);
    if (result < 0)
        throw std::runtime_error((appovshell::failure().empty()
                                      ? std::string("debug shell: ") + ResultText(result).text()
                                      : appovshell::failure()) +
                                 appovshell::adviceFor(-result));
}

} // namespace host

extern "C" void** CreateOvshellProxy() {
    auto member = std::make_unique<appovshell::ShellMember>();
    const auto members = static_cast<void**>(std::calloc(2, sizeof(void*)));
    if (members) members[0] = static_cast<frame::AbstractProcessMember*>(member.release());
    return members;
}
