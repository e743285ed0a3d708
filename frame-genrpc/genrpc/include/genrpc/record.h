// Declares a record once, as a list of its fields. Everything else is derived from that list: the plain record, the
// serializable form with its packed layout and four operations, the endian table, comparison, dumps.
//
//     #define MY_POINT_FIELDS(FIELD) FIELD(std::int32_t, x) FIELD(std::string, label)
//     #define MY_RECORDS(RECORD) RECORD(Core, MyPoint_t, MY_POINT_FIELDS)
//     MY_RECORDS(GENRPC_RECORD)       // in a header, inside the records' namespace
//     MY_RECORDS(GENRPC_RECORD_TABLE) // in one source file, inside the same namespace
//
// declares MyPoint_t, _MyPoint_t_struct and __vdl_EndianTable_serializable_MyPoint_t. The families are in flat-types.h.
// The list of records can also be used to iterate over all of them.
#pragma once

#include <genrpc/flatten.h>
#include <genrpc/table.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#define GENRPC_EXPORT __attribute__((visibility("default")))

#define GENRPC_PLAIN_FIELD(type, name) type name{};
#define GENRPC_FLAT_FIELD(type, name) ::genrpc::FlatType<type> name;
#define GENRPC_FIELD_ENTRY(type, name) \
    , std::make_tuple(::genrpc::Field{#name, offsetof(Self, name), &Plain::name, &Self::name})

// What a form's default constructor does. A terminal's sets nothing: forms that contain a terminal always assign it
// before they are sent.
#define GENRPC_CLEAR_Core ::genrpc::clearFields(*this);
#define GENRPC_CLEAR_Stream ::genrpc::clearFields(*this);
#define GENRPC_CLEAR_Status ::genrpc::clearFields(*this);
#define GENRPC_CLEAR_Terminal

#define GENRPC_RECORD(family_, Record, FIELDS)                                                                       \
    extern "C" GENRPC_EXPORT const vdl::EndianTable __vdl_EndianTable_serializable_##Record;                         \
    struct _##Record##_struct;                                                                                       \
    struct Record {                                                                                                  \
        using Flat = _##Record##_struct;                                                                             \
        static constexpr const char* recordName = #Record;                                                           \
        FIELDS(GENRPC_PLAIN_FIELD)                                                                                   \
        bool operator==(const Record&) const = default;                                                              \
    };                                                                                                               \
    struct _##Record##_struct {                                                                                      \
        using Self = _##Record##_struct;                                                                             \
        using Plain = Record;                                                                                        \
        static constexpr ::genrpc::Family family = ::genrpc::Family::family_;                                        \
        static constexpr auto fields() { return std::tuple_cat(std::tuple<>() FIELDS(GENRPC_FIELD_ENTRY)); }         \
        FIELDS(GENRPC_FLAT_FIELD)                                                                                    \
        _##Record##_struct(){GENRPC_CLEAR_##family_} _##Record##_struct(const Record& from) : _##Record##_struct() { \
            ::genrpc::construct(from, *this);                                                                        \
        }                                                                                                            \
        _##Record##_struct& operator=(const Record& from) {                                                          \
            ::genrpc::assign(from, *this);                                                                           \
            return *this;                                                                                            \
        }                                                                                                            \
        operator Record() const { return ::genrpc::plainOf(*this); }                                                 \
        static constexpr const vdl::EndianTable* table() { return &__vdl_EndianTable_serializable_##Record; }        \
    };

#define GENRPC_RECORD_TABLE(family_, Record, FIELDS)                                                   \
    static_assert(alignof(_##Record##_struct) == 1, "a form has no padding");                          \
    static_assert(::genrpc::keepsToItsFamily<_##Record##_struct>(), "flags are stream records' only"); \
    namespace tables {                                                                                 \
    static constexpr auto Record##_entries = ::genrpc::entriesOf<_##Record##_struct>();                \
    }                                                                                                  \
    extern "C" constinit const vdl::EndianTable __vdl_EndianTable_serializable_##Record = {            \
        sizeof(_##Record##_struct), tables::Record##_entries.data()};
