// Endian tables that nobody has looked at, and messages for those that are sound.
#include "budget.h"
#include "support/wire.h"
#include "target.h"
#include "vdl/plan.h"
#include "wire-model.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <unordered_map>
#include <utility>

// Plans are kept by their table's address for the life of a process, but here tables come and go. So each input has a
// compiler of its own, of the same code under another name.
namespace generated {
using namespace host;
}
#define host generated
#include "vdl/plan.cpp"
#undef host

namespace fuzz {
namespace {

constexpr std::size_t mostTables = 8;

class Tables {
public:
    explicit Tables(Source& source) : tables_(1 + source.byte() % mostTables), entries_(tables_.size()) {
        for (std::size_t i = 0; i < tables_.size(); ++i) {
            fillEntries(source, entries_[i]);
            const std::uint8_t size = source.byte();
            tables_[i] = {size < 250 ? size : source.number(4), entries_[i].data()};
        }
    }
    const vdl::EndianTable& first() const { return tables_[0]; }

private:
    void fillEntries(Source& source, std::vector<vdl::EndianEntry>& entries) {
        const std::uint8_t count = source.byte();
        std::uint32_t next = 0;
        for (unsigned i = count % 16U; i > 0; --i) {
            const std::uint8_t choice = source.byte();
            static constexpr std::uint16_t kinds[] = {vdl::EndianScalar1, vdl::EndianScalar2, vdl::EndianScalar4,
                                                      vdl::EndianNested,  vdl::EndianNested,  vdl::EndianSequence,
                                                      vdl::EndianSequence};
            const std::uint16_t kind =
                choice % 8U < 7 ? kinds[choice % 8U] : static_cast<std::uint16_t>(source.number(2));
            // Most entries lie where the one before could end, or sound tables were rare.
            const std::uint32_t offset = (choice & 8) != 0 ? source.number(2) : next;
            const bool scalar = kind == vdl::EndianScalar1 || kind == vdl::EndianScalar2 || kind == vdl::EndianScalar4;
            entries.push_back({static_cast<std::uint16_t>(offset), kind, scalar ? nullptr : table(source)});
            next = offset + (scalar ? kind : 8U);
        }
        if (count >= 250) // too many entries; the list then goes on for ever, as far as anybody may look
            for (std::uint16_t i = 0; i <= 4096; ++i) entries.push_back({i, vdl::EndianScalar1, 0});
        entries.push_back({0, 0, vdl::EndianEntry::terminator});
    }

    const vdl::EndianTable* table(Source& source) const {
        const std::uint8_t choice = source.byte();
        switch (choice % 16) {
            case 12:
                return &__vdl_EndianTable_vdlDeserString_t;
            case 13:
                return &__vdl_EndianTable_vdlDeserBlobString_t;
            case 14:
                return &__vdl_EndianTable_vdlDeserBlobUint32_t;
            case 15:
                return nullptr;
            default:
                return &tables_[choice % tables_.size()];
        }
    }

    std::vector<vdl::EndianTable> tables_;
    std::vector<std::vector<vdl::EndianEntry>> entries_;
};

void checkPlan(const host::Plan& plan) {
    std::uint64_t end = 0;
    for (const auto& step : plan.steps) {
        expect(step.offset >= end, "the steps of a plan ascend");
        end = std::uint64_t{step.offset} + 8;
        expect(end <= plan.size, "a step lies in its record");
        expect(!step.element || step.element->size > 0, "elements have a size");
    }
    for (const auto& scalar : plan.scalars)
        expect(std::uint64_t{scalar.offset} + scalar.width <= plan.size, "a scalar lies in its record");
}

void checkMessage(const vdl::EndianTable& table, const host::Plan& plan, Source source) {
    const bool swap = (source.byte() & 1) != 0;
    const std::string message = textOf(source.rest());
    const bool bigEndian = swap == (std::endian::native == std::endian::little);
    const model::Outcome expected = model::read(table, {}, message, bigEndian);
    const support::FlatBlock block(static_cast<char*>(vdlFlatAlloc(message.size())), vdlFlatFree);
    std::memcpy(block.get(), message.data(), message.size());
    Measure measure;
    const char* refusal = host::unmarshal(plan, block.get(), message.size(), swap);
    measure.check("unmarshalling", message.size(), 0, 24);
    const Pause pause;
    expect(expected.refusal == (refusal ? refusal : ""), "refused as expected: " + expected.refusal);
    if (refusal || swap) return;
    host::Bytes out;
    try {
        host::marshal(plan, block.get(), out, message.size());
    } catch (const std::invalid_argument&) { // a string with a length and no block
        return;
    }
    expect(std::string(out.data(), out.size()) == message, "what arrived is sent on as it was");
}

} // namespace

void tables(Input input) {
    Source source(input);
    const Tables tables(source);
    const host::Plan* plan = nullptr;
    generated::Compiler compiler;
    Measure measure;
    try {
        plan = &compiler.plan(tables.first());
    } catch (const std::invalid_argument& error) {
        const Pause pause;
        expect(std::string(error.what()).starts_with("endian table: "), error.what());
    }
    // A plan's lists grow with the fields of its record, inline records dissolved, and not with the table: a table that
    // is named twice is there twice. Fields do not overlap and begin below 64 KiB in each of the tables around them, so
    // that a plan has 32768 scalars or 8192 steps at most for each level, at 8 and 16 bytes; a list that grows has the
    // former one beside it. As many steps are done.
    constexpr std::size_t fields = mostTables * mostTables * 32768;
    measure.check("compiling a table", input.size() + fields, 0, 64);
    const Pause pause;
    if (!plan) return;
    checkPlan(*plan);
    checkMessage(tables.first(), *plan, source);
}

} // namespace fuzz
