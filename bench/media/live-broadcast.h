// Broadcasts a program by UDP whose pictures show their time, as a QR code.
#pragma once

#include <gst/gst.h>
#include <string>

namespace bench {

class LiveBroadcast {
public:
    explicit LiveBroadcast(int port); // of this machine
    ~LiveBroadcast();
    LiveBroadcast(const LiveBroadcast&) = delete;
    LiveBroadcast& operator=(const LiveBroadcast&) = delete;

    double now() const; // the milliseconds for which it has been running
    // When a picture was made, in these milliseconds. Throws std::runtime_error when it shows no time.
    static double timeIn(const std::string& png);

private:
    GstElement* const pipeline_;
};

double monotonicMilliseconds();
int freePort();

} // namespace bench
