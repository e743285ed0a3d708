// The complete path of a play request: a framework process with both proxies and the adapter, and an application.
#pragma once

#include <functional>

namespace bench {

// Runs the framework in this process, with the library's members. Once both services are connected, runs work on a
// separate thread, then ends the framework. play() sends a play request to the adapter, waits for the answer, and
// returns the nanoseconds from the call until the application is notified. Rethrows exceptions of work.
void withFramework(const std::function<void(const std::function<double()>& play)>& work);

} // namespace bench
