// What another thread of this process is doing.
#pragma once

#include <chrono>
#include <pthread.h>
#include <string>
#include <vector>

namespace host {

struct StackCall {
    std::string library;  // file name of the library or program
    std::string function; // with its parameters; empty when the library does not export it
};

// The calls that a thread is in, innermost first, at most 64. Interrupts the thread with SIGURG, which processes ignore
// otherwise; system calls that can continue do so. Empty when the thread does not react within the timeout. The thread
// must not have been joined. From any thread; calls wait for each other.
std::vector<StackCall> stackOf(pthread_t thread, std::chrono::milliseconds timeout);

} // namespace host
