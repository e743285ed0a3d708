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
    // All in one step, so that a start-up that fails, here or in another member, leaves no socket and no lock behind.
    int performStarting() override {
        if (const int result = AbstractApplication::performStarting(); result != 0) return result;
        const int result = comeUp();
        if (result != 0) takeDown();
        return result;
    }

    int performStopping() override {
        takeDown();
        return AbstractApplication::performStopping();
    }

private:
    int comeUp() {
        const int opened = attempt([this] { open(host::shellEndpointOf(host::processName()), geteuid()); });
        if (opened != 0) return opened;
        const int registered = registerInterface<Server>(static_cast<Server*>(this), name());
        if (registered != 0) {
            log(vdlDebugFailure, std::string("cannot register ") + name() + ": " + std::to_string(registered));
            return registered;
        }
        return attempt([this] { ShellServer::start(); });
    }

    void takeDown() {
        ShellServer::stop();
        unregisterInterface<Server>(this);
    }

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
    auto member = std::make_unique<appovshell::ShellMember>();
    const auto members = static_cast<void**>(std::calloc(2, sizeof(void*)));
    if (members) members[0] = static_cast<frame::AbstractProcessMember*>(member.release());
    return members;
}
