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

class Writer {
public:
    Writer(Bytes& out, std::size_t limit)
        : out_(out), start_(out.size()), limit_(std::min<std::uint64_t>(limit, UINT32_MAX)) {}

    void message(const Plan& plan, const char* payload) {
        char* copy = append(plan.size);
        if (plan.size > 0) std::memcpy(copy, payload, plan.size); // the run may have no memory yet
        records(plan, payload, start_, 1);
    }

private:
    char* append(std::uint64_t count) {
        if (count > limit_ - (out_.size() - start_))
            throw std::length_error("message longer than " + std::to_string(limit_) + " bytes");
        return out_.append(static_cast<std::size_t>(count));
    }

    [[noreturn]] static void refuse(const char* what, std::uint32_t offset, std::uint32_t count) {
        throw std::invalid_argument(std::string(what) + " at byte " + std::to_string(offset) +
                                    " of its record: count " + std::to_string(count) + " with a null pointer");
    }

    // Appends what the count records at from lead to; their copies are at position place of the run.
    void records(const Plan& plan, const char* from, std::size_t place, std::uint32_t count) {
        for (; count > 0; --count, from += plan.size, place += plan.size) {
            for (const Plan::Step& step : plan.steps) {
                if (step.element)
                    sequence(*step.element, step.offset, from, place);
                else
                    string(step.offset, from, place);
            }
        }
    }

    void string(std::uint32_t offset, const char* from, std::size_t place) {
        const std::uint32_t length = loadWord(from + offset);
        const std::uint32_t data = loadWord(from + offset + 4);
        if (data == 0) {
            if (length > 0) refuse("string", offset, length);
            return;
        }
        const std::size_t position = out_.size();
        char* block = append(std::uint64_t{length} + 1);
        copyString(block, flatAddress(data), length);
        block[length] = '\0';
        setPointer(place + offset, position);
    }

    void sequence(const Plan& element, std::uint32_t offset, const char* from, std::size_t place) {
        const std::uint32_t count = loadWord(from + offset);
        const std::uint32_t data = loadWord(from + offset + 4);
        if (count == 0) { // an array of nothing has no block
            storeWord(out_.data() + place + offset + 4, 0);
            return;
        }
        if (data == 0) refuse("sequence", offset, count);
        const std::size_t position = out_.size();
        const std::uint64_t bytes = std::uint64_t{count} * element.size;
        std::memcpy(append(bytes), flatAddress(data), static_cast<std::size_t>(bytes));
        setPointer(place + offset, position);
        if (!element.steps.empty()) records(element, flatAddress(data), position, count);
    }

    void setPointer(std::size_t field, std::size_t position) {
        storeWord(out_.data() + field + 4, static_cast<std::uint32_t>(position - start_));
    }

    Bytes& out_;
    const std::size_t start_;
    const std::uint64_t limit_;
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
