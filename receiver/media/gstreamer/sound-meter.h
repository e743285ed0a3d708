// How loud a terminal is, and its loudest tone.
#pragma once

#include <chrono>
#include <cstdint>
#include <gst/gst.h>
#include <media/engine.h>
#include <thread-safety/mutex.h>
#include <vector>

namespace media {

// Keeps the newest quarter of a second. There is silence when a source that stalls delivers nothing to play any more.
// From any thread.
class SoundMeter {
public:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr std::int32_t rate = 48'000; // samples a second
    // What it takes: signed numbers of 16 bits, all channels of a moment together.
    static constexpr const char* format = "audio/x-raw,format=S16LE,layout=interleaved,channels=2,rate=48000";

    void take(GstBuffer* buffer, Time now = std::chrono::steady_clock::now());
    void clear();
    Sound sound(Time now = std::chrono::steady_clock::now()) const;

private:
    static constexpr std::size_t channels = 2, most = rate / 4;
    mutable thread_safety::Mutex mutex_;
    std::vector<float> samples_ TVSA_GUARDED_BY(mutex_); // of both channels together, -1 to 1; at most `most`
    Time silentFrom_ TVSA_GUARDED_BY(mutex_);            // unless more comes
};

} // namespace media
