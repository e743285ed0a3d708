// One transport stream, received once for all terminals that show programs of it: one tuner.
//
// It reads a file in real time, in a loop or once, or datagrams of the network, or what an adapter receives.
#pragma once

#include "distributor.h"
#include "glib-pointers.h"

#include <cstdint>
#include <media/engine.h>
#include <memory>
#include <string>
#include <thread-safety/mutex.h>

namespace media {

// Why there can be no multiplex of a URI that channel lists may have, for people; empty: there may.
std::string problemOf(const std::string& transport);

class Multiplex {
public:
    // Called on the input's thread, or inside add, with the multiplex locked.
    using Receiver = Distributor::Receiver;

    // transport: file://PATH, udp:// or rtp://HOST:PORT, where the host is a multicast group or an address of this
    // machine, or dvb-adapter://NUMBER?NAME=VALUE&... with properties of the element dvbsrc. Throws Error for anything
    // else, and when an element is missing.
    enum class AtEnd { beginsAgain, isOver }; // of a file
    explicit Multiplex(const std::string& transport, AtEnd atEnd = AtEnd::beginsAgain);
    ~Multiplex();
    Multiplex(const Multiplex&) = delete;
    Multiplex& operator=(const Multiplex&) = delete;

    // The receiver gets the packets of the program from its newest key frame on, until remove returns. Program 0 is the
    // one with the lowest number.
    void add(Receiver& receiver, std::uint16_t program);
    void remove(Receiver& receiver);

    // Not known before its table has come.
    Program program(std::uint16_t number) const;
    // Strength and quality in percent. Files and the network do not measure them: 100 while something comes.
    struct Signal {
        bool present = false; // it has received something lately
        std::int32_t strength = 0, quality = 0;
    };
    Signal signal() const;

private:
    static GstFlowReturn takeSample(GstElement* sink, void* self);
    static GstBusSyncReply takeMessage(GstBus* bus, GstMessage* message, void* self);
    void takeFrontEnd(const GstStructure& report) TVSA_REQUIRES(mutex_);
    void rewind() TVSA_REQUIRES(mutex_);

    // Reads a file again, on a thread of GStreamer's, unless the multiplex has ended by then.
    struct Restart {
        thread_safety::Mutex mutex;
        bool hasEnded TVSA_GUARDED_BY(mutex) = false;
    };

    const bool isFile_, loops_;
    Owner<GstElement> pipeline_;
    const std::shared_ptr<Restart> restart_ = std::make_shared<Restart>();

    mutable thread_safety::Mutex mutex_;
    Distributor distributor_ TVSA_GUARDED_BY(mutex_){loops_};
    Signal signal_ TVSA_GUARDED_BY(mutex_){true, 100, 100}; // while there is one
};

// Whether a file looks like a transport stream.
bool isTransportStream(const std::string& path);

} // namespace media
