#include "plan.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread-safety/mutex.h>
#include <unordered_map>
#include <utility>

namespace host {
namespace {

constexpr unsigned deepest = 16;
constexpr std::size_t mostEntries = 4096;
constexpr std::uint32_t sequenceSize = 8; // count and pointer

// The entries that lead to the table being compiled, for error texts.
struct Path {
    const Path* parent;
    std::size_t index;
    const vdl::EndianEntry* entry;

    std::string text() const {
        return (parent ? parent->text() : "") + "entry " + std::to_string(index) + " (offset " +
               std::to_string(entry->offset) + ", kind " + std::to_string(entry->kind) + "): ";
    }
};

[[noreturn]] void refuse(const Path* path, const std::string& why) {
    throw std::invalid_argument("endian table: " + (path ? path->text() : "") + why);
}

// FNV-1a over the same bytes on every machine.
class Hash {
public:
    template <class T> void add(T value) {
        for (unsigned shift = 0; shift < 8 * sizeof(T); shift += 8) {
            state_ ^= (value >> shift) & 0xFF;
            state_ *= 0x100000001b3;
        }
    }
    std::uint64_t value() const { return state_; }

private:
    std::uint64_t state_ = 0xcbf29ce484222325;
};

bool isTerminator(const vdl::EndianEntry& entry) {
    return entry.offset == 0 && entry.kind == 0 && entry.arg.word == vdl::EndianEntry::terminator;
}

// Tables from all over the process refer to each other, so they share one cache.
class Compiler {
public:
    const Plan& plan(const vdl::EndianTable& table) TVSA_EXCLUDES(mutex_) {
        thread_safety::LockGuard lock(mutex_);
        return compiled(table, nullptr, 0);
    }

private:
    const Plan& compiled(const vdl::EndianTable& table, const Path* path, unsigned level) TVSA_REQUIRES(mutex_) {
        if (const auto known = plans_.find(&table); known != plans_.end()) return *known->second;
        if (level > deepest) refuse(path, "nesting deeper than " + std::to_string(deepest));
        auto plan = std::make_unique<Plan>(&table == &__vdl_EndianTable_vdlDeserString_t ? stringPlan()
                                                                                         : compile(table, path, level));
        return *plans_.emplace(&table, std::move(plan)).first->second;
    }

    // A string differs from other sequences of bytes by the terminator, which its table does not show.
    static Plan stringPlan() {
        Plan plan;
        plan.size = sequenceSize;
        plan.fingerprint = 0x737472696e67; // "string"
        plan.steps.push_back({0, nullptr});
        return plan;
    }

    Plan compile(const vdl::EndianTable& table, const Path* path, unsigned level) TVSA_REQUIRES(mutex_) {
        if (table.entries == nullptr) refuse(path, "a table without a list of entries");
        Plan plan;
        plan.size = table.size;
        Hash hash;
        hash.add(table.size);
        std::uint64_t end = 0; // of the previous entry
        for (std::size_t i = 0; !isTerminator(table.entries[i]); ++i) {
            const vdl::EndianEntry& entry = table.entries[i];
            const Path here{path, i, &entry};
            if (i == mostEntries) refuse(path, "no terminator within " + std::to_string(mostEntries) + " entries");
            if (entry.offset < end) refuse(&here, "begins before the end of the entry before it");
            hash.add(entry.offset);
            hash.add(entry.kind);
            end = entry.offset + std::uint64_t{addEntry(plan, hash, here, level)};
            if (end > table.size) refuse(&here, "outside a record of " + std::to_string(table.size) + " bytes");
        }
        plan.fingerprint = hash.value();
        return plan;
    }

    // Returns the size of the field.
    std::uint32_t addEntry(Plan& plan, Hash& hash, const Path& here, unsigned level) TVSA_REQUIRES(mutex_) {
        const vdl::EndianEntry& entry = *here.entry;
        switch (entry.kind) {
            case vdl::EndianScalar1:
                return 1;
            case vdl::EndianScalar2:
            case vdl::EndianScalar4:
                plan.scalars.push_back({entry.offset, entry.kind});
                return entry.kind;
            case vdl::EndianNested: {
                const Plan& inner = innerPlan(plan, hash, here, level);
                // Also checked here, so that the offsets below fit into 32 bits.
                if (entry.offset + std::uint64_t{inner.size} > plan.size)
                    refuse(&here, "a record of " + std::to_string(inner.size) + " bytes does not fit into one of " +
                                      std::to_string(plan.size));
                for (const auto& [offset, element] : inner.steps)
                    plan.steps.push_back({entry.offset + offset, element});
                for (const auto& [offset, width] : inner.scalars)
                    plan.scalars.push_back({entry.offset + offset, width});
                return inner.size;
            }
            case vdl::EndianSequence: {
                const Plan& element = innerPlan(plan, hash, here, level);
                if (element.size == 0) refuse(&here, "elements of size 0");
                plan.steps.push_back({entry.offset, &element});
                return sequenceSize;
            }
            default:
                refuse(&here, "unknown kind");
        }
    }

    const Plan& innerPlan(Plan& plan, Hash& hash, const Path& here, unsigned level) TVSA_REQUIRES(mutex_) {
        if (here.entry->arg.table == nullptr) refuse(&here, "null nested table");
        const Plan& inner = compiled(*here.entry->arg.table, &here, level + 1);
        plan.depth = std::max(plan.depth, inner.depth + 1);
        if (plan.depth > deepest) refuse(&here, "nesting deeper than " + std::to_string(deepest));
        hash.add(inner.fingerprint);
        return inner;
    }

    thread_safety::Mutex mutex_;
    std::unordered_map<const vdl::EndianTable*, std::unique_ptr<const Plan>> plans_ TVSA_GUARDED_BY(mutex_);
};

} // namespace

const Plan& planOf(const vdl::EndianTable& table) {
    // A thread usually needs the plan of the same table again. These variables are in the initial thread-local block,
    // where reading them takes one instruction each.
    [[gnu::tls_model("initial-exec")]] constinit static thread_local const vdl::EndianTable* lastTable = nullptr;
    [[gnu::tls_model("initial-exec")]] constinit static thread_local const Plan* lastPlan = nullptr;
    if (lastTable != &table) {
        static Compiler& compiler = *new Compiler; // never destroyed: plans are used until the process ends
        lastPlan = &compiler.plan(table);
        lastTable = &table;
    }
    return *lastPlan;
}

std::uint64_t fingerprint(const vdl::EndianTable& table) { return planOf(table).fingerprint; }

} // namespace host
