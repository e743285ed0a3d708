#include "distributor.h"

#include <algorithm>
#include <utility>

namespace media {
namespace {

constexpr std::size_t mostTablePackets = 16; // of one table, whose sections have at most 1024 bytes
constexpr std::uint64_t frameTicks = ticksPerSecond / 25;
constexpr std::uint64_t shortestRound = ticksPerSecond / 10; // or reading it again would take all the time
constexpr std::size_t mostNames = 16;                        // of programs, in a message

// From b to a, where both wrap.
std::int64_t differenceOf(std::uint64_t a, std::uint64_t b) {
    const std::uint64_t ticks = (a - b) & tickMask;
    return static_cast<std::int64_t>(ticks) - (ticks > tickMask / 2 ? static_cast<std::int64_t>(tickMask) + 1 : 0);
}

void append(std::vector<std::uint8_t>& to, std::span<const std::uint8_t> bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

} // namespace

void Distributor::add(Receiver& receiver, std::uint16_t program) {
    Wanted& wanted = wanted_[&receiver];
    wanted = {program, false, {}};
    resolve(wanted);
    if (failure_) return receiver.failed(*failure_);
    programsChanged();
    if (hasEnded_) receiver.ended();
}

Program Distributor::program(std::uint16_t number) const {
    const auto program = number == 0 ? tables_.programs().begin() : tables_.programs().find(number);
    return program == tables_.programs().end() ? Program{} : program->second;
}

void Distributor::fail(const Outcome& outcome) {
    if (failure_) return; // what follows a failure does not explain it
    failure_ = outcome;
    for (const auto& [receiver, wanted] : wanted_) receiver->failed(outcome);
}

void Distributor::end() {
    if (tables_.programs().empty()) return fail({result::notMedia, "the file is no transport stream"});
    hasEnded_ = true;
    for (const auto& [receiver, wanted] : wanted_) receiver->ended();
}

void Distributor::setSignal(bool present) {
    if (std::exchange(hasSignal_, present) == present) return;
    for (const auto& [receiver, wanted] : wanted_) receiver->signal(present);
}

bool Distributor::beginAgain() {
    if (!hasTime_ || ((lastTime_ - firstTime_) & tickMask) < shortestRound) return false;
    shift_ = (lastTime_ + frameTicks - firstTime_ + shift_) & tickMask;
    hasTime_ = false;
    part_.clear();
    return true;
}

void Distributor::take(std::span<std::uint8_t> bytes) {
    if (!part_.empty()) {
        const std::size_t missing = std::min(packetSize - part_.size(), bytes.size());
        append(part_, bytes.first(missing));
        bytes = bytes.subspan(missing);
        if (part_.size() < packetSize) return;
        takePacket(std::span<std::uint8_t>(part_).first<packetSize>());
        part_.clear();
    }
    while (!bytes.empty()) {
        if (bytes[0] != syncByte) { // to the next packet
            bytes = bytes.subspan(1);
            continue;
        }
        if (bytes.size() < packetSize) {
            append(part_, bytes);
            break;
        }
        takePacket(bytes.first<packetSize>());
        bytes = bytes.subspan(packetSize);
    }
    for (auto& [receiver, wanted] : wanted_) {
        if (wanted.packets.empty()) continue;
        receiver->take(wanted.packets);
        wanted.packets.clear();
    }
}

void Distributor::takePacket(Bytes bytes) {
    const Packet packet(bytes);
    if (!packet.isValid()) return;
    setSignal(true);
    if (loops_) followClock(packet);
    if (tables_.take(packet)) programsChanged();
    keepTable(packet, bytes);
    keep(bytes);
}

void Distributor::followClock(const Packet& packet) {
    const auto time = packet.pcr();
    if (time && !hasTime_) {
        hasTime_ = true;
        clockPid_ = packet.pid();
        firstTime_ = *time;
    }
    if (time && packet.pid() == clockPid_) lastTime_ = *time;
    packet.shift(shift_);
}

void Distributor::keepTable(const Packet& packet, Bytes bytes) {
    const std::uint16_t pid = packet.pid();
    const auto add = [&](std::vector<std::uint8_t>& table) {
        if (packet.startsUnit()) table.clear();
        if (table.size() < mostTablePackets * packetSize) append(table, bytes);
    };
    if (pid == 0) add(list_);
    for (const auto& [number, program] : tables_.programs())
        if (program.tablePid == pid) add(kept_[number].table);
}

void Distributor::keep(Bytes bytes) {
    const Packet packet(bytes);
    const auto programs = programsOf_.find(packet.pid());
    if (programs == programsOf_.end()) return;
    for (const std::uint16_t number : programs->second) {
        Kept& kept = kept_[number];
        if (const auto clock = packet.pcr()) kept.clock = *clock;
        const auto picture = pictures_.find(number);
        // Without pictures, everything can be decoded alone.
        const bool hasPictures = picture != pictures_.end();
        if (!hasPictures || (picture->second == packet.pid() && packet.startsKeyFrame())) {
            kept.packets.clear();
            kept.begun = true;
            kept.firstShown = packet.pts().value_or(kept.clock);
        }
        if (hasPictures && !(kept.begun && hold(kept, bytes))) release(kept);
        for (auto& [receiver, wanted] : wanted_) {
            if (wanted.program != number) continue;
            if (wanted.begun)
                append(wanted.packets, bytes);
            else
                begin(*receiver, wanted);
        }
    }
}

// Returns false when a limit leaves no room for a packet.
bool Distributor::hold(Kept& kept, Bytes bytes) {
    constexpr std::size_t least = 64 * packetSize;
    const std::size_t size = kept.packets.size() + packetSize, room = kept.packets.capacity();
    if (size > limits_.program) return false;
    if (size > room) {
        const std::size_t grown = std::min(std::max(2 * room, least), limits_.program);
        if (allKept_ - room + grown > limits_.all) return false;
        kept.packets.reserve(grown);
        allKept_ += kept.packets.capacity() - room;
    }
    append(kept.packets, bytes);
    return true;
}

void Distributor::release(Kept& kept) {
    allKept_ -= kept.packets.capacity();
    kept.packets = {};
    kept.begun = false;
}

// Program 0 becomes the first one, once the list of programs has come.
void Distributor::resolve(Wanted& wanted) const {
    if (wanted.program == 0 && !tables_.programs().empty()) wanted.program = tables_.programs().begin()->first;
}

// The receiver gets the tables and what is kept; if nothing is, it waits for the next key frame.
void Distributor::begin(Receiver& receiver, Wanted& wanted) {
    const auto kept = kept_.find(wanted.program);
    if (wanted.begun || kept == kept_.end() || !kept->second.begun || list_.empty() || kept->second.table.empty())
        return;
    wanted.begun = true;
    receiver.begins(wanted.program, differenceOf(kept->second.firstShown, kept->second.clock));
    std::vector<std::uint8_t> packets = list_;
    append(packets, kept->second.table);
    append(packets, kept->second.packets);
    receiver.take(packets);
}

void Distributor::programsChanged() {
    programsOf_.clear();
    pictures_.clear();
    for (const auto& [number, program] : tables_.programs()) {
        if (!program.isKnown) continue;
        const auto add = [&, number = number](std::uint16_t pid) {
            auto& programs = programsOf_[pid];
            if (programs.empty() || programs.back() != number) programs.push_back(number);
        };
        add(program.clockPid);
        add(program.tablePid);
        for (const Stream& stream : program.streams) {
            add(stream.pid);
            if (stream.kind == Stream::Kind::video) pictures_.try_emplace(number, stream.pid);
        }
    }
    std::erase_if(kept_, [this](const auto& kept) {
        if (tables_.programs().contains(kept.first)) return false;
        allKept_ -= kept.second.packets.capacity();
        return true;
    });
    for (auto& [receiver, wanted] : wanted_) {
        resolve(wanted);
        if (tables_.areProgramsKnown() && !tables_.programs().contains(wanted.program))
            receiver->missing(namesOfPrograms());
        else if (wanted.begun)
            receiver->changed();
        else
            begin(*receiver, wanted);
    }
}

std::string Distributor::namesOfPrograms() const {
    std::string names;
    std::size_t count = 0;
    for (const auto& [number, program] : tables_.programs()) {
        if (++count > mostNames) return names + ", ...";
        names +=
            (names.empty() ? "" : ", ") + std::to_string(number) + (program.name.empty() ? "" : " " + program.name);
    }
    return names;
}

} // namespace media
