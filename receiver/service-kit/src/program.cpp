#include "shell-commands.h"

#include <frame/process.h>
#include <host/configuration.h>
#include <host/environment.h>
#include <host/log-levels.h>
#include <host/printable.h>
#include <host/receiver.h>
#include <host/result.h>
#include <tvservice-adapter/service/log.h>
#include <tvservice-adapter/service/program.h>
#include <vdl/debug.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace services {

Program::Program(const std::string& name, const std::string& description, const std::string& version)
    : name_(name),
      options_(std::make_unique<CLI::App>(description, name)),
      commands_(std::make_unique<ShellCommands>(table_, faults_)) {
    vdlDebugNameModule(logModule, "service");
    options_->failure_message([](const CLI::App* app, const CLI::Error& error) {
        return host::printable(CLI::FailureMessage::simple(app, error), "\n");
    });
    options_->set_version_flag("--version", name + " " + (version.empty() ? TVSA_VERSION : version));
    options_->add_option("--log", logLevels_, "Debug levels, LEVEL or MODULE=LEVEL, comma-separated");
    options_->add_option("--ready-fd", readyDescriptor_, "Descriptor to write the line \"ready\" to, once serving")
        ->check(CLI::NonNegativeNumber);
    options_
        ->add_option_function<std::vector<std::string>>(
            "--fault",
            [this](const std::vector<std::string>& assignments) {
                for (const std::string& assignment : assignments)
                    if (const std::string problem = faults_.set(assignment); !problem.empty())
                        throw CLI::ValidationError("--fault", problem);
            },
            std::string("NAME=VALUE, an initial fault of the answers to play and stop requests: ") +
                FaultSwitches::help())
        ->expected(1)
        ->take_all();
}

Program::~Program() = default;

void Program::addOption(const std::string& name, std::string& value, const std::string& help) {
    options_->add_option(name, value, help);
}

int Program::main(int argc, const char* const* argv, const std::function<int()>& serve) {
    if (const auto exitCode = parse(argc, argv)) return *exitCode;
    try {
        return serve();
    } catch (const std::exception& error) {
        return failed(error);
    }
}

std::optional<int> Program::parse(int argc, const char* const* argv) {
    try {
        options_->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return options_->exit(error) == 0 ? success : usage;
    }
    try {
        host::checkConfiguration();
        for (const auto& warning : host::configurationWarnings()) reportError("warning: " + warning);
    } catch (const host::ConfigurationError& error) {
        reportError(error.what());
        return badData;
    }
    if (logLevels_.empty()) return std::nullopt;
    const std::string problem = vdlDebugSetLevels(logLevels_);
    if (problem.empty()) return std::nullopt;
    reportError("--log: " + problem);
    return usage;
}

int Program::run(Service& service) {
    host::setProcessName(name_);
    service_ = &service;
    commands_->addTables([&service] { return service.tables(); });
    try {
        return host::runProcess([](void* context) { return static_cast<Program*>(context)->start(); }, this);
    } catch (const std::exception& error) {
        return failed(error);
    }
}

int Program::failed(const std::exception& error) const {
    reportError(error.what());
    return dynamic_cast<const host::ConfigurationError*>(&error) ? badData : failure;
}

int Program::start() {
    try {
        service_->offer(host::messageQueue());
        startShell();
        if (const std::string unknown = host::unknownLogModules(); !unknown.empty())
            reportError("warning: log levels: " + unknown);
        const std::string problem = reportReady();
        if (problem.empty()) return success;
        reportError(problem);
        return failure;
    } catch (const std::exception& error) {
        return failed(error);
    }
}

void Program::startShell() {
    host::startShell();
    boost::shared_ptr<frame::Interface> reference;
    int result = frame::Process::getInstance()->getInterfaceReference(reference, appovshell::Server::name());
    if (result >= 0) result = commands_->registerWith(*reference->get<appovshell::Server>());
    if (result >= 0 && addCommands_) result = addCommands_(*reference->get<appovshell::Server>());
    if (result < 0)
        throw std::runtime_error(std::string("the debug shell rejected the commands: ") +
                                 host::ResultText(result).text());
}

// Reports to whoever started the program that it serves. Returns the error; empty on success.
std::string Program::reportReady() const {
    if (readyDescriptor_ < 0) return {};
    std::string_view rest = "ready\n";
    while (!rest.empty()) {
        const ssize_t written = write(readyDescriptor_, rest.data(), rest.size());
        if (written >= 0)
            rest.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return "--ready-fd " + std::to_string(readyDescriptor_) + ": " + std::generic_category().message(errno);
    }
    return {};
}

void Program::reportError(const std::string& problem) const {
    std::cerr << name_ << ": " << host::printable(problem) << '\n';
}

} // namespace services
