// Maps the plain type of a field to its flat type.
#pragma once

#include <vdl/endian-table.h>
#include <vdl/flat.h>

#include <cstddef>
#include <string>
#include <type_traits>
#include <vector>

namespace genrpc {

// The families of records; they differ in how values are assigned to their flat forms.
enum class Family {
    Core,     // releases only string lists before assignment
    Stream,   // releases every buffer before assignment; a bool is sent as a 32-bit word
    Status,   // as Core
    Terminal, // like Core; its default constructor sets nothing
};

// A list of records: count, then a pointer to count consecutive forms, null when empty.
template <class E> struct Sequence {
    vdl::Word<std::uint32_t> count;
    vdl::FlatPtr<E> data;
};

// A bool that is sent as a 32-bit word: 0 or 1. Any received non-zero word is true.
struct WideBool {
    vdl::Word<std::uint32_t> word;

    WideBool() = default;
    explicit WideBool(bool value) : word(value ? 1U : 0U) {}
    operator bool() const { return word != 0; }
};
inline void clear(WideBool& flag) { flag.word = 0; }
inline void release(WideBool&) {}

// A serializable form, as GENRPC_RECORD defines it.
template <class F>
concept Form = requires {
    typename F::Plain;
};

template <class Plain> struct FlatTypeOf {
    // Scalars and enumerations; a record names its own form.
    static auto type() {
        if constexpr (std::is_class_v<Plain>) {
            return std::type_identity<typename Plain::Flat>{};
        } else {
            static_assert(sizeof(Plain) <= 4, "no wider scalars on the wire");
            return std::type_identity<vdl::Word<Plain>>{};
        }
    }
    using Type = typename decltype(type())::type;
};
template <> struct FlatTypeOf<bool> { using Type = WideBool; };
template <> struct FlatTypeOf<std::string> { using Type = vdlDeserString_t; };
template <> struct FlatTypeOf<std::vector<std::string>> { using Type = vdlDeserBlobString_t; };
template <> struct FlatTypeOf<std::vector<std::uint32_t>> { using Type = vdlDeserBlobUint32_t; };
template <class R> struct FlatTypeOf<std::vector<R>> { using Type = Sequence<typename R::Flat>; };

template <class Plain> using FlatType = typename FlatTypeOf<Plain>::Type;

// One field of a record: its name and its position in both forms.
template <class P, class F> struct Field {
    const char* name;
    std::size_t offset; // in the flat form
    P plain;            // pointers to members
    F flat;
};
template <class P, class F> Field(const char*, std::size_t, P, F) -> Field<P, F>;

} // namespace genrpc
