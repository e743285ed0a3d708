#include "remote/mailbox.h"

#include <boost/asio/post.hpp>
#include <utility>

namespace host::remote {

void Mailbox::put(Item item) {
    std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    try {
        boost::asio::post(io_, [self = shared_from_this()] { self->tell(); });
    } catch (...) {
        items_.pop_back(); // nobody would come for it
        throw;
    }
}

void Mailbox::putRefusal(const std::string& reason) {
    {
        std::lock_guard lock(mutex_);
        if (items_.size() >= mostReasons) {
            ++withoutReason_;
            return; // those before it have been told of
        }
    }
    put({io::FileDescriptor{}, reason});
}

std::optional<Mailbox::Item> Mailbox::take() {
    std::lock_guard lock(mutex_);
    std::optional<Item> item;
    if (!items_.empty()) {
        item.emplace(std::move(items_.front()));
        items_.pop_front();
    } else if (withoutReason_ > 0) {
        --withoutReason_;
        item.emplace(Item{io::FileDescriptor{}, "a stranger, one of many"});
    }
    return item;
}

void Mailbox::wait(std::function<void()> ready) {
    ready_ = std::move(ready);
    boost::asio::post(io_, [self = shared_from_this()] { self->tell(); });
}

void Mailbox::tell() {
    {
        std::lock_guard lock(mutex_);
        if (items_.empty() && withoutReason_ == 0) return;
    }
    if (const auto ready = std::exchange(ready_, nullptr)) ready();
}

} // namespace host::remote
