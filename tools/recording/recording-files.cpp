#include "recording-files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace recording {
namespace {

constexpr std::size_t mostWaiting = 64 * 1024;
// What an event takes besides its name and data, with the description of its process.
constexpr std::size_t mostDescription = 1024;

std::string numbered(const std::string& file, unsigned number) {
    return number == 0 ? file : file + '.' + std::to_string(number);
}

} // namespace

RecordingFiles::RecordingFiles(std::string file, std::string program, std::string schema, const Rotation& rotation)
    : file_(std::move(file)),
      part_(file_ + ".part"),
      program_(std::move(program)),
      schema_(std::move(schema)),
      rotation_(rotation) {
    struct stat status {};
    if (::stat(file_.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        throw RecordingError(file_ + ": it is not a regular file, and would be replaced", EINVAL);
    open();
}

RecordingFiles::~RecordingFiles() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

void RecordingFiles::write(const Event& event) {
    if (isFull(event)) {
        close();
        replaceWhole();
        open();
    }
    if (!firstDate_) begin(event.recorded.date);
    const std::string bytes = encoder_->encode(event);
    waiting_ += bytes;
    inFile_ += bytes.size();
    ++events_;
    if (waiting_.size() >= mostWaiting) flush();
}

void RecordingFiles::flush() {
    std::size_t done = 0;
    while (done < waiting_.size()) {
        const ssize_t count = ::write(descriptor_, waiting_.data() + done, waiting_.size() - done);
        if (count < 0 && errno != EINTR) fail(part_);
        if (count > 0) done += static_cast<std::size_t>(count);
    }
    written_ += done;
    waiting_.clear();
}

void RecordingFiles::finish() {
    close();
    replaceWhole();
}

// Not truncated before it is locked: another process may be writing it.
void RecordingFiles::open() {
    descriptor_ = ::open(part_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (descriptor_ < 0) fail(part_);
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0) fail(part_);
    if (!S_ISREG(status.st_mode)) throw RecordingError(part_ + ": it is not a regular file", EINVAL);
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) fail(part_);
        throw RecordingError(part_ + ": another process records into it", EWOULDBLOCK);
    }
    if (::fchmod(descriptor_, 0600) != 0 || ::ftruncate(descriptor_, 0) != 0) fail(part_);
    inFile_ = 0;
    firstDate_.reset();
}

void RecordingFiles::begin(std::int64_t date) {
    encoder_.emplace(program_);
    waiting_ = encoder_->begin(schema_, date);
    inFile_ = waiting_.size();
    firstDate_ = date;
}

void RecordingFiles::close() {
    if (!firstDate_) begin(0);
    flush();
    if (::fsync(descriptor_) != 0) fail(part_);
    ::close(std::exchange(descriptor_, -1));
}

bool RecordingFiles::isFull(const Event& event) const {
    if (!firstDate_) return false; // each file has an event at least
    const std::uint64_t added = event.recorded.data.size() + event.recorded.name.size() + mostDescription;
    return (rotation_.bytes && inFile_ + added > *rotation_.bytes) ||
           (rotation_.nanoseconds && event.recorded.date - *firstDate_ >= *rotation_.nanoseconds);
}

void RecordingFiles::replaceWhole() {
    for (unsigned number = rotation_.files - 1; rotation_.isOn() && number > 0; --number) {
        const std::string newer = numbered(file_, number - 1);
        if (std::rename(newer.c_str(), numbered(file_, number).c_str()) != 0 && errno != ENOENT) fail(newer);
    }
    if (std::rename(part_.c_str(), file_.c_str()) != 0) fail(file_);
}

void RecordingFiles::fail(const std::string& file) const {
    throw RecordingError(file + ": " + std::strerror(errno), errno);
}

} // namespace recording
