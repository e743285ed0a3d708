// A connection's bytes: the first exchange, and the frames after it.
#include "budget.h"
#include "message-kinds.h"
#include "queue/channel.h"
#include "queue/connection.h"
#include "target.h"

#include <boost/asio/io_context.hpp>
#include <utility>

namespace fuzz {
namespace {

using namespace host::io;

const Handshake& handshakeOf(bool serving) {
    static const Handshake asked(tvservice::serviceName, tvservice::messageSet(), false);
    static const Handshake offered(tvservice::serviceName, tvservice::messageSet(), true);
    return serving ? offered : asked;
}

// The hello as a peer of the other byte order sends it.
std::string reversedHello(const std::string& hello) {
    std::string result = hello;
    std::size_t at = 4;
    const auto reverse = [&](std::initializer_list<std::size_t> widths) {
        for (const std::size_t width : widths) {
            for (std::size_t i = 0; i < width; ++i) result[at + i] = hello[at + width - 1 - i];
            at += width;
        }
    };
    reverse({4, 4, 4, 4, 4, 8});
    at += std::string(tvservice::serviceName).size();
    while (at < hello.size()) reverse({4, 4, 4, 4, 8});
    return result;
}

// Hands the input to its user as far as that asks for bytes; takes whatever is sent.
class FedStream final : public Stream {
public:
    bool isOwn() const override { return true; }
    std::string peer() const override { return "the input"; }
    void receive(char* room, std::size_t size, std::shared_ptr<StreamUser> user) override {
        room_ = room;
        size_ = size;
        user_ = std::move(user);
    }
    std::size_t send(const char*, std::size_t size, std::error_code&) noexcept override { return size; }
    void waitWritable(std::shared_ptr<StreamUser>) noexcept override {}
    void breakOff() noexcept override {}
    void close() noexcept override { user_.reset(); }

    // Whether more can be fed. The user may close the stream, and so end it, while it receives.
    static bool feed(FedStream& stream, Source& source, std::size_t chunk) {
        const auto user = std::exchange(stream.user_, nullptr);
        const Input bytes = source.upTo(std::min(chunk, stream.size_));
        if (!user) return false;
        if (bytes.empty()) {
            user->onEnd("the end of the input");
            return false;
        }
        std::copy(bytes.begin(), bytes.end(), stream.room_);
        user->onReceived(bytes.size());
        return true;
    }

private:
    char* room_ = nullptr;
    std::size_t size_ = 0;
    std::shared_ptr<StreamUser> user_;
};

class FedChannel final : public Channel {
public:
    FedChannel(boost::asio::io_context& io, bool serving)
        : Channel(io, tvservice::serviceName, tvservice::messageSet(), 1024, {}, serving) {
        for (const checks::Kind& kind : checks::kinds)
            if (std::string(kind.service) == tvservice::serviceName) bind(kind);
    }
    void end() override {}
    void onConnectionReady(Connection&) noexcept override {}
    void onConnectionClosed(Connection&, bool, bool, const char*) noexcept override { ++closed; }

    int closed = 0;

protected:
    int dispatch(const Outgoing&, const frame::TransportInfo*) override { return -107; }
    void addTo(frame::IOStatistics&) override {}
    void proceed() noexcept override {}

private:
    void bind(const checks::Kind& kind) {
        const auto handler = [](const frame::MsgMeta&, const frame::TransportInfo&, const void* payload,
                                void* context) {
            // The handlers' own memory is the message targets' to judge.
            const Pause pause;
            static_cast<const checks::Kind*>(context)->valueAt(payload);
            return 0;
        };
        for (const auto& message : tvservice::messageSet())
            if (message.table == kind.table)
                registerMessageHandler(message.meta, handler, const_cast<checks::Kind*>(&kind), *kind.table);
    }
};

} // namespace

// The first byte chooses the side, the second where the peer's bytes are cut.
void handshake(Input input) {
    Source source(input);
    const Handshake& ours = handshakeOf((source.byte() & 1) != 0);
    const std::uint8_t cut = source.byte();
    const std::string bytes = textOf(source.rest());
    Measure measure;
    const auto judgement = ours.judge(bytes.data(), bytes.size());
    // Each of the peer's messages is looked for among ours.
    measure.check("judging", bytes.size(), 0, 64);
    const Pause pause;
    using Verdict = Handshake::Verdict;
    expect((judgement.verdict == Verdict::Refused) == !judgement.reason.empty(), "a refusal has a reason");
    expect(judgement.size <= bytes.size(), "a hello ends where its bytes do");
    const std::size_t part = std::min<std::size_t>(cut, bytes.size());
    const auto early = ours.judge(bytes.data(), part);
    if (early.verdict == Verdict::Refused)
        expect(judgement.verdict == Verdict::Refused, "what was refused early is refused");
    if (early.verdict == Verdict::Accepted)
        expect(judgement.verdict == Verdict::Accepted && judgement.size == early.size, "more bytes change no hello");
    if (judgement.verdict == Verdict::Accepted && part < judgement.size)
        expect(early.verdict == Verdict::Incomplete, "a hello is accepted when it is complete");
}

// The first byte chooses the side and whether a right hello, in which byte order, comes before the input; the second
// how many bytes come at a time.
void frames(Input input) {
    static boost::asio::io_context io;
    static FedChannel asked(io, false), offered(io, true);
    Source source(input);
    const std::uint8_t choice = source.byte();
    const std::size_t chunk = std::size_t{1} + source.byte() * std::size_t{source.byte() % 4U + 1U};
    FedChannel& channel = (choice & 1) != 0 ? offered : asked;
    std::vector<std::uint8_t> bytes;
    if ((choice & 2) != 0) {
        const std::string hello =
            (choice & 4) != 0 ? reversedHello(channel.handshake.hello()) : channel.handshake.hello();
        bytes.assign(hello.begin(), hello.end());
    }
    bytes.insert(bytes.end(), source.rest().begin(), source.rest().end());

    Source peer(bytes);
    const int closedBefore = channel.closed;
    {
        auto stream = std::make_unique<FedStream>();
        FedStream& fed = *stream;
        const auto connection =
            std::make_shared<Connection>(io, std::move(stream), channel, std::make_shared<Outbox>(std::size_t{1024}));
        connection->open();
        Measure measure; // from here on: what every connection has, with a first buffer, the peer has not asked for
        while (FedStream::feed(fed, peer, chunk)) {
            io.restart();
            io.poll(); // the connection's next turns, before it reads on
        }
        // It is whole frames that are handled, hence the steps for each time that bytes come.
        measure.check("receiving", bytes.size(), 0, 250);
    }
    io.restart();
    io.poll(); // timers that were cancelled let go of the connection
    expect(channel.closed == closedBefore + 1, "a connection ends once");
}

} // namespace fuzz
