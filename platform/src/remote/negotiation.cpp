#include "remote/negotiation.h"

#include "io/log.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <exception>

namespace host::remote {

void Negotiation::failAfter(std::chrono::seconds limit, const char* reason) {
    timer_.expires_after(limit);
    timer_.async_wait([self = shared_from_this(), reason](const boost::system::error_code& canceled) {
        if (!canceled) self->fail(reason);
    });
}

void Negotiation::awaitInput() {
    socket.async_read_some(boost::asio::buffer(session->room(), Session::roomBytes),
                           [self = shared_from_this()](const boost::system::error_code& error, std::size_t count) {
                               if (self->over_) return;
                               self->session->arrived(count, error == boost::asio::error::eof ? 0 : error.value());
                               self->proceed();
                           });
}

void Negotiation::awaitBytes() {
    socket.async_wait(socket.wait_read,
                      [self = shared_from_this()](const boost::system::error_code&) { self->proceed(); });
}

void Negotiation::proceed() noexcept {
    if (over_) return;
    try {
        switch (advance()) {
            case Session::Progress::done:
                onDone();
                return end();
            case Session::Progress::needsInput:
                return awaitInput();
            case Session::Progress::needsRoom:
                return socket.async_wait(socket.wait_write, [self = shared_from_this()](
                                                                const boost::system::error_code&) { self->proceed(); });
            case Session::Progress::again:
                return boost::asio::post(socket.get_executor(), [self = shared_from_this()] { self->proceed(); });
            case Session::Progress::over:
                return fail(whyOver().c_str());
        }
    } catch (const std::exception& error) {
        fail(io::textOf(error));
    }
}

void Negotiation::fail(const char* reason) noexcept {
    if (over_) return;
    end();
    onFailed(reason);
}

void Negotiation::end() noexcept {
    over_ = true;
    boost::system::error_code ignored;
    timer_.cancel(ignored);
    session.reset();
    socket.close(ignored);
}

} // namespace host::remote
