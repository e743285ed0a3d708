// What the muxer cannot make: the names and events of programs, subtitles and teletext.
#pragma once

#include "broadcast.h"
#include "packets.h"

#include <chrono>
#include <map>
#include <optional>

namespace transmitter {

class Additions {
public:
    // The broadcast starts with the first clock of the first program.
    Additions(Broadcast broadcast, std::chrono::sys_seconds start) : broadcast_(std::move(broadcast)), start_(start) {}

    // The muxer's next packets with what is added to them.
    Bytes complete(std::span<const std::uint8_t> packets);
    // Of the newest clock, since the start.
    std::chrono::milliseconds time() const { return time_; }

private:
    struct OnAir {
        Elapsed time;
        std::optional<std::uint64_t> step; // the newest one
        std::optional<bool> showsSubtitle;
        unsigned displaySets = 0;
    };

    void addTables(Bytes& packets, std::uint64_t clock);
    void addProgramTable(Bytes& packets, const Program& program, std::span<const std::uint8_t> section);
    // Beside a picture of the program with this time of presentation.
    void addTexts(Bytes& packets, const Program& program, std::uint64_t presentation);

    const Broadcast broadcast_;
    const std::chrono::sys_seconds start_;
    Elapsed clock_;
    std::chrono::milliseconds time_{0};
    std::uint64_t nextTables_ = 0;         // in ticks since the start
    std::map<std::uint16_t, OnAir> onAir_; // by number of the program
    Packetizer packetizer_;
};

} // namespace transmitter
