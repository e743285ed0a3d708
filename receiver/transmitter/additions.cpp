#include "additions.h"

#include "sections.h"
#include "service-information.h"
#include "subtitles.h"
#include "teletext.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace transmitter {
namespace {

constexpr std::uint64_t ticksPerSecond = 90'000;

// Texts change once in a step. A subtitle is shown for eight of ten steps. A receiver that joins gets the next one
// whole.
constexpr std::uint64_t ticksPerStep = ticksPerSecond / 5, stepsPerSubtitle = 10, stepsShown = 8;

std::string upper(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string threeDigits(std::uint64_t number) { return std::to_string(1000 + number % 1000).substr(1); }

} // namespace

Bytes Additions::complete(std::span<const std::uint8_t> packets) {
    Bytes all;
    for (; packets.size() >= packetSize; packets = packets.subspan(packetSize)) {
        const auto bytes = packets.first<packetSize>();
        const Packet packet(bytes);
        const std::uint16_t pid = packet.pid();
        const auto program = std::ranges::find_if(broadcast_.programs, [pid](const Program& each) {
            return pid == each.videoPid() || pid == each.tablePid();
        });
        if (program != broadcast_.programs.end() && pid == program->tablePid()) {
            addProgramTable(all, *program, packet.section());
            continue;
        }
        all.insert(all.end(), bytes.begin(), bytes.end());
        if (program == broadcast_.programs.end()) continue;
        // After the clock in this packet: a receiver that has just joined needs it for their times.
        const auto clock = packet.clock(), presentation = packet.presentation();
        if (clock && program == broadcast_.programs.begin()) addTables(all, *clock);
        if (presentation) addTexts(all, *program, *presentation);
    }
    return all;
}

void Additions::addTables(Bytes& packets, std::uint64_t clock) {
    const std::uint64_t elapsed = clock_.at(clock);
    time_ = std::chrono::milliseconds(elapsed * 1000 / ticksPerSecond);
    if (elapsed < nextTables_) return;
    nextTables_ += ticksPerSecond / 2;
    add(packets, serviceInformation(broadcast_, std::chrono::floor<std::chrono::seconds>(time_), start_, packetizer_));
}

void Additions::addProgramTable(Bytes& packets, const Program& program, std::span<const std::uint8_t> section) {
    constexpr std::uint8_t subtitleTag = 0x59, teletextTag = 0x56;
    Bytes streams;
    const auto addStream = [&streams](std::uint16_t pid, const Bytes& described) {
        constexpr std::uint8_t privateStream = 0x06;
        streams.push_back(privateStream);
        add16(streams, 0xE000U | pid);
        add16(streams, 0xF000U | described.size());
        add(streams, described);
    };
    std::uint16_t pid = program.subtitlePid();
    for (const std::string& language : program.subtitles)
        addStream(pid++, descriptor(subtitleTag, subtitleDescription(language)));
    if (program.hasTeletext) addStream(pid, descriptor(teletextTag, teletextDescription()));
    add(packets, packetizer_.ofSection(program.tablePid(), extended(section, streams)));
}

void Additions::addTexts(Bytes& packets, const Program& program, std::uint64_t presentation) {
    OnAir& onAir = onAir_[program.number];
    const std::uint64_t elapsed = onAir.time.at(presentation), step = elapsed / ticksPerStep;
    if (onAir.step == step) return;
    onAir.step = step;
    const bool showsSubtitle = step % stepsPerSubtitle < stepsShown;
    const bool changes = onAir.showsSubtitle != showsSubtitle;
    onAir.showsSubtitle = showsSubtitle;
    const std::string second = threeDigits(elapsed / ticksPerSecond);
    if (program.hasTeletext) {
        const auto addPage = [&](TeletextPage page) {
            add(packets,
                packetizer_.ofData(program.teletextPid(), teletextData(page, program.name, second, presentation)));
        };
        addPage(step % 2 == 0 ? TeletextPage::first : TeletextPage::second);
        if (changes) addPage(showsSubtitle ? TeletextPage::subtitle : TeletextPage::emptySubtitle);
    }
    if (!changes) return;
    ++onAir.displaySets;
    std::uint16_t pid = program.subtitlePid();
    for (const std::string& language : program.subtitles) {
        const bool isFirst = pid == program.subtitlePid();
        const std::string text = upper(program.name + ' ' + language + ' ') + second;
        add(packets, packetizer_.ofData(
                         pid++, subtitleData(showsSubtitle ? text : "", isFirst ? BarColour::yellow : BarColour::cyan,
                                             onAir.displaySets, presentation)));
    }
}

} // namespace transmitter
