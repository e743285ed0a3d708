#include <host/marshaller.h>
#include <vdl/endian-table.h>

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using vdl::EndianEntry;
using vdl::EndianTable;

constexpr EndianEntry end{0, 0, EndianEntry::terminator};
const EndianTable* const noTable = nullptr;

const EndianEntry pairEntries[] = {{0, vdl::EndianScalar4, 0}, {4, vdl::EndianScalar2, 0}, end};
const EndianTable pair{6, pairEntries};
const EndianTable samePair{6, pairEntries};

// The error for a table with these entries.
std::string errorOf(std::uint32_t size, const std::vector<EndianEntry>& entries) {
    const EndianTable table{size, entries.data()};
    try {
        host::planOf(table);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    // Compiled plans are cached by table address, so this function must not create a valid table.
    ADD_FAILURE() << "an invalid table was accepted";
    return "";
}

TEST(EndianTable, IsRejectedWithAnEntryOutsideTheRecord) {
    EXPECT_THAT(errorOf(6, {{0, vdl::EndianScalar4, 0}, {4, vdl::EndianScalar4, 0}, end}),
                AllOf(HasSubstr("entry 1 (offset 4, kind 4)"), HasSubstr("outside a record of 6 bytes")));
    EXPECT_THAT(errorOf(4, {{0, vdl::EndianSequence, &pair}, end}), HasSubstr("outside a record of 4 bytes"));
    EXPECT_THAT(errorOf(0, {{0, vdl::EndianScalar1, 0}, end}), HasSubstr("outside a record of 0 bytes"));
    EXPECT_THAT(errorOf(8, {{4, vdl::EndianNested, &pair}, end}),
                HasSubstr("a record of 6 bytes does not fit into one of 8"));
}

TEST(EndianTable, IsRejectedWithEntriesThatOverlapOrAreOutOfOrder) {
    EXPECT_THAT(errorOf(8, {{0, vdl::EndianScalar4, 0}, {3, vdl::EndianScalar4, 0}, end}),
                AllOf(HasSubstr("entry 1 (offset 3, kind 4)"), HasSubstr("before the end of the entry before it")));
    EXPECT_THAT(errorOf(8, {{4, vdl::EndianScalar4, 0}, {0, vdl::EndianScalar4, 0}, end}),
                HasSubstr("entry 1 (offset 0, kind 4)"));
    EXPECT_THAT(errorOf(16, {{0, vdl::EndianNested, &pair}, {5, vdl::EndianScalar1, 0}, end}),
                HasSubstr("entry 1 (offset 5, kind 1)"));
}

TEST(EndianTable, IsRejectedWithAnUnknownKind) {
    for (const std::uint16_t kind : std::initializer_list<std::uint16_t>{0, 5, 0x4048, 0x404A, 0xFFFF})
        EXPECT_THAT(errorOf(8, {{0, kind, 0}, end}), HasSubstr("unknown kind")) << kind;
}

TEST(EndianTable, IsRejectedWithANullTableOrEntryList) {
    EXPECT_THAT(errorOf(8, {{0, vdl::EndianNested, noTable}, end}), HasSubstr("null nested table"));
    EXPECT_THAT(errorOf(8, {{0, vdl::EndianSequence, noTable}, end}), HasSubstr("null nested table"));
    static const EndianTable withoutEntries{4, nullptr};
    EXPECT_THAT(errorOf(8, {{0, vdl::EndianNested, &withoutEntries}, end}),
                AllOf(HasSubstr("entry 0 (offset 0, kind 3)"), HasSubstr("without a list of entries")));
}

TEST(EndianTable, IsRejectedWithElementsOfSizeZero) {
    static const EndianTable nothing{0, &end};
    EXPECT_THAT(errorOf(8, {{0, vdl::EndianSequence, &nothing}, end}), HasSubstr("elements of size 0"));
}

TEST(EndianTable, IsRejectedWithoutATerminator) {
    std::vector<EndianEntry> entries;
    for (std::uint16_t i = 0; i < 5000; ++i) entries.push_back({i, vdl::EndianScalar1, 0});
    EXPECT_THAT(errorOf(5000, entries), HasSubstr("no terminator within 4096 entries"));
}

TEST(EndianTable, IsRejectedWhenItContainsItself) {
    static EndianTable itself{8, nullptr};
    static const EndianEntry sequence[] = {{0, vdl::EndianSequence, &itself}, end};
    static const EndianEntry nested[] = {{0, vdl::EndianNested, &itself}, end};
    for (const EndianEntry* entries : {sequence, nested}) {
        itself.entries = entries;
        try {
            host::planOf(itself);
            ADD_FAILURE();
        } catch (const std::invalid_argument& error) {
            EXPECT_THAT(error.what(), HasSubstr("nesting deeper than 16"));
        }
    }
}

// Each table is a sequence of the one before it.
struct Chain {
    std::array<std::array<EndianEntry, 2>, 18> entries;
    std::array<EndianTable, 18> tables;

    Chain() : entries{make(std::make_index_sequence<18>{})} {
        for (std::size_t i = 0; i < tables.size(); ++i) tables[i] = {8, entries[i].data()};
    }
    template <std::size_t... I> std::array<std::array<EndianEntry, 2>, 18> make(std::index_sequence<I...>) {
        return {std::array{I == 0 ? EndianEntry{0, vdl::EndianScalar4, 0}
                                  : EndianEntry{0, vdl::EndianSequence, &tables[I == 0 ? 0 : I - 1]},
                           end}...};
    }
};

TEST(EndianTable, IsRejectedWhenNestedTooDeeplyWhateverWasCompiledBefore) {
    static const Chain upwards, downwards;
    for (std::size_t i = 0; i < 17; ++i) host::planOf(upwards.tables[i]);
    EXPECT_THROW(host::planOf(upwards.tables[17]), std::invalid_argument);
    EXPECT_THROW(host::planOf(downwards.tables[17]), std::invalid_argument);
    host::planOf(downwards.tables[16]);
    EXPECT_THROW(host::planOf(downwards.tables[17]), std::invalid_argument);
}

TEST(EndianTable, HasOnePlanForAllThreads) {
    const host::Plan* here = &host::planOf(pair);
    const host::Plan* there = nullptr;
    std::thread([&] { there = &host::planOf(pair); }).join();
    EXPECT_EQ(here, there);
    EXPECT_NE(here, &host::planOf(__vdl_EndianTable_vdlDeserString_t));
    EXPECT_EQ(here, &host::planOf(pair));
}

TEST(EndianTable, HasTheFingerprintOfItsLayout) {
    EXPECT_EQ(host::fingerprint(pair), host::fingerprint(samePair));

    static const EndianEntry moved[] = {{0, vdl::EndianScalar4, 0}, {5, vdl::EndianScalar1, 0}, end};
    static const EndianEntry narrower[] = {{0, vdl::EndianScalar4, 0}, {4, vdl::EndianScalar1, 0}, end};
    static const EndianEntry pairs[] = {{0, vdl::EndianSequence, &pair}, end};
    static const EndianEntry strings[] = {{0, vdl::EndianSequence, &__vdl_EndianTable_vdlDeserString_t}, end};
    static const EndianEntry string[] = {{0, vdl::EndianNested, &__vdl_EndianTable_vdlDeserString_t}, end};
    static const EndianEntry words[] = {{0, vdl::EndianNested, &__vdl_EndianTable_vdlDeserBlobUint32_t}, end};
    static const EndianTable tables[] = {{7, pairEntries}, {6, moved},  {6, narrower}, {8, pairs},
                                         {8, strings},     {8, string}, {8, words}};
    std::set<std::uint64_t> fingerprints{host::fingerprint(pair)};
    for (const EndianTable& table : tables)
        EXPECT_TRUE(fingerprints.insert(host::fingerprint(table)).second) << &table - tables;
}

TEST(EndianTable, HasAFingerprintThatDoesNotChange) {
    // Both ends of a connection compute it, perhaps from different builds.
    EXPECT_EQ(host::fingerprint(pair), 0x5C48BE43C65E5381U);
}

} // namespace
