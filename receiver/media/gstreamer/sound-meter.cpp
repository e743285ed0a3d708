#include "sound-meter.h"

#include <algorithm>
#include <cmath>
#include <span>

namespace media {

void SoundMeter::take(GstBuffer* buffer, Time now) {
    constexpr float fullScale = 32768;
    constexpr std::chrono::milliseconds late{300}; // how much later than it should the next buffer may come
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return;
    const std::span<const std::int16_t> samples(reinterpret_cast<const std::int16_t*>(map.data),
                                                map.size / sizeof(std::int16_t));
    {
        const thread_safety::LockGuard lock(mutex_);
        for (std::size_t at = 0; at + channels <= samples.size(); at += channels)
            samples_.push_back(static_cast<float>(samples[at] + samples[at + 1]) / channels / fullScale);
        silentFrom_ = now + late + std::chrono::microseconds(samples.size() / channels * 1'000'000 / rate);
        if (samples_.size() > most)
            samples_.erase(samples_.begin(), samples_.end() - static_cast<std::ptrdiff_t>(most));
    }
    gst_buffer_unmap(buffer, &map);
}

void SoundMeter::clear() {
    const thread_safety::LockGuard lock(mutex_);
    samples_.clear();
}

Sound SoundMeter::sound(Time now) const {
    constexpr double silence = -100;
    std::vector<float> samples;
    {
        const thread_safety::LockGuard lock(mutex_);
        if (now < silentFrom_) samples = samples_;
    }
    double squares = 0;
    for (const double sample : samples) squares += sample * sample;
    Sound sound{silence, 0};
    if (samples.empty() || squares == 0) return sound;
    sound.level = std::max(silence, 10 * std::log10(squares / static_cast<double>(samples.size())));
    // The loudest of the tones from 50 Hz to 4 kHz, 10 Hz apart (Goertzel's algorithm).
    constexpr std::int32_t lowest = 50, highest = 4000, step = 10;
    double loudest = 0;
    for (std::int32_t pitch = lowest; pitch <= highest; pitch += step) {
        const double factor = 2 * std::cos(2 * M_PI * pitch / rate);
        double last = 0, previous = 0;
        for (const double sample : samples) {
            const double next = sample + factor * last - previous;
            previous = last;
            last = next;
        }
        const double power = last * last + previous * previous - factor * last * previous;
        if (power > loudest) {
            loudest = power;
            sound.pitch = pitch;
        }
    }
    return sound;
}

} // namespace media
