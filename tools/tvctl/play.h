// The verbs "play" and "stop": they make a request and wait for what becomes of it.
#pragma once

#include "options.h"

#include <string>
#include <vector>

namespace tvctl {

int runPlay(const Options& options, const std::vector<std::string>& arguments);
int runStop(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
