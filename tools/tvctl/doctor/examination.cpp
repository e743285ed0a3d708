#include "examination.h"

#include "checks.h"

#include <host/configuration.h>
#include <host/environment.h>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace tvctl::doctor {
namespace {

// For what a check does besides waiting for its answer.
constexpr std::chrono::seconds besides{5};

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

std::string stateFolder() {
    try {
        return host::stateDirectoryPath();
    } catch (const std::exception&) { // none is named
        return {};
    }
}

} // namespace

void run(Examination& examination, const std::string& subject, std::function<Diagnosis()> check,
         std::chrono::milliseconds longest) {
    // Whoever resolves a name or reads a file cannot be interrupted.
    struct Shared {
        std::mutex mutex;
        std::condition_variable ended;
        std::optional<Diagnosis> diagnosis;
    };
    const auto shared = std::make_shared<Shared>();
    std::thread thread([shared, subject, check = std::move(check)] {
        Diagnosis diagnosis = resultOf(subject, check);
        std::lock_guard lock(shared->mutex);
        shared->diagnosis = std::move(diagnosis);
        shared->ended.notify_all();
    });
    std::unique_lock lock(shared->mutex);
    if (shared->ended.wait_for(lock, longest, [&] { return shared->diagnosis.has_value(); })) {
        lock.unlock();
        thread.join();
        return examination.diagnosis.add(std::move(*shared->diagnosis));
    }
    thread.detach();
    examination.stuck = true;
    examination.diagnosis.wrong(subject, "not examined within " + std::to_string(longest.count()) + " ms",
                                "see whether its disk, or the network's names, answer at all");
}

Examination examine(std::chrono::milliseconds timeout) {
    Examination examination;
    const auto look = [&](const std::string& subject, std::function<Diagnosis()> check) {
        run(examination, subject, std::move(check), timeout + besides);
    };
    const auto configured = std::make_shared<std::atomic<bool>>(false);
    look("configuration", [configured] {
        *configured = isConfigured();
        return checkFiles();
    });
    if (*configured) look("configuration", checkValues);
    look("runtime folder", checkRuntimeFolder);
    look("state folder", checkStateFolder);
    if (const std::string folder = stateFolder(); !folder.empty())
        look("run log", [folder] { return checkRunLog(folder); });
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
    for (const std::string& shell : shellsIn(folder))
        look(shell, [shell, timeout] { return checkShell(shell, timeout); });
    return examination;
}

} // namespace tvctl::doctor
