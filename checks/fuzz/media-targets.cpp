// What a transport stream's bytes reach: its tables, and what its receivers get.
#include "budget.h"
#include "media/gstreamer/distributor.h"
#include "transport-stream.h"

#include <algorithm>
#include <memory>
#include <unordered_set>

namespace fuzz {
namespace {

using media::Distributor;
using media::Packet;
using media::packetSize;
using media::tickMask;
using Bytes = std::vector<std::uint8_t>;

Packet packetAt(Bytes& bytes, std::size_t at) {
    return Packet(std::span<std::uint8_t>(bytes).subspan(at).first<packetSize>());
}

// The valid packets of a stream that came in one piece.
Bytes packetsIn(const Bytes& stream) {
    Bytes packets;
    for (std::size_t at = 0; at + packetSize <= stream.size();) {
        if (stream[at] != media::syncByte) {
            ++at;
            continue;
        }
        if ((stream[at + 1] & 0x80) == 0)
            packets.insert(packets.end(), stream.begin() + static_cast<std::ptrdiff_t>(at),
                           stream.begin() + static_cast<std::ptrdiff_t>(at + packetSize));
        at += packetSize;
    }
    return packets;
}

void checkPrograms(const std::map<std::uint16_t, media::Program>& programs) {
    constexpr std::size_t mostStreams = 1024 / 5; // in a section of 1024 bytes
    expect(programs.size() <= media::Tables::mostPrograms, "no more programs than documented");
    for (const auto& [number, program] : programs) {
        expect(number != 0 && program.tablePid != 0, "a program has a number and a table");
        expect(program.isKnown || program.streams.empty(), "streams come with the program's table");
        expect(program.streams.size() <= mostStreams, "no more streams than a section has room for");
        for (const media::Stream& stream : program.streams) {
            expect(stream.pid < media::pidCount, "a PID has 13 bits");
            expect(stream.language.size() <= 3 &&
                       std::ranges::all_of(stream.language, [](char c) { return c > ' ' && c < 0x7F; }),
                   "a language is up to three letters");
            expect(stream.kind != media::Stream::Kind::teletext || stream.page <= 899 + 66,
                   "a page of teletext has three digits");
        }
        expect(!program.rating || (*program.rating >= 0 && *program.rating <= 18), "an age is one that can be");
    }
}

// How much longer than it is one times of a looped stream are in its next round; nothing when it cannot loop.
std::optional<std::uint64_t> roundOf(Bytes& packets) {
    constexpr std::uint64_t frame = 3600, shortest = 9000;
    std::optional<std::uint64_t> first, last;
    std::uint16_t clock = 0;
    for (std::size_t at = 0; at < packets.size(); at += packetSize) {
        const Packet packet = packetAt(packets, at);
        const auto time = packet.pcr();
        if (!time || (first && packet.pid() != clock)) continue;
        if (!first) first = time;
        clock = packet.pid();
        last = time;
    }
    if (!first || ((*last - *first) & tickMask) < shortest) return std::nullopt;
    return (*last - *first + frame) & tickMask;
}

// What the tables of programs may occupy: a decoder each, a section that has begun, and what came in sections.
std::size_t costOf(std::size_t programs, const Bytes& packets) {
    constexpr std::size_t perProgram = 2048, perSection = 2 * 4098, perByte = 64;
    return (programs + 3) * (perProgram + perSection) + perByte * packets.size();
}
constexpr std::uint64_t stepsPerByte = 1000;

class Recorder : public Distributor::Receiver {
public:
    explicit Recorder(const std::unordered_set<std::string>& expected, std::uint16_t tablePid = 0)
        : expected_(expected), tablePid_(tablePid) {}

    void take(std::span<const std::uint8_t> packets) override {
        const Pause pause;
        expect(begun_, "a receiver is told that it begins");
        expect(!packets.empty() && packets.size() % packetSize == 0, "a receiver gets whole packets");
        for (; !packets.empty(); packets = packets.subspan(packetSize)) {
            const auto packet = packets.first(packetSize);
            const int pid = (packet[1] & 0x1F) << 8 | packet[2];
            if (pid != 0 && pid != tablePid_) bytes_ += packetSize;
            expect(packet[0] == media::syncByte && (packet[1] & 0x80) == 0, "a receiver gets valid packets");
            expect(expected_.contains(std::string(packet.begin(), packet.end())),
                   "a receiver gets packets of the stream, with the times of their round");
        }
    }
    void begins(std::uint16_t program, std::int64_t due) override {
        expect(!begun_ && program != 0, "a receiver begins once, with a program");
        expect(due >= -static_cast<std::int64_t>(tickMask) && due <= static_cast<std::int64_t>(tickMask),
               "a time is less than a round of the clock away");
        begun_ = true;
    }
    void changed() override { expect(begun_, "changes are those of a program that has begun"); }
    void signal(bool) override {}
    void missing(const std::string& others) override {
        expect(others.size() <= 16 * (2 + 5 + 1 + 3 * 255) + 5, "a message is short");
    }
    void failed(const media::Outcome&) override { expect(false, "a stream does not fail by itself"); }
    void ended() override { expect(false, "a stream does not end by itself"); }

    std::size_t bytes() const { return bytes_; } // but for tables

private:
    const std::unordered_set<std::string>& expected_;
    const std::uint16_t tablePid_;
    bool begun_ = false;
    std::size_t bytes_ = 0;
};

constexpr Distributor::Limits limits{16 * packetSize, 40 * packetSize};

// What is kept is what new receivers get at once.
void checkKept(Distributor& distributor, const std::unordered_set<std::string>& expected) {
    const Pause pause;
    std::size_t all = 0;
    constexpr std::uint16_t looked = 16; // programs with low numbers
    for (std::uint16_t number = 1; number < looked; ++number) {
        Recorder recorder(expected, distributor.program(number).tablePid);
        distributor.add(recorder, number);
        distributor.remove(recorder);
        expect(recorder.bytes() <= limits.program, "no more of a program is kept than its limit");
        all += recorder.bytes();
    }
    expect(all <= limits.all, "no more of all programs is kept than their limit");
}

} // namespace

void tableSections(Input input) {
    Source source(input);
    Bytes packets = packetsIn(transportStream(source));
    std::size_t programs = 0;
    Measure measure;
    media::Tables tables;
    for (std::size_t at = 0; at < packets.size(); at += packetSize) {
        const bool changed = tables.take(packetAt(packets, at));
        const Pause pause;
        if (changed) checkPrograms(tables.programs());
        programs = std::max(programs, tables.programs().size());
    }
    measure.check("reading tables", packets.size(), costOf(programs, packets), stepsPerByte);
}

void distribution(Input input) {
    Source source(input);
    const std::uint8_t choice = source.byte();
    const bool loops = (choice & 1) != 0;
    const std::size_t chunk = 1 + std::size_t{source.byte()} * ((choice & 2) != 0 ? 8U : 1U);
    const std::uint16_t wanted = source.byte(); // 0: the first one
    const Bytes stream = transportStream(source);
    Bytes packets = packetsIn(stream);
    const auto round = loops ? roundOf(packets) : std::nullopt;
    std::size_t programs = 0;
    {
        media::Tables tables;
        for (std::size_t at = 0; at < packets.size(); at += packetSize) {
            tables.take(packetAt(packets, at));
            programs = std::max(programs, tables.programs().size());
        }
    }
    const std::size_t tableBytes = costOf(programs, packets);

    constexpr int rounds = 3;
    std::unordered_set<std::string> expected;
    Recorder first(expected), second(expected);
    Bytes copy;
    copy.reserve(stream.size());
    Measure measure;
    Distributor distributor(loops, limits);
    distributor.add(first, wanted);
    for (int i = 0; i < rounds; ++i) {
        {
            const Pause pause;
            for (std::size_t at = 0; at < packets.size(); at += packetSize) {
                if (loops) packetAt(packets, at).shift(i > 0 ? *round : 0);
                expected.emplace(packets.begin() + static_cast<std::ptrdiff_t>(at),
                                 packets.begin() + static_cast<std::ptrdiff_t>(at + packetSize));
            }
            copy = stream;
        }
        for (std::span<std::uint8_t> rest = copy; !rest.empty(); rest = rest.subspan(std::min(chunk, rest.size())))
            distributor.take(rest.first(std::min(chunk, rest.size())));
        if (i == 0) distributor.add(second, 1);
        checkKept(distributor, expected);
        expect(!loops || distributor.beginAgain() == round.has_value(), "a stream loops when it has a clock");
        if (!round) break;
    }
    distributor.remove(first);
    distributor.remove(second);
    constexpr std::size_t table = 2 * 16 * packetSize; // of a program, as packets
    measure.check("distributing", 4 * chunk, tableBytes + limits.all + 3 * limits.program + (programs + 3) * table,
                  1000, std::uint64_t{rounds} * stepsPerByte * (programs + 1) * stream.size());
}

} // namespace fuzz
