#include "base/escape.h"

#include <host/printable.h>

#include <cstddef>

namespace host {
namespace {

// The length of the printable character at the start of text; 0 for a control character or an invalid byte.
std::size_t printableLength(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
    const std::size_t length = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
    if (length == 0 || text.size() < length) return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0) != 0x80) return 0;
    const unsigned second = byte(1);
    if (first == 0xC2 && second < 0xA0) return 0; // the control characters U+0080 to U+009F
    if (first == 0xE0 && second < 0xA0) return 0; // overlong
    if (first == 0xED && second > 0x9F) return 0; // surrogates
    if (first == 0xF0 && second < 0x90) return 0; // overlong
    if (first == 0xF4 && second > 0x8F) return 0; // beyond U+10FFFF
    return length;
}

} // namespace

void appendEscaped(std::string& out, std::string_view text, std::string_view lineFeed) {
    static constexpr char digits[] = "0123456789abcdef";
    while (!text.empty()) {
        std::size_t length = printableLength(text);
        if (length != 0) {
            out.append(text.substr(0, length));
        } else {
            length = 1;
            const auto byte = static_cast<unsigned char>(text[0]);
            if (byte == '\n')
                out.append(lineFeed);
            else
                out.append({'\\', 'x', digits[byte >> 4], digits[byte & 15]});
        }
        text.remove_prefix(length);
    }
}

namespace {

constexpr std::size_t longestQuoted = 200; // bytes: longer than any socket path

} // namespace

std::string printable(std::string_view text, std::string_view lineFeed) {
    std::string result;
    appendEscaped(result, text, lineFeed);
    return result;
}

std::string quoted(std::string_view text) {
    if (text.size() <= longestQuoted) return '"' + printable(text) + '"';
    std::size_t end = longestQuoted;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end; // do not split a character
    return '"' + printable(text.substr(0, end)) + "...\" (" + std::to_string(text.size()) + " bytes)";
}

} // namespace host
