#include "teletext.h"

#include "packets.h"

#include <array>
#include <bit>

namespace transmitter {
namespace {

constexpr std::size_t unitSize = 46, headerTextSize = 32, rowSize = 40;
constexpr std::uint8_t firstLine = 7; // of the lines between two fields of a picture

// Control codes in a row. A row of double height covers the next one.
constexpr char yellow = 0x03, cyan = 0x06, endBox = 0x0A, startBox = 0x0B, doubleHeight = 0x0D;

std::uint8_t protectedNumber(unsigned number) { // Hamming code of 4 bits
    constexpr std::array<std::uint8_t, 16> codes{0x15, 0x02, 0x49, 0x5E, 0x64, 0x73, 0x38, 0x2F,
                                                 0xD0, 0xC7, 0x8C, 0x9B, 0xA1, 0xB6, 0xFD, 0xEA};
    return codes[number & 0x0F];
}

Bytes protectedText(std::string text, std::size_t size) { // odd parity
    text.resize(size, ' ');
    Bytes bytes;
    for (const char c : text) {
        const auto byte = static_cast<std::uint8_t>(c);
        bytes.push_back(std::popcount(byte) % 2 == 1 ? byte : byte | 0x80);
    }
    return bytes;
}

std::uint8_t reversed(std::uint8_t byte) {
    unsigned result = 0;
    for (int bit = 0; bit < 8; ++bit) result = result << 1 | (byte >> bit & 1);
    return static_cast<std::uint8_t>(result);
}

// Collects the rows of pages as data units of one unit of the stream. At most 15 rows, so that each has a line.
class Rows {
public:
    explicit Rows(bool isSubtitle) : kind_(isSubtitle ? 0x03 : 0x02) {}

    // Rows that follow belong to this page; pages before it are complete.
    void addHeader(unsigned page, const std::string& text) {
        constexpr unsigned erase = 8, subtitle = 8, serial = 1;
        magazine_ = page >> 8 & 7;
        Bytes bytes;
        const bool isSubtitle = kind_ == 0x03;
        for (const unsigned number : {page & 15, page >> 4 & 15, 0U, erase, 0U, isSubtitle ? subtitle : 0U, 0U, serial})
            bytes.push_back(protectedNumber(number));
        transmitter::add(bytes, protectedText(text, headerTextSize));
        addUnit(0, bytes);
    }
    void addRow(unsigned row, const std::string& text) { addUnit(row, protectedText(text, rowSize)); }

    Bytes data(std::uint64_t presentation) {
        constexpr std::uint8_t identifier = 0x10, stuffing = 0xFF, dataLength = unitSize - 2;
        constexpr std::size_t fieldsLength = 0x24; // so that the units are aligned with packets
        while ((units_.size() / unitSize + 1) % 4 != 0) {
            transmitter::add(units_, {stuffing, dataLength});
            units_.insert(units_.end(), dataLength, 0xFF);
        }
        Bytes bytes{identifier};
        transmitter::add(bytes, units_);
        return privateData(presentation, bytes, fieldsLength);
    }

private:
    void addUnit(unsigned row, const Bytes& content) {
        constexpr std::uint8_t dataLength = unitSize - 2, framing = 0xE4, firstField = 0xE0;
        const auto line = static_cast<std::uint8_t>(firstField | (firstLine + units_.size() / unitSize));
        transmitter::add(units_, {kind_, dataLength, line, framing});
        Bytes bytes{protectedNumber(magazine_ | (row & 1) << 3), protectedNumber(row >> 1)};
        transmitter::add(bytes, content);
        for (const std::uint8_t byte : bytes) units_.push_back(reversed(byte));
    }

    const std::uint8_t kind_;
    unsigned magazine_ = 0;
    Bytes units_;
};

std::string large(char colour, const std::string& text) { return std::string{colour, doubleHeight} + text; }

} // namespace

Bytes teletextDescription() {
    constexpr std::uint8_t initialPage = 1, subtitlePage = 2;
    return {'e', 'n', 'g', initialPage << 3 | 1, 0x00, 'e', 'n', 'g', subtitlePage << 3 | 0, 0x88};
}

Bytes teletextData(TeletextPage page, const std::string& program, const std::string& second,
                   std::uint64_t presentation) {
    const bool isSubtitle = page == TeletextPage::subtitle || page == TeletextPage::emptySubtitle;
    Rows rows(isSubtitle);
    switch (page) {
        case TeletextPage::first:
            rows.addHeader(0x100, "P100 " + program);
            rows.addRow(2, large(yellow, program));
            rows.addRow(5, large(cyan, "PAGE 100"));
            rows.addRow(8, large(yellow, "Second " + second));
            rows.addRow(11, large(cyan, "200 Another page"));
            rows.addRow(14, large(cyan, "888 Subtitles"));
            break;
        case TeletextPage::second:
            rows.addHeader(0x200, "P200 " + program);
            rows.addRow(2, large(cyan, "PAGE 200"));
            rows.addRow(5, large(yellow, "More about " + program));
            rows.addRow(8, large(cyan, "100 First page"));
            break;
        case TeletextPage::subtitle:
            rows.addHeader(0x888, "");
            rows.addRow(
                20, std::string{doubleHeight, startBox, startBox} + "SUBTITLE " + second + std::string{endBox, endBox});
            break;
        case TeletextPage::emptySubtitle:
            rows.addHeader(0x888, "");
            break;
    }
    constexpr unsigned noPage = 0xFF; // its header completes the page of its magazine
    rows.addHeader(isSubtitle ? 0x800 | noPage : page == TeletextPage::first ? 0x100 | noPage : 0x200 | noPage, "");
    return rows.data(presentation);
}

} // namespace transmitter
