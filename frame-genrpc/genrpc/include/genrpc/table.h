// Endian tables of flat types, which the compiler derives from the same field lists as the forms.
#pragma once

#include <genrpc/flat-types.h>

#include <array>
#include <tuple>

namespace genrpc {

// The entry of a flat type in a table.
struct TableCell {
    vdl::EndianKind kind;
    vdl::EndianEntry::Arg arg;
};

template <class F> struct CellOf;
template <class T> struct CellOf<vdl::Word<T>> {
    static constexpr TableCell cell{static_cast<vdl::EndianKind>(sizeof(T)), std::uintptr_t{0}};
};
template <> struct CellOf<WideBool> { static constexpr TableCell cell{vdl::EndianScalar4, std::uintptr_t{0}}; };
template <> struct CellOf<vdlDeserString_t> {
    static constexpr TableCell cell{vdl::EndianNested, &__vdl_EndianTable_vdlDeserString_t};
};
template <> struct CellOf<vdlDeserBlobString_t> {
    static constexpr TableCell cell{vdl::EndianNested, &__vdl_EndianTable_vdlDeserBlobString_t};
};
template <> struct CellOf<vdlDeserBlobUint32_t> {
    static constexpr TableCell cell{vdl::EndianNested, &__vdl_EndianTable_vdlDeserBlobUint32_t};
};
template <Form F> struct CellOf<F> { static constexpr TableCell cell{vdl::EndianNested, F::table()}; };
template <class E> struct CellOf<Sequence<E>> { static constexpr TableCell cell{vdl::EndianSequence, E::table()}; };

constexpr vdl::EndianEntry entryOf(std::size_t offset, TableCell cell) {
    return {static_cast<std::uint16_t>(offset), cell.kind, cell.arg};
}
inline constexpr vdl::EndianEntry endOfTable{0, 0, vdl::EndianEntry::terminator};

template <class Pointer> struct MemberType;
template <class M, class C> struct MemberType<M C::*> { using Type = M; };

// The entries of a form's table.
template <Form F> constexpr auto entriesOf() {
    return std::apply(
        [](const auto&... field) {
            return std::array{entryOf(field.offset, CellOf<typename MemberType<decltype(field.flat)>::Type>::cell)...,
                              endOfTable};
        },
        F::fields());
}

// Only stream records may have flags: they send a bool as a word. For the other families no form is defined.
template <Form F> constexpr bool keepsToItsFamily() {
    return F::family == Family::Stream ||
           std::apply(
               [](const auto&... field) {
                   return (!std::is_same_v<typename MemberType<decltype(field.flat)>::Type, WideBool> && ...);
               },
               F::fields());
}

// The table of a list as the body of a message: one sequence, in a record of its own.
template <class E> struct ListTable {
    static constexpr std::array entries{entryOf(0, CellOf<Sequence<E>>::cell), endOfTable};
    static constexpr vdl::EndianTable table{sizeof(Sequence<E>), entries.data()};
};

} // namespace genrpc
