#include "traffic.h"

#include <iterator>

namespace soak {
namespace {

const vdl::EndianEntry entries[] = {
    {0, vdl::EndianScalar4, std::uintptr_t{0}},
    {4, vdl::EndianScalar4, std::uintptr_t{0}},
    {8, vdl::EndianNested, &__vdl_EndianTable_vdlDeserString_t},
    {0, 0, vdl::EndianEntry::terminator},
};
const vdl::EndianTable table{sizeof(Numbered), entries};
const frame::MessageDescription description{"Numbered", {1, 0x100, 0x3001, 1}, &table};
const frame::MessageSet set{&description, 1};

void put(std::string& bytes, std::uint32_t word) { bytes.append(reinterpret_cast<const char*>(&word), sizeof word); }

std::string frameOf(std::uint32_t messageId, const std::string& body) {
    std::string bytes;
    for (const std::uint32_t word :
         {static_cast<std::uint32_t>(body.size()), description.meta.instance, description.meta.interfaceCode, messageId,
          std::uint32_t{description.meta.flag}, 0U, 0U, 0U})
        put(bytes, word);
    return bytes + body;
}

std::string bodyOf(Source source, std::uint32_t number) {
    std::string body;
    const auto length = static_cast<std::uint32_t>(lengthOf(number));
    for (const std::uint32_t word : {std::uint32_t{source}, number, length, std::uint32_t{sizeof(Numbered)}})
        put(body, word);
    return body + std::string(length, letterOf(number)) + '\0';
}

} // namespace

const frame::MessageSet& messages() { return set; }
const frame::MessageDescription& numbered() { return description; }

std::string validFrame(Source source, std::uint32_t number) {
    return frameOf(description.meta.messageId, bodyOf(source, number));
}

std::string malformedFrame(std::uint32_t number) {
    std::string body = bodyOf(rawClient, number);
    switch (number % 5) {
        case 0: // unknown
            return frameOf(description.meta.messageId + 1, body);
        case 1: // shorter than its flat form
            return frameOf(description.meta.messageId, body.substr(0, number % sizeof(Numbered)));
        case 2: // with a trailing byte
            return frameOf(description.meta.messageId, body + 'x');
        case 3: // with a text that exceeds the message
            body[8 + 3] = '\x7F';
            return frameOf(description.meta.messageId, body);
        default: // with an unterminated text
            body.back() = 'x';
            return frameOf(description.meta.messageId, body);
    }
}

} // namespace soak
