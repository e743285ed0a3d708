// One transport stream, received once for all terminals that show programs of it: one tuner.
//
// It reads a file in a loop and in real time, or datagrams of the network. It knows the programs, and keeps what has
// come of each since its newest key frame, so that a program is shown at once.
#pragma once

#include "glib-pointers.h"
#include "tables.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <media/engine.h>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread-safety/mutex.h>
#include <vector>

namespace media {

class Multiplex {
public:
    // What is kept of a program since its newest key frame. Beyond that, a program is shown from its next key frame on.
    static constexpr std::size_t mostKept = std::size_t{8} << 20; // bytes

    // Takes a program's packets. Called on the input's thread, or inside add, with the multiplex locked: it must not
    // call the multiplex, and must not wait.
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

    protected:
        ~Receiver() = default;
    };

    // transport: file://PATH, udp:// or rtp://HOST:PORT, where the host is a multicast group or an address of this
    // machine, or dvb-adapter://NUMBER?NAME=VALUE&... with properties of the element dvbsrc. Throws Error for anything
    // else, and when an element is missing.
    explicit Multiplex(const std::string& transport);
    ~Multiplex();
    Multiplex(const Multiplex&) = delete;
    Multiplex& operator=(const Multiplex&) = delete;

    // The receiver gets the packets of the program from its newest key frame on, until remove returns. Program 0 is the
    // one with the lowest number.
    void add(Receiver& receiver, std::uint16_t program);
    void remove(Receiver& receiver);

    // Not known before its table has come.
    Program program(std::uint16_t number) const;
    // Strength and quality in percent; a file or the network has none: all of what is sent comes, or nothing.
    struct Signal {
        bool present = false; // it has received something lately
        std::int32_t strength = 0, quality = 0;
    };
    Signal signal() const;

private:
    struct Kept {
        std::vector<std::uint8_t> packets; // from a key frame on; at most mostKept
        bool begun = false;
        std::vector<std::uint8_t> table;         // the packets of the program's table
        std::uint64_t clock = 0, firstShown = 0; // the newest time of its clock, and the time of the first picture kept
    };
    struct Wanted {
        std::uint16_t program = 0;
        bool begun = false;                // it has got the key frame
        std::vector<std::uint8_t> packets; // to take next
    };

    static GstFlowReturn takeSample(GstElement* sink, void* self);
    static GstBusSyncReply takeMessage(GstBus* bus, GstMessage* message, void* self);
    void take(std::span<std::uint8_t> bytes);
    void takePacket(std::span<std::uint8_t, 188> bytes) TVSA_REQUIRES(mutex_);
    void keep(std::span<std::uint8_t, 188> bytes) TVSA_REQUIRES(mutex_);
    void programsChanged() TVSA_REQUIRES(mutex_);
    void resolve(Wanted& wanted) TVSA_REQUIRES(mutex_);
    void begin(Receiver& receiver, Wanted& wanted) TVSA_REQUIRES(mutex_);
    void fail(const Outcome& outcome) TVSA_REQUIRES(mutex_);
    void setSignal(bool present) TVSA_REQUIRES(mutex_);
    void takeFrontEnd(const GstStructure& report) TVSA_REQUIRES(mutex_);
    void rewind() TVSA_REQUIRES(mutex_);

    // Reads a file again, on a thread of GStreamer's, unless the multiplex has ended by then.
    struct Restart {
        thread_safety::Mutex mutex;
        bool hasEnded TVSA_GUARDED_BY(mutex) = false;
    };

    const bool loops_;
    Owner<GstElement> pipeline_;
    const std::shared_ptr<Restart> restart_ = std::make_shared<Restart>();

    mutable thread_safety::Mutex mutex_;
    Tables tables_ TVSA_GUARDED_BY(mutex_);
    std::vector<std::uint8_t> list_ TVSA_GUARDED_BY(mutex_); // the packets of the list of programs
    std::map<std::uint16_t, Kept> kept_ TVSA_GUARDED_BY(mutex_);
    // The programs that each PID belongs to; few have more than one.
    std::map<std::uint16_t, std::vector<std::uint16_t>> programsOf_ TVSA_GUARDED_BY(mutex_);
    std::map<std::uint16_t, std::uint16_t> pictures_
        TVSA_GUARDED_BY(mutex_);                                 // PID of each program's first video stream
    std::map<Receiver*, Wanted> wanted_ TVSA_GUARDED_BY(mutex_); // at most one per terminal
    std::optional<Outcome> failure_ TVSA_GUARDED_BY(mutex_);     // of the input
    bool hasSignal_ TVSA_GUARDED_BY(mutex_) = false;
    Signal signal_ TVSA_GUARDED_BY(mutex_){true, 100, 100};  // while there is one
    std::vector<std::uint8_t> part_ TVSA_GUARDED_BY(mutex_); // of a packet, at the end of a buffer
    // Of a file that is read in a loop: its times continue where the previous round ended.
    std::uint64_t shift_ TVSA_GUARDED_BY(mutex_) = 0, firstTime_ TVSA_GUARDED_BY(mutex_) = 0;
    std::uint64_t lastTime_ TVSA_GUARDED_BY(mutex_) = 0;
    std::uint16_t clockPid_ TVSA_GUARDED_BY(mutex_) = 0;
    bool hasTime_ TVSA_GUARDED_BY(mutex_) = false;
};

} // namespace media
