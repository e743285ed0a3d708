// Decodes messages as they went over the stream, by a schema.
#pragma once

#include "body-reader.h"
#include "event.h"
#include "parsed-schema.h"

#include <bit>
#include <cstdint>
#include <string>
#include <string_view>

namespace recording {

// What precedes a message's body.
struct FrameHeader {
    std::uint32_t size = 0; // of the body
    frame::MsgMeta meta{};
    frame::MsgIds ids;
};
inline constexpr std::size_t frameHeaderBytes = 32;

// The frame must have a whole header.
FrameHeader headerOf(std::string_view frame, std::endian order);

struct DecodedMessage {
    const MessageLayout* layout = nullptr; // null: not a message of the schema. Valid while its decoder lives
    FrameHeader header;
    Json arguments;      // null if they cannot be decoded
    std::string problem; // why the message or its arguments are unknown; begins with the path of the field
};

class MessageDecoder {
public:
    // Throws RecordingError.
    explicit MessageDecoder(std::string schemaJson);

    // frame: what is recorded of header and body.
    DecodedMessage decode(const std::string& service, std::string_view frame, std::endian order,
                          Numbers numbers = Numbers::plain) const;

    const std::string& schema() const { return json_; }
    // Of the schema: equal for equal JSON. It protects from accidents, not from attacks.
    std::string fingerprint() const;

private:
    std::string json_;
    ParsedSchema schema_;
};

// By the schema of this tool.
std::shared_ptr<const MessageDecoder> ownDecoder();

// Of a recorded message.
std::endian orderOf(const host::RecordedEvent& message);
DecodedMessage decode(const Event& message, Numbers numbers);

} // namespace recording
