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

constexpr auto longestHold = 3s; // beyond every time limit that they meet
constexpr auto pause = 50ms;     // between a slow one's bytes

struct Unwanted {
    Socket socket;
    Clock::time_point born, next;
    std::size_t said = 0;
};

class Flood {
public:
    Flood(const std::string& kind, const std::string& path, unsigned count, unsigned perSecond, std::string words)
        : kind_(kind), path_(path), count_(count), perSecond_(perSecond), words_(std::move(words)), random_(count) {}

    void run() {
        const auto start = Clock::now();
        unsigned made = 0;
        while (made < count_ || !all_.empty()) {
            const auto due = [&] {
                return perSecond_ == 0 ? all_.empty() : Clock::now() >= start + made * (1000000us / perSecond_);
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
        Unwanted one{Socket(), Clock::now(), Clock::now()};
        if (const int error = one.socket.connect(path_); error != 0) throw ReceiverError(std::strerror(error));
        if (kind_ == kinds::garbage) one.socket.say(garbage());
        if (kind_ == kinds::abrupt) {
            if (random_() % 2 == 0) one.socket.say(words_.substr(0, random_() % words_.size()));
            return;
        }
        all_.push_back(std::move(one));
    }

    std::string garbage() {
        std::string bytes(1 + random_() % 2048, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random_());
        return bytes;
    }

    // Ends those that the other side has ended, or that have held long enough; lets slow ones say their next byte.
    void wait() {
        std::vector<pollfd> polled;
        for (const Unwanted& one : all_) polled.push_back({one.socket.descriptor(), POLLIN | POLLRDHUP, 0});
        poll(polled.data(), polled.size(), perSecond_ == 0 ? 100 : 5);
        const auto now = Clock::now();
        auto events = polled.begin();
        for (auto one = all_.begin(); one != all_.end(); ++events) {
            const bool over = now - one->born > longestHold || (events->revents & (POLLHUP | POLLERR | POLLRDHUP)) != 0;
            if ((events->revents & POLLIN) != 0) drain(*one);
            if (!over && kind_ == kinds::slow && now >= one->next) {
                one->socket.say(words_.substr(one->said++ % words_.size(), 1));
                one->next = now + pause;
            }
            one = over ? all_.erase(one) : std::next(one);
        }
    }

    static void drain(const Unwanted& one) {
        char bytes[4096];
        while (recv(one.socket.descriptor(), bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
        }
    }

    const std::string kind_, path_;
    const unsigned count_, perSecond_;
    const std::string words_;
    std::mt19937 random_;
    std::list<Unwanted> all_;
};

} // namespace

std::unique_ptr<receiver::ChildProcess> startFlood(const std::string& kind, const std::string& path, unsigned count,
                                                   unsigned perSecond, const std::filesystem::path& words,
                                                   const std::filesystem::path& log) {
    receiver::ChildCommand command;
    command.program = std::filesystem::read_symlink("/proc/self/exe");
    command.arguments = {"--flood", kind, path, std::to_string(count), std::to_string(perSecond), words.string()};
    command.errorLog = log;
    return std::make_unique<receiver::ChildProcess>(command);
}

int flood(const std::vector<std::string>& arguments) {
    try {
        // Only what nobody else wants of the processors, so that what is measured is the server.
        const sched_param none{};
        if (sched_setscheduler(0, SCHED_IDLE, &none) != 0) throw ReceiverError(std::strerror(errno));
        std::ifstream words(arguments.at(4));
        Flood(arguments.at(0), arguments.at(1), static_cast<unsigned>(std::stoul(arguments.at(2))),
              static_cast<unsigned>(std::stoul(arguments.at(3))), {std::istreambuf_iterator<char>(words), {}})
            .run();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "flood: " << error.what() << '\n';
        return 1;
    }
}

} // namespace access_check
