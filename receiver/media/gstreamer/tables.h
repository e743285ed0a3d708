// The tables of an MPEG transport stream: which programs it has, and which streams these have.
#pragma once

#include "packet.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace media {

struct Stream {
    enum class Kind { video, audio, subtitle, teletext, other };
    Kind kind = Kind::other;
    std::uint16_t pid = 0;
    std::uint8_t tag = 0;    // of the component; 0 without one
    std::int32_t coding = 0; // of tvservice::videoCodings, audioCodings or subtitleCodings; 0: another one
    std::string language;    // three letters
    std::uint8_t type = 0;   // of an audio stream or of subtitles, as the broadcast numbers them
    std::uint16_t page = 0, ancillaryPage = 0; // of subtitles; of teletext: the page to begin with, 100 to 899
    bool operator==(const Stream&) const = default;
};

struct Program {
    std::uint16_t tablePid = 0;
    bool isKnown = false; // its table has come, so the streams are all there
    std::uint16_t clockPid = 0;
    std::vector<Stream> streams;
    std::string name;          // UTF-8; empty without a description
    std::optional<int> rating; // least age for what runs now; 0: for everyone; none: not known
    bool operator==(const Program&) const = default;
};

// For one thread at a time.
class Tables {
public:
    // Streams of more programs are ignored, as a transport stream has 8192 PIDs.
    static constexpr std::size_t mostPrograms = 256;

    Tables();
    ~Tables();
    Tables(const Tables&) = delete;
    Tables& operator=(const Tables&) = delete;

    // Takes the next packet of the stream, if it is one of a table. Returns whether the programs have changed.
    bool take(const Packet& packet);

    bool areProgramsKnown() const;                            // their list has come
    const std::map<std::uint16_t, Program>& programs() const; // by number

private:
    struct Decoders;
    const std::unique_ptr<Decoders> decoders_;
};

} // namespace media
