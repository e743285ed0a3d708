#include "config/number.h"
#include "lrt/run-log-debug.h"
#include "lrt/run-log-queue.h"
#include "lrt/run-log-store.h"

#include <host/environment.h>
#include <host/run-log-file.h>
#include <lrt/run-log-agent.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <optional>

namespace lrt {
namespace {

constexpr std::chrono::milliseconds longestEnd{1000};

std::size_t configuredCapacity() {
    std::string problem;
    const auto capacity = static_cast<std::size_t>(host::config::numberOf("run_log.queue", problem));
    if (!problem.empty()) debugLine(vdlDebugWarning, problem);
    return capacity;
}

std::string storePath() { return host::stateDirectory() + '/' + host::runLogName; }

} // namespace

struct RunLogAgentImpl::State {
    std::optional<RunLogStore> store; // the queue's thread's own
    RunLogQueue queue;

    State()
        : queue(configuredCapacity(), [this](const std::vector<RunLogRecord>& records) {
              if (!store) store.emplace(storePath());
              return store->write(records);
          }) {}
};

RunLogAgentImpl::RunLogAgentImpl() : state_(nullptr) {
    vdlDebugNameModule(runLogModule, "runlog");
    state_ = new State;
}

// The agent is never destroyed, as static objects that go later may still call it; what is queued when the process
// ends is stored then, unless that takes too long.
RunLogAgentImpl& RunLogAgentImpl::getInstance() {
    static RunLogAgentImpl& instance = *new RunLogAgentImpl;
    static const struct AtExit {
        ~AtExit() {
            if (!instance.state_->queue.stop(longestEnd))
                debugLine(vdlDebugWarning, "the process ends before all records are stored");
        }
    } atExit;
    return instance;
}

std::string RunLogAgentImpl::getLogCurrentUTCTime() const {
    using namespace std::chrono;
    const auto now = time_point_cast<milliseconds>(system_clock::now());
    const std::time_t seconds = system_clock::to_time_t(floor<std::chrono::seconds>(now));
    const int fraction = static_cast<int>((now - floor<std::chrono::seconds>(now)).count());
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char day[32], text[48];
    std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text, sizeof text, "%s.%03dZ", day, fraction);
    return text;
}

void RunLogAgentImpl::writeRunLog(const RunLogRecord& record) { state_->queue.write(record); }

void RunLogAgentImpl::flush() { state_->queue.flush(); }

std::vector<RunLogRecord> RunLogAgentImpl::readNewest(std::size_t count) {
    flush();
    try {
        return RunLogStore::readNewest(storePath(), count);
    } catch (const std::exception& error) {
        debugLine(vdlDebugWarning, std::string("cannot read: ") + error.what());
        return {};
    }
}

std::uint64_t RunLogAgentImpl::dropped() const { return state_->queue.dropped(); }

} // namespace lrt
