// The verbs "screenshot" and "level": what a terminal shows, and how it sounds.
#pragma once

#include "options.h"

#include <string>
#include <vector>

namespace tvctl {

int runScreenshot(const Options& given, const std::vector<std::string>& words);
int runLevel(const Options& given, const std::vector<std::string>& words);

} // namespace tvctl
