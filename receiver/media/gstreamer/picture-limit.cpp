#include "picture-limit.h"

#include "glib-pointers.h"

#include <string_view>
#include <utility>

namespace media {
namespace {

using Refuse = std::function<void(const std::string&)>;

// Whoever sends more stops.
GstPadProbeReturn takeNothing(GstPad*, GstPadProbeInfo* info, void*) {
    gst_mini_object_unref(GST_MINI_OBJECT_CAST(std::exchange(info->data, nullptr)));
    GST_PAD_PROBE_INFO_FLOW_RETURN(info) = GST_FLOW_EOS;
    return GST_PAD_PROBE_HANDLED;
}

std::string problemOf(GstPad* pad, const GstStructure& format) {
    if (std::string problem = whyTooLarge(format); !problem.empty()) return problem;
    // Films have their size in their first picture at the latest. A picture may be the drawing of a program.
    const bool isPicture = std::string_view(gst_structure_get_name(&format)).starts_with("image/");
    if (GST_PAD_IS_SINK(pad) && isPicture && !gst_structure_has_field(&format, "width"))
        return std::string(gst_structure_get_name(&format)) +
               ": the size of the picture is not known before it is decoded";
    return {};
}

GstPadProbeReturn checkFormat(GstPad* pad, GstPadProbeInfo* info, void* refuse) {
    GstEvent* const event = GST_PAD_PROBE_INFO_EVENT(info);
    if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) return GST_PAD_PROBE_OK;
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    const std::string problem = problemOf(pad, *gst_caps_get_structure(caps, 0));
    if (problem.empty()) return GST_PAD_PROBE_OK;
    constexpr auto data = static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST);
    gst_pad_add_probe(pad, data, takeNothing, nullptr, nullptr);
    (*static_cast<const Refuse*>(refuse))(problem);
    return GST_PAD_PROBE_DROP;
}

bool decodesPictures(GstElement* element) {
    GstElementFactory* const factory = gst_element_get_factory(element);
    return factory && gst_element_factory_list_is_type(factory, GST_ELEMENT_FACTORY_TYPE_DECODER |
                                                                    GST_ELEMENT_FACTORY_TYPE_MEDIA_VIDEO |
                                                                    GST_ELEMENT_FACTORY_TYPE_MEDIA_IMAGE);
}

void watchDecoder(GstBin*, GstBin*, GstElement* element, void* refuse) {
    if (!decodesPictures(element)) return;
    // Before it, the size that the file or a parser gives; behind it, that of the pictures.
    for (const char* const name : {"sink", "src"})
        if (const Owner<GstPad> pad(gst_element_get_static_pad(element, name)); pad)
            gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, checkFormat, refuse, nullptr);
}

} // namespace

std::string whyTooLarge(const GstStructure& format) {
    gint width = 0, height = 0;
    if (!gst_structure_get_int(&format, "width", &width) || !gst_structure_get_int(&format, "height", &height))
        return {};
    if (std::int64_t{width} * height <= mostPixels) return {};
    return "pictures of " + std::to_string(width) + " x " + std::to_string(height) + " pixels; at most " +
           std::to_string(mostWidth) + " x " + std::to_string(mostHeight) + " are decoded";
}

void limitPictures(GstElement* pipeline, std::function<void(const std::string&)> refuse) {
    g_signal_connect_data(
        pipeline, "deep-element-added", G_CALLBACK(watchDecoder), new Refuse(std::move(refuse)),
        [](void* context, GClosure*) { delete static_cast<Refuse*>(context); }, GConnectFlags{});
}

} // namespace media
