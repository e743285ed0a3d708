#include "vdl/flat-words.h"
#include "vdl/plan.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>

namespace host {
namespace {

// Two moves that overlap in the middle.
template <class Unit> void copyEnds(char* to, const char* from, std::size_t count) {
    Unit head, tail;
    std::memcpy(&head, from, sizeof head);
    std::memcpy(&tail, from + count - sizeof tail, sizeof tail);
    std::memcpy(to, &head, sizeof head);
    std::memcpy(to + count - sizeof tail, &tail, sizeof tail);
}

// Most strings are short: inline moves beat a library call for them.
void copyString(char* to, const char* from, std::size_t length) {
    if (length > 16) {
        std::memcpy(to, from, length);
    } else if (length >= 8) {
        copyEnds<std::uint64_t>(to, from, length);
    } else if (length >= 4) {
        copyEnds<std::uint32_t>(to, from, length);
    } else if (length >= 2) {
        copyEnds<std::uint16_t>(to, from, length);
    } else if (length == 1) {
        *to = *from;
    }
}

// Appends to the run's memory directly; where the next block goes travels from call to call by value: as a member it
// would have to be reloaded after every byte that is written. Positions count from the message's start.
class Writer {
public:
    Writer(Bytes& out, std::size_t limit)
        : out_(out), start_(out.size()), limit_(std::min<std::uint64_t>(limit, UINT32_MAX)) {
        useMemory();
    }

    // The run then ends behind the message.
    void message(const Plan& plan, const char* payload) {
        makeRoom(0, plan.size);
        if (plan.size > 0) std::memcpy(message_, payload, plan.size); // the run may have no memory yet
        endAt(records(plan, payload, 0, 1, plan.size));
    }

private:
    // What of the run's memory the message may use.
    void useMemory() {
        message_ = out_.data() + start_;
        room_ = static_cast<std::size_t>(std::min<std::uint64_t>(limit_, out_.capacity() - start_));
    }

    // The run's bytes up to position next, which have been written, belong to the run.
    void endAt(std::size_t next) {
        out_.truncate(start_);
        out_.append(next);
    }

    // Sees to memory for count more bytes at position next.
    void makeRoom(std::size_t next, std::uint64_t count) {
        if (count > room_ - next) grow(next, count);
    }
    [[gnu::noinline]] void grow(std::size_t next, std::uint64_t count) {
        if (count > limit_ - next) throw std::length_error("message longer than " + std::to_string(limit_) + " bytes");
        endAt(next);
        out_.append(static_cast<std::size_t>(count));
        useMemory();
    }

    [[noreturn, gnu::cold, gnu::noinline]] static void refuse(const char* what, std::uint32_t offset,
                                                              std::uint32_t count) {
        throw std::invalid_argument(std::string(what) + " at byte " + std::to_string(offset) +
                                    " of its record: count " + std::to_string(count) + " with a null pointer");
    }

    // Appends what the count records at from lead to; their copies are at position place. Takes and returns the
    // position behind the last block.
    std::size_t records(const Plan& plan, const char* from, std::size_t place, std::uint32_t count, std::size_t next) {
        const auto steps = plan.steps.data(), end = steps + plan.steps.size();
        const std::uint32_t recordSize = plan.size;
        for (; count > 0; --count, from += recordSize, place += recordSize) {
            for (auto step = steps; step != end; ++step) {
                const std::uint32_t offset = step->offset;
                if (step->element) {
                    next = sequence(*step->element, offset, from, place, next);
                    continue;
                }
                const std::uint32_t length = loadWord(from + offset);
                const std::uint32_t data = loadWord(from + offset + 4);
                if (data == 0) {
                    if (length > 0) refuse("string", offset, length);
                    continue;
                }
                makeRoom(next, std::uint64_t{length} + 1);
                char* const message = message_;
                setPointer(message + place + offset, next);
                copyString(message + next, flatAddress(data), length);
                message[next + length] = '\0';
                next += std::size_t{length} + 1;
            }
        }
        return next;
    }

    std::size_t sequence(const Plan& element, std::uint32_t offset, const char* from, std::size_t place,
                         std::size_t next) {
        const std::uint32_t count = loadWord(from + offset);
        const std::uint32_t data = loadWord(from + offset + 4);
        if (count == 0) { // an array of nothing has no block
            setPointer(message_ + place + offset, 0);
            return next;
        }
        if (data == 0) refuse("sequence", offset, count);
        const std::uint64_t bytes = std::uint64_t{count} * element.size;
        makeRoom(next, bytes);
        std::memcpy(message_ + next, flatAddress(data), static_cast<std::size_t>(bytes));
        setPointer(message_ + place + offset, next);
        const std::size_t behind = next + static_cast<std::size_t>(bytes);
        if (element.steps.empty()) return behind;
        return records(element, flatAddress(data), next, count, behind);
    }

    static void setPointer(char* field, std::size_t position) {
        storeWord(field + 4, static_cast<std::uint32_t>(position));
    }

    Bytes& out_;
    const std::size_t start_;
    const std::uint64_t limit_;
    char* message_;
    std::size_t room_; // bytes of message_ that may be used
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
