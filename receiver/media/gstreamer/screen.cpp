#include "screen.h"

#include "display-loss.h"
#include "element.h"
#include "x-window.h"

#include <host/configuration.h>
#include <tvservice-adapter/service/log.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <gst/app/gstappsrc.h>
#include <gst/video/videooverlay.h>
#include <set>
#include <thread>
#include <utility>
#include <vector>

namespace media {
namespace {

constexpr Terminal mainTerminal{0, 0};
constexpr std::uint16_t width = 1280, height = 720; // of a window

bool isSet(const char* variable) {
    const char* const value = std::getenv(variable);
    return value && *value != '\0';
}

// The sinks that may work on this machine, the best one first. Others write to standard error that they do not.
std::vector<const char*> soundSinks() {
    std::vector<const char*> sinks;
    std::error_code error;
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    const auto serves = [&](const char* socket) {
        return runtime && std::filesystem::exists(std::filesystem::path(runtime) / socket, error);
    };
    if (isSet("PULSE_SERVER") || serves("pulse/native")) sinks.push_back("pulsesink");
    if (serves("pipewire-0")) sinks.push_back("pipewiresink");
    for (const auto& device : std::filesystem::directory_iterator("/dev/snd", error))
        if (device.path().filename().string().starts_with("pcm")) {
            sinks.push_back("alsasink");
            break;
        }
    return sinks;
}

// The factory of a sink that works here; null when there is none.
const char* findSoundCard() {
    for (const char* const factory : soundSinks()) {
        const Owner<GstElement> sink(gst_element_factory_make(factory, nullptr));
        if (!sink) continue;
        gst_object_ref_sink(sink.get());
        const bool works = gst_element_set_state(sink.get(), GST_STATE_READY) != GST_STATE_CHANGE_FAILURE;
        gst_element_set_state(sink.get(), GST_STATE_NULL);
        if (works) return factory;
    }
    return nullptr;
}

Screen::Layout layoutOf(const std::string& output) {
    if (output == "none") return Screen::Layout::none;
    if (output == "screen") return Screen::Layout::together;
    if (output == "fullscreen") return Screen::Layout::fullScreen;
    return Screen::Layout::windows;
}

// Runs what uses the display, on a thread of its own, and waits for it, but not for one that is lost. The work owns all
// that it uses.
void useDisplay(std::function<void()> work) {
    std::promise<void> done;
    const std::future<void> end = done.get_future();
    std::thread([work = std::move(work), done = std::move(done)]() mutable {
        std::exchange(work, nullptr)();
        done.set_value();
    }).detach();
    constexpr std::chrono::milliseconds interval{50};
    while (end.wait_for(interval) != std::future_status::ready && !isDisplayLost()) {
    }
}

} // namespace

// ---- a window with the pictures of one terminal or of several ----

class Screen::Canvas {
public:
    // mixes: it has the pictures of several terminals.
    Canvas(const std::string& title, bool mixes, bool fullScreen)
        : pipeline_(Owner<GstElement>(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr))))) {
        if (mixes) {
            mixer_ = addElement(pipeline_.get(), "compositor");
            gst_util_set_object_arg(G_OBJECT(mixer_), "background", "black");
        }
        GstElement* const format = mixes ? addElement(pipeline_.get(), "capsfilter") : nullptr;
        entry_ = addElement(pipeline_.get(), "videoconvert");
        GstElement* const scale = addElement(pipeline_.get(), "videoscale");
        GstElement* sink = nullptr;
        if (isSet("WAYLAND_DISPLAY")) {
            sink = addElement(pipeline_.get(), "waylandsink");
            g_object_set(sink, "fullscreen", fullScreen, nullptr);
        } else {
            surviveDisplayLoss();
            window_ = std::make_shared<XWindow>(title, width, height, fullScreen);
            sink = addElement(pipeline_.get(), "ximagesink");
            gst_video_overlay_set_window_handle(GST_VIDEO_OVERLAY(sink), window_->handle());
        }
        g_object_set(sink, "sync", FALSE, "force-aspect-ratio", TRUE, nullptr);
        if (mixes) {
            const Owner<GstCaps> caps(gst_caps_new_simple("video/x-raw", "width", G_TYPE_INT, int{width}, "height",
                                                          G_TYPE_INT, int{height}, "framerate", GST_TYPE_FRACTION, 25,
                                                          1, nullptr));
            g_object_set(format, "caps", caps.get(), nullptr);
            gst_element_link_many(mixer_, format, entry_, nullptr);
        }
        gst_element_link_many(entry_, scale, sink, nullptr);
    }
    ~Canvas() {
        // The window ends after the pipeline.
        useDisplay([window = std::move(window_), pipeline = pipeline_] {
            gst_element_set_state(pipeline.get(), GST_STATE_NULL);
        });
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    // The source of a terminal's pictures, which the canvas owns.
    GstElement* add(const Terminal& terminal) {
        GstElement* const source = addElement(pipeline_.get(), "appsrc");
        constexpr guint64 pictures = 2;
        g_object_set(source, "is-live", TRUE, "do-timestamp", TRUE, "format", GST_FORMAT_TIME, "max-buffers", pictures,
                     "leaky-type", GST_APP_LEAKY_TYPE_DOWNSTREAM, nullptr);
        if (mixer_)
            mix(source, terminal);
        else
            gst_element_link(source, entry_);
        useDisplay([pipeline = pipeline_] { gst_element_set_state(pipeline.get(), GST_STATE_PLAYING); });
        if (gst_element_get_state(pipeline_.get(), nullptr, nullptr, 0) == GST_STATE_CHANGE_FAILURE)
            throw Error("the display cannot be used");
        return source;
    }
    void remove(GstElement* source) {
        const auto mixed = parts_.find(source);
        if (mixed == parts_.end()) return; // the canvas ends
        const Part part = mixed->second;
        places_.erase(part.place);
        parts_.erase(mixed);
        useDisplay([pipeline = pipeline_, mixer = mixer_, source, part] {
            for (GstElement* const element : {source, part.convert}) {
                gst_element_set_locked_state(element, TRUE);
                gst_element_set_state(element, GST_STATE_NULL);
            }
            gst_element_release_request_pad(mixer, part.pad.get());
            for (GstElement* const element : {source, part.convert}) gst_bin_remove(GST_BIN(pipeline.get()), element);
        });
    }

private:
    struct Part {
        GstElement* convert;
        std::shared_ptr<GstPad> pad; // of the mixer
        int place;                   // 0: the main terminal's
    };

    // The main terminal fills the window. The others are small, below each other from its top right corner on.
    void mix(GstElement* source, const Terminal& terminal) {
        GstElement* const convert = addElement(pipeline_.get(), "videoconvert");
        Owner<GstPad> pad(gst_element_request_pad_simple(mixer_, "sink_%u"));
        int place = 0;
        if (terminal != mainTerminal)
            for (place = 1; places_.contains(place);) ++place;
        constexpr int rows = 4, gap = 20;
        constexpr int smallWidth = (width - gap) / rows - gap, smallHeight = (height - gap) / rows - gap;
        const int column = (place - 1) / rows, row = (place - 1) % rows;
        if (place == 0)
            g_object_set(pad.get(), "width", int{width}, "height", int{height}, "zorder", 1U, nullptr);
        else
            g_object_set(pad.get(), "xpos", width - (column + 1) * (smallWidth + gap), "ypos",
                         gap + row * (smallHeight + gap), "width", smallWidth, "height", smallHeight, "zorder", 2U,
                         nullptr);
        gst_util_set_object_arg(G_OBJECT(pad.get()), "sizing-policy", "keep-aspect-ratio");
        gst_element_link(source, convert);
        const Owner<GstPad> exit(gst_element_get_static_pad(convert, "src"));
        gst_pad_link(exit.get(), pad.get());
        for (GstElement* const element : {convert, source}) gst_element_sync_state_with_parent(element);
        places_.insert(place);
        parts_.emplace(source, Part{convert, std::move(pad), place});
    }

    std::shared_ptr<XWindow> window_; // null: the element makes its own
    const std::shared_ptr<GstElement> pipeline_;
    GstElement* mixer_ = nullptr; // the pipeline's, like those below
    GstElement* entry_ = nullptr;
    std::map<GstElement*, Part> parts_; // by source; at most one for each terminal that shows something
    std::set<int> places_;
};

class Screen::Part final : public Window {
public:
    Part(std::shared_ptr<Canvas> canvas, const Terminal& terminal)
        : canvas_(std::move(canvas)), source_(canvas_->add(terminal)) {}
    ~Part() override { canvas_->remove(source_); }
    Part(const Part&) = delete;
    Part& operator=(const Part&) = delete;

    void show(GstBuffer* buffer, GstCaps* caps) override {
        GstBuffer* const copy = gst_buffer_copy(buffer); // of its description; the bytes are shared
        GST_BUFFER_PTS(copy) = GST_BUFFER_DTS(copy) = GST_CLOCK_TIME_NONE;
        const Owner<GstSample> sample(gst_sample_new(copy, caps, nullptr, nullptr));
        gst_buffer_unref(copy);
        gst_app_src_push_sample(GST_APP_SRC(source_), sample.get());
    }
    void clear() override {
        constexpr gsize size = 16 * 9 * 4;
        const Owner<GstCaps> caps(gst_caps_from_string("video/x-raw,format=BGRx,width=16,height=9,framerate=25/1"));
        GstBuffer* const black = gst_buffer_new_allocate(nullptr, size, nullptr);
        gst_buffer_memset(black, 0, 0, size);
        show(black, caps.get());
        gst_buffer_unref(black);
    }

private:
    const std::shared_ptr<Canvas> canvas_;
    GstElement* const source_;
};

// ---- all windows ----

std::unique_ptr<Screen> Screen::configured() {
    const std::string output = host::setting("media.output")->text;
    Layout layout = layoutOf(output);
    if (layout != Layout::none && !isSet("DISPLAY") && !isSet("WAYLAND_DISPLAY")) {
        SERVICE_LOG(vdlDebugWarning,
                    "no display (neither DISPLAY nor WAYLAND_DISPLAY is set): pictures are not seen\n");
        layout = Layout::none;
    }
    return std::make_unique<Screen>(layout, host::setting("media.sound")->text != "none");
}

Screen::Screen(Layout layout, bool withSound) : layout_(layout), soundCard_(withSound ? findSoundCard() : nullptr) {
    if (withSound && !soundCard_) SERVICE_LOG(vdlDebugWarning, "no sound card: sound is not heard\n");
}

Screen::~Screen() = default;

Output Screen::outputOf(const Terminal& terminal) {
    Output output{nullptr, terminal == mainTerminal ? soundCard_ : nullptr};
    if (isDisplayLost() && std::exchange(layout_, Layout::none) != Layout::none) windows_.clear();
    if (layout_ == Layout::none) return output;
    auto& window = windows_[terminal];
    try {
        if (!window) {
            std::shared_ptr<Canvas> canvas = canvas_.lock();
            if (!canvas) {
                const std::string name = std::to_string(terminal.type) + ':' + std::to_string(terminal.id);
                canvas = std::make_shared<Canvas>(layout_ == Layout::windows ? name : "Receiver",
                                                  layout_ != Layout::windows, layout_ == Layout::fullScreen);
                if (layout_ != Layout::windows) canvas_ = canvas;
            }
            window = std::make_shared<Part>(canvas, terminal);
        }
        output.window = window;
    } catch (const Error& error) {
        SERVICE_LOG(vdlDebugWarning, "pictures are not seen: %s\n", error.what());
        layout_ = Layout::none;
        windows_.clear();
    }
    return output;
}

void Screen::clear(const Terminal& terminal) {
    if (const auto window = windows_.find(terminal); window != windows_.end() && window->second)
        window->second->clear();
}

void Screen::releaseUnused() {
    std::erase_if(windows_, [](const auto& entry) { return entry.second.use_count() <= 1; });
}

} // namespace media
