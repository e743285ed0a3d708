#include "multiplex.h"

#include "element.h"
#include "failure.h"

#include <host/printable.h>
#include <ov/uri.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <gst/app/gstappsink.h>
#include <sstream>
#include <utility>

namespace media {
namespace {

constexpr std::string_view fileScheme = "file://", adapterScheme = "dvb-adapter://";
constexpr guint64 longestSilence = 2 * GST_SECOND; // of an input with a signal

struct Address {
    std::string host;
    int port = 0;
};

Address addressOf(const std::string& transport, const std::string& scheme) {
    const std::string rest = transport.substr(std::min(transport.size(), scheme.size() + 3)); // "://"
    const auto colon = rest.rfind(':');
    Address address;
    if (colon != std::string::npos) {
        address.host = rest.substr(0, colon);
        const char* const end = rest.data() + rest.size();
        const auto [stop, error] = std::from_chars(rest.data() + colon + 1, end, address.port);
        if (error == std::errc() && stop == end && address.port > 0 && address.port < 65536 && !address.host.empty())
            return address;
    }
    throw Error("not " + scheme + "://HOST:PORT: " + transport);
}

// Sets a property of an adapter's element. Throws Error.
void set(GstElement* adapter, const std::string& name, const std::string& value) {
    GParamSpec* const property = g_object_class_find_property(G_OBJECT_GET_CLASS(adapter), name.c_str());
    if (!property || (property->flags & G_PARAM_WRITABLE) == 0)
        throw Error("an adapter has no property " + host::quoted(name) + ": see gst-inspect-1.0 dvbsrc");
    GValue parsed = G_VALUE_INIT;
    g_value_init(&parsed, property->value_type);
    const bool isValid = gst_value_deserialize_with_pspec(&parsed, value.c_str(), property) == TRUE &&
                         g_param_value_validate(property, &parsed) == FALSE; // which would have changed it
    if (isValid) g_object_set_property(G_OBJECT(adapter), name.c_str(), &parsed);
    g_value_unset(&parsed);
    if (!isValid) throw Error(host::quoted(value) + " is no value of " + name + ": see gst-inspect-1.0 dvbsrc");
}

// An adapter of the machine: "dvb-adapter://0?frequency=474000000&delsys=dvb-t", with properties of the element dvbsrc.
// Throws Error.
void setUp(GstElement* adapter, const std::string& transport) {
    std::istringstream settings("adapter=" + transport.substr(adapterScheme.size()));
    char separator = '?';
    for (std::string setting; std::getline(settings, setting, separator); separator = '&') {
        const auto equals = setting.find('=');
        if (equals == std::string::npos)
            throw Error("not " + std::string(adapterScheme) + "NUMBER?NAME=VALUE&...: " + transport);
        set(adapter, setting.substr(0, equals), setting.substr(equals + 1));
    }
}

GstElement* addAdapter(GstElement* pipeline, const std::string& transport) {
    GstElement* const adapter = addElement(pipeline, "dvbsrc");
    setUp(adapter, transport);
    return adapter;
}

void link(const std::vector<GstElement*>& elements) {
    for (std::size_t i = 1; i < elements.size(); ++i)
        if (!gst_element_link(elements[i - 1], elements[i])) throw Error("GStreamer cannot link the input's elements");
}

} // namespace

std::string problemOf(const std::string& transport) {
    if (!transport.starts_with(adapterScheme)) return {};
    const Owner<GstElement> adapter(gst_element_factory_make("dvbsrc", nullptr));
    if (!adapter) return {}; // it may be installed later
    gst_object_ref_sink(adapter.get());
    try {
        setUp(adapter.get(), transport);
        return {};
    } catch (const Error& error) {
        return error.what();
    }
}

Multiplex::Multiplex(const std::string& transport, AtEnd atEnd)
    : isFile_(transport.starts_with(fileScheme)),
      loops_(isFile_ && atEnd == AtEnd::beginsAgain),
      pipeline_(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr)))) {
    const std::string scheme = ov::orveltools::uri::LtUri(transport).getScheme();
    GstElement* const sink = addElement(pipeline_.get(), "appsink");
    g_object_set(sink, "sync", isFile_, "max-buffers", 64U, "wait-on-eos", FALSE, nullptr);
    if (isFile_) {
        GstElement* const file = addElement(pipeline_.get(), "filesrc");
        GstElement* const parser = addElement(pipeline_.get(), "tsparse");
        g_object_set(file, "location", transport.substr(fileScheme.size()).c_str(), nullptr);
        g_object_set(parser, "set-timestamps", TRUE, "alignment", 7U, nullptr);
        link({file, parser, sink});
    } else if (transport.starts_with(adapterScheme)) {
        link({addAdapter(pipeline_.get(), transport), sink});
    } else if (scheme == "udp" || scheme == "rtp") {
        const Address address = addressOf(transport, scheme);
        GstElement* const socket = addElement(pipeline_.get(), "udpsrc");
        const bool isRtp = scheme == "rtp";
        const Owner<GstCaps> caps(
            gst_caps_from_string(isRtp ? "application/x-rtp,media=video,encoding-name=MP2T,clock-rate=90000"
                                       : "video/mpegts,systemstream=true"));
        constexpr int socketBytes = 4 << 20; // a burst of packets must not be lost while the thread waits for a turn
        g_object_set(socket, "address", address.host.c_str(), "port", address.port, "caps", caps.get(), "buffer-size",
                     socketBytes, "timeout", longestSilence, nullptr);
        if (isRtp) {
            GstElement* const order = addElement(pipeline_.get(), "rtpjitterbuffer");
            GstElement* const unpack = addElement(pipeline_.get(), "rtpmp2tdepay");
            g_object_set(order, "latency", 50U, nullptr);
            link({socket, order, unpack, sink});
        } else {
            link({socket, sink});
        }
    } else {
        throw Error("not file://, udp://, rtp:// or dvb-adapter://: " + transport);
    }
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = [](GstAppSink* appSink, void* self) { return takeSample(GST_ELEMENT(appSink), self); };
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, this, nullptr);
    const Owner<GstBus> bus(gst_element_get_bus(pipeline_.get()));
    gst_bus_set_sync_handler(bus.get(), takeMessage, this, nullptr);
    std::error_code error;
    const std::filesystem::path path = isFile_ ? transport.substr(fileScheme.size()) : std::string();
    // To open a pipe or a device may take for ever.
    if (isFile_ && std::filesystem::exists(path, error) && !std::filesystem::is_regular_file(path, error)) {
        const thread_safety::LockGuard lock(mutex_);
        distributor_.fail({result::cannotOpenFile, "not a regular file: " + path.string()});
        return;
    }
    if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        const thread_safety::LockGuard lock(mutex_); // unless a message has said why
        distributor_.fail({result::noConnection,
                           transport + " cannot be received: is it a multicast group or an address of this machine?"});
    }
}

Multiplex::~Multiplex() {
    {
        const thread_safety::LockGuard lock(restart_->mutex);
        restart_->hasEnded = true;
    }
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
}

void Multiplex::add(Receiver& receiver, std::uint16_t program) {
    const thread_safety::LockGuard lock(mutex_);
    distributor_.add(receiver, program);
}

void Multiplex::remove(Receiver& receiver) {
    const thread_safety::LockGuard lock(mutex_);
    distributor_.remove(receiver);
}

Program Multiplex::program(std::uint16_t number) const {
    const thread_safety::LockGuard lock(mutex_);
    return distributor_.program(number);
}

GstFlowReturn Multiplex::takeSample(GstElement* sink, void* self) {
    const Owner<GstSample> sample(gst_app_sink_pull_sample(GST_APP_SINK(sink)));
    if (!sample) return GST_FLOW_EOS;
    GstBuffer* const buffer = gst_sample_get_buffer(sample.get());
    GstMapInfo map;
    if (!buffer || !gst_buffer_map(buffer, &map, GST_MAP_READ)) return GST_FLOW_OK;
    // A copy, as the times of a file's packets are changed.
    std::vector<std::uint8_t> bytes(map.data, map.data + map.size);
    gst_buffer_unmap(buffer, &map);
    auto& multiplex = *static_cast<Multiplex*>(self);
    const thread_safety::LockGuard lock(multiplex.mutex_);
    multiplex.distributor_.take(bytes);
    return GST_FLOW_OK;
}

GstBusSyncReply Multiplex::takeMessage(GstBus*, GstMessage* message, void* self) {
    auto& multiplex = *static_cast<Multiplex*>(self);
    const thread_safety::LockGuard lock(multiplex.mutex_);
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        multiplex.distributor_.fail(outcomeOf(*message));
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS && multiplex.isFile_) {
        multiplex.loops_ ? multiplex.rewind() : multiplex.distributor_.end();
    } else if (gst_message_has_name(message, "GstUDPSrcTimeout")) {
        multiplex.distributor_.setSignal(false);
    } else if (gst_message_has_name(message, "dvb-frontend-stats")) {
        multiplex.takeFrontEnd(*gst_message_get_structure(message));
    }
    gst_message_unref(message);
    return GST_BUS_DROP;
}

void Multiplex::takeFrontEnd(const GstStructure& report) {
    gboolean hasLock = TRUE;
    gint strength = 0, noiseRatio = 0;
    static constexpr gint highest = 0xFFFF;
    const auto percent = [](gint value) { return std::clamp(value, 0, highest) * 100 / highest; };
    gst_structure_get_boolean(&report, "lock", &hasLock);
    gst_structure_get_int(&report, "signal", &strength);
    gst_structure_get_int(&report, "snr", &noiseRatio);
    signal_ = Signal{true, percent(strength), percent(noiseRatio)};
    distributor_.setSignal(hasLock == TRUE);
}

Multiplex::Signal Multiplex::signal() const {
    const thread_safety::LockGuard lock(mutex_);
    if (!distributor_.hasSignal()) return {};
    return {true, signal_.strength, signal_.quality};
}

void Multiplex::rewind() {
    if (!distributor_.beginAgain())
        return distributor_.fail(
            {result::notMedia, "the file is no transport stream, or has no clock, or is too short"});
    using Shared = std::shared_ptr<Restart>;
    const auto readAgain = [](GstElement* pipeline, void* context) {
        auto& restart = **static_cast<Shared*>(context);
        const thread_safety::LockGuard lock(restart.mutex);
        if (restart.hasEnded) return;
        gst_element_set_state(pipeline, GST_STATE_READY);
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
    };
    // The thread of this message cannot stop itself.
    gst_element_call_async(pipeline_.get(), readAgain, new Shared(restart_),
                           [](void* context) { delete static_cast<Shared*>(context); });
}

bool isTransportStream(const std::string& path) {
    constexpr std::size_t packets = 4;
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) return false; // to open a pipe may take for ever
    std::array<char, packets * packetSize> bytes{};
    std::ifstream file(path, std::ios::binary);
    if (!file.read(bytes.data(), bytes.size())) return false;
    for (std::size_t first = 0; first < packetSize; ++first) { // a recording may begin inside a packet
        std::size_t at = first;
        while (at < bytes.size() && static_cast<std::uint8_t>(bytes[at]) == syncByte) at += packetSize;
        if (at >= bytes.size()) return true;
    }
    return false;
}

} // namespace media
