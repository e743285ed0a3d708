#include "bare-pipeline.h"

#include <chrono>
#include <stdexcept>

namespace bench {
namespace {

GstElement* parsed(const std::string& description, bool isBin) {
    GError* problem = nullptr;
    GstElement* const made = isBin ? gst_parse_bin_from_description(description.c_str(), FALSE, &problem)
                                   : gst_parse_launch(description.c_str(), &problem);
    if (!problem) return made;
    const std::string text = problem->message;
    g_error_free(problem);
    throw std::runtime_error(text + ": " + description);
}

const std::string pictureSink =
    "queue max-size-buffers=3 max-size-time=0 max-size-bytes=0 ! "
    "fakesink name=picture sync=true async=false enable-last-sample=true";
const std::string soundSink =
    "audioconvert ! audioresample ! audio/x-raw,format=S16LE,channels=1,rate=48000 ! "
    "fakesink sync=true async=false enable-last-sample=false";
const std::string byteQueue = "queue max-size-buffers=0 max-size-time=0 max-size-bytes=16777216";

} // namespace

std::string descriptionOfFile(const std::string& uri) {
    return "uridecodebin name=in uri=" + uri + " in. ! video/x-raw ! " + pictureSink + " in. ! audio/x-raw ! queue ! " +
           soundSink;
}

std::string descriptionOfChannel(const std::string& file, int program) {
    return "filesrc location=" + file +
           " ! tsparse set-timestamps=true alignment=7 ! identity sync=true ! tsdemux "
           "name=in program-number=" +
           std::to_string(program) + " in. ! video/mpeg;video/x-h264 ! " + byteQueue + " ! decodebin ! video/x-raw ! " +
           pictureSink + " in. ! audio/mpeg ! " + byteQueue + " ! decodebin ! audio/x-raw ! queue ! " + soundSink;
}

BarePipeline::BarePipeline(const std::string& description) : pipeline_(parsed(description, false)) { watch(pipeline_); }

BarePipeline::~BarePipeline() {
    stop();
    gst_object_unref(pipeline_);
}

void BarePipeline::play() { gst_element_set_state(pipeline_, GST_STATE_PLAYING); }
void BarePipeline::stop() { gst_element_set_state(pipeline_, GST_STATE_NULL); }

void BarePipeline::watch(GstElement* bin) {
    GstElement* const sink = gst_bin_get_by_name(GST_BIN(bin), "picture");
    if (!sink) return;
    {
        const std::lock_guard lock(mutex_);
        seen_ = false;
    }
    GstPad* const entry = gst_element_get_static_pad(sink, "sink");
    gst_pad_add_probe(
        entry, GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo*, void* context) {
            auto& self = *static_cast<BarePipeline*>(context);
            const std::lock_guard lock(self.mutex_);
            self.seen_ = true;
            self.changed_.notify_all();
            return GST_PAD_PROBE_REMOVE;
        },
        this, nullptr);
    gst_object_unref(entry);
    gst_object_unref(sink);
}

void BarePipeline::waitForPicture() {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, std::chrono::seconds(10), [this] { return seen_; }))
        throw std::runtime_error("no picture within 10 s in a bare pipeline");
}

BareZapper::BareZapper(const std::string& file)
    : BarePipeline("filesrc location=" + file +
                   " ! tsparse set-timestamps=true alignment=7 ! identity sync=true ! "
                   "tee name=programs allow-not-linked=true"),
      tee_(gst_bin_get_by_name(GST_BIN(pipeline_), "programs")) {
    gst_object_unref(tee_); // the pipeline has it
    play();
}

void BareZapper::removeBranch() {
    if (!branch_) return;
    GstPad* const input = gst_element_get_static_pad(branch_, "sink");
    gst_pad_unlink(output_, input);
    gst_object_unref(input);
    gst_element_release_request_pad(tee_, output_);
    gst_object_unref(output_);
    gst_element_set_state(branch_, GST_STATE_NULL);
    gst_bin_remove(GST_BIN(pipeline_), branch_);
}

void BareZapper::zapTo(int program) {
    removeBranch();
    branch_ =
        parsed(byteQueue + " name=first ! tsdemux name=in program-number=" + std::to_string(program) +
                   " in. ! video/mpeg;video/x-h264 ! " + byteQueue + " ! decodebin ! video/x-raw ! " + pictureSink +
                   " in. ! audio/mpeg ! " + byteQueue + " ! decodebin ! audio/x-raw ! queue ! " + soundSink,
               true);
    GstElement* const first = gst_bin_get_by_name(GST_BIN(branch_), "first");
    GstPad* const input = gst_element_get_static_pad(first, "sink");
    gst_element_add_pad(branch_, gst_ghost_pad_new("sink", input));
    gst_object_unref(input);
    gst_object_unref(first);
    watch(branch_);
    gst_bin_add(GST_BIN(pipeline_), branch_);
    gst_element_sync_state_with_parent(branch_);
    output_ = gst_element_request_pad_simple(tee_, "src_%u");
    GstPad* const entry = gst_element_get_static_pad(branch_, "sink");
    gst_pad_link(output_, entry);
    gst_object_unref(entry);
    waitForPicture();
}

} // namespace bench
