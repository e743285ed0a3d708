// How loud a terminal is, and its loudest tone.
#pragma once

#include <cstdint>
#include <gst/gst.h>
#include <media/engine.h>
#include <thread-safety/mutex.h>
#include <vector>

namespace media {

// Keeps the newest quarter of a second. From any thread.
class SoundMeter {
public:
    static constexpr std::int32_t rate = 48'000; // samples a second
    // What it takes: signed numbers of 16 bits, all channels of a moment together.
    static constexpr const char* format = "audio/x-raw,format=S16LE,layout=interleaved,channels=2,rate=48000";

    void take(GstBuffer* buffer);
    void clear();
    Sound sound() const;

private:
    static constexpr std::size_t channels = 2, most = rate / 4;
    mutable thread_safety::Mutex mutex_;
    std::vector<float> samples_ TVSA_GUARDED_BY(mutex_); // of both channels together, -1 to 1; at most `most`
};

} // namespace media
