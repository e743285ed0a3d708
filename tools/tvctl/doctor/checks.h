// The checks of tvctl doctor, one function per area. None changes anything; those that communicate or wait take a
// timeout.
#pragma once

#include "diagnosis.h"

#include <frame/message-set.h>

#include <chrono>
#include <string>
#include <vector>

namespace tvctl::doctor {

// Check the configuration files, and implausible variables and values. The findings include whether a process would
// start with the configuration; the checks of values, services and keys need one with which it would.
Diagnosis checkFiles();
Diagnosis checkValues();
Diagnosis checkLimits();

// Check the folders that this user's processes share. Either may not exist yet.
Diagnosis checkRuntimeFolder();
Diagnosis checkStateFolder();
// Checks what a runtime folder contains besides the services' sockets and the shells: locks, other sockets, other
// files.
Diagnosis checkContents(const std::string& runtimeFolder);
Diagnosis checkRunLog(const std::string& stateFolder);

struct Service {
    std::string name;
    frame::MessageSet messages;
};
std::vector<Service> services();

// Checks a local or remote service: who serves it, and whether it accepts this program as a client with the same
// messages.
Diagnosis checkService(const Service& service, std::chrono::milliseconds timeout);

// Checks whether this machine has the keys that its services' addresses need.
Diagnosis checkKeys();

// The sockets of running shells and stale ones, and the check of one shell.
std::vector<std::string> shellsIn(const std::string& runtimeFolder);
Diagnosis checkShell(const std::string& socket, std::chrono::milliseconds timeout);

} // namespace tvctl::doctor
