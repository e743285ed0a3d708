#include "codec/cases.h"

#include <charconv>
#include <random>

namespace bench {
namespace {

std::string hex(std::mt19937& random, std::size_t length) {
    std::string text(length, '0');
    for (char& c : text) c = "0123456789abcdef"[random() % 16];
    return text;
}
std::string uri(std::mt19937& random) { // 60 to 80 characters
    const std::size_t length = 10 + random() % 21;
    return "http://media.example/vod/0001/master.m3u8?session=" + hex(random, length);
}
std::string uuid(std::mt19937& random) {
    std::string text = hex(random, 8);
    for (const std::size_t length : {4U, 4U, 4U, 12U}) text += '-' + hex(random, length);
    return text;
}

struct Case {
    std::string record;
    std::size_t count;
};

Case parsed(const std::string& name) {
    const auto slash = name.find('/');
    if (slash != std::string::npos) {
        Case found{name.substr(0, slash), 0};
        const char* end = name.data() + name.size();
        const auto [stop, error] = std::from_chars(name.data() + slash + 1, end, found.count);
        const bool known = found.record == "request" || found.record == "info" || name == "audio-info/8";
        if (known && error == std::errc{} && stop == end && found.count > 0) return found;
    }
    throw std::invalid_argument("unknown case '" + name + "'; known: request/N, info/N, audio-info/8");
}

} // namespace

Requests sampleRequests(std::size_t count) {
    std::mt19937 random(42);
    Requests requests(count);
    for (auto& request : requests) {
        request.terminal = {2, static_cast<std::int32_t>(random() % 8)};
        request.intParam1 = 1;
        request.intParam2 = static_cast<std::int32_t>(random() % 1000);
        request.intParam3 = 90000;
        request.uri = uri(random);
        request.uuid = uuid(random);
        request.strParam2 = "extin";
        request.strParamList = {"main", "hdmi-1"};
        request.reqId = "123";
        request.strParam3 = "4";
        request.intParam4 = 7;
    }
    return requests;
}

Infos sampleInfos(std::size_t count) {
    std::mt19937 random(42);
    Infos infos(count);
    for (auto& info : infos) {
        info.terminal = {2, static_cast<std::int32_t>(random() % 8)};
        info.uri = uri(random);
        info.uuid = uuid(random);
        info.uuidAncestor = uuid(random);
        info.reqId = "123";
    }
    return infos;
}

AudioInfo sampleAudioInfo() {
    std::mt19937 random(42);
    AudioInfo info{{2, 1}, 1, 48000, 8, {}};
    for (int i = 0; i < 8; ++i)
        info.streams.push_back({static_cast<std::int32_t>(random() % 100), "eng", "", 48000, 2, 192000, 1, 2, true,
                                false, "aac", 3, 4, "Main audio, stereo"});
    return info;
}

std::vector<Codec>& peers() {
    static std::vector<Codec> all;
    return all;
}

RoundTrip caseOf(const Codec& codec, const std::string& name) {
    const Case parsedCase = parsed(name);
    if (parsedCase.record == "request") return codec.requests(sampleRequests(parsedCase.count));
    if (parsedCase.record == "info") return codec.infos(sampleInfos(parsedCase.count));
    return codec.audioInfo(sampleAudioInfo());
}

std::size_t recordsOf(const std::string& name) {
    const Case parsedCase = parsed(name);
    return parsedCase.record == "audio-info" ? 1 : parsedCase.count;
}

} // namespace bench
