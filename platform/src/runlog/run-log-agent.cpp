#include "log/log.h"
#include "recorder/recorder.h"
#include "run-log-queue.h"
#include "run-log-store.h"
#include "runlog/run-log-waits.h"
#include "settings/number.h"

#include <host/environment.h>
#include <host/run-log-file.h>
#include <lrt/run-log-agent.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <optional>
#include <stdexcept>
#include <thread-safety/mutex.h>

namespace lrt {
namespace {

// A process has 2 s to end. The message queue takes up to half a second of it and an application's threads one second.
constexpr std::chrono::milliseconds longestEnd{300};
// The end of the process may have to wait for a thread that waits here. So this is part of the 2 s, too, unless the
// request to end comes during the wait.
constexpr std::chrono::milliseconds longestWait{500};

std::size_t configuredCapacity() {
    std::string problem;
    const auto capacity = static_cast<std::size_t>(host::config::numberOf("run_log.queue", problem));
    if (!problem.empty()) HOST_LOG(runlog, vdlDebugWarning, "%s", problem.c_str());
    return capacity;
}

std::string storePath() { return host::stateDirectory() + '/' + host::runLogName; }

// The effect of endRunLogWaits on an agent that is first used later. Allocates no memory, because a failed construction
// of the agent must leave no state behind.
constinit struct {
    thread_safety::Mutex mutex;
    RunLogQueue* queue TVSA_GUARDED_BY(mutex) = nullptr; // the agent's, once there is one
    bool ended TVSA_GUARDED_BY(mutex) = false;
} waits;

} // namespace

struct RunLogAgentImpl::State {
    std::optional<RunLogStore> store; // used by the queue's thread only
    RunLogQueue queue;

    State()
        : queue(configuredCapacity(), [this](const std::vector<RunLogRecord>& records) {
              if (!store) store.emplace(storePath());
              return store->write(records);
          }) {}
};

void endRunLogWaits() {
    thread_safety::LockGuard lock(waits.mutex);
    waits.ended = true;
    if (waits.queue) waits.queue->endWaits();
}

RunLogAgentImpl::RunLogAgentImpl() : state_(nullptr) {
    host::nameModule(host::Module::runlog, "runlog");
    state_ = new State;
    thread_safety::LockGuard lock(waits.mutex);
    waits.queue = &state_->queue;
    if (waits.ended) state_->queue.endWaits();
}

// The agent is never destroyed, because static objects that are destroyed later may still call it. Queued records are
// stored at process exit, unless that takes too long.
RunLogAgentImpl& RunLogAgentImpl::getInstance() {
    static RunLogAgentImpl& instance = *new RunLogAgentImpl;
    static const struct AtExit {
        ~AtExit() {
            if (!instance.state_->queue.stop(longestEnd))
                HOST_LOG(runlog, vdlDebugWarning, "the process ends before all records are stored");
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

void RunLogAgentImpl::writeRunLog(const RunLogRecord& record) {
    if (host::recorder::ring())
        host::recorder::record(host::EventKind::runLog, 0, record.logCode, record.errorCode + ' ' + record.logText);
    state_->queue.write(record);
}

bool RunLogAgentImpl::flush() { return state_->queue.flush(longestWait); }

std::vector<RunLogRecord> RunLogAgentImpl::readNewest(std::size_t count) {
    if (!flush())
        throw std::runtime_error(storePath() +
                                 ": the newest records are not stored yet, because its disk does not respond; " +
                                 "try again, or check the disk");
    try {
        return RunLogStore::readNewest(storePath(), count);
    } catch (const std::exception& error) {
        HOST_LOG(runlog, vdlDebugWarning, "cannot read: %s", error.what());
        return {};
    }
}

std::uint64_t RunLogAgentImpl::dropped() const { return state_->queue.dropped(); }

} // namespace lrt
