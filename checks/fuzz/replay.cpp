// Feeds each target with its part of the corpus: fuzz-replay CORPUS, or fuzz-replay CORPUS TARGET FILE... for some
// inputs. Needs nothing but the compiler, so that what was found once is tried in every build.
#include "target.h"

#include <vdl/debug.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace {

namespace fs = std::filesystem;

void replay(const fuzz::Target& target, const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    // A block of exactly the size, for the address sanitizer.
    const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[text.size()]);
    if (!text.empty()) std::memcpy(bytes.get(), text.data(), text.size());
    target.run({bytes.get(), text.size()});
}

int complain(const std::string& problem) {
    std::fprintf(stderr, "fuzz-replay: %s\n", problem.c_str());
    return 1;
}

// Returns how many inputs the target has.
std::size_t replayAll(const fuzz::Target& target, const fs::path& folder) {
    std::size_t inputs = 0;
    if (!fs::is_directory(folder)) return inputs;
    for (const auto& file : fs::directory_iterator(folder)) {
        replay(target, file.path());
        ++inputs;
    }
    return inputs;
}

} // namespace

int main(int argc, char** argv) {
    vdlDebugSetLevels("trace");
    const auto& targets = fuzz::targets();
    const auto named = [&](const std::string& name) {
        return std::find_if(targets.begin(), targets.end(), [&](const auto& target) { return target.name == name; });
    };
    if (argc < 2) return complain("usage: fuzz-replay CORPUS [TARGET FILE...]");
    if (argc > 2) {
        const auto target = named(argv[2]);
        if (target == targets.end()) return complain(std::string("there is no target ") + argv[2]);
        for (int i = 3; i < argc; ++i) replay(*target, argv[i]);
        return 0;
    }
    std::size_t inputs = 0;
    for (const auto& target : targets) {
        const std::size_t own = replayAll(target, fs::path(argv[1]) / target.name);
        if (own == 0) return complain("the corpus has nothing for " + target.name);
        inputs += own;
    }
    const auto& leftOut = fuzz::targetsLeftOut();
    for (const auto& folder : fs::directory_iterator(argv[1]))
        if (const std::string name = folder.path().filename().string();
            named(name) == targets.end() && std::find(leftOut.begin(), leftOut.end(), name) == leftOut.end())
            return complain("the corpus has " + folder.path().string() + ", for which there is no target");
    std::printf("%zu inputs of %zu targets\n", inputs, targets.size());
    return 0;
}
