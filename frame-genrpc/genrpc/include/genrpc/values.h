// Names for the numbers that fields and arguments carry, and the meaning of every field and argument.
#pragma once

#include <cstdint>
#include <limits>
#include <span>

namespace genrpc {

// A number with a known meaning.
struct Value {
    std::int32_t number;
    const char* name;
    const char* meaning;
};

// Numbers that belong together.
struct Enumeration {
    const char* name;  // in C++ and in JSON: "tunerStates"
    const char* title; // for people: "Tuner states"
    const char* about;
    std::span<const Value> values;
};

// The value with this number, or null.
constexpr const Value* find(const Enumeration& enumeration, std::int64_t number) {
    for (const Value& value : enumeration.values)
        if (value.number == number) return &value;
    return nullptr;
}

// The name of a number; "unknown" for one that is not in the enumeration.
constexpr const char* nameOf(const Enumeration& enumeration, std::int64_t number) {
    const Value* const value = find(enumeration, number);
    return value ? value->name : "unknown";
}

// What a field of a record, or an argument of a message, means.
struct Meaning {
    const char* field;
    const char* text;
    const Enumeration* values = nullptr; // of its numbers, if they have names
    std::int32_t least = anyNumber;      // the lowest number that a request may reasonably carry

    static constexpr std::int32_t anyNumber = std::numeric_limits<std::int32_t>::min();
};

} // namespace genrpc

// Defines an enumeration and a constant for each of its numbers, in a namespace of their own. VALUES: a list of
// VALUE(number, constant, name, meaning).
#define GENRPC_ENUMERATION(constants, enumeration, title, about, VALUES)           \
    namespace constants {                                                          \
    VALUES(GENRPC_VALUE_CONSTANT)                                                  \
    inline constexpr ::genrpc::Value namedValues[] = {VALUES(GENRPC_NAMED_VALUE)}; \
    }                                                                              \
    inline constexpr ::genrpc::Enumeration enumeration{#enumeration, title, about, constants::namedValues};

#define GENRPC_VALUE_CONSTANT(number, constant, name, meaning) inline constexpr std::int32_t constant = number;
#define GENRPC_NAMED_VALUE(number, constant, name, meaning) {number, name, meaning},
