// Reads what processes record of themselves, while they run and after they have ended, however they ended.
#pragma once

#include <host/recorded-event.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace host {

// A file is not a ring, or cannot be read. The text begins with the file's name.
class RingError : public std::runtime_error {
public:
    using runtime_error::runtime_error;
};

struct RingInfo {
    std::string process; // its name
    std::string version; // of its platform
    std::uint32_t pid = 0;
    std::int64_t begin = 0;  // when it began: nanoseconds since 1970, UTC
    std::uint64_t bytes = 0; // how much the ring holds
    bool hasEnded = false;   // in an orderly way; otherwise it runs, or was killed
    std::string boot;        // identifies the run of the system: times of different runs are not comparable
};

// Reads a ring from its oldest event on. Never blocks or delays the process that writes it. Treats the file as hostile:
// whatever is in it, at worst some events are wrong or missing. Not thread-safe.
class RingReader {
public:
    // Throws RingError.
    explicit RingReader(const std::string& file);
    ~RingReader();
    RingReader(RingReader&&) noexcept;
    RingReader& operator=(RingReader&&) noexcept;

    // As of now: hasEnded may change.
    RingInfo info() const;
    // Returns false when there is no further event yet. Throws RingError when the file cannot be read any more.
    bool next(RecordedEvent& event);
    // Goes to the end: next returns only what is recorded from now on.
    void skipAll();
    // How many bytes were overwritten before they were read, since the first event that was.
    std::uint64_t lostBytes() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

// The folder of the rings: "recordings" in the runtime folder. It need not exist.
std::string ringFolder();
// The rings in a folder: NAME.ring of the processes that run or ended last, NAME.ring.1 of those before them, and
// NAME.ring.killed of the last ones that did not end in an orderly way. Empty when there is no such folder. At most
// 256, sorted by name.
std::vector<std::string> ringsIn(const std::string& folder);

} // namespace host
