// The sockets of a receiver, and what a connection to one of them may be told.
#pragma once

#include <chrono>
#include <cstdint>
#include <kit/receiver-kit.h>
#include <string>
#include <vector>

namespace access_check {

using receiver::Part;
using receiver::ReceiverError;
using receiver::ReceiverKit;

struct Endpoint {
    std::string name; // of the socket's file
    Part part;        // whose process serves it
    bool shell;
    std::string path;
};
// Each service's socket and each process's shell.
std::vector<Endpoint> endpointsIn(const std::filesystem::path& runtimeFolder);

// A connection that says what it likes.
class Socket {
public:
    Socket();
    ~Socket();
    Socket(Socket&& other) noexcept;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int connect(const std::string& path); // 0, or the error number
    int descriptor() const { return descriptor_; }
    bool say(const std::string& bytes); // whether the other side took them all
    // Exactly so many bytes; throws ReceiverError when they do not come.
    std::string hear(std::size_t size);
    // All until the other side ends the connection; throws ReceiverError when it does not.
    std::string hearAll();

private:
    int descriptor_;
};

// One that a endpoint has taken in: it has heard the endpoint's greeting and given it back.
Socket clientOf(const Endpoint& endpoint);
// The identifiers of the messages in the next so many frames.
std::vector<std::uint32_t> hearFrames(Socket& client, std::size_t count);

// A counter of a service, as its shell tells.
std::uint64_t counterOf(ReceiverKit& kit, Part service, const char* counter);

long millisecondsSince(std::chrono::steady_clock::time_point begin);

// What the receiver does for its own user meanwhile: how long a play takes, in milliseconds.
long playOnce(ReceiverKit& kit, const std::string& uri);

// Ends a process, or one after the other of them all, and requires that each ends well and within 2 s. Returns how long
// the slowest took, in milliseconds.
long endOf(ReceiverKit& kit, Part part);
long endOfAll(ReceiverKit& kit);

// How many lines with that text a log has, those included that it says were held back.
std::uint64_t linesLike(const std::filesystem::path& log, const std::string& text, const std::string& format);

std::filesystem::path logOf(const ReceiverKit& kit, Part part);

void require(bool condition, const std::string& otherwise);

} // namespace access_check
