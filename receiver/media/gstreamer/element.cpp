#include "element.h"

#include "glib-pointers.h"

#include <algorithm>
#include <gst/pbutils/missing-plugins.h>
#include <iterator>
#include <string_view>

namespace media {
namespace {

struct Package {
    std::string_view content, package;
};

// Where Debian has the elements that the engine names.
constexpr Package packages[] = {
    {"dvbsrc", "gstreamer1.0-plugins-bad"},
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
    const auto* const found = std::ranges::find(packages, element, &Package::content);
    return found == std::end(packages) ? "gstreamer1.0-plugins-base" : found->package;
}

// Where Debian has what elements find by themselves, by the beginning of what they look for. libav decodes all others.
constexpr Package decoderPackages[] = {
    {"decoder-video/mpegts", "gstreamer1.0-plugins-bad"},
    {"decoder-video/mpeg, systemstream=(boolean)true", "gstreamer1.0-plugins-bad"},
    {"decoder-video/x-av1", "gstreamer1.0-plugins-bad"},
    {"decoder-application/x-hls", "gstreamer1.0-plugins-bad"},
    {"decoder-application/dash+xml", "gstreamer1.0-plugins-bad"},
    {"decoder-video/x-vp8", "gstreamer1.0-plugins-good"},
    {"decoder-video/x-vp9", "gstreamer1.0-plugins-good"},
    {"decoder-video/webm", "gstreamer1.0-plugins-good"},
    {"decoder-audio/webm", "gstreamer1.0-plugins-good"},
    {"decoder-video/x-matroska", "gstreamer1.0-plugins-good"},
    {"decoder-audio/x-matroska", "gstreamer1.0-plugins-good"},
    {"decoder-video/quicktime", "gstreamer1.0-plugins-good"},
    {"decoder-audio/x-m4a", "gstreamer1.0-plugins-good"},
    {"decoder-video/x-msvideo", "gstreamer1.0-plugins-good"},
    {"decoder-video/x-flv", "gstreamer1.0-plugins-good"},
    {"decoder-audio/x-wav", "gstreamer1.0-plugins-good"},
    {"decoder-audio/x-flac", "gstreamer1.0-plugins-good"},
    {"decoder-application/x-id3", "gstreamer1.0-plugins-good"},
    {"decoder-application/x-rtp", "gstreamer1.0-plugins-good"},
    {"decoder-image/", "gstreamer1.0-plugins-good"},
    {"decoder-audio/x-vorbis", "gstreamer1.0-plugins-base"},
    {"decoder-audio/x-opus", "gstreamer1.0-plugins-base"},
    {"decoder-video/x-theora", "gstreamer1.0-plugins-base"},
    {"decoder-application/ogg", "gstreamer1.0-plugins-base"},
    {"decoder-video/ogg", "gstreamer1.0-plugins-base"},
    {"decoder-audio/ogg", "gstreamer1.0-plugins-base"},
    {"urisource-http", "gstreamer1.0-plugins-good"},
    {"decoder-", "gstreamer1.0-libav"},
};

// wanted: "decoder-video/x-h264, level=...", "element-videoconvert", as installers of plugins get it.
std::string_view packageOfWanted(std::string_view wanted) {
    constexpr std::string_view element = "element-";
    if (wanted.starts_with(element)) return packageOf(wanted.substr(element.size()));
    const auto* const found = std::ranges::find_if(
        decoderPackages, [wanted](const Package& entry) { return wanted.starts_with(entry.content); });
    return found == std::end(decoderPackages) ? std::string_view() : found->package;
}

} // namespace

void requireElement(const char* factory) {
    GstElementFactory* const found = gst_element_factory_find(factory);
    if (!found)
        throw MissingElement(std::string("GStreamer has no element ") + factory + "; install " +
                             std::string(packageOf(factory)));
    gst_object_unref(found);
}

std::string missingPluginIn(GstMessage& message) {
    const Owner<char> what(gst_missing_plugin_message_get_description(&message));
    const Owner<char> detail(gst_missing_plugin_message_get_installer_detail(&message));
    std::string text = what.get();
    const std::string_view wanted = detail ? detail.get() : "";
    if (const auto package = packageOfWanted(wanted.substr(wanted.rfind('|') + 1)); !package.empty())
        text += "; install " + std::string(package);
    return text;
}

GstElement* addElement(GstElement* pipeline, const char* factory) {
    requireElement(factory);
    GstElement* const element = gst_element_factory_make(factory, nullptr);
    if (!element) throw Error(std::string("GStreamer cannot make an element ") + factory);
    gst_bin_add(GST_BIN(pipeline), element);
    return element;
}

} // namespace media
