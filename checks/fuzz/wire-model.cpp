#include "wire-model.h"

namespace model {
namespace {

class Reading {
public:
    Reading(const Flags& flags, const std::string& message, bool bigEndian)
        : flags_(flags), message_(message), bigEndian_(bigEndian) {}

    Outcome whole(const vdl::EndianTable& table) {
        const std::string size = std::to_string(message_.size());
        if (message_.size() < table.size) {
            refuse(Verdict::ShorterThanItsRecord,
                   "message of " + size + " bytes is shorter than its record of " + std::to_string(table.size));
        } else {
            next_ = table.size;
            if (record(table, 0) && next_ != message_.size())
                refuse(Verdict::TrailingBytes, "message of " + size + " bytes has " +
                                                   std::to_string(message_.size() - next_) +
                                                   " bytes after its last block");
        }
        if (outcome_.verdict == Verdict::Accepted) outcome_.value = value_.take();
        return std::move(outcome_);
    }

private:
    // The parts return whether reading goes on.
    bool record(const vdl::EndianTable& table, std::uint64_t at) {
        if (&table == &__vdl_EndianTable_vdlDeserString_t) return text(at);
        for (auto* entry = table.entries; entry->arg.word != vdl::EndianEntry::terminator; ++entry) {
            const std::uint64_t place = at + entry->offset;
            if (entry->kind == vdl::EndianNested) {
                if (!record(*entry->arg.table, place)) return false;
            } else if (entry->kind == vdl::EndianSequence) {
                if (!list(*entry->arg.table, place)) return false;
            } else {
                const std::uint32_t number = numberAt(place, entry->kind);
                const bool isFlag = flags_.count({&table, entry->offset}) > 0;
                value_.scalar(isFlag && number != 0 ? 1 : number, entry->kind);
            }
        }
        return true;
    }

    bool text(std::uint64_t at) {
        const Pointer pointer = pointerAt(at);
        if (pointer.offset == 0) {
            value_.text({});
            return true;
        }
        const std::uint64_t size = std::uint64_t{pointer.count} + 1;
        if (!block("string", pointer, size)) return false;
        if (message_[static_cast<std::size_t>(next_ - 1)] != '\0')
            return refuse(Verdict::Unterminated, "string" + atByte(at) + ": its block at " +
                                                     std::to_string(pointer.offset) + " is not terminated");
        value_.text(message_.substr(pointer.offset, pointer.count));
        return true;
    }

    bool list(const vdl::EndianTable& element, std::uint64_t at) {
        const Pointer pointer = pointerAt(at);
        if ((pointer.count == 0) != (pointer.offset == 0))
            return refuse(Verdict::CountAgainstPointer, "sequence" + atByte(at) + ": count " +
                                                            std::to_string(pointer.count) + " with " +
                                                            (pointer.offset == 0 ? "a null pointer" : "a block"));
        value_.list(pointer.count);
        if (pointer.count == 0) return true;
        if (!block("sequence", pointer, std::uint64_t{pointer.count} * element.size)) return false;
        for (std::uint64_t i = 0; i < pointer.count; ++i)
            if (!record(element, pointer.offset + i * element.size)) return false;
        return true;
    }

    // Blocks follow each other without gaps.
    bool block(const char* what, const Pointer& pointer, std::uint64_t size) {
        const std::uint64_t left = message_.size() - next_;
        if (pointer.offset != next_ || size > left)
            return refuse(Verdict::MisplacedBlock, what + atByte(pointer.place) + ": block of " + std::to_string(size) +
                                                       " bytes at " + std::to_string(pointer.offset) +
                                                       ", but the next is at " + std::to_string(next_) + " with " +
                                                       std::to_string(left) + " left");
        next_ += size;
        return true;
    }

    bool refuse(Verdict verdict, const std::string& text) {
        outcome_.verdict = verdict;
        outcome_.refusal = text;
        return false;
    }
    static std::string atByte(std::uint64_t place) { return " at byte " + std::to_string(place); }

    Pointer pointerAt(std::uint64_t place) {
        outcome_.pointers.push_back({static_cast<std::size_t>(place), numberAt(place, 4), numberAt(place + 4, 4)});
        return outcome_.pointers.back();
    }
    std::uint32_t numberAt(std::uint64_t place, unsigned width) const {
        std::uint32_t number = 0;
        for (unsigned i = 0; i < width; ++i) {
            const std::uint64_t byte = bigEndian_ ? place + i : place + width - 1 - i;
            number = number << 8 | static_cast<unsigned char>(message_.at(static_cast<std::size_t>(byte)));
        }
        return number;
    }

    const Flags& flags_;
    const std::string& message_;
    const bool bigEndian_;
    std::uint64_t next_ = 0; // where the next block must begin
    Value value_;
    Outcome outcome_;
};

} // namespace

const char* nameOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::Accepted:
            return "accepted";
        case Verdict::ShorterThanItsRecord:
            return "refused: shorter than its record";
        case Verdict::TrailingBytes:
            return "refused: bytes after the last block";
        case Verdict::CountAgainstPointer:
            return "refused: count and pointer disagree";
        case Verdict::MisplacedBlock:
            return "refused: block misplaced or too large";
        case Verdict::Unterminated:
            return "refused: text not terminated";
    }
    return "";
}

Outcome read(const vdl::EndianTable& table, const Flags& flags, const std::string& message, bool bigEndian) {
    return Reading(flags, message, bigEndian).whole(table);
}

} // namespace model
