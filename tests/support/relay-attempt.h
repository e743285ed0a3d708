// What becomes of a relay's attempt to connect, as the receiving thread hears of it.
#pragma once

#include "remote/mailbox.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <chrono>
#include <utility>

namespace support {

// The answer to the attempt that has begun: a stream, whose reason reads "a stream" then, or why there is none.
inline host::remote::Mailbox::Item answerTo(boost::asio::io_context& io, host::remote::Mailbox& mailbox) {
    host::remote::Mailbox::Item answer{host::io::FileDescriptor{}, "no answer"};
    io.restart();
    mailbox.wait([&] {
        if (auto item = mailbox.take()) answer = std::move(*item);
        if (answer.socket) answer.reason = "a stream";
        io.stop();
    });
    const auto work = boost::asio::make_work_guard(io);
    io.run_for(std::chrono::seconds(20));
    return answer;
}

} // namespace support
