#include "codec/flat-heap-size.h"

namespace host {

constinit std::atomic<std::size_t (*)(std::string& problem)> flatHeapMegabytes{nullptr};

} // namespace host
