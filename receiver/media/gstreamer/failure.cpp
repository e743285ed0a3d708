#include "failure.h"

#include "glib-pointers.h"

namespace media {
namespace {

std::int32_t resultOf(const GError& error) {
    if (error.domain == GST_RESOURCE_ERROR) switch (error.code) {
            case GST_RESOURCE_ERROR_NOT_FOUND:
                return result::cannotOpenFile;
            case GST_RESOURCE_ERROR_NOT_AUTHORIZED:
                return result::noPermission;
            default:
                return result::noConnection;
        }
    if (error.domain == GST_STREAM_ERROR) switch (error.code) {
            case GST_STREAM_ERROR_CODEC_NOT_FOUND:
                return result::codecMissing;
            case GST_STREAM_ERROR_FAILED:
                return result::noConnection;
            default:
                return result::notMedia;
        }
    if (error.domain == GST_CORE_ERROR && error.code == GST_CORE_ERROR_MISSING_PLUGIN) return result::codecMissing;
    return result::notMedia;
}

} // namespace

Outcome outcomeOf(GstMessage& message) {
    GError* error = nullptr;
    char* details = nullptr;
    gst_message_parse_error(&message, &error, &details);
    const Owner<GError> ownsError(error);
    const Owner<char> ownsDetails(details);
    return {resultOf(*error), error->message};
}

} // namespace media
