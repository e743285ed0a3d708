// Makes the elements of pipelines.
#pragma once

#include <gst/gst.h>
#include <media/engine.h>

namespace media {

// An element is not installed; what() names it and the package that has it.
struct MissingElement : Error {
    using Error::Error;
};

// Adds a new element to a pipeline, which owns it. Throws MissingElement.
GstElement* addElement(GstElement* pipeline, const char* factory);

} // namespace media
