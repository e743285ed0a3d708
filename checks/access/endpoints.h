// The sockets of a receiver, and connections to them.
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
    Part part;        // its process serves it
    bool shell;
    std::string path;
};
// Each service's socket and each process's shell.
std::vector<Endpoint> endpointsIn(const std::filesystem::path& runtimeFolder);

// A connection that sends arbitrary bytes.
class Socket {
public:
    Socket();
    ~Socket();
    Socket(Socket&& other) noexcept;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int connect(const std::string& path); // 0, or the error number
    int descriptor() const { return descriptor_; }
    bool send(const std::string& bytes); // whether all of them were sent
    // Receives exactly that many bytes; throws ReceiverError on timeout.
    std::string receive(std::size_t size);
    // Receives until the peer closes the connection; throws ReceiverError on timeout.
    std::string receiveAll();

private:
    int descriptor_;
};

// A connection that the endpoint has accepted: both sides have sent their hello.
Socket clientOf(const Endpoint& endpoint);
// Receives that many frames and returns the ids of their messages.
std::vector<std::uint32_t> receiveFrames(Socket& client, std::size_t count);

// A counter of a service, from its shell.
std::uint64_t counterOf(ReceiverKit& kit, Part service, const char* counter);

long millisecondsSince(std::chrono::steady_clock::time_point begin);

// Plays once, as the receiver's own user, and returns the duration in milliseconds.
long playOnce(ReceiverKit& kit, const std::string& uri);

// Ends a process, or all of them in turn, and requires that each ends without error and within 2 s. Returns the longest
// duration in milliseconds.
long endOf(ReceiverKit& kit, Part part);
long endOfAll(ReceiverKit& kit);

// Counts the lines with that text in a log, including those with that format that the log reports as suppressed.
std::uint64_t countLines(const std::filesystem::path& log, const std::string& text, const std::string& format);

std::filesystem::path logOf(const ReceiverKit& kit, Part part);

void require(bool condition, const std::string& problem);

} // namespace access_check
