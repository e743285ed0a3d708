// The layouts of flat forms: offsets for static checks, endian tables as text.
#pragma once

#include "support/tv-messages.h"

#include <gtest/gtest.h>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>

namespace support {

struct Place {
    std::string_view field;
    std::size_t offset;
};

// Whether a record's form has this size, and exactly these fields at these offsets, in this order.
template <class Record> constexpr bool hasLayout(std::size_t size, std::initializer_list<Place> places) {
    const Place* place = places.begin();
    const bool same = std::apply(
        [&](const auto&... field) {
            return sizeof...(field) == places.size() &&
                   ((field.name == place->field && field.offset == (place++)->offset) && ...);
        },
        Record::Flat::fields());
    return same && sizeof(typename Record::Flat) == size;
}

// The names of the tables in texts.
inline const std::map<const vdl::EndianTable*, std::string>& tableNames() {
    static const auto* const names = [] {
        auto* made =
            new std::map<const vdl::EndianTable*, std::string>{{&__vdl_EndianTable_vdlDeserString_t, "string"},
                                                               {&__vdl_EndianTable_vdlDeserBlobString_t, "strings"},
                                                               {&__vdl_EndianTable_vdlDeserBlobUint32_t, "words"}};
        const auto add = [&]<class Record>() { made->insert({Record::Flat::table(), Record::recordName}); };
        forEach(CoreRecords{}, add);
        forEach(StreamRecords{}, add);
        forEach(StatusRecords{}, add);
        return made;
    }();
    return *names;
}

// A table as text, "size: offset=kind ...": scalars by their width, records by their name, "[...]" for a sequence of
// them, "(...)" for a table without a name.
inline std::string textOf(const vdl::EndianTable& table) {
    std::string text = std::to_string(table.size) + ":";
    const vdl::EndianEntry* entry = table.entries;
    for (; entry->arg.word != vdl::EndianEntry::terminator; ++entry) {
        text += " " + std::to_string(entry->offset) + "=";
        if (entry->kind != vdl::EndianNested && entry->kind != vdl::EndianSequence) {
            EXPECT_EQ(entry->arg.word, 0U);
            text += std::to_string(entry->kind);
            continue;
        }
        const auto name = tableNames().find(entry->arg.table);
        const std::string nested = name != tableNames().end() ? name->second : "(" + textOf(*entry->arg.table) + ")";
        text += entry->kind == vdl::EndianSequence ? "[" + nested + "]" : nested;
    }
    EXPECT_EQ(entry->offset, 0) << "the terminator's offset";
    EXPECT_EQ(entry->kind, 0) << "the terminator's kind";
    return text;
}

} // namespace support
