// What a pipeline's error message means for whoever asked for the source.
#pragma once

#include <gst/gst.h>
#include <media/engine.h>

namespace media {

// message: of type GST_MESSAGE_ERROR.
Outcome outcomeOf(GstMessage& message);

} // namespace media
