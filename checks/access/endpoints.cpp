#include "endpoints.h"

#include "../killed/service-socket.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace access_check {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t frameHeader = 32, frameId = 12;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long longestEnd = 10000; // milliseconds; the search for leaks at the end is slow
#else
constexpr long longestEnd = 2000;
#endif

} // namespace

long millisecondsSince(Clock::time_point begin) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count());
}

std::vector<Endpoint> endpointsIn(const std::filesystem::path& runtimeFolder) {
    std::vector<Endpoint> endpoints;
    const auto add = [&](const std::string& name, Part part, bool shell) {
        endpoints.push_back({name, part, shell, (runtimeFolder / name).string()});
    };
    for (const Part part : {Part::tvService, Part::mmService}) add(killed::serviceNameOf(part) + ".sock", part, false);
    for (const Part part : receiver::allParts) add(std::string(receiver::nameOf(part)) + ".shell", part, true);
    return endpoints;
}

Socket::Socket() : descriptor_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    require(descriptor_ >= 0, std::string("no socket: ") + std::strerror(errno));
    const timeval timeout{10, 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

Socket::~Socket() {
    if (descriptor_ >= 0) close(descriptor_);
}

Socket::Socket(Socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

int Socket::connect(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return ::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
}

bool Socket::send(const std::string& bytes) {
    return ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::string Socket::receive(std::size_t size) {
    std::string bytes(size, '\0');
    require(recv(descriptor_, bytes.data(), size, MSG_WAITALL) == static_cast<ssize_t>(size),
            "the peer sends less than expected");
    return bytes;
}

std::string Socket::receiveAll() {
    std::string bytes;
    char part[4096];
    for (;;) {
        const ssize_t count = recv(descriptor_, part, sizeof part, 0);
        if (count > 0) {
            bytes.append(part, static_cast<std::size_t>(count));
        } else if (count == 0 || errno == ECONNRESET) {
            return bytes;
        } else if (errno != EINTR) {
            throw ReceiverError(std::string("the connection is not closed: ") + std::strerror(errno));
        }
    }
}

Socket clientOf(const Endpoint& endpoint) {
    const std::string hello = killed::helloOf(endpoint.path);
    Socket socket;
    require(socket.connect(endpoint.path) == 0 && socket.send(hello) && socket.receive(hello.size()) == hello,
            endpoint.name + " accepts no client");
    return socket;
}

std::vector<std::uint32_t> receiveFrames(Socket& client, std::size_t count) {
    std::vector<std::uint32_t> ids;
    while (ids.size() < count) {
        const std::string header = client.receive(frameHeader);
        std::uint32_t size = 0, id = 0;
        std::memcpy(&size, header.data(), sizeof size);
        std::memcpy(&id, header.data() + frameId, sizeof id);
        client.receive(size);
        ids.push_back(id);
    }
    return ids;
}

std::uint64_t counterOf(ReceiverKit& kit, Part service, const char* counter) {
    return kit.ask(service, {"stats"}).at(0).at(counter).get<std::uint64_t>();
}

long playOnce(ReceiverKit& kit, const std::string& uri) {
    const auto begin = Clock::now();
    const auto answers = kit.waitForAnswers(kit.play("0:0", uri), 1);
    require(answers.size() == 1 && answers[0].result == 0, uri + " is not played");
    return millisecondsSince(begin);
}

long endOf(ReceiverKit& kit, Part part) {
    const auto begin = Clock::now();
    const std::string problems = kit.stop(part);
    const long duration = millisecondsSince(begin);
    require(problems.empty(), problems);
    require(duration <= longestEnd,
            std::string(receiver::nameOf(part)) + " took " + std::to_string(duration) + " ms to end");
    return duration;
}

long endOfAll(ReceiverKit& kit) {
    long slowest = 0;
    for (auto part = receiver::allParts.rbegin(); part != receiver::allParts.rend(); ++part)
        slowest = std::max(slowest, endOf(kit, *part));
    return slowest;
}

std::uint64_t countLines(const std::filesystem::path& log, const std::string& text, const std::string& format) {
    std::uint64_t lines = 0;
    for (const receiver::LogLine& line : receiver::readLog(log)) {
        unsigned long long suppressed = 0;
        if (std::sscanf(line.text.c_str(), "... and %llu more", &suppressed) == 1)
            lines += line.text.ends_with("like it: " + format) ? suppressed : 0;
        else
            lines += line.text.find(text) != std::string::npos ? 1 : 0;
    }
    return lines;
}

std::filesystem::path logOf(const ReceiverKit& kit, Part part) {
    return kit.folder() / (std::string(receiver::nameOf(part)) + ".log");
}

void require(bool condition, const std::string& problem) {
    if (!condition) throw ReceiverError(problem);
}

} // namespace access_check
