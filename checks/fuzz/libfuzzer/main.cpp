// The targets as a fuzzer drives them; the environment variable FUZZ_TARGET names the one.
#include "debug/debug-internal.h"
#include "target.h"

#include <vdl/debug.h>

#include <string_view>

namespace {

const fuzz::Target* chosen = nullptr;

} // namespace

// Comes with the platform's output, which is not here.
void host::debug::reportLevelComplaints(const std::string&) {}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const char* name = std::getenv("FUZZ_TARGET");
    for (const auto& target : fuzz::targets())
        if (name && target.name == name) chosen = &target;
    if (!chosen) {
        std::fprintf(stderr, "FUZZ_TARGET is none of:");
        for (const auto& target : fuzz::targets()) std::fprintf(stderr, " %s", target.name.c_str());
        std::fprintf(stderr, "\n");
        std::exit(2);
    }
    vdlDebugSetLevels("trace");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    chosen->run({data, size});
    return 0;
}
