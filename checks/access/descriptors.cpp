// A crowd that takes all descriptors which a service may have.
#include "../killed/process-size.h"
#include "honest.h"
#include "scenarios.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <sys/resource.h>

namespace access_check {
namespace {

constexpr const char* shortage = "Too many open files"; // which a endpoint logs as its reason

class DescriptorLimit {
public:
    DescriptorLimit(pid_t process, rlim_t limit) : process_(process) {
        rlimit tight{};
        require(prlimit(process_, RLIMIT_NOFILE, nullptr, &former_) == 0, std::strerror(errno));
        tight = former_;
        tight.rlim_cur = limit;
        require(prlimit(process_, RLIMIT_NOFILE, &tight, nullptr) == 0, std::strerror(errno));
    }
    ~DescriptorLimit() { prlimit(process_, RLIMIT_NOFILE, &former_, nullptr); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    const pid_t process_;
    rlimit former_{};
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
        constexpr long room = 8; // fewer than those without a hello, or at a shell, may be
        const auto taken = killed::sizeOf(process).descriptors;
        const auto shortages = linesLike(logOf(kit, endpoint.part), shortage, "");
        {
            const DescriptorLimit limit(process, static_cast<rlim_t>(taken + room));
            std::vector<Socket> crowd(200);
            for (Socket& one : crowd) require(one.connect(endpoint.path) == 0, endpoint.name + " takes no connection");
            require(kit.waitFor([&] { return linesLike(logOf(kit, endpoint.part), shortage, "") > shortages; },
                                receiver::defaultTimeout),
                    endpoint.name + ": the crowd did not take all descriptors");
            for (int i = 0; i < 100; ++i) known->ask();
        }
        // The crowd is gone; who comes now need not wait for it.
        const auto begin = std::chrono::steady_clock::now();
        honestClientOf(endpoint)->ask();
        require(std::chrono::steady_clock::now() - begin < std::chrono::seconds(2),
                endpoint.name + " has not recovered");
        known->ask();
    }
    kit.waitForAnswers(kit.play("0:0", "dvb://1.1.1"), 1);
    const std::string complaints = kit.stop();
    require(complaints.empty(), complaints);
}

} // namespace access_check
