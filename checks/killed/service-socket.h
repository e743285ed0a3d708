// A service's side of its connection to the framework process, in other hands.
#pragma once

#include <kit/receiver-kit.h>
#include <string>
#include <sys/types.h>

namespace killed {

using receiver::Part;

std::string serviceNameOf(Part service);

// Says bytes to the client process over a running service's own connection to it. Throws ReceiverError.
void sendAs(pid_t service, pid_t client, const std::string& bytes);

// Whether a client has connected to the service's socket, be it that the service has not accepted it yet. Seen from
// the service's process.
bool hasClient(pid_t service, const std::string& socketPath);

// What a service greets its clients with.
std::string helloOf(const std::string& socketPath);

// Takes a dead service's place for one client: says the bytes to it, then is gone.
void impersonate(const std::string& socketPath, const std::string& bytes);

// A frame that answers a play request of that id with success.
std::string answerFrame(Part service, const std::string& reqId, const std::string& uri);
// Bytes that no receiver can take for a message, another kind for each number: a frame too large for any message, a
// message that nobody knows, one that contradicts itself.
std::string garbage(Part service, unsigned number);

} // namespace killed
