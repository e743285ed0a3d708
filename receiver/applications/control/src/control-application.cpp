// The control application: it is a client of the adapter, records what each terminal shows, all requests and all
// notifications, and offers shell commands to control the receiver.
#include "commands.h"
#include "log.h"
#include "notification-log.h"
#include "request-log.h"
#include "request-watch.h"
#include "terminal-view.h"

#include <appovshell/server.h>
#include <frame/abstract-application.h>
#include <frame/process.h>
#include <host/result.h>
#include <tvservice-adapter/model-tvservice-adapter.h>

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <memory>
#include <optional>

namespace control {
namespace {

void logFailure(const char* what, int result) {
    CONTROL_LOG(vdlDebugFailure, "%s: %s\n", what, host::ResultText(result).text());
}

class ControlApplication : public frame::AbstractApplication {
public:
    ControlApplication() { vdlDebugNameModule(controlLog, "control"); }

private:
    int performStarting() override {
        if (const int result = frame::AbstractApplication::performStarting(); result < 0) return result;
        auto* process = frame::Process::getInstance();

        boost::shared_ptr<frame::Interface> reference;
        int result = process->getInterfaceReference(reference, tvservice::ModelTvServiceAdapter::interfaceKey);
        if (result < 0) {
            logFailure("no adapter in this process; load its library before this one", result);
            return result;
        }
        auto* adapter = reference->get<tvservice::ModelTvServiceAdapter>();

        result = process->getInterfaceReference(reference, appovshell::Server::name());
        if (result < 0) {
            result = process->startAppMembersSync(CreateOvshellProxy);
            if (result == 0) result = process->getInterfaceReference(reference, appovshell::Server::name());
        }
        if (result < 0) {
            logFailure("no debug shell", result);
            return result;
        }
        auto* shell = reference->get<appovshell::Server>();

        view_ = boost::make_shared<TerminalView>();
        notifications_ = boost::make_shared<NotificationLog>();
        requests_ = boost::make_shared<RequestLog>();
        commands_ = std::make_unique<Commands>(*adapter, *view_, *notifications_, *requests_, *shell);
        result = commands_->registerAll();
        if (result < 0) {
            logFailure("cannot register the shell commands", result);
            return result;
        }
        result = adapter->addClient(view_);
        if (result == 0) result = adapter->addClient(notifications_);
        if (result == 0) result = adapter->addClient(requests_);
        if (result == 0) watch_.emplace(*requests_, *adapter);
        return result;
    }
    int performStopping() override {
        watch_.reset();
        if (commands_) commands_->end();
        return frame::AbstractApplication::performStopping();
    }

    boost::shared_ptr<TerminalView> view_;
    boost::shared_ptr<NotificationLog> notifications_;
    boost::shared_ptr<RequestLog> requests_;
    std::unique_ptr<Commands> commands_;
    std::optional<RequestWatch> watch_;
};

} // namespace
} // namespace control

extern "C" __attribute__((visibility("default"))) void** frameCreateApplicationArray() {
    void** members = static_cast<void**>(std::calloc(2, sizeof(void*)));
    members[0] = static_cast<frame::AbstractProcessMember*>(new control::ControlApplication);
    return members;
}
