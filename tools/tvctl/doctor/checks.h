// What tvctl doctor looks at, an area a function. None of them changes anything; those that talk to somebody, or wait
// for anything, say for how long.
#pragma once

#include "diagnosis.h"

#include <frame/message-set.h>

#include <chrono>
#include <string>
#include <vector>

namespace tvctl::doctor {

// The configuration files, and variables and values that nobody can have meant. Whether a process would start with the
// configuration is among the findings; the checks of services, keys and limits need one with which it would.
Diagnosis checkFiles();
Diagnosis checkValues();
Diagnosis checkLimits();

// The folders that processes of this user share. Neither has to be there yet.
Diagnosis checkRuntimeFolder();
Diagnosis checkStateFolder();
// What lies in a runtime folder besides the services' sockets and the shells: locks, sockets of others, other files.
Diagnosis checkContents(const std::string& runtimeFolder);
Diagnosis checkRunLog(const std::string& stateFolder);

struct Service {
    std::string name;
    frame::MessageSet messages;
};
std::vector<Service> services();

// A service, wherever it is: who serves it, and whether it takes this program for a client with the same messages.
Diagnosis checkService(const Service& service, std::chrono::milliseconds timeout);

// Whether this machine has the keys that its services' addresses need.
Diagnosis checkKeys();

// The shells of the processes that have one, or had, and one of them.
std::vector<std::string> shellsIn(const std::string& runtimeFolder);
Diagnosis checkShell(const std::string& socket, std::chrono::milliseconds timeout);

} // namespace tvctl::doctor
