// Finds the engine of a service.
#pragma once

#include <media/engine.h>
#include <memory>
#include <string>

namespace media {

// "simulated", "gstreamer", or the path of a library with an engine (plugin.h). Throws Error when it cannot be used.
std::unique_ptr<Engine> loadEngine(const std::string& name);

// The one that the setting media.engine names. "auto": GStreamer's where it is installed and works, else the simulated
// one.
std::unique_ptr<Engine> configuredEngine();

} // namespace media
