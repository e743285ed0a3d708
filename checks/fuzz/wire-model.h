// A second reading of the wire form, to hold the marshaller against: what a message's bytes mean, or why they are
// refused. It follows the tables entry by entry and builds every number byte by byte; slow, short, and sharing nothing
// with the code under test but the rules.
#pragma once

#include <vdl/endian-table.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace model {

enum class Verdict {
    Accepted,
    ShorterThanItsRecord,
    TrailingBytes,
    CountAgainstPointer, // a count without a block, or a block without a count
    MisplacedBlock,      // not where the next block must be, or larger than what is left
    Unterminated,
};
inline constexpr std::size_t verdicts = 6;
const char* nameOf(Verdict verdict);

// A count or length and the offset behind it.
struct Pointer {
    std::size_t place; // of the count
    std::uint32_t count, offset;
};

struct Outcome {
    Verdict verdict = Verdict::Accepted;
    std::string refusal;           // what the marshaller has to say
    std::string value;             // see Value, when accepted
    std::vector<Pointer> pointers; // those that were looked at
};

// A message's value as bytes that are equal for equal values: scalars with their width, texts with their length, lists
// with their count, in the order of the fields.
class Value {
public:
    void scalar(std::uint32_t value, unsigned width) {
        bytes_ += static_cast<char>(width);
        word(value);
    }
    void text(const std::string& bytes) {
        bytes_ += 's';
        word(static_cast<std::uint32_t>(bytes.size()));
        bytes_ += bytes;
    }
    void list(std::uint32_t count) {
        bytes_ += 'l';
        word(count);
    }
    std::string take() { return std::move(bytes_); }

private:
    void word(std::uint32_t value) {
        for (unsigned shift = 0; shift < 32; shift += 8) bytes_ += static_cast<char>(value >> shift & 0xFF);
    }
    std::string bytes_;
};

// Where the words are that say true or false, as no table tells them from other words.
using Flags = std::set<std::pair<const vdl::EndianTable*, std::uint32_t>>;

// bigEndian: the order of the message's maker.
Outcome read(const vdl::EndianTable& table, const Flags& flags, const std::string& message, bool bigEndian);

} // namespace model
