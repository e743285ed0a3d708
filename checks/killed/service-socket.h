// Takes over the service's side of a connection to the framework process.
#pragma once

#include <kit/receiver-kit.h>
#include <string>
#include <sys/types.h>

namespace killed {

using receiver::Part;

std::string serviceNameOf(Part service);

// Sends bytes to the client process over a running service's own connection to it. Throws ReceiverError.
void sendAs(pid_t service, pid_t client, const std::string& bytes);

// Whether a client has connected to the service's socket, even if the service has not accepted it yet. Uses the view of
// the service's process.
bool hasClient(pid_t service, const std::string& socketPath);

// The hello that a service sends to its clients.
std::string helloOf(const std::string& socketPath);

// Replaces a dead service for one client: sends the bytes to it and disconnects.
void impersonate(const std::string& socketPath, const std::string& bytes);

// A frame that answers the play request with that id with success.
std::string answerFrame(Part service, const std::string& reqId, const std::string& uri);
// Bytes that are not a valid message: an oversized frame, an unknown message, or an inconsistent one, depending on the
// number.
std::string garbage(Part service, unsigned number);

} // namespace killed
