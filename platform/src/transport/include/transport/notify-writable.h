// Notifies the user of a stream over a socket when the socket is writable again.
#pragma once

#include "transport/transport.h"

#include <boost/asio/dispatch.hpp>
#include <boost/system/error_code.hpp>
#include <exception>
#include <memory>
#include <utility>

namespace host::io {

// Implements Stream::waitWritable for the stream that owns the socket. From any thread, but only the receiving thread
// starts operations on the socket. Breaks the stream if memory runs out.
template <class Socket>
void notifyWhenWritable(Socket& socket, Stream& stream, std::shared_ptr<StreamUser> user) noexcept {
    const auto wait = [&socket, &stream, user = std::move(user)] {
        if (!socket.is_open()) return;
        try {
            socket.async_wait(Socket::wait_write, [&socket, &stream, user](const boost::system::error_code& error) {
                if (!socket.is_open()) return;
                error ? stream.breakOff() : user->onWritable();
            });
        } catch (const std::exception&) {
            stream.breakOff();
        }
    };
    try {
        boost::asio::dispatch(socket.get_executor(), wait);
    } catch (const std::exception&) {
        stream.breakOff();
    }
}

} // namespace host::io
