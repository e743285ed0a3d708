// How large the flat heap is to be, which somebody else knows.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>

namespace host {

// Asked once, when the heap is first used: its size in mebibytes; problem says what is wrong with the configuration
// that decides it, if anything is. Set by what puts the process together, before anything is allocated. Unused on
// 32-bit hosts, where flat blocks come from malloc.
extern std::atomic<std::size_t (*)(std::string& problem)> flatHeapMegabytes;

} // namespace host
