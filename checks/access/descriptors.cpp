// Clients that use up all descriptors of a process.
#include "../killed/process-size.h"
#include "honest.h"
#include "scenarios.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <sys/resource.h>

namespace access_check {
namespace {

constexpr const char* shortage = "Too many open files"; // the reason in an endpoint's log

class DescriptorLimit {
public:
    DescriptorLimit(pid_t process, rlim_t limit) : process_(process) {
        rlimit lowered{};
        require(prlimit(process_, RLIMIT_NOFILE, nullptr, &original_) == 0, std::strerror(errno));
        lowered = original_;
        lowered.rlim_cur = limit;
        require(prlimit(process_, RLIMIT_NOFILE, &lowered, nullptr) == 0, std::strerror(errno));
    }
    ~DescriptorLimit() { prlimit(process_, RLIMIT_NOFILE, &original_, nullptr); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    const pid_t process_;
    rlimit original_{};
};

} // namespace

void takeAllDescriptors() {
    ReceiverKit kit;
    kit.start();
    const auto endpoints = endpointsIn(kit.runtimeFolder());
    setEndpoints(endpoints);
    for (const Endpoint& endpoint : endpoints) {
        const pid_t process = kit.processId(endpoint.part);
        const auto known = honestClientOf(endpoint);
        known->ask();
        constexpr long spare = 8; // less than the limits for connections without a hello and for shell clients
        const auto used = killed::sizeOf(process).descriptors;
        const auto shortages = countLines(logOf(kit, endpoint.part), shortage, "");
        {
            const DescriptorLimit limit(process, static_cast<rlim_t>(used + spare));
            std::vector<Socket> clients(200);
            for (Socket& client : clients)
                require(client.connect(endpoint.path) == 0, endpoint.name + " accepts no connection");
            require(kit.waitFor([&] { return countLines(logOf(kit, endpoint.part), shortage, "") > shortages; },
                                receiver::defaultTimeout),
                    endpoint.name + " did not run out of descriptors");
            for (int i = 0; i < 100; ++i) known->ask();
        }
        // The clients are gone; a new client is served at once.
        const auto begin = std::chrono::steady_clock::now();
        honestClientOf(endpoint)->ask();
        require(std::chrono::steady_clock::now() - begin < std::chrono::seconds(2),
                endpoint.name + " has not recovered");
        known->ask();
    }
    kit.waitForAnswers(kit.play("0:0", "dvb://1.1.1"), 1);
    const std::string problems = kit.stop();
    require(problems.empty(), problems);
}

} // namespace access_check
