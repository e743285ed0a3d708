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
        diagnosis.wrong(subject, std::string("cannot be examined: ") + error.what(), "mend that first");
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
    } catch (const std::runtime_error&) { // none is named, of which checkStateFolder tells
        return {};
    }
    return checkRunLog(folder);
}

} // namespace

bool run(Examination& examination, const std::string& subject, std::function<Diagnosis()> check,
         std::chrono::milliseconds longest) {
    // Whoever resolves a name or reads a file cannot be interrupted.
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
    if (shared->ended.wait_for(lock, longest,
                               [&]() TVSA_REQUIRES(shared->mutex) { return shared->diagnosis.has_value(); })) {
        Diagnosis diagnosis = std::move(*shared->diagnosis);
        lock.unlock();
        thread.join();
        examination.diagnosis.add(std::move(diagnosis));
        return true;
    }
    thread.detach();
    examination.stuck = true;
    examination.diagnosis.wrong(subject, "not examined within " + std::to_string(longest.count()) + " ms",
                                "see whether its disk, or the network's names, answer at all");
    return false;
}

Examination examine(std::chrono::milliseconds timeout, std::chrono::milliseconds besides) {
    Examination examination;
    const auto look = [&](const std::string& subject, std::function<Diagnosis()> check) {
        return run(examination, subject, std::move(check), timeout + besides);
    };
    const auto configured = std::make_shared<std::atomic<bool>>(false);
    look("configuration", [configured] {
        *configured = isConfigured();
        return checkFiles();
    });
    if (*configured) look("configuration", checkValues);
    look("runtime folder", checkRuntimeFolder);
    look("state folder", checkStateFolder);
    look("run log", checkTheRunLog);
    look("limits", checkLimits);
    const std::string folder = host::runtimeDirectoryPath();
    look("runtime folder", [folder] { return checkContents(folder); });
    if (*configured) {
        look("keys", checkKeys);
        for (const Service& service : services())
            look(service.name, [service, timeout] { return checkService(service, timeout); });
    } else {
        examination.diagnosis.warn("services", "not examined, as no process starts with this configuration",
                                   "mend the configuration");
    }
    const auto shells = std::make_shared<std::vector<std::string>>();
    const auto findShells = [folder, shells] {
        *shells = shellsIn(folder);
        return Diagnosis();
    };
    if (look("shells", findShells))
        for (const std::string& shell : *shells) look(shell, [shell, timeout] { return checkShell(shell, timeout); });
    return examination;
}

} // namespace tvctl::doctor
