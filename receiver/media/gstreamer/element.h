// Makes the elements of pipelines.
#pragma once

#include <gst/gst.h>
#include <media/engine.h>
#include <string>

namespace media {

// An element is not installed; what() names it and the package that has it.
struct MissingElement : Error {
    using Error::Error;
};

// Adds a new element to a pipeline, which owns it. Throws MissingElement.
GstElement* addElement(GstElement* pipeline, const char* factory);

// Throws MissingElement.
void requireElement(const char* factory);

// What a message about a missing plugin misses, and the package that has it: "H.264 decoder; install
// gstreamer1.0-libav".
std::string missingPluginIn(GstMessage& message);

} // namespace media
