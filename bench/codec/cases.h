// The compared codecs and their data: all of them encode the same plain records to wire format, and decode these to new
// plain records.
#pragma once

#include "common/interleaved.h"

#include <tvservice/core-records.h>
#include <tvservice/stream-records.h>
#include <vdl/flat.h>

#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

using Requests = std::vector<tvservice::TvServiceReq_t>;
using Infos = std::vector<tvservice::TvServiceInfo_t>;
using AudioInfo = tvservice::TvServiceAudioInfo_t;

// The sample data, which depends only on the count.
Requests sampleRequests(std::size_t count);
Infos sampleInfos(std::size_t count);
AudioInfo sampleAudioInfo(); // 8 streams

// The encoded bytes of a message, valid until the codec's next message.
using WireBytes = std::span<const char>;

// Encodes and decodes one message.
using RoundTrip = std::function<void()>;

struct Codec {
    std::string name;
    std::function<RoundTrip(Requests)> requests;
    std::function<RoundTrip(Infos)> infos;
    std::function<RoundTrip(AudioInfo)> audioInfo;
};

// The peers' codecs, which register themselves when the program is loaded, in no particular order.
std::vector<Codec>& peers();

// Implementation has `WireBytes encode(const Plain&)` and `Plain decode<Plain>(char* bytes, std::size_t size)`. The
// latter validates the whole message, may change the bytes, and throws if they are invalid. The bytes are copied once
// in between, as a socket does. Throws std::logic_error if the decoded records differ.
template <class Implementation, class Plain> RoundTrip roundTripOf(const std::string& name, Plain plain) {
    struct State {
        Implementation codec;
        Plain plain;
        std::unique_ptr<char, decltype(&vdlFlatFree)> received{nullptr, vdlFlatFree};
        std::size_t capacity = 0;

        Plain roundTrip() {
            const WireBytes wire = codec.encode(plain);
            if (wire.size() > capacity) {
                received.reset(static_cast<char*>(vdlFlatAlloc(wire.size())));
                capacity = wire.size();
            }
            std::memcpy(received.get(), wire.data(), wire.size());
            return codec.template decode<Plain>(received.get(), wire.size());
        }
    };
    const auto state = std::make_shared<State>();
    state->plain = std::move(plain);
    if (!(state->roundTrip() == state->plain)) throw std::logic_error(name + " changes records");
    return [state] {
        const Plain back = state->roundTrip();
        keep(&back);
    };
}

template <class Implementation> Codec codecOf(const std::string& name) {
    return {name, [name](Requests plain) { return roundTripOf<Implementation>(name, std::move(plain)); },
            [name](Infos plain) { return roundTripOf<Implementation>(name, std::move(plain)); },
            [name](AudioInfo plain) { return roundTripOf<Implementation>(name, std::move(plain)); }};
}

// For a peer's source file, so that linking it adds its codec.
template <class Implementation> bool addPeer(const char* name) {
    peers().push_back(codecOf<Implementation>(name));
    return true;
}

Codec ownCodec();
Codec limitCodec();

// Only the receiving half of the product's codec, for messages in this machine's byte order and in the other one.
Codec ownOrderCodec();
Codec otherOrderCodec();

// The case with that name, such as "request/100", "info/1" or "audio-info/8"; throws std::invalid_argument for others.
RoundTrip caseOf(const Codec& codec, const std::string& name);
// The number of records in a case. An audio info counts as one.
std::size_t recordsOf(const std::string& name);

} // namespace bench
