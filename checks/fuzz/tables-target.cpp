// Endian tables that nobody has looked at, and messages for those that are sound.
#include "budget.h"
#include "codec/plan.h"
#include "support/wire.h"
#include "target.h"
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
#include "codec/plan.cpp" // NOLINT(bugprone-suspicious-include): the same code is wanted again
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

// What compiling a table puts into plans, and looks at, until it ends or refuses: inline records are dissolved, so a
// table that is named twice is there twice.
class Work {
public:
    explicit Work(const vdl::EndianTable& table) { compile(table, 0); }

    std::size_t steps = 0, scalars = 0; // of all plans
    std::size_t entries = 0;

private:
    struct Done {
        std::size_t steps = 0, scalars = 0;
        unsigned depth = 0;
    };

    // What one table's plan has, or nothing when it is refused.
    const Done* compile(const vdl::EndianTable& table, unsigned level) {
        if (const auto known = done_.find(&table); known != done_.end()) return &known->second;
        if (level > deepest || !table.entries) return nullptr;
        Done own;
        if (&table == &__vdl_EndianTable_vdlDeserString_t) {
            put(own, 1, 0);
            return &done_.emplace(&table, own).first->second;
        }
        std::uint64_t end = 0;
        for (auto* entry = table.entries; entry->arg.word != vdl::EndianEntry::terminator; ++entry) {
            ++entries;
            if (entry->offset < end || entry == table.entries + mostEntries) return nullptr;
            std::uint64_t size = entry->kind;
            if (entry->kind == vdl::EndianNested || entry->kind == vdl::EndianSequence) {
                if (!entry->arg.table) return nullptr;
                const Done* inner = compile(*entry->arg.table, level + 1);
                if (!inner || inner->depth == deepest) return nullptr;
                own.depth = std::max(own.depth, inner->depth + 1);
                const bool nested = entry->kind == vdl::EndianNested;
                size = nested ? entry->arg.table->size : 8;
                if (nested ? entry->offset + size > table.size : entry->arg.table->size == 0) return nullptr;
                put(own, nested ? inner->steps : 1, nested ? inner->scalars : 0);
            } else if (entry->kind == vdl::EndianScalar2 || entry->kind == vdl::EndianScalar4) {
                put(own, 0, 1);
            } else if (entry->kind != vdl::EndianScalar1) {
                return nullptr;
            }
            end = entry->offset + size;
            if (end > table.size) return nullptr;
        }
        return &done_.emplace(&table, own).first->second;
    }
    void put(Done& own, std::size_t moreSteps, std::size_t moreScalars) {
        own.steps += moreSteps;
        own.scalars += moreScalars;
        steps += moreSteps;
        scalars += moreScalars;
    }

    static constexpr unsigned deepest = 16;
    static constexpr std::ptrdiff_t mostEntries = 4096;
    std::unordered_map<const vdl::EndianTable*, Done> done_;
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
    const Work work(tables.first());
    generated::Compiler compiler;
    Measure measure;
    try {
        plan = &compiler.plan(tables.first());
    } catch (const std::invalid_argument& error) {
        const Pause pause;
        expect(std::string(error.what()).starts_with("endian table: "), error.what());
    }
    // A list that grows has the former one, of half its size, beside it.
    const std::size_t bytes = 3 * (work.steps * sizeof(host::Plan::Step) + work.scalars * sizeof(host::Plan::Scalar));
    const std::size_t parts = work.entries + work.steps + work.scalars;
    // A refusal tells the way to the entry, a piece for each table on it.
    measure.check("compiling a table", input.size(), bytes, 64, 128 * parts);
    const Pause pause;
    if (!plan) return;
    checkPlan(*plan);
    checkMessage(tables.first(), *plan, source);
}

} // namespace fuzz
