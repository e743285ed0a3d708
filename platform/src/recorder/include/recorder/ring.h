// A ring in a file that the process maps: keeps the newest events, whatever becomes of the process.
#pragma once

#include "base/file-descriptor.h"

#include <host/recorded-event.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread-safety/mutex.h>

namespace host::recorder {

struct FileHeader;
struct PageHeader;

class Ring {
public:
    static constexpr std::size_t leastBytes = 256 * 1024;

    // Makes a file of so many bytes, rounded up to whole pages, with mode 0600, and locks it. All its memory is taken
    // at once, so that a full disk later does not end the process. Throws std::system_error. version: of what runs, for
    // readers.
    Ring(const std::string& file, std::size_t bytes, const std::string& version);
    ~Ring();
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;

    // Adds an event, whose data may come in two parts. From any thread; does not block, but for other threads that add.
    void add(EventKind kind, std::uint8_t flags, std::uint64_t number, std::string_view name, std::string_view data,
             std::string_view more = {}) noexcept TVSA_EXCLUDES(mutex_);
    // The process ends in an orderly way.
    void markEnded() noexcept;

private:
    void beginPage(std::uint64_t first) TVSA_REQUIRES(mutex_);
    void write(const void* bytes, std::size_t count) TVSA_REQUIRES(mutex_);

    thread_safety::Mutex mutex_;
    io::FileDescriptor file_; // locked: readers and the next process see that this one lives
    FileHeader* header_;
    char* pages_;
    std::uint64_t count_;                             // of pages
    std::uint64_t end_ TVSA_GUARDED_BY(mutex_) = 0;   // the address after the last record
    std::uint64_t begun_ TVSA_GUARDED_BY(mutex_) = 0; // pages, ever
    char* next_ TVSA_GUARDED_BY(mutex_) = nullptr;    // in the last page, where so many bytes are left:
    std::size_t room_ TVSA_GUARDED_BY(mutex_) = 0;
};

} // namespace host::recorder
