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
    // The library of HTTP keeps to itself why there is no answer.
    GstObject* const source = GST_MESSAGE_SRC(&message);
    if (error->domain == GST_STREAM_ERROR && error->code == GST_STREAM_ERROR_FAILED &&
        GST_OBJECT_FLAG_IS_SET(source, GST_ELEMENT_FLAG_SOURCE) && GST_IS_URI_HANDLER(source)) {
        const Owner<char> address(gst_uri_handler_get_uri(GST_URI_HANDLER(source)));
        return {result::noConnection, (address ? std::string(address.get()) : "the source") +
                                          " cannot be reached, or breaks off: check its host and port, for https: its "
                                          "certificate, and whether the server runs"};
    }
    return {resultOf(*error), error->message};
}

} // namespace media
