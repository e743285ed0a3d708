#include "message-decoder.h"

#include "sip-hash.h"
#include "words.h"

#include <schema/schema.h>
#include <utility>

namespace recording {
namespace {

std::string hexOfWord(std::uint32_t word) { return "0x" + hexOf(word).substr(8); }

std::string unknown(const ParsedSchema& schema, const std::string& service, const frame::MsgMeta& meta) {
    if (!schema.hasService(service)) return "the schema has no service " + service;
    return "the service has no message " + hexOfWord(meta.messageId) + " of instance " + hexOfWord(meta.instance) +
           ", interface " + hexOfWord(meta.interfaceCode) + ", flag " + std::to_string(meta.flag);
}

} // namespace

FrameHeader headerOf(std::string_view frame, std::endian order) {
    const auto word = [&](std::size_t offset) { return load<std::uint32_t>(frame, offset, order); };
    return {.size = word(0),
            .meta = {word(4), word(8), word(12), load<std::uint8_t>(frame, 16, order)},
            .ids = {word(20), word(24)}};
}

MessageDecoder::MessageDecoder(std::string schemaJson) : json_(std::move(schemaJson)), schema_(json_) {}

DecodedMessage MessageDecoder::decode(const std::string& service, std::string_view frame, std::endian order,
                                      Numbers numbers) const {
    DecodedMessage message;
    if (frame.size() < frameHeaderBytes) {
        message.problem = "only " + std::to_string(frame.size()) + " bytes of its header are recorded";
        return message;
    }
    message.header = headerOf(frame, order);
    message.layout = schema_.find(service, message.header.meta);
    const std::string_view body = frame.substr(frameHeaderBytes);
    if (!message.layout) {
        message.problem = unknown(schema_, service, message.header.meta);
    } else if (body.size() < message.header.size) {
        message.problem = "only " + std::to_string(body.size()) + " of its " + std::to_string(message.header.size) +
                          " bytes are recorded";
    } else if (body.size() > message.header.size) {
        message.problem =
            "its header says " + std::to_string(message.header.size) + " bytes, it has " + std::to_string(body.size());
    } else {
        try {
            message.arguments = BodyReader(body, order, numbers).read(message.layout->arguments);
        } catch (const BodyError& error) {
            message.problem = error.what();
        }
    }
    return message;
}

std::string MessageDecoder::fingerprint() const { return hexOf(sipHash({}, json_)); }

std::shared_ptr<const MessageDecoder> ownDecoder() {
    static const auto decoder = std::make_shared<const MessageDecoder>(schema::asJson());
    return decoder;
}

std::endian orderOf(const host::RecordedEvent& message) {
    const bool isOther = (message.flags & host::EventFlags::otherOrder) != 0;
    return isOther ? otherThan(std::endian::native) : std::endian::native;
}

DecodedMessage decode(const Event& message, Numbers numbers) {
    const auto& recorded = message.recorded;
    return message.origin->decoder->decode(recorded.name, recorded.data, orderOf(recorded), numbers);
}

} // namespace recording
