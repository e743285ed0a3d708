// What is said of plugins that are not installed.
#include "media/gstreamer/element.h"

#include "media/gstreamer/glib-pointers.h"

#include <gmock/gmock.h>
#include <gst/pbutils/missing-plugins.h>
#include <gtest/gtest.h>

namespace {

using namespace media;

TEST(AMissingPlugin, IsNamedWithThePackageThatHasIt) {
    gst_init(nullptr, nullptr);
    const Owner<GstElement> pipeline(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr))));
    for (const auto& [format, what, package] :
         {std::tuple{"video/x-h264, stream-format=byte-stream", "H.264", "gstreamer1.0-libav"},
          {"video/mpeg, mpegversion=2, systemstream=false", "MPEG-2 Video", "gstreamer1.0-libav"},
          {"audio/mpeg, mpegversion=4", "MPEG-4 AAC", "gstreamer1.0-libav"},
          {"video/x-vp8", "VP8", "gstreamer1.0-plugins-good"},
          {"video/mpegts, systemstream=true", "MPEG-2 Transport Stream", "gstreamer1.0-plugins-bad"},
          {"video/mpeg, systemstream=true, mpegversion=2", "MPEG-2 System Stream", "gstreamer1.0-plugins-bad"},
          {"video/quicktime", "Quicktime", "gstreamer1.0-plugins-good"},
          {"image/png", "PNG", "gstreamer1.0-plugins-good"},
          {"audio/x-vorbis", "Vorbis", "gstreamer1.0-plugins-base"}}) {
        const Owner<GstCaps> caps(gst_caps_from_string(format));
        const Owner<GstMessage> message(gst_missing_decoder_message_new(pipeline.get(), caps.get()));
        EXPECT_THAT(missingPluginIn(*message), testing::StartsWith(what));
        EXPECT_THAT(missingPluginIn(*message), testing::EndsWith(std::string("; install ") + package));
    }
    const Owner<GstMessage> server(gst_missing_uri_source_message_new(pipeline.get(), "https"));
    EXPECT_THAT(missingPluginIn(*server), testing::EndsWith("; install gstreamer1.0-plugins-good"));
    const Owner<GstMessage> element(gst_missing_element_message_new(pipeline.get(), "tsdemux"));
    EXPECT_THAT(missingPluginIn(*element), testing::EndsWith("; install gstreamer1.0-plugins-bad"));
}

TEST(AMissingElement, IsNamedWithThePackageThatHasIt) {
    gst_init(nullptr, nullptr);
    EXPECT_NO_THROW(requireElement("queue"));
    try {
        requireElement("no-such-element");
        FAIL() << "there is no such element";
    } catch (const MissingElement& error) {
        EXPECT_STREQ(error.what(), "GStreamer has no element no-such-element; install gstreamer1.0-plugins-base");
    }
}

} // namespace
