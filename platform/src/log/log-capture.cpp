#include "log/output.h"

#include <host/log-capture.h>
#include <vdl/debug.h>

#include <algorithm>
#include <condition_variable>
#include <numeric>
#include <thread-safety/mutex.h>
#include <utility>

namespace host {
namespace debug {
namespace {

struct Collector;

// The active captures. Never destroyed: lines are logged until the process ends.
struct Collectors {
    thread_safety::Mutex mutex;
    std::condition_variable changed;
    std::vector<Collector*> list TVSA_GUARDED_BY(mutex);
};

Collectors& collectors() {
    static Collectors& instance = *new Collectors;
    return instance;
}

struct Collector {
    const bool quiet;
    std::vector<LogCapture::Line> lines TVSA_GUARDED_BY(collectors().mutex){}; // at most LogCapture::mostLines
    std::size_t lost TVSA_GUARDED_BY(collectors().mutex) = 0;
};

} // namespace

constinit std::atomic<int> captures{0};

bool capture(std::uint32_t levelWord, std::string_view text) {
    bool quiet = false;
    thread_safety::LockGuard lock(collectors().mutex);
    for (Collector* collector : collectors().list) {
        if (collector->lines.size() == LogCapture::mostLines) {
            ++collector->lost;
            continue;
        }
        collector->lines.push_back({levelWord, std::string(text), std::this_thread::get_id()});
        quiet = quiet || collector->quiet;
    }
    collectors().changed.notify_all();
    return quiet;
}

} // namespace debug

using debug::collectors;

struct LogCapture::State {
    debug::Collector collector;
    std::vector<std::pair<std::uint32_t, std::uint16_t>> formerLevels; // by module
};

LogCapture::LogCapture(const std::vector<std::uint32_t>& modules, bool quiet)
    : state_(new State{{.quiet = quiet}, {}}) {
    std::vector<std::uint32_t> chosen = modules;
    if (chosen.empty()) {
        chosen.resize(vdlDebugModules);
        std::iota(chosen.begin(), chosen.end(), 0U);
    }
    {
        thread_safety::LockGuard lock(collectors().mutex);
        collectors().list.push_back(&state_->collector);
        ++debug::captures;
    }
    for (const std::uint32_t module : chosen) {
        auto& level = vdlDebugLevels[module % vdlDebugModules];
        state_->formerLevels.emplace_back(module, level.exchange(vdlDebugTrace));
    }
}

LogCapture::~LogCapture() {
    auto& former = state_->formerLevels;
    // In reverse order, so that a module that was given twice gets its original level.
    for (auto it = former.rbegin(); it != former.rend(); ++it) vdlDebugLevels[it->first % vdlDebugModules] = it->second;
    {
        thread_safety::LockGuard lock(collectors().mutex);
        --debug::captures;
        std::erase(collectors().list, &state_->collector);
    }
    delete state_;
}

std::vector<LogCapture::Line> LogCapture::lines() const {
    thread_safety::LockGuard lock(collectors().mutex);
    return state_->collector.lines;
}

std::size_t LogCapture::lost() const {
    thread_safety::LockGuard lock(collectors().mutex);
    return state_->collector.lost;
}

bool LogCapture::waitFor(const std::string& part, std::chrono::milliseconds timeout) const {
    thread_safety::UniqueLock lock(collectors().mutex);
    std::size_t seen = 0;
    const auto& lines = state_->collector.lines;
    return collectors().changed.wait_for(lock, timeout, [&]() TVSA_REQUIRES(collectors().mutex) {
        for (; seen < lines.size(); ++seen)
            if (lines[seen].text.find(part) != std::string::npos) return true;
        return false;
    });
}

} // namespace host
