#include <tvservice-adapter/service/health.h>

#include <thread-safety/mutex.h>

namespace services {

namespace {

using Clock = std::chrono::steady_clock;

struct Current {
    thread_safety::Mutex mutex;
    const char* name TVSA_GUARDED_BY(mutex) = nullptr;
    Clock::time_point begin TVSA_GUARDED_BY(mutex);
};

// Of the process, which has one receiving thread.
Current& current() {
    static Current only;
    return only;
}

void set(const char* name) {
    auto& now = current();
    const thread_safety::LockGuard lock(now.mutex);
    now.name = name;
    now.begin = Clock::now();
}

} // namespace

Health health() {
    auto& now = current();
    const thread_safety::LockGuard lock(now.mutex);
    if (now.name == nullptr) return {};
    return {now.name, std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - now.begin)};
}

Handling::Handling(const char* name) { set(name); }
Handling::~Handling() { set(nullptr); }

} // namespace services
