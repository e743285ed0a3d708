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

// Also of a file that says nothing about it.
bool hasEndedOrderly(const std::string& file) {
    try {
        return RingReader(file).info().hasEnded;
    } catch (const RingError&) {
        return true;
    }
}

// What is known of a process that left its ring behind.
std::string endOf(const std::string& file) {
    try {
        RingReader reader(file);
        const RingInfo info = reader.info();
        std::int64_t last = info.begin;
        for (RecordedEvent event; reader.next(event);) last = event.date;
        const std::time_t seconds = last / 1'000'000'000;
        std::tm utc{};
        gmtime_r(&seconds, &utc);
        char time[32];
        std::strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%SZ", &utc);
        return "process " + std::to_string(info.pid) +
               " did not end in an orderly way; it recorded its last event at " + time + "; " + file +
               " has what it did last";
    } catch (const RingError&) {
        return {};
    }
}

// Keeps the ring of the process before: that of one that was killed until the next one is, however often others start
// and end in between. Returns what to tell of it. Throws if it still runs.
std::string moveAway(const std::string& file) {
    const io::FileDescriptor former(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!former && errno == ENOENT) return {};
    if (!former) fail(file, errno);
    if (flock(former.get(), LOCK_EX | LOCK_NB) != 0) throw InUse(file + ": another process of this name records there");
    const bool hasEnded = hasEndedOrderly(file);
    const std::string kept = file + (hasEnded ? ".1" : ".killed");
    if (std::rename(file.c_str(), kept.c_str()) != 0) fail(file, errno);
    return hasEnded ? "" : endOf(kept);
}

} // namespace

constinit std::atomic<Ring*> current{nullptr};

std::string start(std::size_t bytes, const std::string& version) {
    runtimeDirectory(); // makes it
    const std::string folder = ringFolder();
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) fail(folder, errno);
    const std::string file = folder + '/' + fileNameOf(processName());
    std::string news = moveAway(file);
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
