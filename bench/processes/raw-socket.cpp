// The limit: two processes that only block in the calls of a local socket pair.
#include "common/interleaved.h"
#include "peer-process.h"
#include "timed-event.h"
#include "transport.h"

#include <cerrno>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace bench {
namespace {

void send(int socket, const std::string& bytes) {
    if (::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
        throw std::system_error(errno, std::generic_category(), "send");
}
void receive(int socket, std::string& bytes) {
    if (::recv(socket, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        throw std::system_error(errno, std::generic_category(), "recv");
}

class SocketPair {
public:
    SocketPair() {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_) != 0)
            throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    ~SocketPair() {
        close(ends_[0]);
        close(ends_[1]);
    }
    int client() const { return ends_[0]; }
    int server() const { return ends_[1]; }

private:
    int ends_[2];
};

class RawSocket final : public Transport {
public:
    std::string name() const override { return "raw socket"; }
    void connect() override {}
    double roundTrip() override {
        const auto start = Clock::now();
        send(sockets_.client(), request_);
        receive(sockets_.client(), answer_);
        return nanoseconds(Clock::now() - start);
    }

private:
    [[noreturn]] void serve(const std::function<void()>& ready) {
        ready();
        for (;;) {
            receive(sockets_.server(), request_);
            send(sockets_.server(), answer_);
        }
    }

    SocketPair sockets_;
    std::string request_ = std::string(load().requestBytes, 'q'), answer_ = std::string(load().answerBytes, 'a');
    PeerProcess server_{[this](const auto& ready) { serve(ready); }};
};

} // namespace

double Transport::notifications(std::size_t) { throw std::logic_error(name() + " sends no notifications"); }
double Transport::infos(std::size_t, std::size_t) { throw std::logic_error(name() + " sends no texts"); }

std::unique_ptr<Transport> rawSocket() { return std::make_unique<RawSocket>(); }

} // namespace bench
