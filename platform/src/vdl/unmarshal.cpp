#include "vdl/flat-words.h"
#include "vdl/plan.h"

#include <cinttypes>
#include <cstdio>
#include <utility>

namespace host {
namespace {

// The text of the thread's last refusal. A message is refused at its first fault, so one is enough.
thread_local char refusal[160];

class Reader {
public:
    Reader(char* data, std::size_t size) : data_(data), size_(size) {}

    template <bool swap> const char* message(const Plan& plan) {
        if (plan.size > size_) {
            std::snprintf(refusal, sizeof refusal, "message of %zu bytes is shorter than its record of %" PRIu32, size_,
                          plan.size);
            return refusal;
        }
        next_ = plan.size;
        if (!records<swap>(plan, data_, 1)) return refusal;
        if (next_ == size_) return nullptr;
        std::snprintf(refusal, sizeof refusal, "message of %zu bytes has %zu bytes after its last block", size_,
                      size_ - next_);
        return refusal;
    }

private:
    template <bool swap> bool records(const Plan& plan, char* record, std::uint32_t count) {
        for (; count > 0; --count, record += plan.size) {
            if constexpr (swap) swapScalars(plan, record);
            for (const Plan::Step& step : plan.steps) {
                char* field = record + step.offset;
                if constexpr (swap) {
                    swapWord(field);
                    swapWord(field + 4);
                }
                if (!(step.element ? sequence<swap>(*step.element, field) : string(field))) return false;
            }
        }
        return true;
    }

    bool string(char* field) {
        const std::uint32_t offset = loadWord(field + 4);
        if (offset == 0) return true;
        const std::uint32_t length = loadWord(field);
        const std::uint64_t bytes = std::uint64_t{length} + 1;
        if (!isNextBlock(offset, bytes)) return refuseBlock("string", field, bytes);
        if (data_[next_ + length] != '\0') {
            std::snprintf(refusal, sizeof refusal, "string at byte %zu: its block at %" PRIu32 " is not terminated",
                          position(field), offset);
            return false;
        }
        takeBlock(field, bytes);
        return true;
    }

    template <bool swap> bool sequence(const Plan& element, char* field) {
        const std::uint32_t count = loadWord(field);
        const std::uint32_t offset = loadWord(field + 4);
        if ((count == 0) != (offset == 0)) {
            std::snprintf(refusal, sizeof refusal, "sequence at byte %zu: count %" PRIu32 " with %s", position(field),
                          count, offset == 0 ? "a null pointer" : "a block");
            return false;
        }
        if (count == 0) return true;
        const std::uint64_t bytes = std::uint64_t{count} * element.size;
        if (!isNextBlock(offset, bytes)) return refuseBlock("sequence", field, bytes);
        takeBlock(field, bytes);
        // Elements without pointers, in the right byte order, are as they should be.
        if (element.steps.empty() && (!swap || element.scalars.empty())) return true;
        return records<swap>(element, data_ + offset, count);
    }

    // Blocks follow each other without gaps, so there is one right offset for each; this keeps them from overlapping.
    bool isNextBlock(std::uint32_t offset, std::uint64_t bytes) const {
        return offset == next_ && bytes <= size_ - next_;
    }
    void takeBlock(char* field, std::uint64_t bytes) {
        storeWord(field + 4, static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(data_) + next_));
        next_ += static_cast<std::size_t>(bytes);
    }
    bool refuseBlock(const char* what, const char* field, std::uint64_t bytes) const {
        std::snprintf(refusal, sizeof refusal,
                      "%s at byte %zu: block of %" PRIu64 " bytes at %" PRIu32 ", but the next is at %zu with %zu left",
                      what, position(field), bytes, loadWord(field + 4), next_, size_ - next_);
        return false;
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
    std::size_t next_ = 0; // where the next block must begin
};

} // namespace

const char* unmarshal(const Plan& plan, char* data, std::size_t size, bool swap) noexcept {
    Reader reader(data, size);
    return swap ? reader.message<true>(plan) : reader.message<false>(plan);
}

} // namespace host
