// Tries every message at its edges: boundary-cases GOLDEN_FOLDER [--all]. What has to become of each case, down to the
// words of the refusal, is the model's to say; the message stands in a flat block of exactly its size, so that the
// address sanitizer sees the first byte read or written beyond it.
#include "cases.h"
#include "golden.h"
#include "message-kinds.h"
#include "wire-model.h"

#include <host/marshaller.h>
#include <vdl/flat.h>

#include <array>
#include <bit>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t longMessage = 512; // bytes, from which on not every value of every byte is tried
constexpr std::size_t mostBytes = 4096;  // of a golden message that is tried
constexpr unsigned mostComplaints = 20;

struct Group {
    const char* name;
    unsigned long cases;
};

class Run {
public:
    explicit Run(bool all) : all_(all) {}

    void kind(const checks::Kind& kind, const std::string& folder) {
        bool tried = false;
        for (const auto& golden : checks::goldenOf(folder, kind.service, kind.name)) {
            // One message of each kind has every field set; the rest add how they can be written otherwise.
            const bool isMain = golden.name == "typical" || (!tried && kind.table->size == 1);
            if ((!isMain && !all_) || golden.little.size() > mostBytes) continue;
            message(kind, golden.little, false);
            message(kind, golden.big, true);
            tried = true;
        }
        if (!tried) complain(kind, "no golden message was tried", {});
    }

    // Returns whether everything was as it should be.
    bool report() const {
        for (std::size_t i = 0; i < outcomes_.size(); ++i)
            std::printf("%10lu %s\n", outcomes_[i], model::nameOf(static_cast<model::Verdict>(i)));
        std::printf("%10lu of the accepted with another value than the golden message's\n", otherValues_);
        unsigned long cases = 0;
        for (const Group& group : groups_) {
            std::printf("%10lu %s\n", group.cases, group.name);
            cases += group.cases;
        }
        std::printf("%10lu cases, %lu of them not as expected\n", cases, complaints_);
        return complaints_ == 0;
    }

private:
    void message(const checks::Kind& kind, const std::string& golden, bool bigEndian) {
        const model::Outcome right = model::read(*kind.table, checks::flags(), golden, bigEndian);
        if (right.verdict != model::Verdict::Accepted) return complain(kind, "refused by the model", right.refusal);
        const auto into = [&](Group& group) {
            return [&](const std::string& changed) {
                ++group.cases;
                one(kind, changed, bigEndian, right.value);
            };
        };
        into(groups_[0])(golden);
        checks::eachTruncation(golden, into(groups_[1]));
        checks::eachByteChange(golden, all_ && golden.size() <= longMessage, into(groups_[2]));
        checks::eachPointerChange(golden, right.pointers, bigEndian, into(groups_[3]));
    }

    void one(const checks::Kind& kind, const std::string& message, bool bigEndian, const std::string& goldenValue) {
        const model::Outcome expected = model::read(*kind.table, checks::flags(), message, bigEndian);
        ++outcomes_[static_cast<std::size_t>(expected.verdict)];
        const std::unique_ptr<char, decltype(&vdlFlatFree)> block(static_cast<char*>(vdlFlatAlloc(message.size())),
                                                                  vdlFlatFree);
        std::memcpy(block.get(), message.data(), message.size());
        const bool swap = bigEndian == (std::endian::native == std::endian::little);
        const char* refusal = host::unmarshal(host::planOf(*kind.table), block.get(), message.size(), swap);
        if (expected.refusal != (refusal ? refusal : ""))
            return complain(kind, "expected \"" + expected.refusal + "\", got \"" + (refusal ? refusal : "") + '"',
                            message);
        if (refusal) return;
        if (expected.value != goldenValue) ++otherValues_;
        if (kind.valueAt(block.get()) != expected.value)
            complain(kind, "accepted as expected, but with another value", message);
    }

    void complain(const checks::Kind& kind, const std::string& problem, const std::string& message) {
        if (++complaints_ > mostComplaints) return;
        std::printf("%s %s: %s\n   ", kind.service, kind.name, problem.c_str());
        for (const char byte : message) std::printf("%02x", static_cast<unsigned char>(byte));
        std::printf("\n");
    }

    const bool all_;
    std::array<unsigned long, model::verdicts> outcomes_{};
    std::array<Group, 4> groups_{
        {{"as they are", 0}, {"truncations", 0}, {"changes of one byte", 0}, {"changes of counts and offsets", 0}}};
    unsigned long otherValues_ = 0, complaints_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    const bool all = argc == 3 && std::string_view(argv[2]) == "--all";
    if (argc != 2 && !all) {
        std::fprintf(stderr, "usage: boundary-cases GOLDEN_FOLDER [--all]\n");
        return 2;
    }
    try {
        Run run(all);
        for (const checks::Kind& kind : checks::kinds) run.kind(kind, argv[1]);
        return run.report() ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "boundary-cases: %s\n", error.what());
        return 2;
    }
}
