// Waiting for what other processes do, of which nothing tells.
#pragma once

#include <chrono>
#include <functional>

namespace receiver {

using Milliseconds = std::chrono::milliseconds;

// Looks whether condition holds, again and again; false when limit has passed first. meanwhile, if any, is called each
// time that it does not hold; what it throws ends the wait.
bool waitUntil(const std::function<bool()>& condition, Milliseconds limit, const std::function<void()>& meanwhile = {});

} // namespace receiver
