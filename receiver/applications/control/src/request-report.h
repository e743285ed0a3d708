// A request as text and as JSON.
#pragma once

#include "request-log.h"

#include <genrpc/json.h>

#include <string>
#include <vector>

namespace control {

// What became of a request, or what it waits for: a line for each terminal, or one for all that wait or were given up.
std::vector<std::string> linesOf(const RecordedRequest& request);
// Of a request that took a second or has no answer, a line for each step: who was awaited, and from when on.
std::vector<std::string> stepLinesOf(const RecordedRequest& request);

// With those lines, for tools that show them.
genrpc::Json toJson(const RecordedRequest& request);

} // namespace control
