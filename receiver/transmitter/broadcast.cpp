#include "broadcast.h"

#include <stdexcept>

namespace transmitter {
namespace {

constexpr int framesPerSecond = 25, samplesPerSecond = 48'000, samplesPerBuffer = 1152; // of MPEG audio

std::string buffersOf(const Length& length, int perSecond) {
    return (length.isLive ? std::string(" is-live=true") : std::string()) +
           (length.seconds > 0 ? " num-buffers=" + std::to_string(length.seconds * perSecond) : std::string());
}

std::string videoOf(const Program& program, const Length& length) {
    const std::string size =
        "video/x-raw,format=I420,width=" + std::to_string(program.width) + ",height=" + std::to_string(program.height);
    std::string text = "videotestsrc pattern=smpte75" + buffersOf(length, framesPerSecond) + " ! " + size +
                       ",framerate=25/1 ! timeoverlay halignment=right valignment=bottom ! textoverlay text=\"" +
                       program.name + "\" valignment=top ! qroverlay data=\"" + program.name +
                       "\" case-sensitive=true pixel-size=6 x=10 y=50 ! queue ! ";
    const std::string group = std::to_string(length.keyFrames);
    if (program.coding == Program::Coding::avc)
        text += "openh264enc gop-size=" + group +
                " bitrate=2000000 rate-control=bitrate complexity=low ! h264parse config-interval=-1 ! "
                "video/x-h264,stream-format=byte-stream,alignment=au";
    else
        text += "mpeg2enc format=3 bitrate=4000 min-gop-size=" + group + " max-gop-size=" + group +
                " b-per-refframe=0 closed-gop=true sequence-header-every-gop=true motion-search-radius=8 "
                "reduction-4x4=4 reduction-2x2=4 disable-encode-retries=true ! mpegvideoparse";
    return text + " ! queue ! mux.sink_" + std::to_string(program.videoPid()) + '\n';
}

std::string soundOf(const Sound& sound, int pid, const Length& length) {
    return "audiotestsrc samplesperbuffer=" + std::to_string(samplesPerBuffer) +
           " volume=0.3 freq=" + std::to_string(sound.pitch) + buffersOf(length, samplesPerSecond / samplesPerBuffer) +
           " ! audio/x-raw,rate=48000,channels=2 ! audioconvert ! avenc_mp2 bitrate=128000 ! mpegaudioparse ! "
           "taginject "
           "tags=\"language-code=" +
           sound.language + "\" ! queue ! mux.sink_" + std::to_string(pid) + '\n';
}

} // namespace

Broadcast broadcastOf(int stream) {
    using enum Program::Coding;
    // MPEG-2 takes most of the processor's time, so its pictures are small.
    if (stream == 1)
        return {1,
                {{1, "One", avc, 720, 576, {{"eng", 440}, {"fra", 660}}, {"eng", "fra"}, true},
                 {2, "Two", mpeg2, 352, 288, {{"eng", 880}, {"fra", 1100}}},
                 {3, "News", avc, 1280, 720, {{"eng", 1320}, {"fra", 1760}}}}};
    if (stream == 2)
        return {2,
                {{1, "Sports", avc, 1280, 720, {{"eng", 500}, {"fra", 700}}, {}, true},
                 {2, "Movies", avc, 720, 576, {{"eng", 900}, {"fra", 1200}}, {"eng"}, false, 16},
                 {3, "Music", mpeg2, 352, 288, {{"eng", 1400}, {"fra", 1600}}}}};
    throw std::out_of_range("there are the transport streams 1 and 2");
}

std::string pipelineOf(const Broadcast& broadcast, const Length& length) {
    std::string map = "program_map", streams;
    for (const Program& program : broadcast.programs) {
        const auto own = [&](int pid) { map += ",sink_" + std::to_string(pid) + '=' + std::to_string(program.number); };
        own(program.videoPid());
        streams += videoOf(program, length);
        int pid = program.soundPid();
        for (const Sound& sound : program.sounds) {
            own(pid);
            streams += soundOf(sound, pid++, length);
        }
        map += ",PMT_" + std::to_string(program.number) + "=(uint)" + std::to_string(program.tablePid()) + ",PCR_" +
               std::to_string(program.number) + "=sink_" + std::to_string(program.videoPid());
    }
    constexpr int tableInterval = 9000; // ticks of 90 kHz: a receiver waits at most a tenth of a second
    constexpr int clockInterval = 1800; // less than from one picture to the next, so that each has a clock
    const std::string interval = std::to_string(tableInterval);
    // What a live broadcast has made before its time waits: more than a group of pictures.
    const std::string buffers = length.isLive ? "4096" : "64";
    return "mpegtsmux name=mux alignment=7 pat-interval=" + interval + " pmt-interval=" + interval +
           " pcr-interval=" + std::to_string(clockInterval) + " prog-map=\"" + map +
           "\" ! appsink name=out sync=false max-buffers=" + buffers + '\n' + streams;
}

} // namespace transmitter
