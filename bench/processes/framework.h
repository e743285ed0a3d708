// The whole way of a play request: a framework process with both proxies and the adapter, and an application.
#pragma once

#include <functional>

namespace bench {

// Runs the framework in this process, with the library's members and both services connected, while work runs on a
// thread of its own, and ends the framework afterwards. play: asks the adapter to show something and waits for the
// answer; the nanoseconds from the call until the application is told. Rethrows what work throws.
void withFramework(const std::function<void(const std::function<double()>& play)>& work);

} // namespace bench
