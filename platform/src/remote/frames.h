// What two relays say to each other: ZeroMQ messages of one part, a kind and what belongs to it. A client opens and is
// answered in kind; then data goes both ways until one side says that it is the end.
//
// Nobody sends more than the other has room for. Each side begins with a credit of one window; a frame of data costs
// its bytes and frameCost, and what the receiver has passed on it gives back. So one peer that does not read delays
// nobody else, and what waits for it is bounded.
#pragma once

#include <cstddef>

namespace host::remote {

enum class FrameKind : char {
    Open = 'O',   // one byte, protocolVersion
    Data = 'D',   // 1 to longestData bytes of the stream
    Credit = 'C', // 4 bytes, the most significant first: what may be sent in addition
    Probe = 'P',  // nothing; whoever is told that it cannot be delivered knows that the peer has gone
    End = 'E',    // nothing, or a text that says why
};

constexpr char protocolVersion = 1;
constexpr std::size_t longestData = 64 * 1024;
constexpr std::size_t frameCost = 64; // about what the library needs for a message besides its bytes
constexpr std::size_t window = 1024 * 1024;

// Where a link's frames go.
class Route {
public:
    // Returns whether the peer was there to send it to.
    virtual bool send(FrameKind kind, const char* data, std::size_t size) noexcept = 0;

protected:
    ~Route() = default;
};

} // namespace host::remote
