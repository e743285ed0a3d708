#include "flood.h"

#include "endpoints.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <iterator>
#include <list>
#include <poll.h>
#include <random>
#include <sched.h>
#include <sys/socket.h>

namespace access_check {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto longestHold = 3s; // longer than every time limit of the servers
constexpr auto pause = 50ms;     // between the bytes of a slow client

struct HostileClient {
    Socket socket;
    Clock::time_point connected, nextByte;
    std::size_t sent = 0;
};

class Flood {
public:
    Flood(const std::string& kind, const std::string& path, unsigned count, unsigned perSecond, std::string hello)
        : kind_(kind), path_(path), count_(count), perSecond_(perSecond), hello_(std::move(hello)), random_(count) {}

    void run() {
        const auto start = Clock::now();
        unsigned made = 0;
        while (made < count_ || !clients_.empty()) {
            const auto due = [&] {
                return perSecond_ == 0 ? clients_.empty() : Clock::now() >= start + made * (1000000us / perSecond_);
            };
            while (made < count_ && due()) {
                add();
                ++made;
            }
            wait();
        }
    }

private:
    void add() {
        HostileClient client{Socket(), Clock::now(), Clock::now()};
        if (const int error = client.socket.connect(path_); error != 0) throw ReceiverError(std::strerror(error));
        if (kind_ == kinds::garbage) client.socket.send(garbage());
        if (kind_ == kinds::abrupt) {
            if (random_() % 2 == 0) client.socket.send(hello_.substr(0, random_() % hello_.size()));
            return;
        }
        clients_.push_back(std::move(client));
    }

    std::string garbage() {
        std::string bytes(1 + random_() % 2048, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random_());
        return bytes;
    }

    // Closes connections that the server has closed or that have lasted long enough. Sends the next byte of slow
    // clients.
    void wait() {
        std::vector<pollfd> polled;
        for (const HostileClient& client : clients_)
            polled.push_back({client.socket.descriptor(), POLLIN | POLLRDHUP, 0});
        poll(polled.data(), polled.size(), perSecond_ == 0 ? 100 : 5);
        const auto now = Clock::now();
        auto events = polled.begin();
        for (auto client = clients_.begin(); client != clients_.end(); ++events) {
            const bool over =
                now - client->connected > longestHold || (events->revents & (POLLHUP | POLLERR | POLLRDHUP)) != 0;
            if ((events->revents & POLLIN) != 0) drain(*client);
            if (!over && kind_ == kinds::slow && now >= client->nextByte) {
                client->socket.send(hello_.substr(client->sent++ % hello_.size(), 1));
                client->nextByte = now + pause;
            }
            client = over ? clients_.erase(client) : std::next(client);
        }
    }

    static void drain(const HostileClient& client) {
        char bytes[4096];
        while (recv(client.socket.descriptor(), bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
        }
    }

    const std::string kind_, path_;
    const unsigned count_, perSecond_;
    const std::string hello_;
    std::mt19937 random_;
    std::list<HostileClient> clients_;
};

} // namespace

std::unique_ptr<receiver::ChildProcess> startFlood(const std::string& kind, const std::string& path, unsigned count,
                                                   unsigned perSecond, const std::filesystem::path& hello,
                                                   const std::filesystem::path& log) {
    receiver::ChildCommand command;
    command.program = std::filesystem::read_symlink("/proc/self/exe");
    command.arguments = {"--flood", kind, path, std::to_string(count), std::to_string(perSecond), hello.string()};
    command.errorLog = log;
    return std::make_unique<receiver::ChildProcess>(command);
}

int flood(const std::vector<std::string>& arguments) {
    try {
        // Use only idle processors, so that the check measures the servers.
        const sched_param none{};
        if (sched_setscheduler(0, SCHED_IDLE, &none) != 0) throw ReceiverError(std::strerror(errno));
        std::ifstream hello(arguments.at(4));
        Flood(arguments.at(0), arguments.at(1), static_cast<unsigned>(std::stoul(arguments.at(2))),
              static_cast<unsigned>(std::stoul(arguments.at(3))), {std::istreambuf_iterator<char>(hello), {}})
            .run();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "flood: " << error.what() << '\n';
        return 1;
    }
}

} // namespace access_check
