// What a library with an engine exports. A service loads the library that the setting media.engine names.
#pragma once

#include <media/engine.h>

namespace media {

// Changes when engines have to be built anew.
inline constexpr const char* engineVersion = "3";

} // namespace media

extern "C" {
// media::engineVersion of the headers that the library was built with.
__attribute__((visibility("default"))) const char* tvsaMediaEngineVersion();
// The engine, which the caller deletes. Throws std::exception when it cannot work. Called once in a process.
__attribute__((visibility("default"))) media::Engine* tvsaMediaEngine();
}
