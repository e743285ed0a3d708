// Broadcasts synthetic television, into a file or over the network.
#include "additions.h"
#include "broadcast.h"

#include <host/printable.h>

#include <CLI/CLI.hpp>
#include <arpa/inet.h>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <iostream>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace transmitter;

enum ExitCode { success = 0, failure = 1, usage = 2 };

constexpr std::size_t datagramSize = 7 * packetSize;

class Output {
public:
    virtual ~Output() = default;
    // time: of the packets, since the broadcast began.
    virtual void write(std::span<const std::uint8_t> packets, std::chrono::milliseconds time) = 0;
    virtual void finish() {}
};

// A file that appears when it is whole.
class FileOutput final : public Output {
public:
    explicit FileOutput(const std::string& path) : path_(path), part_(path + ".part") {
        file_.exceptions(std::ios::failbit | std::ios::badbit);
        file_.open(part_, std::ios::binary);
    }
    ~FileOutput() override {
        std::error_code ignored;
        std::filesystem::remove(part_, ignored);
    }
    void write(std::span<const std::uint8_t> packets, std::chrono::milliseconds) override {
        file_.write(reinterpret_cast<const char*>(packets.data()), static_cast<std::streamsize>(packets.size()));
    }
    void finish() override {
        file_.close();
        std::filesystem::rename(part_, path_);
    }

private:
    const std::string path_, part_;
    std::ofstream file_;
};

// Sends packets at their times: an encoder may pass on many pictures at once.
class NetworkOutput final : public Output {
public:
    explicit NetworkOutput(const std::string& address) : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const std::string rest = address.substr(std::string_view("udp://").size());
        const auto colon = rest.rfind(':');
        const char* const end = rest.data() + rest.size();
        std::uint16_t port = 0;
        to_.sin_family = AF_INET;
        if (colon == std::string::npos || inet_pton(AF_INET, rest.substr(0, colon).c_str(), &to_.sin_addr) != 1 ||
            std::from_chars(rest.data() + colon + 1, end, port).ptr != end || port == 0)
            throw std::invalid_argument("not udp://ADDRESS:PORT: " + address);
        to_.sin_port = htons(port);
    }
    ~NetworkOutput() override { ::close(socket_); }
    NetworkOutput(const NetworkOutput&) = delete;
    NetworkOutput& operator=(const NetworkOutput&) = delete;
    // What nobody receives is lost, as in the air.
    void write(std::span<const std::uint8_t> packets, std::chrono::milliseconds time) override {
        constexpr std::chrono::milliseconds reserve{300}; // for packets that are made late
        if (!start_) start_ = std::chrono::steady_clock::now() + reserve;
        std::this_thread::sleep_until(*start_ + time);
        for (; !packets.empty(); packets = packets.subspan(std::min(packets.size(), datagramSize)))
            ::sendto(socket_, packets.data(), std::min(packets.size(), datagramSize), 0,
                     reinterpret_cast<const sockaddr*>(&to_), sizeof to_);
    }

private:
    const int socket_;
    sockaddr_in to_{};
    std::optional<std::chrono::steady_clock::time_point> start_;
};

std::unique_ptr<Output> outputTo(const std::string& place) {
    if (place.starts_with("udp://")) return std::make_unique<NetworkOutput>(place);
    return std::make_unique<FileOutput>(place);
}

volatile std::sig_atomic_t interrupted = 0;

std::string errorOf(GstElement* pipeline) {
    GstBus* const bus = gst_element_get_bus(pipeline);
    GstMessage* const message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
    gst_object_unref(bus);
    if (!message) return {};
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    std::string text = error->message;
    g_error_free(error);
    gst_message_unref(message);
    return text;
}

// Whether the signal is lost at a time since the broadcast began.
bool isLost(std::chrono::milliseconds time, std::chrono::seconds loss) {
    constexpr std::chrono::seconds period{10};
    return time % period >= period - loss;
}

void broadcast(GstElement* pipeline, const Broadcast& what, std::chrono::seconds loss, Output& output) {
    Additions additions(what, std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
    GstElement* const sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    constexpr GstClockTime patience = GST_SECOND / 2;
    while (!interrupted && !gst_app_sink_is_eos(GST_APP_SINK(sink))) {
        GstSample* const sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink), patience);
        if (!sample) {
            if (const std::string problem = errorOf(pipeline); !problem.empty()) throw std::runtime_error(problem);
            continue;
        }
        GstMapInfo map;
        GstBuffer* const buffer = gst_sample_get_buffer(sample);
        if (gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            const Bytes packets = additions.complete({map.data, map.size});
            gst_buffer_unmap(buffer, &map);
            if (!isLost(additions.time(), loss)) output.write(packets, additions.time());
        }
        gst_sample_unref(sample);
    }
    gst_object_unref(sink);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Broadcasts synthetic television: programs whose pictures and tones tell which they are.",
                 "tvsa-transmitter"};
    std::string place;
    int stream = 1, program = 0, loss = 0;
    Length length;
    app.add_option("PLACE", place, "A file, or udp://ADDRESS:PORT for a broadcast in real time")->required();
    app.add_option("--stream", stream, "Which transport stream: 1 or 2")->check(CLI::Range(1, 2));
    app.add_option("--program", program, "Only this one of its programs: 1, 2 or 3")->check(CLI::Range(1, 3));
    app.add_option("--seconds", length.seconds, "Length; by default 10 for a file, and without end for the network")
        ->check(CLI::Range(1, 3600));
    app.add_option("--key-frames", length.keyFrames, "Frames from one key frame to the next")
        ->check(CLI::Range(1, 250));
    app.add_option("--loss", loss, "Seconds without signal at the end of every ten seconds, only for the network")
        ->check(CLI::Range(1, 9));
    app.set_version_flag("--version", "tvsa-transmitter " TVSA_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? success : usage;
    }
    const bool isFile = !place.starts_with("udp://");
    if (isFile && loss > 0) {
        std::cerr << "tvsa-transmitter: --loss is only for udp://ADDRESS:PORT; a file loses no signal\n";
        return usage;
    }
    if (isFile && length.seconds == 0) length.seconds = 10;
    length.isLive = !isFile;
    for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, [](int) { interrupted = 1; });
    try {
        gst_init(nullptr, nullptr);
        const auto output = outputTo(place);
        Broadcast what = broadcastOf(stream);
        if (program != 0) std::erase_if(what.programs, [&](const Program& other) { return other.number != program; });
        GError* problem = nullptr;
        GstElement* const pipeline = gst_parse_launch(pipelineOf(what, length).c_str(), &problem);
        if (problem) throw std::runtime_error(problem->message);
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
        broadcast(pipeline, what, std::chrono::seconds(loss), *output);
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
        if (interrupted && isFile) return failure; // no half file
        output->finish();
        return success;
    } catch (const std::exception& error) {
        std::cerr << "tvsa-transmitter: " << host::printable(error.what()) << '\n';
        return failure;
    }
}
