#include "remote/tls-stream.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <exception>
#include <mutex>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace host::remote {
namespace {

using namespace std::chrono_literals;
using Progress = Session::Progress;
using User = std::shared_ptr<io::StreamUser>;

// The peer's system may keep an acknowledgement back for 200 ms.
constexpr std::chrono::milliseconds shortestSilence = 500ms;
// The system asks again and again, ever more rarely, whether a peer that takes nothing now has room again, and whether
// a line of its own that is down is up again. A peer that is there answers, so that at most one question is open.
constexpr unsigned unansweredQuestions = 2;

// Bytes that the system takes for a peer that reads slowly: about as many as it does for a local one, so that what
// waits does so in the queue, whose limits are known, and not in megabytes of the system's memory.
constexpr int mostUnsent = 256 * 1024;

class TlsStream final : public io::Stream {
public:
    TlsStream(std::shared_ptr<Common> common, boost::asio::ip::tcp::socket socket, std::unique_ptr<Session> session,
              std::shared_ptr<const std::string> key)
        : common_(std::move(common)),
          socket_(std::move(socket)),
          descriptor_(socket_.native_handle()),
          heartbeat_(socket_.get_executor()),
          session_(std::move(session)),
          key_(std::move(key)) {
        setOption(TCP_NODELAY, 1);
        setOption(TCP_NOTSENT_LOWAT, mostUnsent);
    }

    bool isOwn() const override { return true; }
    std::string peer() const override { return "key " + *key_; }

    void receive(char* room, std::size_t size, User user) override {
        room_ = room;
        size_ = size;
        if (!std::exchange(watching_, true)) watch(user);
        bool here;
        {
            std::lock_guard lock(mutex_);
            here = over_ || session_->hasInput();
        }
        here ? readSoon(std::move(user)) : awaitInput(std::move(user));
    }

    std::size_t send(const char* data, std::size_t size, std::error_code& error) noexcept override {
        std::lock_guard lock(mutex_);
        std::size_t taken = 0;
        const auto progress = session_->write(data, size, taken);
        spoke_ = spoke_ || taken > 0;
        if (progress != Progress::done && progress != Progress::needsRoom)
            error = std::make_error_code(std::errc::broken_pipe);
        return taken;
    }

    void waitWritable(User user) noexcept override {
        try {
            boost::asio::dispatch(socket_.get_executor(), [this, user = std::move(user)]() mutable {
                orBreak([&] {
                    if (!socket_.is_open()) return;
                    socket_.async_wait(socket_.wait_write, [this, user](const boost::system::error_code& error) {
                        if (!socket_.is_open()) return;
                        error ? breakOff() : user->onWritable();
                    });
                });
            });
        } catch (const std::exception&) { // no memory
            breakOff();
        }
    }

    void breakOff() noexcept override { ::shutdown(descriptor_, SHUT_RDWR); }

    void close() noexcept override {
        if (!socket_.is_open()) return;
        boost::system::error_code ignored;
        heartbeat_.cancel(ignored);
        std::lock_guard lock(mutex_);
        session_->end();
        ::shutdown(descriptor_, SHUT_WR);
        descriptor_ = -1;
        if (common_->farewell.hasBegun())
            common_->farewell.add(io::FileDescriptor(socket_.release(ignored)));
        else
            socket_.close(ignored);
        key_.reset();
    }

private:
    void setOption(int option, int value) const {
        ::setsockopt(descriptor_, IPPROTO_TCP, option, &value, sizeof value); // the stream works without it, too
    }

    template <class Step> void orBreak(const Step& step) noexcept {
        try {
            step();
        } catch (const std::exception&) { // no memory
            breakOff();
        }
    }

    // Not by waiting until the socket is readable: that is a call of the system more for each message.
    void awaitInput(User user) {
        socket_.async_read_some(
            boost::asio::buffer(session_->room(), Session::roomBytes),
            [this, user = std::move(user)](const boost::system::error_code& error, std::size_t count) {
                {
                    std::lock_guard lock(mutex_);
                    session_->arrived(count, error == boost::asio::error::eof ? 0 : error.value());
                }
                read(user);
            });
    }
    void awaitRoom(User user) {
        socket_.async_wait(socket_.wait_write,
                           [this, user = std::move(user)](const boost::system::error_code&) { read(user); });
    }
    void readSoon(User user) {
        boost::asio::post(socket_.get_executor(), [this, user = std::move(user)] { read(user); });
    }

    // All records that have arrived, which are no more than fit into the session's room: then others have their turn.
    void read(const User& user) {
        if (!socket_.is_open()) return;
        std::size_t count = 0;
        auto progress = over_ ? Progress::over : Progress::done;
        {
            std::lock_guard lock(mutex_);
            for (bool more = !over_; more; more = progress == Progress::done && count < size_ && session_->hasInput()) {
                std::size_t some = 0;
                progress = session_->read(room_ + count, size_ - count, some);
                count += some;
            }
            over_ = progress == Progress::over;
        }
        if (count > 0) return user->onReceived(count);
        if (over_) return end(*user);
        try {
            if (progress == Progress::again) return readSoon(user);
            progress == Progress::needsRoom ? awaitRoom(user) : awaitInput(user);
        } catch (const std::exception&) {
            user->onFault("out of memory");
        }
    }

    void end(io::StreamUser& user) {
        std::string reason = "broken"; // without memory for more
        bool fault;
        {
            std::lock_guard lock(mutex_); // others may still be sending
            fault = session_->isFault();
            try {
                reason = silent_ ? "the peer does not answer" : session_->reason();
            } catch (const std::exception&) {
            }
        }
        fault ? user.onFault(reason) : user.onEnd(reason);
    }

    // Each heartbeat sends something unless the last one's time did, and looks whether the peer's system acknowledged
    // it: that goes on while the process there is busy, and ends when the line is cut.
    void watch(const std::weak_ptr<io::StreamUser>& user) {
        heartbeat_.expires_after(common_->heartbeat);
        heartbeat_.async_wait([this, user](const boost::system::error_code& error) {
            const auto owner = error ? nullptr : user.lock(); // who has this stream
            if (!owner || !socket_.is_open()) return;
            {
                std::lock_guard lock(mutex_);
                if (!std::exchange(spoke_, false)) session_->probe();
            }
            silent_ = isSilent();
            silent_ ? breakOff() : orBreak([&] { watch(user); });
        });
    }

    bool isSilent() const {
        tcp_info info{};
        socklen_t size = sizeof info;
        if (getsockopt(descriptor_, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return false;
        const std::chrono::milliseconds sinceSign(info.tcpi_last_ack_recv);
        return sinceSign >= std::max(3 * common_->heartbeat, shortestSilence) &&
               (info.tcpi_unacked > 0 || info.tcpi_probes >= unansweredQuestions);
    }

    const std::shared_ptr<Common> common_;
    boost::asio::ip::tcp::socket socket_; // the receiving thread's, as is what follows
    int descriptor_;                      // the socket's, for any thread
    boost::asio::steady_timer heartbeat_;
    bool watching_ = false, silent_ = false;
    bool over_ = false; // the session will give nothing more
    char* room_ = nullptr;
    std::size_t size_ = 0;

    std::mutex mutex_; // guards the rest
    const std::unique_ptr<Session> session_;
    std::shared_ptr<const std::string> key_;
    bool spoke_ = false; // since the last heartbeat
};

} // namespace

std::unique_ptr<io::Stream> makeStream(std::shared_ptr<Common> common, boost::asio::ip::tcp::socket socket,
                                       std::unique_ptr<Session> session, std::shared_ptr<const std::string> key) {
    return std::make_unique<TlsStream>(std::move(common), std::move(socket), std::move(session), std::move(key));
}

} // namespace host::remote
