// The file of a ring, in this machine's byte order: a page that describes it, then the pages of the ring.
//
// Records follow one another through the bodies of the pages, each from an address that is a multiple of 8; the address
// of the next one goes on for ever, and its page is overwritten after each lap. A record counts as written once its
// first word is there, which is stored last and depends on its address: what a process that was killed left behind, or
// what stands there from the lap before, is recognised. Each page has what is needed to read on from it, since after a
// power cut some pages may be older than others.
#pragma once

#include <cstddef>
#include <cstdint>

namespace host::recorder {

inline constexpr std::size_t pageBytes = 4096;
inline constexpr std::size_t longestName = 255; // of an event

struct FileHeader {
    char magic[8];
    std::uint32_t version, byteOrder;
    std::uint32_t pageBytes, pid;
    std::uint64_t pages;    // of the ring, without this one
    std::int64_t beginDate; // nanoseconds since 1970
    char boot[40], process[64], release[64];
    std::uint32_t ended; // 1 once the process has ended in an orderly way
    std::uint32_t padding;
    // The address after the last record that is written, and after the last page that is or is being begun.
    std::uint64_t written, reserved;
};
static_assert(sizeof(FileHeader) == 232);

inline constexpr char ringMagic[8] = {'T', 'V', 'S', 'A', 'R', 'I', 'N', 'G'};
inline constexpr std::uint32_t ringVersion = 1, ownByteOrder = 0x01020304;

struct PageHeader {
    std::uint64_t number;    // counts on for ever: the page begins at address number * bodyBytes
    std::int64_t dateOffset; // nanoseconds from CLOCK_MONOTONIC to the date when the page was begun
    std::uint32_t first;     // offset in the body of the first record that begins in it; bodyBytes for none
    std::uint32_t padding;
};
static_assert(sizeof(PageHeader) == 24);

inline constexpr std::size_t bodyBytes = pageBytes - sizeof(PageHeader);
static_assert(bodyBytes % 8 == 0);

struct RecordHeader {
    std::uint64_t word; // see wordOf
    std::int64_t time;
    std::uint64_t number;
    std::uint32_t thread;
    std::uint32_t size; // of the data before it was cut off
    std::uint8_t kind, flags;
    std::uint16_t nameSize;
    std::uint32_t padding;
};
static_assert(sizeof(RecordHeader) == 40);

// The first word of a record at an address with so many bytes after its header.
constexpr std::uint64_t wordOf(std::uint64_t address, std::uint32_t bytes) {
    return (address / 8 ^ 0x5EC0'4DED) << 32 | bytes;
}
constexpr std::uint32_t bytesIn(std::uint64_t word) { return static_cast<std::uint32_t>(word); }

constexpr std::uint64_t aligned(std::uint64_t size) { return (size + 7) / 8 * 8; }

} // namespace host::recorder
