#include "checks.h"
#include "files.h"

#include <host/environment.h>
#include <host/run-log-file.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <sys/statvfs.h>
#include <system_error>
#include <unistd.h>

namespace tvctl::doctor {
namespace {

constexpr std::uint64_t littleSpace = 64 * mebibyte;
constexpr off_t bigRunLog = 256 * static_cast<off_t>(mebibyte);

bool isSet(const char* variable) {
    const char* const value = std::getenv(variable);
    return value && *value;
}

// Checks the parent folders: a user who can write there can replace this folder.
void checkParents(Diagnosis& diagnosis, const std::string& folder) {
    for (auto parent = std::filesystem::absolute(folder).parent_path();; parent = parent.parent_path()) {
        struct stat status {};
        if (::stat(parent.c_str(), &status) != 0) continue;
        const bool sticky = (status.st_mode & S_ISVTX) != 0;
        if (status.st_uid != geteuid() && status.st_uid != 0)
            diagnosis.wrong(folder,
                            parent.string() + " belongs to user " + std::to_string(status.st_uid) +
                                ", who can replace its contents",
                            "choose another path");
        else if (!sticky && (status.st_mode & S_IWOTH) != 0)
            diagnosis.wrong(folder, "every user can replace the contents of " + parent.string(),
                            "chmod o-w " + parent.string());
        else if (!sticky && (status.st_mode & S_IWGRP) != 0)
            diagnosis.warn(folder, "its group can replace the contents of " + parent.string(),
                           "chmod g-w " + parent.string());
        if (parent == parent.parent_path()) return;
    }
}

// validate throws when the existing folder is unusable.
void checkFolder(Diagnosis& diagnosis, const std::string& folder, std::string (*validate)()) {
    int error = 0;
    const auto status = stateOf(folder, error);
    checkParents(diagnosis, folder);
    if (error != 0) return diagnosis.wrong(folder, textOfError(error), "fix its parent folder");
    if (!status) return diagnosis.ok(folder, "does not exist yet; the first process creates it");
    try {
        diagnosis.ok(validate(), "owned by this user, mode " + modeText(status->st_mode));
    } catch (const std::runtime_error& problem) {
        diagnosis.wrong(folder, problem.what(), "make it a folder of this user with mode 0700, or choose another");
    }
}

} // namespace

Diagnosis checkRuntimeFolder() {
    Diagnosis diagnosis;
    const std::string folder = host::runtimeDirectoryPath();
    if (!isSet("RUNTIME_DIRECTORY") && !isSet("XDG_RUNTIME_DIR"))
        diagnosis.warn(folder,
                       "XDG_RUNTIME_DIR is not set, so sockets are below /tmp, where another user may create "
                       "the folder first",
                       "log in through the session manager, or set RUNTIME_DIRECTORY");
    checkFolder(diagnosis, folder, host::runtimeDirectory);
    return diagnosis;
}

Diagnosis checkStateFolder() {
    Diagnosis diagnosis;
    std::string folder;
    try {
        folder = host::stateDirectoryPath();
    } catch (const std::runtime_error& error) {
        diagnosis.wrong("state folder", error.what(), "set STATE_DIRECTORY; without it there is no run log");
        return diagnosis;
    }
    checkFolder(diagnosis, folder, host::stateDirectory);

    // A missing folder will be on the disk of its nearest existing parent.
    auto existing = std::filesystem::absolute(folder);
    std::error_code unknown;
    while (!std::filesystem::exists(existing, unknown) && existing != existing.parent_path())
        existing = existing.parent_path();
    struct statvfs disk {};
    if (::statvfs(existing.c_str(), &disk) != 0) return diagnosis;
    const std::uint64_t left = static_cast<std::uint64_t>(disk.f_bavail) * disk.f_frsize;
    const std::string space = std::to_string(left / mebibyte) + " MiB left on its disk";
    if (left < littleSpace)
        diagnosis.warn(folder, space, "free some space, or run log records will be lost");
    else
        diagnosis.ok(folder, space);
    return diagnosis;
}

Diagnosis checkRunLog(const std::string& stateFolder) {
    Diagnosis diagnosis;
    const std::string file = stateFolder + '/' + host::runLogName;
    int error = 0;
    const auto status = stateOf(file, error);
    if (error != 0) diagnosis.wrong(file, textOfError(error), "fix its folder");
    if (!status) return diagnosis;
    if (!S_ISREG(status->st_mode)) {
        diagnosis.wrong(file, "not a regular file", "remove it; the next record creates a new one");
        return diagnosis;
    }
    if (status->st_uid != geteuid())
        diagnosis.wrong(file, "belongs to user " + std::to_string(status->st_uid), "find out why, then remove it");
    // The folder keeps other users from reading it.
    if ((status->st_mode & 022) != 0)
        diagnosis.wrong(file, "other users may write to it: mode " + modeText(status->st_mode), "chmod go-w");
    if (const std::string problem = host::problemOfRunLog(file); !problem.empty())
        diagnosis.wrong(file, problem, "examine it if its records matter; the next record moves it aside");
    else if (status->st_size > bigRunLog)
        diagnosis.warn(file, "sound, but " + std::to_string(status->st_size / static_cast<off_t>(mebibyte)) + " MiB",
                       "remove it while no process runs");
    else
        diagnosis.ok(file, "sound, " + std::to_string(status->st_size) + " bytes");
    return diagnosis;
}

} // namespace tvctl::doctor
