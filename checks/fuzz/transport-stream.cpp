#include "transport-stream.h"

#include "media/gstreamer/packet.h"

#include <algorithm>
#include <array>

namespace fuzz {
namespace {

using media::packetSize;

constexpr std::size_t headerSize = 4;
// What an input of a few thousand bytes may become.
constexpr std::size_t longest = std::size_t{512} << 10;

using Bytes = std::vector<std::uint8_t>;

class Stream {
public:
    explicit Stream(Source& source) : source_(source) {}

    Bytes make() {
        while (!source_.rest().empty() && bytes_.size() < longest) addPart();
        return std::move(bytes_);
    }

private:
    void addPart() {
        switch (source_.byte() % 5) {
            case 0:
                addPacket(source_.upTo(source_.byte()));
                break;
            case 1:
                addSection(true);
                break;
            case 2:
                addSection(false);
                break;
            case 3:
                addUnit();
                break;
            default: {
                const Input raw = source_.upTo(source_.byte());
                bytes_.insert(bytes_.end(), raw.begin(), raw.end());
            }
        }
    }
    void addPacket(Input first) {
        first = first.first(std::min(first.size(), packetSize));
        bytes_.insert(bytes_.end(), first.begin(), first.end());
        bytes_.insert(bytes_.end(), packetSize - first.size(), 0xFF);
    }
    void addPacket(std::uint16_t pid, std::uint8_t flags, Input content) {
        Bytes packet{0x47, static_cast<std::uint8_t>((flags & 0x40) | pid >> 8), static_cast<std::uint8_t>(pid),
                     static_cast<std::uint8_t>((flags & 0x30) | (counters_[pid]++ & 0x0F))};
        packet.insert(packet.end(), content.begin(), content.end());
        addPacket(packet);
    }
    std::uint16_t pid() { return static_cast<std::uint16_t>(source_.number(2) & 0x1FFF); }

    void addSection(bool right) {
        constexpr std::uint8_t start = 0x40, payload = 0x10;
        const std::uint16_t pid = this->pid();
        Bytes section{source_.byte(), source_.byte(), 0};
        const std::size_t fill = source_.byte(); // many times what the section ends with
        const Input content = source_.upTo(source_.byte());
        section.insert(section.end(), content.begin(), content.end());
        constexpr std::size_t repeated = 8;
        if (content.size() >= repeated)
            for (std::size_t i = 0; i < fill / 2; ++i)
                section.insert(section.end(), content.end() - repeated, content.end());
        if (right) {
            const std::size_t length = section.size() + 1; // without the first three bytes, with the checksum
            section[1] = static_cast<std::uint8_t>((section[1] & 0xF0) | (length >> 8 & 0x0F));
            section[2] = static_cast<std::uint8_t>(length);
            const std::uint32_t sum = checksumOf(section);
            for (const unsigned shift : {24U, 16U, 8U, 0U}) section.push_back(static_cast<std::uint8_t>(sum >> shift));
        }
        section.insert(section.begin(), 0); // it begins at once
        for (std::size_t at = 0; at < section.size(); at += packetSize - headerSize)
            addPacket(pid, at == 0 ? start | payload : payload,
                      Input(section).subspan(at, std::min(packetSize - headerSize, section.size() - at)));
    }
    static std::uint32_t checksumOf(const Bytes& bytes) {
        constexpr std::uint32_t polynomial = 0x04C11DB7;
        std::uint32_t sum = 0xFFFFFFFF;
        for (const std::uint8_t byte : bytes)
            for (unsigned bit = 8; bit-- > 0;)
                sum = sum << 1 ^ (((sum >> 31) ^ (byte >> bit & 1U)) != 0 ? polynomial : 0);
        return sum;
    }

    void addUnit() {
        const std::uint16_t pid = this->pid();
        const std::uint8_t flags = source_.byte();
        Bytes content;
        if ((flags & 0x20) != 0) { // adaptation: flags and the clock
            const std::uint32_t clock = source_.number(4);
            content = {7,
                       source_.byte(),
                       static_cast<std::uint8_t>(clock >> 24),
                       static_cast<std::uint8_t>(clock >> 16),
                       static_cast<std::uint8_t>(clock >> 8),
                       static_cast<std::uint8_t>(clock),
                       0x7E,
                       0};
        }
        const Input payload = source_.upTo(flags & 0x0F);
        content.insert(content.end(), payload.begin(), payload.end());
        const unsigned times = 1 + ((flags & 0x80) != 0 ? source_.byte() : 0U);
        for (unsigned i = 0; i < times; ++i) addPacket(pid, i == 0 ? flags : 0x10, content);
    }

    Source& source_;
    Bytes bytes_;
    std::array<std::uint8_t, 0x2000> counters_{};
};

} // namespace

std::vector<std::uint8_t> transportStream(Source& source) { return Stream(source).make(); }

} // namespace fuzz
