#include "remote/orders.h"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace host::remote {

Orders::Orders() : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake_) throw std::system_error(errno, std::system_category(), "eventfd");
}

void Orders::add(std::function<void()> order) {
    {
        std::lock_guard lock(mutex_);
        if (closed_) return;
        added_.push_back(std::move(order));
    }
    wake();
}

void Orders::close() noexcept {
    closed_ = true;
    wake();
}

void Orders::run() {
    std::uint64_t ignored = 0;
    (void)!::read(wake_.get(), &ignored, sizeof ignored);
    while (!closed_) {
        if (toRun_.empty()) {
            std::lock_guard lock(mutex_);
            toRun_.swap(added_);
        }
        if (toRun_.empty()) return;
        toRun_.front()();
        toRun_.pop_front();
    }
}

void Orders::wake() const noexcept {
    const std::uint64_t one = 1;
    (void)!::write(wake_.get(), &one, sizeof one); // fails only when it is awake anyway
}

} // namespace host::remote
