// The product's codec. Sending converts plain records to flat ones in the memory of one message, and marshals these
// into the outgoing bytes. Receiving validates the whole message, converts it in place, and reads it to new plain
// records.
#include "codec/cases.h"
#include "support/wire.h"

#include <host/marshaller.h>
#include <tvservice/messages.h>

#include <stdexcept>

namespace bench {
namespace {

template <class Plain> struct MessageOf;
template <> struct MessageOf<Requests> { using Type = tvservice::messages::TvServiceReq; };
template <> struct MessageOf<Infos> { using Type = tvservice::messages::TvServiceInfo; };
template <> struct MessageOf<AudioInfo> { using Type = tvservice::messages::TvServiceAudioInfo; };

template <class Plain, bool swap> Plain received(char* bytes, std::size_t size) {
    using Message = typename MessageOf<Plain>::Type;
    static const host::Plan& plan = host::planOf(*Message::table()); // a handler gets it at its registration
    if (const char* fault = host::unmarshal(plan, bytes, size, swap)) throw std::invalid_argument(fault);
    return std::get<0>(Message::Body::read(bytes));
}

class Own {
public:
    template <class Plain> WireBytes encode(const Plain& plain) {
        using Message = typename MessageOf<Plain>::Type;
        const auto region = genrpc::FlatRegion::create(sendBufferBytes);
        const char* body = Message::Body::build(*region, plain);
        wire_.truncate(0);
        host::marshal(host::planOf(*Message::table()), body, wire_, largestMessage);
        return {wire_.data(), wire_.size()};
    }
    template <class Plain> Plain decode(char* bytes, std::size_t size) { return received<Plain, false>(bytes, size); }

private:
    static constexpr std::size_t sendBufferBytes = 16384; // as in the proxy
    static constexpr std::size_t largestMessage = std::size_t{64} << 20;

    host::Bytes wire_;
};

// Sends the same bytes each time.
template <bool swap> class Receiver {
public:
    template <class Plain> WireBytes encode(const Plain& plain) {
        using Message = typename MessageOf<Plain>::Type;
        if (wire_.empty()) {
            wire_ = support::wireOf<Message>(plain);
            if (swap) wire_ = support::reversed(*Message::table(), wire_);
        }
        return wire_;
    }
    template <class Plain> Plain decode(char* bytes, std::size_t size) { return received<Plain, swap>(bytes, size); }

private:
    std::string wire_;
};

} // namespace

Codec ownCodec() { return codecOf<Own>("own"); }
Codec ownOrderCodec() { return codecOf<Receiver<false>>("own order"); }
Codec otherOrderCodec() { return codecOf<Receiver<true>>("other order"); }

} // namespace bench
