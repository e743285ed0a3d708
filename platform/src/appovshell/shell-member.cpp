// The member that gives a process its shell.
#include "shell-log.h"
#include "shell-server.h"

#include <frame/abstract-application.h>
#include <host/environment.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <memory>
#include <system_error>
#include <unistd.h>

namespace appovshell {
namespace {

class ShellMember final : public frame::AbstractApplication, public ShellServer {
protected:
    int performSetupDone() override {
        if (const int result = AbstractApplication::performSetupDone(); result != 0) return result;
        const int opened = attempt([this] { open(host::shellEndpointOf(host::processName()), geteuid()); });
        if (opened != 0) return opened;
        const int registered = registerInterface<Server>(static_cast<Server*>(this), name());
        if (registered != 0) {
            log(vdlDebugFailure, std::string("cannot register ") + name() + ": " + std::to_string(registered));
            ShellServer::stop();
        }
        return registered;
    }

    int performStarting() override {
        if (const int result = AbstractApplication::performStarting(); result != 0) return result;
        return attempt([this] { ShellServer::start(); });
    }

    int performStopping() override {
        ShellServer::stop();
        unregisterInterface<Server>(this);
        return AbstractApplication::performStopping();
    }

private:
    // Runs a step of the start-up; logs its exception and makes a result of it.
    template <class Step> static int attempt(const Step& step) {
        try {
            step();
            return 0;
        } catch (const std::system_error& error) {
            log(vdlDebugFailure, error.what());
            return -error.code().value();
        } catch (const std::exception& error) {
            log(vdlDebugFailure, error.what());
            return -EIO;
        }
    }
};

} // namespace

const char* Server::name() { return "orvel.lm.interfaces.appovshell"; }

} // namespace appovshell

extern "C" void** CreateOvshellProxy() {
    const auto members = static_cast<void**>(std::calloc(2, sizeof(void*)));
    if (members)
        members[0] = static_cast<void*>(static_cast<frame::AbstractProcessMember*>(new appovshell::ShellMember));
    return members;
}
