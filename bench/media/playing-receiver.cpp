#include "playing-receiver.h"

#include "live-broadcast.h"

#include <boost/archive/iterators/binary_from_base64.hpp>
#include <boost/archive/iterators/transform_width.hpp>
#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>

namespace bench {
namespace {

using receiver::Part;
using namespace std::chrono_literals;

constexpr const char* terminal = "0:0";
constexpr auto keyRepetition = 30ms;

std::string bytesOf(std::string text) {
    using namespace boost::archive::iterators;
    using Bytes = transform_width<binary_from_base64<std::string::const_iterator>, 8, 6>;
    while (!text.empty() && text.back() == '=') text.pop_back();
    const std::size_t size = text.size() * 6 / 8;
    text.append((4 - text.size() % 4) % 4, 'A');
    std::string bytes(Bytes(text.begin()), Bytes(text.end()));
    bytes.resize(size);
    return bytes;
}

} // namespace

PlayingReceiver::PlayingReceiver(const std::vector<Channel>& channels)
    : kit_({}, {},
           {{"TVSA_MEDIA_ENGINE", "gstreamer"},
            {"TVSA_MEDIA_OUTPUT", "none"},
            {"TVSA_MEDIA_SOUND", "none"},
            {"TVSA_LOG", "warning"}}) {
    const auto list = kit_.folder() / "channels.toml";
    std::ofstream file(list);
    for (const Channel& channel : channels)
        file << "[[channel]]\nuri = \"" << channel.uri << "\"\nname = \"" << channel.uri << "\"\nsource = \""
             << channel.source << "\"\nprogram = " << channel.program << '\n';
    file.close();
    kit_.setChannels(list);
    kit_.start();
}

double PlayingReceiver::answered(const std::string& request) {
    for (const auto end = std::chrono::steady_clock::now() + receiver::defaultTimeout;
         std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(1ms)) {
        const auto found = kit_.ask(Part::frameHost, {"request", request}).at(0);
        if (found.at("state") == "queued" || found.at("state") == "sent") continue;
        for (const auto& each : found.at("terminals"))
            if (each.at("result") != 0) throw std::runtime_error("not done: " + found.dump());
        return found.at("durationMs").get<double>();
    }
    throw std::runtime_error("no answer to " + request);
}

double PlayingReceiver::play(const std::string& uri) { return answered(kit_.play(terminal, uri)); }
double PlayingReceiver::stop() { return answered(kit_.stopTerminals(terminal)); }

double PlayingReceiver::zapThrough(const std::vector<std::string>& uris, bool withZapper) {
    double begin = 0;
    for (const std::string& uri : uris) {
        if (begin > 0) std::this_thread::sleep_for(keyRepetition);
        begin = monotonicMilliseconds();
        kit_.ask(Part::frameHost, {withZapper ? "zap" : "play", terminal, uri});
    }
    const auto isShown = [&] {
        for (const auto& each : kit_.ask(Part::frameHost, {"terminals"}))
            if (each.at("terminal") == terminal)
                return each.at("lastUri") == uris.back() && each.at("lastResult") == 0 && each.at("queued") == 0;
        return false;
    };
    while (!isShown()) {
        if (monotonicMilliseconds() - begin > receiver::defaultTimeout.count())
            throw std::runtime_error("the last channel is not shown: " + uris.back());
        std::this_thread::sleep_for(1ms);
    }
    return monotonicMilliseconds() - begin;
}

std::string PlayingReceiver::picture() {
    std::string bytes;
    for (;;) {
        const auto part = kit_.ask(Part::tvService, {"snapshot", terminal, std::to_string(bytes.size())});
        bytes += bytesOf(part.at("data").get<std::string>());
        if (bytes.size() >= part.at("size").get<std::size_t>()) return bytes;
    }
}

} // namespace bench
