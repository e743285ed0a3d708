#include "recording-reader.h"

#include "message-decoder.h"
#include "packet.h"
#include "pcapng.h"
#include "words.h"

#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

namespace recording {
namespace {

constexpr std::size_t fixedPacketBytes = 20;
constexpr int mostResolution = 9; // nanoseconds

// The description is a comment for all programs but this one; what is missing in it stays unknown.
Origin originFrom(std::string_view text) {
    Origin origin;
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (!json.is_object()) return origin;
    const auto read = [&](const char* key, auto& value) {
        const auto found = json.find(key);
        if (found == json.end()) return;
        if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::string>) {
            if (found->is_string()) value = found->template get<std::string>();
        } else if (found->is_number_integer()) {
            value = found->template get<std::decay_t<decltype(value)>>();
        }
    };
    read("process", origin.process);
    read("version", origin.version);
    read("boot", origin.boot);
    read("pid", origin.pid);
    read("begin", origin.begin);
    return origin;
}

std::int64_t nanosecondsOf(std::uint64_t time, int resolution) {
    constexpr auto most = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    for (; resolution < mostResolution; ++resolution) time = time > most / 10 ? most : time * 10;
    return static_cast<std::int64_t>(std::min(time, most));
}

} // namespace

RecordingReader::RecordingReader(const std::string& file) : blocks_(file) {
    Event event;
    if (nextPacket(event)) first_ = std::move(event);
    if (!decoder_ && !isTruncated())
        throw RecordingError(file + " is not a recording: it is a pcapng file without a schema");
}

bool RecordingReader::next(Event& event) {
    if (!first_) return nextPacket(event);
    event = std::move(*first_);
    first_.reset();
    return true;
}

bool RecordingReader::nextPacket(Event& event) {
    Block block;
    while (blocks_.next(block)) {
        if (block.type == pcapng::sectionHeader) readSection(block);
        if (block.type == pcapng::interfaceDescription) readInterface(block);
        if (block.type == pcapng::enhancedPacket && readPacket(block, event)) return true;
    }
    return false;
}

void RecordingReader::readSection(const Block& block) {
    if (block.body.size() < 16) blocks_.fail(block, "a section whose header is cut off");
    if (const auto version = load<std::uint16_t>(block.body, 4, blocks_.order()); version != pcapng::majorVersion)
        blocks_.fail(block, "a section of version " + std::to_string(version));
    interfaces_.clear();
    decoder_.reset();
    program_.clear();
    forEachOption(block.body, 16, blocks_.order(), [this](std::uint16_t option, std::string_view value) {
        if (option == pcapng::userApplication) program_ = value;
    });
}

void RecordingReader::readInterface(const Block& block) {
    if (block.body.size() < 8) blocks_.fail(block, "an interface whose description is cut off");
    if (interfaces_.size() == pcapng::mostInterfaces)
        blocks_.fail(block, "more than " + std::to_string(pcapng::mostInterfaces) + " interfaces");
    Interface& added = interfaces_.emplace_back();
    added.isOwn = load<std::uint16_t>(block.body, 0, blocks_.order()) == pcapng::ownLinkType;
    forEachOption(block.body, 8, blocks_.order(), [&](std::uint16_t option, std::string_view value) {
        if (option == pcapng::interfaceText) added.description = originFrom(value);
        if (option == pcapng::timeResolution && !value.empty()) added.resolution = static_cast<unsigned char>(value[0]);
    });
    if (added.isOwn && added.resolution > mostResolution)
        blocks_.fail(block, "an interface with an unknown resolution of time");
}

bool RecordingReader::readPacket(const Block& block, Event& event) {
    const auto word = [&](std::size_t offset) { return load<std::uint32_t>(block.body, offset, blocks_.order()); };
    if (block.body.size() < fixedPacketBytes) blocks_.fail(block, "a packet that is cut off");
    const std::uint32_t number = word(0), size = word(12);
    if (number >= interfaces_.size())
        blocks_.fail(block, "a packet of the unknown interface " + std::to_string(number));
    if (size > block.body.size() - fixedPacketBytes) blocks_.fail(block, "a packet longer than its block");
    Interface& interface = interfaces_[number];
    if (!interface.isOwn) return false;
    Packet packet;
    try {
        packet = recording::readPacket(std::string_view(block.body).substr(fixedPacketBytes, size));
    } catch (const RecordingError& error) {
        blocks_.fail(block, error.what());
    }
    if (packet.event.kind == static_cast<host::EventKind>(schemaKind)) {
        readSchema(block, std::move(packet.event.data));
        return false;
    }
    if (!decoder_)
        blocks_.fail(block, "an event before the schema; was the schema, the first packet, cut out of the recording?");
    if (!interface.origin) {
        interface.description.decoder = decoder_;
        interface.origin = std::make_shared<const Origin>(std::move(interface.description));
    }
    packet.event.date = nanosecondsOf(std::uint64_t{word(4)} << 32 | word(8), interface.resolution);
    event = {interface.origin, std::move(packet.event), packet.lost};
    return true;
}

void RecordingReader::readSchema(const Block& block, std::string json) {
    if (decoder_ && decoder_->schema() == json) return; // of a file merged from several
    if (decoder_) blocks_.fail(block, "a second, different schema");
    if (const auto own = ownDecoder(); json == own->schema()) {
        decoder_ = own;
        return;
    }
    try {
        decoder_ = std::make_shared<const MessageDecoder>(std::move(json));
    } catch (const RecordingError& error) {
        blocks_.fail(block, error.what());
    }
}

} // namespace recording
