#include "flat-words.h"
#include "plan.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace host {
namespace {

// The thread's last error text. Decoding stops at the first error, so one is enough.
thread_local char refusal[160];

// The position where the next block must begin is passed by value: a member would have to be reloaded after every write
// to the message.
class Reader {
public:
    Reader(char* data, std::size_t size) : data_(data), size_(size) {}

    template <bool swap> const char* message(const Plan& plan) const {
        if (plan.size > size_) {
            std::snprintf(refusal, sizeof refusal, "message of %zu bytes is shorter than its record of %" PRIu32, size_,
                          plan.size);
            return refusal;
        }
        const std::size_t next = records<swap>(plan, data_, 1, plan.size);
        if (next == size_) return nullptr;
        if (next == refused) return refusal;
        std::snprintf(refusal, sizeof refusal, "message of %zu bytes has %zu bytes after its last block", size_,
                      size_ - next);
        return refusal;
    }

private:
    static constexpr std::size_t refused = SIZE_MAX;

    // Returns where the next block must begin after all blocks that the records refer to, or `refused`.
    template <bool swap>
    std::size_t records(const Plan& plan, char* record, std::uint32_t count, std::size_t next) const {
        const auto steps = plan.steps.data(), end = steps + plan.steps.size();
        const std::uint32_t recordSize = plan.size;
        char* const data = data_;
        const std::size_t size = size_;
        for (; count > 0; --count, record += recordSize) {
            if constexpr (swap) swapScalars(plan, record);
            for (auto step = steps; step != end; ++step) {
                char* field = record + step->offset;
                if constexpr (swap) {
                    swapWord(field);
                    swapWord(field + 4);
                }
                if (step->element) {
                    next = sequence<swap>(*step->element, field, next);
                    if (next == refused) return refused;
                    continue;
                }
                const std::uint32_t offset = loadWord(field + 4);
                if (offset == 0) continue;
                const std::uint32_t length = loadWord(field);
                // Blocks follow each other without gaps, so each has exactly one valid offset. This also keeps them
                // from overlapping.
                if (offset != next || length >= size - next)
                    return refuseBlock("string", field, std::uint64_t{length} + 1, next);
                if (data[next + length] != '\0') return refuseString(field);
                setPointer(field, data + next);
                next += std::size_t{length} + 1;
            }
        }
        return next;
    }

    template <bool swap> std::size_t sequence(const Plan& element, char* field, std::size_t next) const {
        const std::uint32_t count = loadWord(field);
        const std::uint32_t offset = loadWord(field + 4);
        if ((count == 0) != (offset == 0)) {
            std::snprintf(refusal, sizeof refusal, "sequence at byte %zu: count %" PRIu32 " with %s", position(field),
                          count, offset == 0 ? "a null pointer" : "a block");
            return refused;
        }
        if (count == 0) return next;
        const std::uint64_t bytes = std::uint64_t{count} * element.size;
        if (offset != next || bytes > size_ - next) return refuseBlock("sequence", field, bytes, next);
        setPointer(field, data_ + next);
        const std::size_t behind = next + static_cast<std::size_t>(bytes);
        // Elements without pointers that need no swap are complete.
        if (element.steps.empty() && (!swap || element.scalars.empty())) return behind;
        return records<swap>(element, data_ + offset, count, behind);
    }

    static void setPointer(char* field, const char* block) {
        storeWord(field + 4, static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(block)));
    }
    [[gnu::cold, gnu::noinline]] std::size_t refuseBlock(const char* what, const char* field, std::uint64_t bytes,
                                                         std::size_t next) const {
        std::snprintf(refusal, sizeof refusal,
                      "%s at byte %zu: block of %" PRIu64 " bytes at %" PRIu32 ", but the next is at %zu with %zu left",
                      what, position(field), bytes, loadWord(field + 4), next, size_ - next);
        return refused;
    }
    [[gnu::cold, gnu::noinline]] std::size_t refuseString(const char* field) const {
        std::snprintf(refusal, sizeof refusal, "string at byte %zu: its block at %" PRIu32 " is not terminated",
                      position(field), loadWord(field + 4));
        return refused;
    }
    std::size_t position(const char* field) const { return static_cast<std::size_t>(field - data_); }

    static void swapWord(char* place) { storeWord(place, __builtin_bswap32(loadWord(place))); }
    static void swapScalars(const Plan& plan, char* record) {
        for (const auto& [offset, width] : plan.scalars) {
            if (width == 4)
                swapWord(record + offset);
            else
                std::swap(record[offset], record[offset + 1]);
        }
    }

    char* const data_;
    const std::size_t size_;
};

} // namespace

const char* unmarshal(const Plan& plan, char* data, std::size_t size, bool swap) noexcept {
    const Reader reader(data, size);
    return swap ? reader.message<true>(plan) : reader.message<false>(plan);
}

} // namespace host
