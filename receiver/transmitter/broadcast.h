// What the transmitter broadcasts: programs whose pictures and tones tell which they are.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace transmitter {

struct Sound {
    std::string language; // three letters
    int pitch;            // of its tone, in Hz
};

struct Program {
    std::uint16_t number;
    std::string name; // shown in the picture, in a QR code, and in the tables
    enum class Coding { avc, mpeg2 } coding;
    int width, height;
    std::vector<Sound> sounds;
    std::vector<std::string> subtitles = {}; // languages of its bitmap subtitles
    bool hasTeletext = false;
    std::uint8_t age = 0; // that its viewers must have: 4 to 18, or 0 for any

    // PIDs: the table's, the picture's, the first sound's, the first subtitles', the teletext's.
    std::uint16_t tablePid() const { return static_cast<std::uint16_t>(0x1000 + number); }
    std::uint16_t videoPid() const { return static_cast<std::uint16_t>(number * 0x100); }
    std::uint16_t soundPid() const { return static_cast<std::uint16_t>(videoPid() + 1); }
    std::uint16_t subtitlePid() const { return static_cast<std::uint16_t>(soundPid() + sounds.size()); }
    std::uint16_t teletextPid() const { return static_cast<std::uint16_t>(subtitlePid() + subtitles.size()); }
};

// A transport stream with its programs.
struct Broadcast {
    std::uint16_t stream; // number of the transport stream; its network has number 1
    std::vector<Program> programs;
};

// The first and the second of the transport streams that the receiver's channel list names. Throws std::out_of_range
// for another number.
Broadcast broadcastOf(int stream);

struct Length {
    int seconds = 0;     // 0: as long as the program runs
    bool isLive = false; // in real time
    int keyFrames = 12;  // frames from one key frame to the next, of 25 a second
};

// The description of a GStreamer pipeline that makes the transport stream and ends in an appsink named "out".
std::string pipelineOf(const Broadcast& broadcast, const Length& length);

} // namespace transmitter
