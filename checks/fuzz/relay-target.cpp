// What a peer on another host says to the relay, and what the socket at its other side does meanwhile.
#include "budget.h"
#include "remote/link.h"
#include "remote/socket-pair.h"
#include "target.h"

#include <algorithm>
#include <array>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace fuzz {
namespace {

using namespace host::remote;

// The peer, which keeps account of what each side may send, and the program at the socket.
class Neighbours final : public Route {
public:
    Neighbours() : Neighbours(socketPair()) {}

    bool send(FrameKind kind, const char* data, std::size_t size) noexcept override {
        const Pause pause;
        expect(!ended_, "nothing is said after the end");
        ended_ = kind == FrameKind::End;
        if (!present) return false;
        if (kind == FrameKind::Data) {
            expect(size > 0 && size <= longestData && size + frameCost <= linkMaySend_, "the credit is kept to");
            linkMaySend_ -= size + frameCost;
            expect(fromSocket_.compare(0, size, data, size) == 0, "the peer is told what the socket said");
            fromSocket_.erase(0, size);
        } else if (kind == FrameKind::Credit) {
            expect(size == 4, "a credit has four bytes");
            peerMaySend_ += Source({reinterpret_cast<const std::uint8_t*>(data), size}).number(4);
            expect(peerMaySend_ <= window, "no more credit is given than there is");
        } else {
            expect(ended_ || (kind == FrameKind::Probe && size == 0), "a link opens nothing");
        }
        return true;
    }

    void say(FrameKind kind, const std::string& data) {
        if (ended_) return callLink([&] { link_.onFrame(kind, data.data(), data.size()); });
        const bool fits = mayBeSaid(kind, data);
        if (fits && kind == FrameKind::Data) {
            peerMaySend_ -= data.size() + frameCost;
            fromPeer_ += data;
        }
        if (fits && kind == FrameKind::Credit) linkMaySend_ += numberIn(data);
        if (fits && kind == FrameKind::Probe) ++probes_;
        callLink([&] { link_.onFrame(kind, data.data(), data.size()); });
        expect(fits == link_.fault().empty(), "who breaks the rules, and nobody else, is told of");
        expect(fits || (link_.isOver() && ended_), "who breaks the rules is told that it is over");
    }
    void write(const std::string& text) {
        const auto size = ::send(end_.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (size > 0) fromSocket_.append(text, 0, static_cast<std::size_t>(size));
    }
    void read(std::size_t size) {
        std::string text(size, '\0');
        const auto count = ::recv(end_.get(), text.data(), text.size(), MSG_DONTWAIT);
        if (count <= 0) return;
        text.resize(static_cast<std::size_t>(count));
        expect(fromPeer_.starts_with(text), "the socket hears what the peer said");
        fromPeer_.erase(0, text.size());
    }
    void close() { ::shutdown(end_.get(), SHUT_RDWR); }
    void look() {
        pollfd socket{link_.socket(), link_.wanted(), 0};
        if (::poll(&socket, 1, 0) > 0) callLink([&] { link_.onSocket(socket.revents); });
    }
    void probe() {
        probes_ = 0;
        callLink([&] { link_.probe(); });
    }
    void leave() {
        present = false;
        callLink([&] { link_.onPeerGone(); });
    }
    // Of data, that the peer may say now; one byte less, so that a little more is more than it may.
    std::size_t longestFrame() const {
        const std::size_t room = peerMaySend_ < frameCost ? 0 : std::min(longestData, peerMaySend_ - frameCost);
        return room - (room > 0 ? 1 : 0);
    }

    bool present = true; // the peer

private:
    explicit Neighbours(std::pair<host::io::FileDescriptor, host::io::FileDescriptor> ends)
        : end_(std::move(ends.first)), link_(std::move(ends.second), *this) {}

    static std::uint32_t numberIn(const std::string& data) {
        return Source({reinterpret_cast<const std::uint8_t*>(data.data()), data.size()}).number(4);
    }
    bool mayBeSaid(FrameKind kind, const std::string& data) const {
        if (kind == FrameKind::Data)
            return !data.empty() && data.size() <= longestData && data.size() + frameCost <= peerMaySend_;
        if (kind == FrameKind::Credit)
            return data.size() == 4 && numberIn(data) > 0 && numberIn(data) <= window - linkMaySend_;
        return kind == FrameKind::End || (kind == FrameKind::Probe && probes_ < Link::mostProbes);
    }
    template <class Call> void callLink(const Call& call) {
        Measure measure;
        call();
        // At most a window waits for the socket, and growing a text holds it twice.
        measure.check("a frame or an event", 0, 3 * window, 0);
    }

    host::io::FileDescriptor end_;
    std::string fromPeer_, fromSocket_; // and not heard yet
    std::size_t peerMaySend_ = window, linkMaySend_ = window;
    int probes_ = 0;     // of the peer, since the link's last one
    bool ended_ = false; // the link has said so
    Link link_;
};

std::string creditOf(std::uint32_t value) {
    std::string data;
    for (int shift = 24; shift >= 0; shift -= 8) data += static_cast<char>(value >> shift & 0xFF);
    return data;
}

// Of so many bytes, the first of which are the input's.
std::string some(Source& source, std::size_t size) {
    std::string text = textOf(source.upTo(std::min<std::size_t>(size, 16)));
    text.resize(size, static_cast<char>(source.byte()));
    return text;
}

} // namespace

void relayedFrames(Input input) {
    Source source(input);
    Neighbours neighbours;
    constexpr std::array kinds{FrameKind::Probe, FrameKind::End, FrameKind::Open};
    while (!source.rest().empty()) {
        const std::uint8_t choice = source.byte();
        const std::size_t size = choice < 128 ? choice & 7U : source.number(3) % (longestData + 2);
        switch (choice >> 3 & 7) {
            case 0:
                neighbours.say(FrameKind::Data, some(source, size));
                break;
            case 1: // about as much as may be said
                neighbours.say(FrameKind::Data, some(source, neighbours.longestFrame() + size % 4));
                break;
            case 2:
                neighbours.say(FrameKind::Credit, creditOf(source.number(2) * static_cast<std::uint32_t>(size)));
                break;
            case 3:
                neighbours.say(static_cast<FrameKind>(source.byte()), some(source, size));
                break;
            case 4:
                neighbours.write(some(source, size));
                neighbours.look();
                break;
            case 5:
                neighbours.read(size);
                neighbours.look();
                break;
            case 6:
                neighbours.probe();
                break;
            default:
                if (size == 0)
                    neighbours.close();
                else if (size == 1)
                    neighbours.leave();
                else
                    neighbours.say(kinds[size % kinds.size()], {});
        }
    }
}

} // namespace fuzz
