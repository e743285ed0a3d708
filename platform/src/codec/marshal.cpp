#include "flat-words.h"
#include "plan.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>

namespace host {
namespace {

// Writes directly to the output buffer. The blocks of a payload that was built in one region already have the order
// that they have in the message, so strings are not copied one by one: as long as each begins where the one before it
// ended, they are collected and copied together. Positions count from the message's start.
class Writer {
public:
    Writer(Bytes& out, std::size_t limit)
        : out_(out), start_(out.size()), limit_(std::min<std::uint64_t>(limit, UINT32_MAX)) {
        useMemory();
    }

    // Afterwards the buffer ends after the message.
    void message(const Plan& plan, const char* payload) {
        makeRoom(plan.size);
        if (plan.size > 0) std::memcpy(message_, payload, plan.size); // the buffer may have no memory yet
        copied_ = plan.size;
        const Place end = records(plan, payload, 0, 1, {plan.size, payload + plan.size});
        copyWaiting(end);
        endAt(copied_);
    }

private:
    // Where the next block begins in the message, and where it begins in the payload if it can be copied with the
    // blocks before it. Passed and returned by value: a member would have to be reloaded after every write.
    struct Place {
        std::size_t next;
        const char* from;
    };

    // Determines the memory that the message may use.
    void useMemory() {
        message_ = out_.data() + start_;
        room_ = static_cast<std::size_t>(std::min<std::uint64_t>(limit_, out_.capacity() - start_));
    }

    // Makes the buffer end at position next; the bytes before it have been written.
    void endAt(std::size_t next) {
        out_.truncate(start_);
        out_.append(next);
    }

    // Ensures memory for count bytes after those that have been copied.
    void makeRoom(std::uint64_t count) {
        if (count > room_ - copied_) grow(count);
    }
    [[gnu::noinline]] void grow(std::uint64_t count) {
        if (count > limit_ - copied_) tooLong();
        endAt(copied_);
        out_.append(static_cast<std::size_t>(count));
        useMemory();
    }

    [[noreturn, gnu::cold, gnu::noinline]] void tooLong() const {
        throw std::length_error("message longer than " + std::to_string(limit_) + " bytes");
    }
    [[noreturn, gnu::cold, gnu::noinline]] static void refuse(const char* what, std::uint32_t offset,
                                                              std::uint32_t count) {
        throw std::invalid_argument(std::string(what) + " at byte " + std::to_string(offset) +
                                    " of its record: count " + std::to_string(count) + " with a null pointer");
    }

    // Copies the pending strings, which end at `end`. The last terminator is written, not copied: nothing has checked
    // whether the payload has it.
    [[gnu::noinline]] void copyWaiting(Place end) {
        if (end.next == copied_) return;
        const std::size_t bytes = end.next - copied_;
        makeRoom(bytes);
        std::memcpy(message_ + copied_, end.from - bytes, bytes - 1);
        message_[end.next - 1] = '\0';
        copied_ = end.next;
    }

    // Appends the blocks that the count records at from refer to; the records' copies are at position place.
    Place records(const Plan& plan, const char* from, std::size_t place, std::uint32_t count, Place at) {
        const auto steps = plan.steps.data(), end = steps + plan.steps.size();
        const std::uint32_t recordSize = plan.size;
        for (; count > 0; --count, from += recordSize, place += recordSize) {
            for (auto step = steps; step != end; ++step) {
                const std::uint32_t offset = step->offset;
                if (step->element) {
                    at = sequence(*step->element, offset, from, place, at);
                    continue;
                }
                const std::uint32_t length = loadWord(from + offset);
                const char* const data = flatAddress(loadWord(from + offset + 4));
                if (data == nullptr) {
                    if (length > 0) refuse("string", offset, length);
                    continue;
                }
                if (length >= limit_ - at.next) tooLong();
                if (data != at.from || data[-1] != '\0') copyWaiting(at);
                setPointer(place + offset, at.next);
                at = {at.next + length + 1, data + length + 1};
            }
        }
        return at;
    }

    Place sequence(const Plan& element, std::uint32_t offset, const char* from, std::size_t place, Place at) {
        const std::uint32_t count = loadWord(from + offset);
        const char* const data = flatAddress(loadWord(from + offset + 4));
        if (count == 0) { // an empty array has no block
            setPointer(place + offset, 0);
            return at;
        }
        if (data == nullptr) refuse("sequence", offset, count);
        copyWaiting(at);
        const std::uint64_t bytes = std::uint64_t{count} * element.size;
        makeRoom(bytes);
        std::memcpy(message_ + at.next, data, static_cast<std::size_t>(bytes));
        setPointer(place + offset, at.next);
        copied_ = at.next + static_cast<std::size_t>(bytes);
        const Place behind{copied_, data + bytes};
        if (element.steps.empty()) return behind;
        return records(element, data, at.next, count, behind);
    }

    // For a field that has been copied already.
    void setPointer(std::size_t field, std::size_t position) {
        storeWord(message_ + field + 4, static_cast<std::uint32_t>(position));
    }

    Bytes& out_;
    const std::size_t start_;
    const std::uint64_t limit_;
    char* message_;
    std::size_t room_;       // bytes of message_ that may be used
    std::size_t copied_ = 0; // bytes of the message that are complete
};

} // namespace

void Bytes::reserve(std::size_t capacity) {
    if (capacity <= capacity_) return;
    auto data = std::make_unique_for_overwrite<char[]>(capacity);
    if (size_ > 0) std::memcpy(data.get(), data_.get(), size_);
    data_ = std::move(data);
    capacity_ = capacity;
}

void Bytes::grow(std::size_t count) {
    constexpr std::size_t first = 256, most = PTRDIFF_MAX;
    if (count > most - size_) throw std::bad_alloc();
    reserve(std::max({first, size_ + count, std::min(2 * capacity_, most)}));
}

void marshal(const Plan& plan, const void* payload, Bytes& out, std::size_t limit) {
    const std::size_t before = out.size();
    try {
        Writer(out, limit).message(plan, static_cast<const char*>(payload));
    } catch (...) {
        out.truncate(before);
        throw;
    }
}

} // namespace host
