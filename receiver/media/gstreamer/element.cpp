#include "element.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace media {
namespace {

// Where Debian has the elements that the engine names. Decoders are found by themselves.
constexpr struct {
    std::string_view element, package;
} packages[] = {
    {"tsdemux", "gstreamer1.0-plugins-bad"},
    {"tsparse", "gstreamer1.0-plugins-bad"},
    {"dvbsuboverlay", "gstreamer1.0-plugins-bad"},
    {"teletextdec", "gstreamer1.0-plugins-bad"},
    {"textoverlay", "gstreamer1.0-x"},
    {"ximagesink", "gstreamer1.0-x"},
    {"waylandsink", "gstreamer1.0-plugins-bad"},
    {"v4l2src", "gstreamer1.0-plugins-good"},
    {"udpsrc", "gstreamer1.0-plugins-good"},
    {"rtpjitterbuffer", "gstreamer1.0-plugins-good"},
    {"rtpmp2tdepay", "gstreamer1.0-plugins-good"},
    {"filesrc", "libgstreamer1.0-0"},
    {"queue", "libgstreamer1.0-0"},
    {"capsfilter", "libgstreamer1.0-0"},
    {"fakesink", "libgstreamer1.0-0"},
};

std::string_view packageOf(std::string_view element) {
    const auto* const found = std::ranges::find(packages, element, [](const auto& entry) { return entry.element; });
    return found == std::end(packages) ? "gstreamer1.0-plugins-base" : found->package;
}

} // namespace

GstElement* addElement(GstElement* pipeline, const char* factory) {
    GstElement* const element = gst_element_factory_make(factory, nullptr);
    if (!element)
        throw MissingElement(std::string("GStreamer has no element ") + factory + "; install " +
                             std::string(packageOf(factory)));
    gst_bin_add(GST_BIN(pipeline), element);
    return element;
}

} // namespace media
