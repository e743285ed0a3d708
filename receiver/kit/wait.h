// Polls for conditions in other processes.
#pragma once

#include <chrono>
#include <functional>

namespace receiver {

using Milliseconds = std::chrono::milliseconds;

// Polls condition; returns false when limit passes first. Calls meanwhile, if set, each time the condition does not
// hold; an exception from it ends the wait.
bool waitUntil(const std::function<bool()>& condition, Milliseconds limit, const std::function<void()>& meanwhile = {});

} // namespace receiver
