#include "service-information.h"

#include <algorithm>
#include <string>
#include <utility>

namespace transmitter {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t packetSize = 188, headerSize = 4;
constexpr std::uint16_t namesPid = 0x11, eventsPid = 0x12, timePid = 0x14, network = 1;
constexpr std::uint8_t namesTable = 0x42, eventsTable = 0x4E, timeTable = 0x70;

void add16(Bytes& bytes, std::uint16_t number) {
    bytes.push_back(static_cast<std::uint8_t>(number >> 8));
    bytes.push_back(static_cast<std::uint8_t>(number));
}

void add(Bytes& bytes, const Bytes& more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

void addText(Bytes& bytes, const std::string& text) { // of ASCII
    bytes.push_back(static_cast<std::uint8_t>(text.size()));
    bytes.insert(bytes.end(), text.begin(), text.end());
}

std::uint32_t checksumOf(const Bytes& bytes) {
    constexpr std::uint32_t polynomial = 0x04C11DB7, top = 0x80000000;
    std::uint32_t sum = 0xFFFFFFFF;
    for (const std::uint8_t byte : bytes) {
        sum ^= std::uint32_t{byte} << 24;
        for (int bit = 0; bit < 8; ++bit) sum = sum & top ? sum << 1 ^ polynomial : sum << 1;
    }
    return sum;
}

Bytes descriptor(std::uint8_t tag, const Bytes& content) {
    Bytes bytes{tag, static_cast<std::uint8_t>(content.size())};
    add(bytes, content);
    return bytes;
}

Bytes section(std::uint8_t table, std::uint16_t extension, std::uint8_t version, std::uint8_t number,
              std::uint8_t lastNumber, const Bytes& content) {
    constexpr std::size_t rest = 9; // after the length: the header's and the checksum's
    Bytes bytes{table};
    add16(bytes, static_cast<std::uint16_t>(0xF000 | (content.size() + rest)));
    add16(bytes, extension);
    add(bytes, {static_cast<std::uint8_t>(0xC1 | version << 1), number, lastNumber});
    add(bytes, content);
    const std::uint32_t sum = checksumOf(bytes);
    add16(bytes, static_cast<std::uint16_t>(sum >> 16));
    add16(bytes, static_cast<std::uint16_t>(sum));
    return bytes;
}

std::uint8_t bcd(std::int64_t number) { return static_cast<std::uint8_t>(number / 10 << 4 | number % 10); }

// Modified Julian date and time of day.
Bytes timeOf(std::chrono::sys_seconds time) {
    using namespace std::chrono;
    constexpr sys_days origin = year{1858} / November / 17;
    const auto day = floor<days>(time);
    const hh_mm_ss clock{time - day};
    Bytes bytes;
    add16(bytes, static_cast<std::uint16_t>((day - origin).count()));
    add(bytes, {bcd(clock.hours().count()), bcd(clock.minutes().count()), bcd(clock.seconds().count())});
    return bytes;
}

} // namespace

void ServiceInformation::add(Bytes& packets, std::uint16_t pid, const Bytes& section) {
    Bytes data{0}; // the section begins at once
    transmitter::add(data, section);
    for (std::size_t at = 0; at < data.size(); at += packetSize - headerSize) {
        const bool begins = at == 0;
        std::uint8_t& counter = counters_[pid];
        packets.push_back(0x47);
        add16(packets, static_cast<std::uint16_t>((begins ? 0x4000 : 0) | pid));
        packets.push_back(static_cast<std::uint8_t>(0x10 | counter));
        counter = (counter + 1) & 0x0F;
        const std::size_t size = std::min(packetSize - headerSize, data.size() - at);
        packets.insert(packets.end(), data.begin() + static_cast<std::ptrdiff_t>(at),
                       data.begin() + static_cast<std::ptrdiff_t>(at + size));
        packets.insert(packets.end(), packetSize - headerSize - size, 0xFF);
    }
}

Bytes ServiceInformation::names() const {
    constexpr std::uint8_t television = 1, serviceTag = 0x48;
    Bytes content;
    add16(content, network);
    content.push_back(0xFF);
    for (const Program& program : broadcast_.programs) {
        Bytes about{television};
        addText(about, "Transmitter");
        addText(about, program.name);
        const Bytes described = descriptor(serviceTag, about);
        add16(content, program.number);
        content.push_back(0xFD);                                               // with events now and next
        add16(content, static_cast<std::uint16_t>(0x8000 | described.size())); // running, not scrambled
        transmitter::add(content, described);
    }
    return section(namesTable, broadcast_.stream, 0, 0, 0, content);
}

Bytes ServiceInformation::event(const Program& program, std::int64_t now, bool next,
                                std::chrono::sys_seconds start) const {
    constexpr std::uint8_t shortEventTag = 0x4D, running = 4, notRunning = 1;
    const std::int64_t number = now + (next ? 1 : 0);
    const auto begin = start + number * eventLength;
    Bytes about{'e', 'n', 'g'};
    addText(about, program.name + ' ' + std::to_string(number));
    addText(about, "Event " + std::to_string(number) + " of " + program.name);
    const Bytes described = descriptor(shortEventTag, about);
    Bytes content;
    add16(content, broadcast_.stream);
    add16(content, network);
    transmitter::add(content, {1, eventsTable});
    add16(content, static_cast<std::uint16_t>(1000 + number));
    transmitter::add(content, timeOf(begin));
    transmitter::add(content, {0, 0, bcd(eventLength.count())});
    add16(content, static_cast<std::uint16_t>(std::size_t{next ? notRunning : running} << 13 | described.size()));
    transmitter::add(content, described);
    return section(eventsTable, program.number, static_cast<std::uint8_t>(now & 0x1F), next ? 1 : 0, 1, content);
}

Bytes ServiceInformation::packetsAt(std::chrono::seconds time, std::chrono::sys_seconds start) {
    Bytes packets;
    add(packets, namesPid, names());
    Bytes clock{timeTable, 0x70, 5};
    transmitter::add(clock, timeOf(start + time));
    add(packets, timePid, clock);
    const std::int64_t now = time / eventLength;
    for (const Program& program : broadcast_.programs)
        for (const bool next : {false, true}) add(packets, eventsPid, event(program, now, next, start));
    return packets;
}

} // namespace transmitter
