// Owners of what GLib and GStreamer count references of.
#pragma once

#include <gst/gst.h>
#include <memory>

namespace media {

struct Unref {
    void operator()(GstElement* element) const { gst_object_unref(element); }
    void operator()(GstBus* bus) const { gst_object_unref(bus); }
    void operator()(GstPad* pad) const { gst_object_unref(pad); }
    void operator()(GstClock* clock) const { gst_object_unref(clock); }
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
    void operator()(GstSample* sample) const { gst_sample_unref(sample); }
    void operator()(GstMessage* message) const { gst_message_unref(message); }
    void operator()(GstEvent* event) const { gst_event_unref(event); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(char* text) const { g_free(text); }
    void operator()(GSource* source) const {
        g_source_destroy(source);
        g_source_unref(source);
    }
};

template <class Object> using Owner = std::unique_ptr<Object, Unref>;

} // namespace media
