#include "wait.h"

#include <thread>

namespace receiver {

bool waitUntil(const std::function<bool()>& condition, Milliseconds limit, const std::function<void()>& meanwhile) {
    constexpr Milliseconds pollInterval{10};
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (meanwhile) meanwhile();
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(pollInterval);
    }
    return true;
}

} // namespace receiver
