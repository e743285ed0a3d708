#include "block-reader.h"

#include "event.h"
#include "pcapng.h"
#include "words.h"

#include <host/printable.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace recording {
namespace {

constexpr std::size_t headBytes = 8; // type, length

// What a file is that begins with these bytes.
std::string describe(std::string_view begin) {
    if (begin.empty()) return "it is empty";
    if (begin.size() >= 4) {
        const auto magic = load<std::uint32_t>(begin, 0, std::endian::big);
        if (magic == 0xa1b2c3d4 || magic == 0xd4c3b2a1 || magic == 0xa1b23c4d || magic == 0x4d3cb2a1)
            return "it is a pcap file of the older format";
    }
    if (begin.substr(0, 2) == "\x1f\x8b") return "it is compressed with gzip; uncompress it first";
    return "it begins with \"" + host::printable(begin) + '"';
}

} // namespace

BlockReader::BlockReader(const std::string& file) : file_(file) {
    if (std::error_code error; std::filesystem::is_directory(file, error))
        throw RecordingError(file + ": it is a folder, not a recording", EISDIR);
    errno = 0;
    stream_.open(file, std::ios::binary);
    if (const int error = errno == 0 ? EIO : errno; !stream_)
        throw RecordingError(file + ": " + std::strerror(error), error);
    std::string begin;
    const bool isWhole = read(begin, headBytes);
    if (begin.size() < 4 || load<std::uint32_t>(begin, 0, std::endian::native) != pcapng::sectionHeader)
        throw RecordingError(file + " is not a recording: " + describe(begin));
    if (!isWhole) return;
    stream_.seekg(0);
    position_ = 0;
    isTruncated_ = false;
}

bool BlockReader::next(Block& block) {
    blockBegin_ = position_;
    block = {.type = 0, .body = {}, .at = position_};
    std::string head;
    if (isTruncated_ || !read(head, headBytes)) return false;
    block.type = load<std::uint32_t>(head, 0, order_);
    if (load<std::uint32_t>(head, 0, std::endian::native) == pcapng::sectionHeader) {
        block.type = pcapng::sectionHeader;
        if (!read(block.body, 4)) return false;
        if (load<std::uint32_t>(block.body, 0, order_) != pcapng::byteOrderMagic) order_ = otherThan(order_);
        if (load<std::uint32_t>(block.body, 0, order_) != pcapng::byteOrderMagic)
            fail(block, "a section with an unknown byte order");
    }
    const auto length = load<std::uint32_t>(head, 4, order_);
    if (length < pcapng::leastBlockBytes + block.body.size() || length > pcapng::mostBlockBytes || length % 4 != 0)
        fail(block, "a block of " + std::to_string(length) + " bytes");
    std::string rest;
    if (!read(rest, length - headBytes - block.body.size())) return false;
    block.body += rest;
    const std::size_t end = block.body.size() - 4;
    if (const auto repeated = load<std::uint32_t>(block.body, end, order_); repeated != length)
        fail(block, "a block of " + std::to_string(length) + " bytes that ends as one of " + std::to_string(repeated));
    block.body.resize(end);
    return true;
}

void BlockReader::fail(const Block& block, const std::string& what) const {
    throw RecordingError(file_ + ": byte " + std::to_string(block.at) + ": " + what);
}

bool BlockReader::read(std::string& bytes, std::size_t count) {
    bytes.resize(count);
    stream_.read(bytes.data(), static_cast<std::streamsize>(count));
    bytes.resize(static_cast<std::size_t>(stream_.gcount()));
    position_ += bytes.size();
    if (stream_.bad()) throw RecordingError(file_ + ": " + std::strerror(EIO), EIO);
    stream_.clear();
    if (bytes.size() == count) return true;
    isTruncated_ = !bytes.empty() || position_ != blockBegin_;
    return false;
}

void forEachOption(std::string_view body, std::size_t offset, std::endian order,
                   const std::function<void(std::uint16_t option, std::string_view value)>& take) {
    while (offset <= body.size() && body.size() - offset >= 4) {
        const auto option = load<std::uint16_t>(body, offset, order);
        const std::size_t length = load<std::uint16_t>(body, offset + 2, order);
        offset += 4;
        if (option == pcapng::endOfOptions || length > body.size() - offset) return;
        take(option, body.substr(offset, length));
        offset += (length + 3) / 4 * 4;
    }
}

} // namespace recording
