// The targets as a fuzzer drives them; the environment variable FUZZ_TARGET names the one.
#include "codec/flat-heap-size.h"
#include "target.h"

#include <vdl/debug.h>

#include <string_view>

namespace {

const fuzz::Target* chosen = nullptr;

} // namespace

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
    host::flatHeapMegabytes = [](std::string&) -> std::size_t { return 256; };
    vdlDebugSetLevels("trace");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    chosen->run({data, size});
    return 0;
}
