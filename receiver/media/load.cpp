#include "simulated/simulated-engine.h"

#include <host/configuration.h>

#include <dlfcn.h>
#include <media/load.h>
#include <media/plugin.h>

namespace media {

std::unique_ptr<Engine> loadEngine(const std::string& name) {
    if (name == "simulated") return std::make_unique<SimulatedEngine>();
    const std::string library = name == "gstreamer" ? "libmedia-gstreamer.so" : name;
    void* const loaded = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL); // stays until the process ends
    if (!loaded) throw Error("media engine " + name + ": " + dlerror());
    const auto version = reinterpret_cast<decltype(&tvsaMediaEngineVersion)>(dlsym(loaded, "tvsaMediaEngineVersion"));
    const auto make = reinterpret_cast<decltype(&tvsaMediaEngine)>(dlsym(loaded, "tvsaMediaEngine"));
    if (!version || !make) throw Error("media engine " + name + ": " + library + " has no engine");
    if (std::string(version()) != engineVersion)
        throw Error("media engine " + name + ": " + library + " is of version " + version() + ", not " + engineVersion);
    return std::unique_ptr<Engine>(make());
}

std::unique_ptr<Engine> configuredEngine() { return loadEngine(host::setting("media.engine")->text); }

} // namespace media
