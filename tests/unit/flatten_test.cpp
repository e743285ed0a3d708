// The parts of flat forms: bytes, arrays and regions. Also: what happens when flat memory runs out.
#include "support/test-where.h"
#include "support/tv-messages.h"

#include <genrpc/flatten.h>
#include <host/marshaller.h>

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <new>
#include <schema/samples.h>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace tvservice;

TEST(CopyBytes, CopiesExactlyTheGivenLength) {
    for (std::size_t length = 0; length <= 40; ++length) {
        std::string from;
        for (std::size_t i = 0; i < length; ++i) from += static_cast<char>('A' + i);
        std::string to(length + 16, '-');
        genrpc::copyBytes(to.data() + 8, from.data(), length);
        EXPECT_EQ(to, std::string(8, '-') + from + std::string(8, '-')) << length << " bytes";
    }
}

// Allocates nothing, and records how much was requested.
struct WantedBlocks {
    std::size_t wanted = 0;
    char* allocate(std::size_t bytes) {
        wanted = bytes;
        return nullptr;
    }
};

TEST(NewArray, RejectsASizeThatDoesNotFitIntoFlatMemory) {
    constexpr std::size_t most = UINT32_MAX / sizeof(vdlDeserString_t);
    WantedBlocks blocks;
    genrpc::newArray<vdlDeserString_t>(most, blocks);
    EXPECT_EQ(blocks.wanted, most * sizeof(vdlDeserString_t));
    EXPECT_THROW((void)genrpc::newArray<vdlDeserString_t>(most + 1, blocks), std::bad_alloc);
    EXPECT_THROW((void)genrpc::newArray<vdlDeserString_t>(SIZE_MAX, blocks), std::bad_alloc);
    EXPECT_EQ(blocks.wanted, most * sizeof(vdlDeserString_t)) << "requested, but not allocated";
}

TEST(NewArray, IsZeroedOnTheHeapSoThatItMayBeReleasedHalfFilled) {
    genrpc::HeapBlocks blocks;
    constexpr std::size_t count = 50;
    void* const before = vdlFlatAlloc(count * sizeof(vdlDeserString_t)); // so that the array may reuse this block
    std::fill_n(static_cast<char*>(before), count * sizeof(vdlDeserString_t), '\xAA');
    vdlFlatFree(before);
    auto* const array = genrpc::newArray<vdlDeserString_t>(count, blocks);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(array), count * sizeof *array),
              std::string(count * sizeof *array, '\0'));
    vdlFlatFree(array);
}

TEST(FlatForm, HoldsNoListAfterItsRelease) {
    support::forEach(support::StreamRecords{}, []<class Record>() {
        typename Record::Flat form(schema::Samples().next<Record>());
        genrpc::release(form);
        genrpc::eachFlatField(form, []<class T>(const auto& field, const T& flat) {
            if constexpr (requires { flat.count; }) {
                EXPECT_EQ(flat.count, 0U) << field.name;
                EXPECT_EQ(flat.data.get(), nullptr) << field.name;
            }
        });
    });
    _TvServiceReq_t_struct form(schema::Samples().next<TvServiceReq_t>());
    genrpc::release(form);
    EXPECT_EQ(form.strParamList.count, 0U);
    EXPECT_EQ(form.strParamList.data.get(), nullptr);
    EXPECT_EQ(form.uri.length, 0U);
    EXPECT_EQ(form.uri.data.get(), nullptr);
}

template <class Record> void expectAssigned() {
    const auto record = schema::Samples().next<Record>();
    const auto before = host::flatHeapUsage().blocks;
    typename Record::Flat made(record);
    const auto needed = host::flatHeapUsage().blocks - before;
    typename Record::Flat form;
    form = record;
    EXPECT_TRUE(static_cast<Record>(made) == record);
    EXPECT_TRUE(static_cast<Record>(form) == record);
    EXPECT_EQ(host::flatHeapUsage().blocks, before + 2 * needed);
    genrpc::release(made);
    genrpc::release(form);
    EXPECT_EQ(host::flatHeapUsage().blocks, before);
}

TEST(FlatForm, HoldsAnAssignedRecordInAsManyBlocksAsAConstructedOne) {
    const auto expect = []<class Record>() { expectAssigned<Record>(); };
    support::forEach(support::CoreRecords{}, expect);
    support::forEach(support::StreamRecords{}, expect);
    support::forEach(support::StatusRecords{}, expect);
}

using FlatFormInALimit = testing::Test;

TEST_F_WHERE(support::flatMemoryIsLimited, FlatFormInALimit, ReleasesEverythingWhenConstructionRunsOutOfFlatMemory) {
    std::vector<void*> taken;
    for (std::size_t size = std::size_t{1} << 20; size >= 16; size /= 2) {
        try {
            for (;;) taken.push_back(vdlFlatAlloc(size));
        } catch (const std::bad_alloc&) {
        }
    }
    // Each round has room for one more string, the last one for the whole form.
    const auto sample = schema::Samples().next<TvServiceReq_t>();
    bool made = false;
    while (!made && !taken.empty()) {
        const auto before = host::flatHeapUsage().blocks;
        try {
            _TvServiceReq_t_struct form(sample);
            made = true;
            EXPECT_TRUE(static_cast<TvServiceReq_t>(form) == sample);
            genrpc::release(form);
        } catch (const std::bad_alloc&) {
        }
        EXPECT_EQ(host::flatHeapUsage().blocks, before);
        vdlFlatFree(taken.back());
        taken.pop_back();
    }
    EXPECT_TRUE(made);
    for (void* block : taken) vdlFlatFree(block);
}

TEST(FlatSequence, ThrowsALengthErrorForTooManyElements) {
    EXPECT_EQ(genrpc::countWithin(5, 5), 5U);
    try {
        (void)genrpc::countWithin(6, 5);
        ADD_FAILURE() << "a longer list than a vector can be";
    } catch (const std::length_error& error) {
        EXPECT_STREQ(error.what(), "cannot create std::vector larger than max_size()");
    }
    // In a 32-bit address space neither the array nor the vector of this size may exceed the address space.
    const auto expect = []<class Record>() {
        using Flat = typename Record::Flat;
        const std::uint64_t most = genrpc::largestCount<Flat>(INT32_MAX);
        EXPECT_LE(most * sizeof(Flat), std::uint64_t{INT32_MAX});
        EXPECT_LE(most * sizeof(Record), std::uint64_t{INT32_MAX});
        EXPECT_GT((most + 1) * std::max(sizeof(Flat), sizeof(Record)), std::uint64_t{INT32_MAX});
        EXPECT_LE(genrpc::largestCount<Flat>(), std::vector<Record>().max_size());
        if constexpr (sizeof(void*) == sizeof(std::uint32_t)) {
            Flat one(Record{});
            genrpc::Sequence<Flat> sequence;
            for (const std::uint32_t count : {static_cast<std::uint32_t>(most) + 1, INT32_MAX + 1U, UINT32_MAX}) {
                sequence = {count, &one};
                EXPECT_THROW((void)genrpc::plainOf(sequence), std::length_error) << count;
            }
            genrpc::release(one);
        }
    };
    support::forEach(support::CoreRecords{}, expect);
    support::forEach(support::StreamRecords{}, expect);
    support::forEach(support::StatusRecords{}, expect);
}

TEST(FlatRegion, ReturnsBlocksThatDoNotOverlapAndDoublesItsMemory) {
    const auto before = host::flatHeapUsage().blocks;
    auto region = genrpc::FlatRegion::create(1000);
    std::vector<std::pair<char*, std::size_t>> places;
    std::vector<std::uint64_t> blocks;
    const auto take = [&](std::size_t bytes) {
        places.emplace_back(region->allocate(bytes), bytes);
        std::fill_n(places.back().first, bytes, static_cast<char>(places.size()));
        blocks.push_back(host::flatHeapUsage().blocks - before);
    };
    for (int i = 0; i < 20; ++i) take(470);
    take(20000); // more than twice the previous memory
    take(10);
    const std::vector<std::uint64_t> expected{1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 5, 6};
    EXPECT_EQ(blocks, expected);
    for (std::size_t i = 0; i < places.size(); ++i)
        EXPECT_EQ(std::string(places[i].first, places[i].second),
                  std::string(places[i].second, static_cast<char>(i + 1)))
            << i;
    region.reset();
    EXPECT_EQ(host::flatHeapUsage().blocks, before);
}

TEST(FlatRegion, HasRoomForAMessageEvenIfLittleIsRequested) {
    const auto before = host::flatHeapUsage().blocks;
    auto region = genrpc::FlatRegion::create(0);
    region->allocate(256); // fills it to the last byte
    EXPECT_EQ(host::flatHeapUsage().blocks, before + 1);
    region->allocate(1);
    EXPECT_EQ(host::flatHeapUsage().blocks, before + 2);
    region.reset();
}

} // namespace
