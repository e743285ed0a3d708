// Finds the engine of a service.
#pragma once

#include <media/engine.h>
#include <memory>
#include <string>

namespace media {

// "simulated", "gstreamer", or the absolute path of a library with an engine (plugin.h). Throws
// host::ConfigurationError when there is no such engine, and what the engine throws when it cannot work.
std::unique_ptr<Engine> loadEngine(const std::string& name);

// The one that the setting media.engine names. "auto": GStreamer's where it is installed and works, else the simulated
// one.
std::unique_ptr<Engine> configuredEngine();

} // namespace media
