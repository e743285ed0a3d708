// Endian tables describe flat records to the marshaller. A table gives the record's size and lists its fields; the
// marshaller uses it to copy a tree of flat records into one buffer and back, and to correct the byte order.
//
// Tables are constant data, initialised before any code runs, and live as long as the process.
#pragma once

#include <cstdint>

namespace vdl {

struct EndianTable;

// The kind of a field; 1, 2 and 4 are scalars of that many bytes.
enum EndianKind : std::uint16_t {
    EndianScalar1 = 1,
    EndianScalar2 = 2,
    EndianNested = 3, // an inline record, described by arg; the three platform records below count as nested
    EndianScalar4 = 4,
    EndianSequence = 0x4049, // u32 count, then a pointer to count consecutive records, each described by arg
};

// One field. A table's list ends with offset 0, kind 0, arg all ones.
struct EndianEntry {
    union Arg {
        std::uintptr_t word;
        const EndianTable* table;

        constexpr Arg(int zero) : word(static_cast<std::uintptr_t>(zero)) {} // a literal 0 would match both others
        constexpr Arg(std::uintptr_t w) : word(w) {}
        constexpr Arg(const EndianTable* t) : table(t) {}
    };

    std::uint16_t offset; // bytes from the record's start
    std::uint16_t kind;   // EndianKind
    Arg arg;              // 0 for scalars

    static constexpr std::uintptr_t terminator = ~std::uintptr_t{0};
};
static_assert(sizeof(EndianEntry) == (sizeof(void*) == 4 ? 8 : 16));

struct EndianTable {
    std::uint32_t size; // of the flat record in bytes
    const EndianEntry* entries;
};

} // namespace vdl

// The tables of the platform's own records. The marshaller recognises that of the string by its address: a string is a
// sequence of bytes whose block has one byte more than its length, a NUL.
extern "C" {
extern const vdl::EndianTable __vdl_EndianTable_vdlDeserString_t;
extern const vdl::EndianTable __vdl_EndianTable_vdlDeserBlobString_t;
extern const vdl::EndianTable __vdl_EndianTable_vdlDeserBlobUint32_t;
}
