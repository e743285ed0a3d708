// Gives the packets of a transport stream to those who want a program of it, from the program's newest key frame on.
#pragma once

#include "packet.h"
#include "tables.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <media/engine.h>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace media {

// For one thread at a time.
class Distributor {
public:
    // What is kept of programs since their newest key frames, in bytes. A program beyond them is shown from its next
    // key frame on.
    struct Limits {
        std::size_t program = std::size_t{8} << 20;
        std::size_t all = std::size_t{64} << 20; // what one transport stream has in two seconds, and more
    };

    // Takes a program's packets. Called inside the distributor's functions: it must not call them, and must not wait.
    class Receiver {
    public:
        virtual void take(std::span<const std::uint8_t> packets) = 0;
        // Before the first packets: the program's number, and in how long the first picture is due where the broadcast
        // is now, in ticks of packet.h; negative: it should have been shown before.
        virtual void begins(std::uint16_t program, std::int64_t due) = 0;
        // The program's streams, or what is known about it, have changed.
        virtual void changed() = 0;
        // The input receives nothing any more, or something again.
        virtual void signal(bool present) = 0;
        // The program is not in the transport stream, which has the others.
        virtual void missing(const std::string& others) = 0;
        virtual void failed(const Outcome& outcome) = 0;
        // The stream is at its end, and does not come again.
        virtual void ended() = 0;

    protected:
        ~Receiver() = default;
    };

    // loops: the stream comes again and again; the times of each round continue those of the former one.
    explicit Distributor(bool loops) : Distributor(loops, Limits()) {}
    Distributor(bool loops, Limits limits) : loops_(loops), limits_(limits) {}

    // The receiver gets the packets of the program from its newest key frame on, until remove returns. Program 0 is the
    // one with the lowest number.
    void add(Receiver& receiver, std::uint16_t program);
    void remove(Receiver& receiver) { wanted_.erase(&receiver); }

    // Takes the next bytes of the stream, cut anywhere, and changes the times in them.
    void take(std::span<std::uint8_t> bytes);
    // The stream is at its end, and comes again. Returns false when it cannot: it has no clock, or is too short.
    bool beginAgain();

    // The stream is at its end, and does not come again.
    void end();

    void fail(const Outcome& outcome);
    void setSignal(bool present);
    bool hasSignal() const { return hasSignal_; }

    // Not known before its table has come.
    Program program(std::uint16_t number) const;

private:
    struct Kept {
        std::vector<std::uint8_t> packets; // from a key frame on
        bool begun = false;
        std::vector<std::uint8_t> table;         // the packets of the program's table
        std::uint64_t clock = 0, firstShown = 0; // the newest time of its clock, and the time of the first picture kept
    };
    struct Wanted {
        std::uint16_t program = 0;
        bool begun = false;                // it has got the key frame
        std::vector<std::uint8_t> packets; // to take next
    };
    using Bytes = std::span<std::uint8_t, packetSize>;

    void takePacket(Bytes bytes);
    void followClock(const Packet& packet);
    void keepTable(const Packet& packet, Bytes bytes);
    void keep(Bytes bytes);
    bool hold(Kept& kept, Bytes bytes);
    void release(Kept& kept);
    void programsChanged();
    std::string namesOfPrograms() const;
    void resolve(Wanted& wanted) const;
    void begin(Receiver& receiver, Wanted& wanted);

    const bool loops_;
    const Limits limits_;
    Tables tables_;
    std::vector<std::uint8_t> part_; // of a packet, at the end of what has come
    std::vector<std::uint8_t> list_; // the packets of the list of programs
    std::map<std::uint16_t, Kept> kept_;
    std::size_t allKept_ = 0; // bytes that the packets in kept_ occupy
    // The programs that each PID belongs to; few have more than one.
    std::map<std::uint16_t, std::vector<std::uint16_t>> programsOf_;
    std::map<std::uint16_t, std::uint16_t> pictures_; // PID of each program's first video stream
    std::map<Receiver*, Wanted> wanted_;              // at most one per terminal
    std::optional<Outcome> failure_;                  // of the input
    bool hasSignal_ = false, hasEnded_ = false;
    // Of a stream that loops: the clock is that of the first PID which has one.
    std::uint64_t shift_ = 0, firstTime_ = 0, lastTime_ = 0;
    std::uint16_t clockPid_ = 0;
    bool hasTime_ = false;
};

} // namespace media
