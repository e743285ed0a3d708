#include "subtitles.h"

#include "packets.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace transmitter {
namespace {

constexpr std::uint8_t page = 1;
constexpr std::size_t pictureWidth = 720, barTop = 440;

enum Segment : std::uint8_t { pageSegment = 0x10, regionSegment, colourSegment, objectSegment, endSegment = 0x80 };
enum Colour : std::uint8_t { bar = 1, letter = 2 };

// Five columns of seven dots each for a letter; the lowest bit is the top.
using Glyph = std::array<std::uint8_t, 5>;
constexpr std::string_view letters = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::array<Glyph, letters.size()> glyphs{{
    {0x3E, 0x51, 0x49, 0x45, 0x3E}, {0x00, 0x42, 0x7F, 0x40, 0x00}, {0x42, 0x61, 0x51, 0x49, 0x46},
    {0x21, 0x41, 0x45, 0x4B, 0x31}, {0x18, 0x14, 0x12, 0x7F, 0x10}, {0x27, 0x45, 0x45, 0x45, 0x39},
    {0x3C, 0x4A, 0x49, 0x49, 0x30}, {0x01, 0x71, 0x09, 0x05, 0x03}, {0x36, 0x49, 0x49, 0x49, 0x36},
    {0x06, 0x49, 0x49, 0x29, 0x1E}, {0x7E, 0x11, 0x11, 0x11, 0x7E}, {0x7F, 0x49, 0x49, 0x49, 0x36},
    {0x3E, 0x41, 0x41, 0x41, 0x22}, {0x7F, 0x41, 0x41, 0x22, 0x1C}, {0x7F, 0x49, 0x49, 0x49, 0x41},
    {0x7F, 0x09, 0x09, 0x09, 0x01}, {0x3E, 0x41, 0x49, 0x49, 0x7A}, {0x7F, 0x08, 0x08, 0x08, 0x7F},
    {0x00, 0x41, 0x7F, 0x41, 0x00}, {0x20, 0x40, 0x41, 0x3F, 0x01}, {0x7F, 0x08, 0x14, 0x22, 0x41},
    {0x7F, 0x40, 0x40, 0x40, 0x40}, {0x7F, 0x02, 0x0C, 0x02, 0x7F}, {0x7F, 0x04, 0x08, 0x10, 0x7F},
    {0x3E, 0x41, 0x41, 0x41, 0x3E}, {0x7F, 0x09, 0x09, 0x09, 0x06}, {0x3E, 0x41, 0x51, 0x21, 0x5E},
    {0x7F, 0x09, 0x19, 0x29, 0x46}, {0x46, 0x49, 0x49, 0x49, 0x31}, {0x01, 0x01, 0x7F, 0x01, 0x01},
    {0x3F, 0x40, 0x40, 0x40, 0x3F}, {0x1F, 0x20, 0x40, 0x20, 0x1F}, {0x3F, 0x40, 0x38, 0x40, 0x3F},
    {0x63, 0x14, 0x08, 0x14, 0x63}, {0x07, 0x08, 0x70, 0x08, 0x07}, {0x61, 0x51, 0x49, 0x45, 0x43},
}};

// Between letters is one dot, and around them a margin of one dot. The margin is the bar's fill and not part of the
// object: some decoders reject a line that reaches the right end of its region.
constexpr std::size_t dotSize = 6, letterWidth = 5 + 1, letterHeight = 7;

std::size_t widthOf(std::string_view text) { return text.size() * letterWidth - 1; } // in dots

Colour dotAt(std::string_view text, std::size_t column, std::size_t row) {
    const std::size_t glyph = letters.find(text[column / letterWidth]), inside = column % letterWidth;
    if (glyph == std::string_view::npos || inside == letterWidth - 1) return bar;
    return (glyphs[glyph][inside] >> row & 1) != 0 ? letter : bar;
}

// The codes for pixels of 2 bits.
class Line {
public:
    // Pixels are a multiple of dotSize, which these three codes can express.
    void addRun(std::size_t pixels, Colour colour) {
        constexpr std::size_t longest = 284 / dotSize * dotSize;
        for (; pixels > 0; pixels -= std::min(pixels, longest)) {
            const std::size_t run = std::min(pixels, longest);
            if (run < 12)
                addBits(0b001 << 3 | (run - 3), 6);
            else if (run < 29)
                addBits(0b000010 << 4 | (run - 12), 10);
            else
                addBits(0b000011 << 8 | (run - 29), 14);
            addBits(colour, 2);
        }
    }
    Bytes finished() {
        addBits(0, 6); // the end
        addBits(0, (8 - bits_.size() % 8) % 8);
        Bytes data{0x10};
        for (std::size_t at = 0; at + 8 <= bits_.size(); at += 8) {
            unsigned byte = 0;
            for (std::size_t bit = 0; bit < 8; ++bit) byte = byte << 1 | (bits_[at + bit] ? 1 : 0);
            data.push_back(static_cast<std::uint8_t>(byte));
        }
        data.push_back(0xF0);
        return data;
    }

private:
    void addBits(std::size_t value, std::size_t count) {
        while (count-- > 0) bits_.push_back((value >> count & 1) != 0);
    }
    std::vector<bool> bits_;
};

// Both fields show the same lines, so one is enough.
Bytes fieldOf(std::string_view text) {
    Bytes field;
    for (std::size_t row = 0; row < letterHeight; ++row) {
        Line line;
        for (std::size_t column = 0; column < widthOf(text);) {
            const Colour colour = dotAt(text, column, row);
            std::size_t dots = 1;
            while (column + dots < widthOf(text) && dotAt(text, column + dots, row) == colour) ++dots;
            line.addRun(dots * dotSize, colour);
            column += dots;
        }
        const Bytes data = line.finished();
        for (std::size_t copy = 0; copy < dotSize / 2; ++copy) add(field, data);
    }
    return field;
}

void addSegment(Bytes& data, Segment type, const Bytes& content) {
    add(data, {0x0F, type, 0, page});
    add16(data, content.size());
    add(data, content);
}

} // namespace

Bytes subtitleDescription(const std::string& language) {
    constexpr std::uint8_t normal = 0x10;
    Bytes content(language.begin(), language.end());
    add(content, {normal, 0, page, 0, page});
    return content;
}

Bytes subtitleData(const std::string& text, BarColour colour, unsigned version, std::uint64_t presentation) {
    constexpr std::uint8_t timeout = 3, modeChange = 0x2 << 2, region = 0, colours = 0, object = 0;
    const auto versionBits = static_cast<std::uint8_t>(version << 4);
    Bytes data{0x20, 0x00};
    Bytes composition{timeout, static_cast<std::uint8_t>(versionBits | modeChange | 0x03)};
    if (text.empty()) {
        addSegment(data, pageSegment, composition);
    } else {
        const std::size_t width = (widthOf(text) + 2) * dotSize, height = (letterHeight + 2) * dotSize;
        add(composition, {region, 0xFF});
        add16(composition, (pictureWidth - width) / 2);
        add16(composition, barTop);
        addSegment(data, pageSegment, composition);

        constexpr std::uint8_t twoBits = 1 << 5 | 1 << 2 | 0x03;
        constexpr std::uint8_t filled = 1 << 3 | 0x07; // with the bar's colour
        Bytes placed{region, static_cast<std::uint8_t>(versionBits | filled)};
        add16(placed, width);
        add16(placed, height);
        add(placed, {twoBits, colours, 0, bar << 2 | 0x03});
        add(placed, {0, object, 0, dotSize, 0xF0, dotSize});
        addSegment(data, regionSegment, placed);

        constexpr std::uint8_t full = 0x80 | 0x1E | 0x01; // for 2 bits, with all bits of Y, Cr, Cb and transparency
        Bytes table{colours, static_cast<std::uint8_t>(versionBits | 0x0F)};
        if (colour == BarColour::yellow)
            add(table, {bar, full, 210, 146, 16, 0});
        else
            add(table, {bar, full, 170, 16, 166, 0});
        add(table, {letter, full, 16, 128, 128, 0});
        addSegment(data, colourSegment, table);

        const Bytes field = fieldOf(text);
        Bytes bitmap{0, object, static_cast<std::uint8_t>(versionBits | 0x01)};
        add16(bitmap, field.size());
        add16(bitmap, 0);
        add(bitmap, field);
        addSegment(data, objectSegment, bitmap);
    }
    addSegment(data, endSegment, {});
    data.push_back(0xFF);
    return privateData(presentation, data);
}

} // namespace transmitter
