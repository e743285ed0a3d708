#include "remote/link.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/socket.h>

namespace host::remote {
namespace {
constexpr int patience = 3; // heartbeats, as everywhere with other hosts
} // namespace

short Link::wanted() const {
    if (over_) return 0;
    const bool reads = !peerGone_ && maySend_ > frameCost;
    return static_cast<short>((reads ? POLLIN : 0) | (arrived_.empty() ? 0 : POLLOUT));
}

void Link::onSocket(short events) {
    if (over_) return;
    if ((events & POLLOUT) != 0) write();
    if ((events & (POLLIN | POLLHUP | POLLERR)) != 0 && !peerGone_) read();
}

void Link::drain() {
    while ((wanted() & POLLIN) != 0) {
        const std::size_t before = maySend_;
        read();
        if (maySend_ == before) return;
    }
}

void Link::read() {
    if (maySend_ <= frameCost) return;
    std::array<char, longestData> data; // NOLINT(cppcoreguidelines-pro-type-member-init): filled by what follows
    const ssize_t size = ::recv(socket_.get(), data.data(), std::min(data.size(), maySend_ - frameCost), MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (size <= 0) return end();
    const auto count = static_cast<std::size_t>(size);
    maySend_ -= count + frameCost;
    if (!route_.send(FrameKind::Data, data.data(), count)) onPeerGone();
}

void Link::write() {
    if (!socketReads_) return arrived_.clear();
    const ssize_t size = ::send(socket_.get(), arrived_.data(), arrived_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (size >= 0) {
        arrived_.erase(0, static_cast<std::size_t>(size));
    } else if (errno != EAGAIN && errno != EINTR && errno != ENOBUFS && errno != ENOMEM) {
        socketReads_ = false; // what it has written itself is still to be read
        arrived_.clear();
    }
    giveCredit();
}

void Link::onFrame(FrameKind kind, const char* data, std::size_t size) {
    if (over_) return;
    switch (kind) {
        case FrameKind::Data:
            return takeData(data, size);
        case FrameKind::Credit:
            return takeCredit(data, size);
        case FrameKind::Probe:
            if (++probesHeard_ > mostProbes) breakRules("probed without a pause");
            return;
        case FrameKind::End:
            saidEnd_ = true;
            return onPeerGone();
        case FrameKind::Open:
            return breakRules("opened twice");
    }
    breakRules("sent an unknown frame");
}

void Link::takeData(const char* data, std::size_t size) {
    if (size == 0 || size > longestData || size + frameCost > mayCome_) return breakRules("sent more than it may");
    mayCome_ -= size + frameCost;
    arrived_.append(data, size);
    write();
}

void Link::takeCredit(const char* data, std::size_t size) {
    if (size != 4) return breakRules("gave a malformed credit");
    std::size_t credit = 0;
    for (std::size_t i = 0; i < size; ++i) credit = credit << 8 | static_cast<std::uint8_t>(data[i]);
    if (credit == 0) return breakRules("gave a credit of nothing"); // which would cost it nothing, either
    if (credit > window - maySend_) return breakRules("gave more credit than there is");
    maySend_ += credit;
}

// Not for every frame: half a window is soon enough.
void Link::giveCredit() {
    if (peerGone_ || arrived_.size() + mayCome_ > window / 2) return;
    const std::size_t credit = window - mayCome_ - arrived_.size();
    std::array<char, 4> data{};
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(credit >> (24 - 8 * i) & 0xFF);
    mayCome_ += credit;
    if (!route_.send(FrameKind::Credit, data.data(), data.size())) onPeerGone();
}

void Link::probe() {
    if (over_) return;
    probesHeard_ = 0;
    if (!peerGone_ && !route_.send(FrameKind::Probe, nullptr, 0)) return onPeerGone();
    if (peerGone_ || maySend_ > frameCost) return;
    // Nothing looks at the socket now. Once it is closed the peer has not for ever to take what is left.
    pollfd socket{socket_.get(), 0, 0};
    if (::poll(&socket, 1, 0) > 0 && (socket.revents & (POLLHUP | POLLERR)) != 0 && ++idleProbes_ > patience) end();
}

void Link::end() {
    route_.send(FrameKind::End, nullptr, 0);
    over_ = true;
}

void Link::breakRules(const std::string& how) {
    fault_ = how;
    route_.send(FrameKind::End, how.data(), how.size());
    arrived_.clear();
    over_ = true;
}

} // namespace host::remote
