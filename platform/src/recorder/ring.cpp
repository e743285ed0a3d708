#include "recorder/ring.h"

#include "ring-layout.h"

#include <host/process-name.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace host::recorder {
namespace {

std::int64_t nanosecondsOf(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

std::uint32_t threadNumber() {
    static thread_local const auto number = static_cast<std::uint32_t>(syscall(SYS_gettid));
    return number;
}

template <std::size_t Size> void copyText(char (&target)[Size], std::string_view text) {
    std::copy_n(text.data(), std::min(text.size(), Size - 1), target);
}

std::string bootId() {
    char text[40]{};
    const io::FileDescriptor file(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
    const auto got = file ? read(file.get(), text, sizeof text - 1) : 0;
    return {text, got > 0 ? static_cast<std::size_t>(got - (text[got - 1] == '\n')) : 0};
}

[[noreturn]] void fail(int error, const std::string& file) {
    throw std::system_error(error, std::generic_category(), file);
}

template <class Number> void publish(Number& place, Number value, std::memory_order order) {
    std::atomic_ref<Number>(place).store(value, order);
}

} // namespace

Ring::Ring(const std::string& file, std::size_t bytes, const std::string& version)
    : count_((std::max(bytes, leastBytes) + pageBytes - 1) / pageBytes) {
    file_ = io::FileDescriptor(open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file_) fail(errno, file);
    const auto size = (count_ + 1) * pageBytes;
    int error = posix_fallocate(file_.get(), 0, static_cast<off_t>(size));
    if (!error && flock(file_.get(), LOCK_EX | LOCK_NB) != 0) error = errno;
    void* const memory = error ? MAP_FAILED : mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file_.get(), 0);
    if (memory == MAP_FAILED) {
        if (!error) error = errno;
        unlink(file.c_str());
        fail(error, file);
    }
    header_ = static_cast<FileHeader*>(memory);
    pages_ = static_cast<char*>(memory) + pageBytes;
    *header_ = {.magic = {},
                .version = ringVersion,
                .byteOrder = ownByteOrder,
                .pageBytes = pageBytes,
                .pid = static_cast<std::uint32_t>(getpid()),
                .pages = count_,
                .beginDate = nanosecondsOf(CLOCK_REALTIME),
                .boot = {},
                .process = {},
                .release = {},
                .ended = 0,
                .padding = 0,
                .written = 0,
                .reserved = 0};
    copyText(header_->boot, bootId());
    copyText(header_->process, processName());
    copyText(header_->release, version);
    std::atomic_thread_fence(std::memory_order_release);
    std::copy_n(ringMagic, sizeof ringMagic, header_->magic);
}

Ring::~Ring() { munmap(header_, (count_ + 1) * pageBytes); }

void Ring::markEnded() noexcept { publish(header_->ended, std::uint32_t{1}, std::memory_order_release); }

// first: the address of the first record that begins in the page, or beyond it.
void Ring::beginPage(std::uint64_t first) {
    const std::uint64_t number = begun_++;
    const PageHeader header{
        .number = number,
        .dateOffset = nanosecondsOf(CLOCK_REALTIME) - nanosecondsOf(CLOCK_MONOTONIC),
        .first = static_cast<std::uint32_t>(std::min<std::uint64_t>(first - number * bodyBytes, bodyBytes)),
        .padding = 0};
    char* const page = pages_ + number % count_ * pageBytes;
    std::memcpy(page, &header, sizeof header);
    next_ = page + sizeof header;
    room_ = bodyBytes;
}

void Ring::write(const void* bytes, std::size_t count) {
    if (count == 0) return; // there may be no bytes to point to
    const char* from = static_cast<const char*>(bytes);
    while (count > room_) {
        std::memcpy(next_, from, room_);
        from += room_;
        count -= room_;
        beginPage(end_);
    }
    std::memcpy(next_, from, count);
    next_ += count;
    room_ -= count;
}

void Ring::add(EventKind kind, std::uint8_t flags, std::uint64_t number, std::string_view name, std::string_view data,
               std::string_view more) noexcept {
    const auto size = static_cast<std::uint32_t>(data.size() + more.size());
    name = name.substr(0, longestName);
    data = data.substr(0, mostRecordedBytes);
    more = more.substr(0, mostRecordedBytes - data.size());
    RecordHeader header{.word = 0,
                        .time = 0,
                        .number = number,
                        .thread = threadNumber(),
                        .size = size,
                        .kind = static_cast<std::uint8_t>(kind),
                        .flags = flags,
                        .nameSize = static_cast<std::uint16_t>(name.size()),
                        .padding = 0};
    const std::size_t bytes = name.size() + data.size() + more.size();

    const thread_safety::LockGuard lock(mutex_);
    header.time = nanosecondsOf(CLOCK_MONOTONIC); // under the lock: records are in the order of their times
    const std::uint64_t begin = end_;
    end_ += sizeof header + aligned(bytes);
    if (end_ > begun_ * bodyBytes) {
        publish(header_->reserved, (end_ + bodyBytes - 1) / bodyBytes * bodyBytes, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_seq_cst); // readers see this before a page is overwritten
        if (room_ == 0) beginPage(begin);
    }
    auto& word = *reinterpret_cast<std::uint64_t*>(next_);
    next_ += sizeof word;
    room_ -= sizeof word;
    write(reinterpret_cast<const char*>(&header) + sizeof word, sizeof header - sizeof word);
    write(name.data(), name.size());
    write(data.data(), data.size());
    write(more.data(), more.size());
    static constexpr char padding[8]{};
    write(padding, aligned(bytes) - bytes);
    publish(word, wordOf(begin, static_cast<std::uint32_t>(bytes)), std::memory_order_release);
    publish(header_->written, end_, std::memory_order_release);
}

} // namespace host::recorder
