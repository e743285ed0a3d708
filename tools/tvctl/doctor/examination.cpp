#include "examination.h"

#include "checks.h"

#include <host/configuration.h>
#include <host/environment.h>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread-safety/mutex.h>
#include <thread>

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

} // namespace

bool run(Examination& examination, const std::string& subject, std::function<Diagnosis()> check,
         std::chrono::milliseconds timeout) {
    // On a thread, because resolving a name or reading a file cannot be interrupted.
    struct Shared {
        thread_safety::Mutex mutex;
        std::condition_variable ended;
        std::optional<Diagnosis> diagnosis TVSA_GUARDED_BY(mutex);
    };
    const auto shared = std::make_shared<Shared>();
    std::thread thread([shared, subject, check = std::move(check)] {
        Diagnosis diagnosis = resultOf(subject, check);
        thread_safety::LockGuard lock(shared->mutex);
        shared->diagnosis = std::move(diagnosis);
        shared->ended.notify_all();
    });
    thread_safety::UniqueLock lock(shared->mutex);
    if (shared->ended.wait_for(lock, timeout,
                               [&]() TVSA_REQUIRES(shared->mutex) { return shared->diagnosis.has_value(); })) {
        Diagnosis diagnosis = std::move(*shared->diagnosis);
        lock.unlock();
        thread.join();
        examination.diagnosis.add(std::move(diagnosis));
        return true;
    }
    thread.detach();
    examination.stuck = true;
    examination.diagnosis.wrong(subject, "not examined within " + std::to_string(timeout.count()) + " ms",
                                "check that its disk and name resolution respond");
    return false;
}

Examination examine(std::chrono::milliseconds timeout, std::chrono::milliseconds extra) {
    Examination examination;
    const auto runCheck = [&](const std::string& subject, std::function<Diagnosis()> check) {
        return run(examination, subject, std::move(check), timeout + extra);
    };
    const auto configured = std::make_shared<std::atomic<bool>>(false);
    runCheck("configuration", [configured] {
        *configured = isConfigured();
        return checkFiles();
    });
    if (*configured) runCheck("configuration", checkValues);
    runCheck("runtime folder", checkRuntimeFolder);
    runCheck("state folder", checkStateFolder);
    runCheck("run log", checkTheRunLog);
    runCheck("limits", checkLimits);
    const std::string folder = host::runtimeDirectoryPath();
    runCheck("runtime folder", [folder] { return checkContents(folder); });
    if (*configured) {
        runCheck("keys", checkKeys);
        for (const Service& service : services())
            runCheck(service.name, [service, timeout] { return checkService(service, timeout); });
    } else {
        examination.diagnosis.warn("services", "not examined, because no process starts with this configuration",
                                   "fix the configuration");
    }
    const auto shells = std::make_shared<std::vector<std::string>>();
    const auto findShells = [folder, shells] {
        *shells = shellsIn(folder);
        return Diagnosis();
    };
    if (runCheck("shells", findShells))
        for (const std::string& shell : *shells)
            runCheck(shell, [shell, timeout] { return checkShell(shell, timeout); });
    return examination;
}

} // namespace tvctl::doctor
