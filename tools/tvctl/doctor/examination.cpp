#include "examination.h"

#include "checks.h"

#include <host/configuration.h>
#include <host/environment.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread-safety/mutex.h>
#include <thread>
#include <utility>
#include <vector>

namespace tvctl::doctor {
namespace {

Diagnosis resultOf(const std::string& subject, const std::function<Diagnosis()>& check) {
    try {
        return check();
    } catch (const std::exception& error) {
        Diagnosis diagnosis;
        diagnosis.wrong(subject, std::string("cannot be examined: ") + error.what(), "fix that first");
        return diagnosis;
    }
}

bool isConfigured() {
    try {
        host::checkConfiguration();
        return true;
    } catch (const host::ConfigurationError&) {
        return false;
    }
}

Diagnosis checkTheRunLog() {
    std::string folder;
    try {
        folder = host::stateDirectoryPath();
    } catch (const std::runtime_error&) { // no folder is named, which checkStateFolder reports
        return {};
    }
    return checkRunLog(folder);
}

// A check on a thread of its own, because resolving a name or reading a file cannot be interrupted.
class RunningCheck {
public:
    RunningCheck(std::string subject, std::function<Diagnosis()> check)
        : subject_(std::move(subject)), thread_([shared = shared_, subject = subject_, check = std::move(check)] {
              Diagnosis diagnosis = resultOf(subject, check);
              thread_safety::LockGuard lock(shared->mutex);
              shared->diagnosis = std::move(diagnosis);
              shared->ended.notify_all();
          }) {}

    // Adds the findings, or that there are none within the timeout since the beginning; the thread goes on then.
    // Returns whether the check has ended.
    bool finish(Examination& examination, std::chrono::milliseconds timeout) {
        thread_safety::UniqueLock lock(shared_->mutex);
        if (shared_->ended.wait_until(lock, begin_ + timeout, [this]() TVSA_REQUIRES(shared_->mutex) {
                return shared_->diagnosis.has_value();
            })) {
            examination.diagnosis.add(std::move(*shared_->diagnosis));
            lock.unlock();
            thread_.join();
            return true;
        }
        thread_.detach();
        examination.stuck = true;
        examination.diagnosis.wrong(subject_, "not examined within " + std::to_string(timeout.count()) + " ms",
                                    "check that its disk and name resolution respond");
        return false;
    }

private:
    struct Shared {
        thread_safety::Mutex mutex;
        std::condition_variable ended;
        std::optional<Diagnosis> diagnosis TVSA_GUARDED_BY(mutex);
    };

    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    const std::string subject_;
    const std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
    std::thread thread_;
};

} // namespace

bool run(Examination& examination, const std::string& subject, std::function<Diagnosis()> check,
         std::chrono::milliseconds timeout) {
    return RunningCheck(subject, std::move(check)).finish(examination, timeout);
}

Examination examine(std::chrono::milliseconds timeout, std::chrono::milliseconds extra) {
    Examination examination;
    const auto limit = timeout + extra;
    const auto configured = std::make_shared<std::atomic<bool>>(false);
    run(
        examination, "configuration",
        [configured] {
            *configured = isConfigured();
            return checkFiles();
        },
        limit);
    std::vector<RunningCheck> checks;
    const auto begin = [&](const std::string& subject, std::function<Diagnosis()> check) {
        checks.emplace_back(subject, std::move(check));
    };
    const std::string folder = host::runtimeDirectoryPath();
    if (*configured) begin("configuration", checkValues);
    begin("runtime folder", checkRuntimeFolder);
    begin("state folder", checkStateFolder);
    begin("run log", checkTheRunLog);
    begin("limits", checkLimits);
    begin("runtime folder", [folder] { return checkContents(folder); });
    if (*configured) {
        begin("keys", checkKeys);
        for (const Service& service : services())
            begin(service.name, [service, timeout] { return checkService(service, timeout); });
    } else {
        begin("services", [] {
            Diagnosis diagnosis;
            diagnosis.warn("services", "not examined, because no process starts with this configuration",
                           "fix the configuration");
            return diagnosis;
        });
    }
    const auto shells = std::make_shared<std::vector<std::string>>();
    const bool found = run(
        examination, "shells",
        [folder, shells] {
            *shells = shellsIn(folder);
            return Diagnosis();
        },
        limit);
    if (found)
        for (const std::string& shell : *shells) begin(shell, [shell, timeout] { return checkShell(shell, timeout); });
    for (auto& check : checks) check.finish(examination, limit);
    return examination;
}

} // namespace tvctl::doctor
