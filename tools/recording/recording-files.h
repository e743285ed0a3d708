// A recording as a file, or as a bounded row of files: FILE is the newest, FILE.1 the one before it, and so on. While a
// file is written it is FILE.part, so that a half-written one never replaces a whole one. FILE.part can be read as far
// as it goes. Files are only for their owner.
#pragma once

#include "event.h"
#include "recording-encoder.h"

#include <cstdint>
#include <optional>
#include <string>

namespace recording {

// When to begin the next file; without limits there is one.
struct Rotation {
    std::optional<std::uint64_t> bytes;
    std::optional<std::int64_t> nanoseconds; // of the events
    unsigned files = 10;                     // kept at most, if there is a limit
    bool isOn() const { return bytes || nanoseconds; }
};

// All but the destructor throw RecordingError. A file that was not finished stays FILE.part.
class RecordingFiles {
public:
    RecordingFiles(std::string file, std::string program, std::string schema, const Rotation& rotation = {});
    ~RecordingFiles();
    RecordingFiles(const RecordingFiles&) = delete;
    RecordingFiles& operator=(const RecordingFiles&) = delete;

    void write(const Event& event);
    void flush(); // what is flushed survives this process
    void finish();

    std::uint64_t bytes() const { return written_; } // of all files
    std::uint64_t events() const { return events_; }

private:
    void open();
    void begin(std::int64_t date);
    void close();
    bool isFull(const Event& event) const;
    void replaceWhole();
    [[noreturn]] void fail(const std::string& file) const;

    const std::string file_, part_, program_, schema_;
    const Rotation rotation_;
    std::optional<RecordingEncoder> encoder_;
    std::string waiting_; // bytes to write
    int descriptor_ = -1;
    std::uint64_t inFile_ = 0, written_ = 0, events_ = 0;
    std::optional<std::int64_t> firstDate_; // of the file
};

} // namespace recording
