// What the relay's thread has for the receiving thread: streams, or the reasons why there are none.
#pragma once

#include "io/file-descriptor.h"

#include <boost/asio/io_context.hpp>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace host::remote {

class Mailbox : public std::enable_shared_from_this<Mailbox> {
public:
    struct Item {
        io::FileDescriptor socket; // or none, and why
        std::string reason;
    };

    explicit Mailbox(boost::asio::io_context& io) : io_(io) {}

    // On the relay's thread. Throws std::bad_alloc, when the item is lost.
    void put(Item item);
    // An item without a socket. However many there are, they take little memory: the reasons of the last are forgotten
    // when nobody takes the first.
    void putRefusal(const std::string& reason);

    // On the receiving thread.
    std::optional<Item> take();
    // Calls ready, once, when there is something to take; not from inside.
    void wait(std::function<void()> ready);

private:
    void tell();

    static constexpr std::size_t mostReasons = 1024;
    boost::asio::io_context& io_;
    std::mutex mutex_; // guards the items
    std::deque<Item> items_;
    std::size_t withoutReason_ = 0; // refusals that come after them
    std::function<void()> ready_;   // the receiving thread's alone
};

} // namespace host::remote
