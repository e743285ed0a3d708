#include "checks.h"

#include <host/configuration.h>

#include <cstdint>
#include <optional>
#include <sys/resource.h>
#include <unistd.h>

namespace tvctl::doctor {
namespace {

constexpr std::uint64_t connections = 4; // of a receiver on one machine: two services, two ends each
// For a service's clients, peers without a hello yet, and a quarter in handshakes; the rest is for its shell and
// itself.
constexpr rlim_t enoughDescriptors = 640;

// A limit above `most` is effectively unlimited: no receiver comes near it, and one that did would fail before. In
// addition, all messages queued in a receiver's connections may take at most half of the machine's memory.
constexpr std::uint64_t mostBytes = 256 * mebibyte;
struct Bound {
    const char* name;
    std::uint64_t usual;
    const char* beyondUsual;
    std::uint64_t most;
    const char* what;
};
constexpr Bound bounds[] = {
    {"queue.messages", 1000000, "", 1000000, " messages per connection"},
    {"queue.bytes", mostBytes, "", mostBytes, " bytes per connection"},
    {"queue.wait_ms", 60000, " ms is longer than anybody waits", 600000, " ms, ten minutes"},
    {"queue.unfinished_ms", 60000, " ms is long for a peer to hold memory", 600000, " ms, ten minutes"},
    {"run_log.queue", 1000000, "", 1000000, " records"},
};
constexpr const char* unlimited = " is effectively unlimited: ";
constexpr const char* smaller = "set a smaller value";

std::uint64_t memoryOfMachine() {
    const long pages = sysconf(_SC_PHYS_PAGES), size = sysconf(_SC_PAGESIZE);
    return pages > 0 && size > 0 ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(size) : UINT64_MAX;
}

// Returns nullopt for a wrong value, which checkValues reports.
std::optional<host::Setting> valueOf(const char* name) {
    try {
        return host::setting(name);
    } catch (const host::ConfigurationError&) {
        return std::nullopt;
    }
}

std::string limitText(rlim_t limit) { return limit == RLIM_INFINITY ? "unlimited" : std::to_string(limit); }

void checkSystemLimits(Diagnosis& diagnosis, std::uint64_t flatHeap) {
    rlimit descriptors{}, core{}, memory{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    getrlimit(RLIMIT_CORE, &core);
    getrlimit(RLIMIT_AS, &memory);
    const std::string open = limitText(descriptors.rlim_cur) + " descriptors per process";
    if (descriptors.rlim_cur < enoughDescriptors)
        diagnosis.warn("open files",
                       open +
                           "; a service may have 256 clients, 64 peers without a hello yet and, from other hosts, "
                           "64 to 256 in a handshake",
                       "ulimit -n " + std::to_string(enoughDescriptors));
    else
        diagnosis.ok("open files", open);
    diagnosis.ok("core files", core.rlim_cur == 0 ? "none" : "at most " + limitText(core.rlim_cur) + " bytes");
    if (memory.rlim_cur != RLIM_INFINITY && memory.rlim_cur / 2 < flatHeap)
        diagnosis.warn("address space",
                       limitText(memory.rlim_cur) + " bytes, of which the flat heap uses " + std::to_string(flatHeap),
                       "ulimit -v unlimited, or a smaller flat_heap.megabytes");
    else
        diagnosis.ok("address space", limitText(memory.rlim_cur) + (memory.rlim_cur == RLIM_INFINITY ? "" : " bytes"));
}

// Checks the memory that the queues of all connections of a receiver may take.
void checkQueues(Diagnosis& diagnosis) {
    const auto bytes = valueOf("queue.bytes");
    if (!bytes || host::numberIn(*bytes) > mostBytes) return;
    const std::uint64_t queued = host::numberIn(*bytes) * connections, memory = memoryOfMachine();
    const std::string queues = std::to_string(queued / mebibyte) + " MiB may be queued in a receiver's " +
                               std::to_string(connections) + " connections, of " + std::to_string(memory / mebibyte) +
                               " MiB of memory";
    if (queued > memory / 2)
        diagnosis.wrong("queue.bytes", bytes->origin + ": " + bytes->text + unlimited + queues, smaller);
    else
        diagnosis.ok("queue.bytes", queues);
}

} // namespace

Diagnosis checkLimits() {
    Diagnosis diagnosis;
    for (const Bound& bound : bounds) {
        const auto value = valueOf(bound.name);
        if (!value) continue;
        const std::uint64_t number = host::numberIn(*value);
        const std::string given = value->origin + ": " + value->text;
        if (number > bound.most)
            diagnosis.wrong(bound.name, given + unlimited + "more than " + std::to_string(bound.most) + bound.what,
                            smaller);
        else if (number > bound.usual)
            diagnosis.warn(bound.name, given + bound.beyondUsual, smaller);
    }
    checkQueues(diagnosis);
    const auto heap = valueOf("flat_heap.megabytes");
    const std::uint64_t flatHeap = heap ? host::numberIn(*heap) * mebibyte : 0;
    if (flatHeap > memoryOfMachine())
        diagnosis.warn("flat_heap.megabytes", heap->origin + ": more than the machine's memory", smaller);
    checkSystemLimits(diagnosis, flatHeap);
    return diagnosis;
}

} // namespace tvctl::doctor
