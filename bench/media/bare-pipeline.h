// Pipelines of GStreamer without a receiver around them: the limit of what the media engine can reach.
#pragma once

#include <condition_variable>
#include <gst/gst.h>
#include <mutex>
#include <string>

namespace bench {

// A pipeline that shows its pictures in the sink named "picture". Throws std::runtime_error when it cannot be made.
class BarePipeline {
public:
    explicit BarePipeline(const std::string& description);
    ~BarePipeline();
    BarePipeline(const BarePipeline&) = delete;
    BarePipeline& operator=(const BarePipeline&) = delete;

    void play();
    // Waits until a picture has come to the sink. Throws std::runtime_error after ten seconds.
    void waitForPicture();
    void stop();

protected:
    void watch(GstElement* bin);

    GstElement* const pipeline_;

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool seen_ = false;
};

// An input that stays open, and a branch for one program, which a zap replaces.
class BareZapper : private BarePipeline {
public:
    explicit BareZapper(const std::string& file);
    void zapTo(int program); // and waits for its first picture

private:
    void removeBranch();

    GstElement* tee_ = nullptr;
    GstElement* branch_ = nullptr;
    GstPad* output_ = nullptr; // of the tee
};

// What plays a URI, and what receives a program of a transport stream in a file in real time, in the notation of
// gst-launch-1.0.
std::string descriptionOfFile(const std::string& uri);
std::string descriptionOfChannel(const std::string& file, int program);

} // namespace bench
