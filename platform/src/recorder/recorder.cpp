#include "recorder/recorder.h"

#include "base/file-descriptor.h"

#include <host/folders.h>
#include <host/process-name.h>
#include <host/ring-reader.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>

namespace host::recorder {
namespace {

[[noreturn]] void fail(const std::string& file, int error) {
    throw std::runtime_error(file + ": " + std::system_category().message(error));
}

// The name of a process may come from its command line.
std::string fileNameOf(std::string process) {
    for (char& c : process)
        if (c == '/') c = '_';
    return process + ".ring";
}

// What is known of a process that left its ring behind; empty when it ended in an orderly way, or the file says
// nothing.
std::string endOf(const std::string& file) {
    try {
        RingReader reader(file);
        const RingInfo info = reader.info();
        if (info.hasEnded) return {};
        std::int64_t last = info.begin;
        for (RecordedEvent event; reader.next(event);) last = event.date;
        const std::time_t seconds = last / 1'000'000'000;
        std::tm utc{};
        gmtime_r(&seconds, &utc);
        char time[32];
        std::strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%SZ", &utc);
        return "process " + std::to_string(info.pid) +
               " did not end in an orderly way; it recorded its last event at " + time +
               "; tvctl record --last writes what it recorded to a file";
    } catch (const RingError&) {
        return {};
    }
}

// Keeps the ring of the process before. Throws if that still runs.
std::string moveAway(const std::string& file) {
    const io::FileDescriptor former(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!former && errno == ENOENT) return {};
    if (!former) fail(file, errno);
    if (flock(former.get(), LOCK_EX | LOCK_NB) != 0)
        throw std::runtime_error(file + ": another process of this name records there");
    const std::string kept = file + ".1";
    if (std::rename(file.c_str(), kept.c_str()) != 0) fail(file, errno);
    return endOf(kept);
}

} // namespace

constinit std::atomic<Ring*> current{nullptr};

std::string start(std::size_t bytes, const std::string& version) {
    runtimeDirectory(); // makes it
    const std::string folder = ringFolder();
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) fail(folder, errno);
    const std::string file = folder + '/' + fileNameOf(processName());
    const std::string news = moveAway(file);
    // Never destroyed: events are recorded until the process ends.
    Ring* const ring = new Ring(file, bytes, version);
    ring->add(EventKind::process, 0, 0, processName(), processName() + ' ' + version + " began");
    current.store(ring, std::memory_order_release);
    return news;
}

void end() noexcept {
    Ring* const ring = recorder::ring();
    if (!ring) return;
    ring->add(EventKind::process, 0, 0, "", "ended");
    ring->markEnded();
}

} // namespace host::recorder
