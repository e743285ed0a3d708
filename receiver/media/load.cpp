#include "simulated/simulated-engine.h"

#include <host/configuration.h>
#include <tvservice-adapter/service/log.h>

#include <dlfcn.h>
#include <exception>
#include <filesystem>
#include <media/load.h>
#include <media/plugin.h>
#include <system_error>

namespace media {
namespace {

constexpr const char* gstreamerLibrary = "libmedia-gstreamer.so";

// Where the library is installed or built, seen from the program; empty when it is not there.
std::string pathOf(const std::string& library) {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    for (const char* const folder : {MEDIA_INSTALLED_MODULES, MEDIA_BUILT_MODULES}) {
        const auto path = (program.parent_path() / folder / library).lexically_normal();
        if (!error && std::filesystem::exists(path, error)) return path.string();
    }
    return {};
}

} // namespace

std::unique_ptr<Engine> loadEngine(const std::string& name) {
    if (name == "simulated") return std::make_unique<SimulatedEngine>();
    const auto fail = [&name](const std::string& problem) {
        throw host::ConfigurationError("media.engine " + name + ": " + problem);
    };
    const std::string library = name == "gstreamer" ? pathOf(gstreamerLibrary) : name;
    if (library.empty())
        fail(std::string(gstreamerLibrary) +
             " is not installed: install the component or the package with it, or set media.engine to simulated");
    if (!std::filesystem::path(library).is_absolute()) fail("not auto, simulated, gstreamer or an absolute path");
    void* const loaded = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL); // stays until the process ends
    if (!loaded) fail(dlerror());
    const auto version = reinterpret_cast<decltype(&tvsaMediaEngineVersion)>(dlsym(loaded, "tvsaMediaEngineVersion"));
    const auto make = reinterpret_cast<decltype(&tvsaMediaEngine)>(dlsym(loaded, "tvsaMediaEngine"));
    if (!version || !make) fail(library + " has no engine");
    if (std::string(version()) != engineVersion)
        fail(library + " is of version " + version() + ", not " + engineVersion);
    std::unique_ptr<Engine> engine(make());
    if (!engine) fail(library + " made no engine");
    return engine;
}

std::unique_ptr<Engine> configuredEngine() {
    const std::string name = host::setting("media.engine")->text;
    if (name != "auto") return loadEngine(name);
    if (pathOf(gstreamerLibrary).empty()) return loadEngine("simulated");
    try {
        return loadEngine("gstreamer");
    } catch (const std::exception& error) {
        SERVICE_LOG(vdlDebugWarning, "nothing is played for real: %s\n", error.what());
        return loadEngine("simulated");
    }
}

} // namespace media
