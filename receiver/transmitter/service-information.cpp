#include "service-information.h"

#include "sections.h"

#include <string>

namespace transmitter {
namespace {

constexpr std::uint16_t namesPid = 0x11, eventsPid = 0x12, timePid = 0x14, network = 1;
constexpr std::chrono::seconds eventLength{5};
constexpr std::uint8_t namesTable = 0x42, eventsTable = 0x4E, timeTable = 0x70;

void addText(Bytes& bytes, const std::string& text) { // of ASCII
    bytes.push_back(static_cast<std::uint8_t>(text.size()));
    bytes.insert(bytes.end(), text.begin(), text.end());
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

Bytes names(const Broadcast& broadcast) {
    constexpr std::uint8_t television = 1, serviceTag = 0x48;
    Bytes content;
    add16(content, network);
    content.push_back(0xFF);
    for (const Program& program : broadcast.programs) {
        Bytes about{television};
        addText(about, "Transmitter");
        addText(about, program.name);
        const Bytes described = descriptor(serviceTag, about);
        add16(content, program.number);
        content.push_back(0xFD);                   // with events now and next
        add16(content, 0x8000 | described.size()); // running, not scrambled
        add(content, described);
    }
    return section({.table = namesTable, .extension = broadcast.stream}, content);
}

// A program has no rating for viewers of any age.
Bytes ratingOf(const Program& program) {
    constexpr std::uint8_t ratingTag = 0x55;
    if (program.age == 0) return {};
    return descriptor(ratingTag, {'G', 'B', 'R', static_cast<std::uint8_t>(program.age - 3)});
}

// now: the number of the event that runs.
Bytes event(const Broadcast& broadcast, const Program& program, std::int64_t now, bool next,
            std::chrono::sys_seconds start) {
    constexpr std::uint8_t shortEventTag = 0x4D, running = 4, notRunning = 1;
    const std::int64_t number = now + (next ? 1 : 0);
    const auto begin = start + number * eventLength;
    Bytes about{'e', 'n', 'g'};
    addText(about, program.name + ' ' + std::to_string(number));
    addText(about, "Event " + std::to_string(number) + " of " + program.name);
    Bytes described = descriptor(shortEventTag, about);
    add(described, ratingOf(program));
    Bytes content;
    add16(content, broadcast.stream);
    add16(content, network);
    add(content, {1, eventsTable});
    add16(content, static_cast<std::uint16_t>(1000 + number));
    add(content, timeOf(begin));
    add(content, {0, 0, bcd(eventLength.count())});
    add16(content, std::size_t{next ? notRunning : running} << 13 | described.size());
    add(content, described);
    return section({.table = eventsTable,
                    .extension = program.number,
                    .version = static_cast<std::uint8_t>(now & 0x1F),
                    .number = std::uint8_t{next},
                    .lastNumber = 1},
                   content);
}

} // namespace

Bytes serviceInformation(const Broadcast& broadcast, std::chrono::seconds time, std::chrono::sys_seconds start,
                         Packetizer& packetizer) {
    Bytes packets = packetizer.ofSection(namesPid, names(broadcast));
    Bytes clock{timeTable, 0x70, 5};
    add(clock, timeOf(start + time));
    add(packets, packetizer.ofSection(timePid, clock));
    const std::int64_t now = time / eventLength;
    for (const Program& program : broadcast.programs)
        for (const bool next : {false, true})
            add(packets, packetizer.ofSection(eventsPid, event(broadcast, program, now, next, start)));
    return packets;
}

} // namespace transmitter
