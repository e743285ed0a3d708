#include "multiplex.h"

#include "element.h"
#include "failure.h"
#include "packet.h"

#include <ov/uri.h>

#include <algorithm>
#include <charconv>
#include <gst/app/gstappsink.h>
#include <utility>

namespace media {
namespace {

constexpr std::size_t mostTablePackets = 16; // of one table, whose sections have at most 1024 bytes
constexpr std::uint64_t frameTicks = ticksPerSecond / 25;
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

// An adapter of the machine: "dvb-adapter://0?frequency=474000000&delsys=dvb-t", with properties of the element dvbsrc.
GstElement* addAdapter(GstElement* pipeline, const std::string& transport) {
    std::string settings = transport.substr(adapterScheme.size());
    std::ranges::replace_if(
        settings, [](char c) { return c == '?' || c == '&'; }, ' ');
    const auto isPlain = [](char c) {
        return g_ascii_isalnum(c) || std::string_view("-=./ ").find(c) != std::string_view::npos;
    };
    if (!std::ranges::all_of(settings, isPlain))
        throw Error("not " + std::string(adapterScheme) + "NUMBER?NAME=VALUE&...: " + transport);
    GError* problem = nullptr;
    GstElement* const adapter = gst_parse_launch(("dvbsrc adapter=" + settings).c_str(), &problem);
    const Owner<GError> owned(problem);
    if (problem) {
        if (adapter) gst_object_unref(adapter);
        throw Error(transport + ": " + problem->message);
    }
    gst_bin_add(GST_BIN(pipeline), adapter);
    return adapter;
}

void link(const std::vector<GstElement*>& elements) {
    for (std::size_t i = 1; i < elements.size(); ++i)
        if (!gst_element_link(elements[i - 1], elements[i])) throw Error("GStreamer cannot link the input's elements");
}

// From b to a, where both wrap.
std::int64_t differenceOf(std::uint64_t a, std::uint64_t b) {
    const std::uint64_t ticks = (a - b) & tickMask;
    return static_cast<std::int64_t>(ticks) - (ticks > tickMask / 2 ? static_cast<std::int64_t>(tickMask) + 1 : 0);
}

void append(std::vector<std::uint8_t>& to, std::span<const std::uint8_t> bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

} // namespace

Multiplex::Multiplex(const std::string& transport)
    : loops_(transport.starts_with(fileScheme)),
      pipeline_(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr)))) {
    const std::string scheme = ov::orveltools::uri::LtUri(transport).getScheme();
    GstElement* const sink = addElement(pipeline_.get(), "appsink");
    g_object_set(sink, "sync", loops_, "max-buffers", 64U, "wait-on-eos", FALSE, nullptr);
    if (loops_) {
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
    gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING); // a failure comes as a message
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
    Wanted& wanted = wanted_[&receiver];
    wanted = {program, false, {}};
    resolve(wanted);
    if (failure_) return receiver.failed(*failure_);
    programsChanged();
}

void Multiplex::remove(Receiver& receiver) {
    const thread_safety::LockGuard lock(mutex_);
    wanted_.erase(&receiver);
}

Program Multiplex::program(std::uint16_t number) const {
    const thread_safety::LockGuard lock(mutex_);
    const auto program = number == 0 ? tables_.programs().begin() : tables_.programs().find(number);
    return program == tables_.programs().end() ? Program{} : program->second;
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
    static_cast<Multiplex*>(self)->take(bytes);
    return GST_FLOW_OK;
}

GstBusSyncReply Multiplex::takeMessage(GstBus*, GstMessage* message, void* self) {
    auto& multiplex = *static_cast<Multiplex*>(self);
    const thread_safety::LockGuard lock(multiplex.mutex_);
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        multiplex.fail(outcomeOf(*message));
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS && multiplex.loops_) {
        multiplex.rewind();
    } else if (gst_message_has_name(message, "GstUDPSrcTimeout")) {
        multiplex.setSignal(false);
    } else if (gst_message_has_name(message, "dvb-frontend-stats")) {
        multiplex.takeFrontEnd(*gst_message_get_structure(message));
    }
    gst_message_unref(message);
    return GST_BUS_DROP;
}

void Multiplex::fail(const Outcome& outcome) {
    if (failure_) return; // what follows a failure does not explain it
    failure_ = outcome;
    for (const auto& [receiver, wanted] : wanted_) receiver->failed(outcome);
}

void Multiplex::setSignal(bool present) {
    if (std::exchange(hasSignal_, present) == present) return;
    for (const auto& [receiver, wanted] : wanted_) receiver->signal(present);
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
    setSignal(hasLock == TRUE);
}

Multiplex::Signal Multiplex::signal() const {
    const thread_safety::LockGuard lock(mutex_);
    if (!hasSignal_) return {};
    return {true, signal_.strength, signal_.quality};
}

// The next round of a file continues the times of this one.
void Multiplex::rewind() {
    if (!hasTime_) return fail({result::notMedia, "the file is no transport stream, or has no clock"});
    shift_ = (lastTime_ + frameTicks - firstTime_ + shift_) & tickMask;
    hasTime_ = false;
    part_.clear();
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

void Multiplex::take(std::span<std::uint8_t> bytes) {
    const thread_safety::LockGuard lock(mutex_);
    if (!part_.empty()) {
        const std::size_t missing = std::min(packetSize - part_.size(), bytes.size());
        append(part_, bytes.first(missing));
        bytes = bytes.subspan(missing);
        if (part_.size() < packetSize) return;
        takePacket(std::span<std::uint8_t>(part_).first<packetSize>());
        part_.clear();
    }
    while (bytes.size() >= packetSize) {
        if (bytes[0] != syncByte) { // to the next packet
            bytes = bytes.subspan(1);
            continue;
        }
        takePacket(bytes.first<packetSize>());
        bytes = bytes.subspan(packetSize);
    }
    if (!bytes.empty() && bytes[0] == syncByte) part_.assign(bytes.begin(), bytes.end());
    for (auto& [receiver, wanted] : wanted_) {
        if (wanted.packets.empty()) continue;
        receiver->take(wanted.packets);
        wanted.packets.clear();
    }
}

void Multiplex::takePacket(std::span<std::uint8_t, packetSize> bytes) {
    const Packet packet(bytes);
    if (!packet.isValid()) return;
    const std::uint16_t pid = packet.pid();
    setSignal(true);
    if (loops_) {
        if (const auto time = packet.pcr(); time && (!hasTime_ || pid == clockPid_)) {
            if (!hasTime_) firstTime_ = *time;
            hasTime_ = true;
            clockPid_ = pid;
            lastTime_ = *time;
        }
        packet.shift(shift_);
    }
    if (tables_.take(bytes, pid)) programsChanged();
    keep(bytes);
}

void Multiplex::keep(std::span<std::uint8_t, packetSize> bytes) {
    const Packet packet(bytes);
    const std::uint16_t pid = packet.pid();
    const auto addToTable = [&](std::vector<std::uint8_t>& table) {
        if (packet.startsUnit()) table.clear();
        if (table.size() < mostTablePackets * packetSize) append(table, bytes);
    };
    if (pid == 0) addToTable(list_);
    for (const auto& [number, program] : tables_.programs())
        if (program.tablePid == pid) addToTable(kept_[number].table);
    const auto programs = programsOf_.find(pid);
    if (programs == programsOf_.end()) return;
    for (const std::uint16_t number : programs->second) {
        Kept& kept = kept_[number];
        if (const auto clock = packet.pcr()) kept.clock = *clock;
        const auto picture = pictures_.find(number);
        // Without pictures, everything can be decoded alone.
        const bool isKey = picture == pictures_.end() || (picture->second == pid && packet.startsKeyFrame());
        if (isKey) {
            if (picture != pictures_.end()) kept.packets.clear();
            kept.begun = true;
            kept.firstShown = packet.pts().value_or(kept.clock);
        }
        if (kept.begun && kept.packets.size() + packetSize <= mostKept && picture != pictures_.end())
            append(kept.packets, bytes);
        else if (picture != pictures_.end())
            kept = {{}, false, std::move(kept.table), kept.clock, 0};
        for (auto& [receiver, wanted] : wanted_) {
            if (wanted.program != number) continue;
            if (wanted.begun)
                append(wanted.packets, bytes);
            else if (isKey)
                if (wanted.begun) receiver->changed();
            begin(*receiver, wanted);
        }
    }
}

// Program 0 becomes the first one, once the list of programs has come.
void Multiplex::resolve(Wanted& wanted) {
    if (wanted.program == 0 && !tables_.programs().empty()) wanted.program = tables_.programs().begin()->first;
}

// The receiver gets the tables and what is kept; if nothing is, it waits for the next key frame.
void Multiplex::begin(Receiver& receiver, Wanted& wanted) {
    const auto kept = kept_.find(wanted.program);
    if (wanted.begun || kept == kept_.end() || !kept->second.begun || list_.empty() || kept->second.table.empty())
        return;
    wanted.begun = true;
    receiver.begins(wanted.program, differenceOf(kept->second.firstShown, kept->second.clock));
    append(wanted.packets, list_);
    append(wanted.packets, kept->second.table);
    append(wanted.packets, kept->second.packets);
    receiver.take(wanted.packets);
    wanted.packets.clear();
}

void Multiplex::programsChanged() {
    programsOf_.clear();
    pictures_.clear();
    for (const auto& [number, program] : tables_.programs()) {
        if (!program.isKnown) continue;
        const auto add = [&, number = number](std::uint16_t pid) TVSA_REQUIRES(mutex_) {
            auto& programs = programsOf_[pid];
            if (programs.empty() || programs.back() != number) programs.push_back(number);
        };
        add(program.clockPid);
        add(program.tablePid);
        for (const Stream& stream : program.streams) {
            add(stream.pid);
            if (stream.kind == Stream::Kind::video) pictures_.try_emplace(number, stream.pid);
        }
    }
    const auto& known = tables_.programs();
    std::erase_if(kept_, [&known](const auto& kept) { return !known.contains(kept.first); });
    for (auto& [receiver, wanted] : wanted_) {
        resolve(wanted);
        if (tables_.areProgramsKnown() && !tables_.programs().contains(wanted.program)) {
            std::string others;
            for (const auto& [number, program] : tables_.programs())
                others += (others.empty() ? "" : ", ") + std::to_string(number) +
                          (program.name.empty() ? "" : " " + program.name);
            receiver->missing(others);
        } else {
            begin(*receiver, wanted);
        }
    }
}

} // namespace media
