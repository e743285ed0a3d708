// Converts between plain and flat forms, for every type that a field or a message argument can have. All serializable
// forms share this code; the flat memory comes from a Blocks policy: single heap blocks, or the region of one message.
#pragma once

#include <genrpc/flat-region.h>
#include <genrpc/flat-types.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace genrpc {

// Allocates every block separately; to be freed with vdlFlatFree.
struct HeapBlocks {
    static char* allocate(std::size_t bytes) { return static_cast<char*>(vdlFlatAlloc(bytes)); }
};

// A form's list of fields as a constant, so that iterating over it is as fast as naming each field.
template <class Flat> inline constexpr auto fieldsOf = std::remove_const_t<Flat>::fields();

// Calls visit(field, plain.field, flat.field) for each field, in order.
template <class Plain, class Flat, class Visit>
[[gnu::always_inline]] inline void eachField(Plain& plain, Flat& flat, Visit&& visit) {
    std::apply(
        [&](const auto&... field)
            __attribute__((always_inline)) { (visit(field, plain.*field.plain, flat.*field.flat), ...); },
        fieldsOf<Flat>);
}
// Calls visit(field, flat.field) for each field, in order.
template <class Flat, class Visit> [[gnu::always_inline]] inline void eachFlatField(Flat& flat, Visit&& visit) {
    std::apply(
        [&](const auto&... field) __attribute__((always_inline)) { (visit(field, flat.*field.flat), ...); },
        fieldsOf<Flat>);
}

// ---- setting to zero: what a form's default constructor does ----

template <class T> void clear(vdl::Word<T>& word) { word = T{}; }
inline void clear(vdlDeserString_t& string) { string = {0, nullptr}; }
inline void clear(vdlDeserBlobString_t& list) { list = {0, nullptr}; }
inline void clear(vdlDeserBlobUint32_t& list) { list = {0, nullptr}; }
template <class E> void clear(Sequence<E>& sequence) { sequence = {0, nullptr}; }
// A nested form has been set by its own constructor; a terminal's sets nothing.
template <Form F> void clear(F&) {}

template <Form F> void clearFields(F& form) {
    eachFlatField(form, [](const auto&, auto& flat) { clear(flat); });
}

// ---- releasing the heap blocks that a form owns ----

template <class T> void release(vdl::Word<T>&) {}
inline void release(vdlDeserString_t& string) {
    vdlFlatFree(string.data);
    clear(string);
}
inline void release(vdlDeserBlobString_t& list) {
    if (list.data)
        for (std::uint32_t i = 0; i < list.count; ++i) release(list.data[i]);
    vdlFlatFree(list.data);
    clear(list);
}
inline void release(vdlDeserBlobUint32_t& list) {
    vdlFlatFree(list.data);
    clear(list);
}
template <Form F> void release(F& form) {
    eachFlatField(form, [](const auto&, auto& flat) { release(flat); });
}
template <class E> void release(Sequence<E>& sequence) {
    if (sequence.data)
        for (std::uint32_t i = 0; i < sequence.count; ++i) release(sequence.data[i]);
    vdlFlatFree(sequence.data);
    clear(sequence);
}

// ---- plain to flat. Never reads the previous content of `to`. ----

// Copies n bytes. Short strings, the usual case, need only inline moves and no library call.
inline void copyBytes(char* to, const char* from, std::size_t n) {
    if (n > 16) {
        std::memcpy(to, from, n);
    } else if (n >= 8) {
        std::uint64_t head, tail;
        std::memcpy(&head, from, 8);
        std::memcpy(&tail, from + n - 8, 8);
        std::memcpy(to, &head, 8);
        std::memcpy(to + n - 8, &tail, 8);
    } else if (n >= 4) {
        std::uint32_t head, tail;
        std::memcpy(&head, from, 4);
        std::memcpy(&tail, from + n - 4, 4);
        std::memcpy(to, &head, 4);
        std::memcpy(to + n - 4, &tail, 4);
    } else if (n > 0) {
        const char first = from[0], middle = from[n / 2], last = from[n - 1];
        to[0] = first;
        to[n / 2] = middle;
        to[n - 1] = last;
    }
}

// Allocates an array of count flat elements for the caller to fill. On the heap its bytes are all zero, so that a
// partly filled array can be released; a region is released as a whole.
template <class E, class Blocks> E* newArray(std::size_t count, Blocks& blocks) {
    if (count > UINT32_MAX / sizeof(E)) throw std::bad_alloc();
    void* const array = blocks.allocate(count * sizeof(E));
    if constexpr (std::is_same_v<Blocks, HeapBlocks>) std::memset(array, 0, count * sizeof(E));
    return static_cast<E*>(array);
}

template <class T, class Blocks> void flatten(const T& from, vdl::Word<T>& to, Blocks&) { to = from; }
template <class Blocks> void flatten(bool from, WideBool& to, Blocks&) { to = WideBool{from}; }
template <class Blocks>
[[gnu::always_inline]] inline void flatten(const std::string& from, vdlDeserString_t& to, Blocks& blocks) {
    const std::size_t length = from.size();
    if (length >= UINT32_MAX) throw std::bad_alloc();
    char* copy = blocks.allocate(length + 1);
    copyBytes(copy, from.data(), length);
    copy[length] = '\0';
    to = {static_cast<std::uint32_t>(length), copy};
}
template <class Blocks> void flatten(const std::vector<std::uint32_t>& from, vdlDeserBlobUint32_t& to, Blocks& blocks) {
    clear(to);
    if (from.empty()) return;
    auto* words = newArray<vdl::Word<std::uint32_t>>(from.size(), blocks);
    std::memcpy(words, from.data(), from.size() * sizeof(std::uint32_t));
    to = {static_cast<std::uint32_t>(from.size()), words};
}
template <class Blocks> void flatten(const std::vector<std::string>& from, vdlDeserBlobString_t& to, Blocks& blocks) {
    clear(to);
    if (from.empty()) return;
    to = {static_cast<std::uint32_t>(from.size()), newArray<vdlDeserString_t>(from.size(), blocks)};
    for (std::size_t i = 0; i < from.size(); ++i) flatten(from[i], to.data[i], blocks);
}
template <Form F, class Blocks> void flatten(const typename F::Plain& from, F& to, Blocks& blocks) {
    eachField(from, to, [&](const auto&, const auto& plain, auto& flat) { flatten(plain, flat, blocks); });
}
template <class E, class Blocks>
void flatten(const std::vector<typename E::Plain>& from, Sequence<E>& to, Blocks& blocks) {
    clear(to);
    if (from.empty()) return;
    to = {static_cast<std::uint32_t>(from.size()), newArray<E>(from.size(), blocks)};
    for (std::size_t i = 0; i < from.size(); ++i) flatten(from[i], to.data[i], blocks);
}

// ---- flat to plain. Does not check counts and pointers: the marshaller has validated received data. Every value is
// constructed in place, which costs less than assigning to an empty one. ----

template <class T> T plainOf(const vdl::Word<T>& from) { return from; }
inline bool plainOf(const WideBool& from) { return from; }
// The number of elements of a list; 0 without an array.
template <class List> std::uint32_t countOf(const List& list) {
    if (!list.data) return 0;
    return list.count;
}
// Uses the length and does not look for a terminator.
inline std::string plainOf(const vdlDeserString_t& from) {
    if (!from.data) return {};
    return std::string(from.data, from.length);
}
inline std::vector<std::uint32_t> plainOf(const vdlDeserBlobUint32_t& from) {
    std::vector<std::uint32_t> words(countOf(from));
    for (std::size_t i = 0; i < words.size(); ++i) words[i] = from.data[i];
    return words;
}
inline std::vector<std::string> plainOf(const vdlDeserBlobString_t& from) {
    std::vector<std::string> texts;
    const std::uint32_t count = countOf(from);
    texts.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) texts.push_back(plainOf(from.data[i]));
    return texts;
}
template <Form F> typename F::Plain plainOf(const F& from) {
    return std::apply([&](const auto&... field) { return typename F::Plain{plainOf(from.*field.flat)...}; },
                      fieldsOf<F>);
}
// Returns count if it is at most `most`; otherwise throws like a vector.
inline std::uint32_t countWithin(std::uint32_t count, std::size_t most) {
    if (count > most) throw std::length_error("cannot create std::vector larger than max_size()");
    return count;
}
// The maximum number of elements for which both a sequence's array and its vector fit into an address space. With more,
// the pointer to its end would wrap around where pointers have 32 bits.
template <class E> constexpr std::size_t largestCount(std::size_t addressable = PTRDIFF_MAX) {
    return addressable / std::max(sizeof(E), sizeof(typename E::Plain));
}
// Converts the elements one after the other. Throws std::length_error for a count that no vector can hold.
template <class E> std::vector<typename E::Plain> plainOf(const Sequence<E>& from) {
    const E* const first = from.data;
    return std::vector<typename E::Plain>(first, first + countWithin(countOf(from), largestCount<E>()));
}

// ---- assigning to a form that may already have a value ----

// Releases the family's blocks before an assignment. Core and status forms are meant to be assigned to only once: they
// release a string list but not single strings.
template <Family family, class T> void releaseBeforeAssignment(T& flat) {
    if constexpr (family == Family::Stream || std::is_same_v<T, vdlDeserBlobString_t>) release(flat);
}

template <Form F> void assign(const typename F::Plain& from, F& to) {
    HeapBlocks blocks;
    eachField(from, to, [&]<class T>(const auto&, const auto& plain, T& flat) {
        if constexpr (Form<T>) {
            flat = plain;
        } else {
            releaseBeforeAssignment<F::family>(flat);
            flatten(plain, flat, blocks);
        }
    });
}

// Implements the converting constructor: form is still empty; if memory runs out, releases what has been built.
template <Form F> void construct(const typename F::Plain& from, F& form) {
    HeapBlocks blocks;
    try {
        flatten(from, form, blocks);
    } catch (...) {
        release(form);
        throw;
    }
}

} // namespace genrpc
