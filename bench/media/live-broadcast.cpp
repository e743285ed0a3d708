#include "live-broadcast.h"

#include <arpa/inet.h>
#include <chrono>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {
namespace {

GstElement* parsed(const std::string& description) {
    GError* problem = nullptr;
    GstElement* const made = gst_parse_launch(description.c_str(), &problem);
    if (!problem) return made;
    const std::string text = problem->message;
    g_error_free(problem);
    throw std::runtime_error(text + ": " + description);
}

} // namespace

double monotonicMilliseconds() {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

LiveBroadcast::LiveBroadcast(int port)
    : pipeline_(parsed("videotestsrc is-live=true pattern=black ! video/x-raw,width=320,height=240,framerate=25/1 ! "
                       "debugqroverlay pixel-size=4 x=10 y=10 ! videoconvert ! video/x-raw,format=I420 ! "
                       "openh264enc gop-size=12 complexity=low ! h264parse config-interval=-1 ! "
                       "video/x-h264,stream-format=byte-stream,alignment=au ! mpegtsmux alignment=7 pat-interval=9000 "
                       "pmt-interval=9000 prog-map=\"program_map,sink_256=1\" name=mux ! "
                       "udpsink host=127.0.0.1 sync=false port=" +
                       std::to_string(port))) {
    gst_element_set_state(pipeline_, GST_STATE_PLAYING);
}

LiveBroadcast::~LiveBroadcast() {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
}

double LiveBroadcast::now() const {
    return static_cast<double>(gst_element_get_current_running_time(pipeline_)) / GST_MSECOND;
}

double LiveBroadcast::timeIn(const std::string& png) {
    GstElement* const pipeline =
        parsed("appsrc name=in ! pngdec ! videoconvert ! zbar name=reader cache=false ! fakesink");
    GstElement* const in = gst_bin_get_by_name(GST_BIN(pipeline), "in");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBuffer* const buffer = gst_buffer_new_memdup(png.data(), png.size());
    GstFlowReturn ignored;
    g_signal_emit_by_name(in, "push-buffer", buffer, &ignored);
    g_signal_emit_by_name(in, "end-of-stream", &ignored);
    gst_buffer_unref(buffer);
    gst_object_unref(in);
    GstBus* const bus = gst_element_get_bus(pipeline);
    double time = 0;
    for (bool isOver = false; !isOver;) {
        GstMessage* const message = gst_bus_timed_pop_filtered(
            bus, 5 * GST_SECOND,
            static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_ELEMENT));
        isOver = !message || GST_MESSAGE_TYPE(message) != GST_MESSAGE_ELEMENT;
        if (!isOver)
            if (const char* const text = gst_structure_get_string(gst_message_get_structure(message), "symbol"))
                time = nlohmann::json::parse(text).at("TIMESTAMP").get<double>() / GST_MSECOND;
        if (message) gst_message_unref(message);
    }
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    if (time == 0) throw std::runtime_error("a picture of the broadcast shows no time");
    return time;
}

int freePort() {
    const int made = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const bool isBound = ::bind(made, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                         ::getsockname(made, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    ::close(made);
    if (!isBound) throw std::runtime_error("no free port");
    return ntohs(address.sin_port);
}

} // namespace bench
