// The codecs under comparison and what they carry: the same plain records on all sides, from plain to wire and back to
// new plain records.
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

// The sample data, the same for each count in each run.
Requests sampleRequests(std::size_t count);
Infos sampleInfos(std::size_t count);
AudioInfo sampleAudioInfo(); // 8 streams

// Bytes of a message as a codec has made them, valid until its next message.
using WireBytes = std::span<const char>;

// One message once through a codec.
using RoundTrip = std::function<void()>;

struct Codec {
    std::string name;
    std::function<RoundTrip(Requests)> requests;
    std::function<RoundTrip(Infos)> infos;
    std::function<RoundTrip(AudioInfo)> audioInfo;
};

// The peers add theirs when the program is loaded, in no order.
std::vector<Codec>& peers();

// Implementation has `WireBytes encode(const Plain&)` and `Plain decode<Plain>(char* bytes, std::size_t size)`, which
// checks the whole message, may change the bytes, and throws when it does not like them. In between the bytes are
// copied once, as a socket does. Throws std::logic_error when the records come back changed.
template <class Implementation, class Plain> RoundTrip roundTripOf(const std::string& name, Plain plain) {
    struct State {
        Implementation codec;
        Plain plain;
        std::unique_ptr<char, decltype(&vdlFlatFree)> received{nullptr, vdlFlatFree};
        std::size_t capacity = 0;

        Plain travel() {
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
    if (!(state->travel() == state->plain)) throw std::logic_error(name + " changes records");
    return [state] {
        const Plain back = state->travel();
        keep(&back);
    };
}

template <class Implementation> Codec codecOf(const std::string& name) {
    return {name, [name](Requests plain) { return roundTripOf<Implementation>(name, std::move(plain)); },
            [name](Infos plain) { return roundTripOf<Implementation>(name, std::move(plain)); },
            [name](AudioInfo plain) { return roundTripOf<Implementation>(name, std::move(plain)); }};
}

// For a peer's source file: its codec is there when the file is linked.
template <class Implementation> bool addPeer(const char* name) {
    peers().push_back(codecOf<Implementation>(name));
    return true;
}

Codec ownCodec();
Codec limitCodec();

// The receiving half of the product's codec alone: messages of a machine of the same byte order, and of the other one.
Codec ownOrderCodec();
Codec otherOrderCodec();

// Which case a name means, "request/100", "info/1" or "audio-info/8"; throws std::invalid_argument for others.
RoundTrip caseOf(const Codec& codec, const std::string& name);
// How many records a case has. An audio info counts as one.
std::size_t recordsOf(const std::string& name);

} // namespace bench
