// The size of the flat heap, from the configuration.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>

namespace host {

// Called once, when the heap is first used. Returns its size in mebibytes, and in problem what is wrong with its
// configuration, if anything. Set when the process is composed, before the first allocation. Unused on 32-bit hosts,
// where flat blocks come from malloc.
extern std::atomic<std::size_t (*)(std::string& problem)> flatHeapMegabytes;

} // namespace host
