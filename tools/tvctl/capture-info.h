// tvctl capture-info: says what a recording contains.
#pragma once

#include "options.h"

#include <string>
#include <vector>

namespace tvctl {

int runCaptureInfo(const Options& options, const std::vector<std::string>& arguments);

} // namespace tvctl
