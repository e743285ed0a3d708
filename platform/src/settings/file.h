// The settings of a configuration file.
#pragma once

#include <host/configuration.h>

#include <functional>
#include <map>
#include <string>

namespace host::config {

using Values = std::map<std::string, Setting, std::less<>>; // by the settings' names

// Adds the file's settings, replacing those of the same name; returns false when there is no such file. Throws
// ConfigurationError.
bool addFile(const std::string& path, Values& values);

} // namespace host::config
