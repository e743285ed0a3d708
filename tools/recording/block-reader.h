// The blocks of a pcapng file, in either byte order. The file may come from anybody.
#pragma once

#include <bit>
#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>

namespace recording {

struct Block {
    std::uint32_t type = 0;
    std::string body;     // what is between its two lengths
    std::uint64_t at = 0; // its position in the file
};

class BlockReader {
public:
    // Throws RecordingError when the file cannot be read or is no pcapng file.
    explicit BlockReader(const std::string& file);

    // Returns false at the end, or where the file is cut off inside a block. Throws RecordingError.
    bool next(Block& block);
    bool isTruncated() const { return isTruncated_; }
    std::endian order() const { return order_; } // of the section that the last block belongs to
    const std::string& file() const { return file_; }

    // Throws a RecordingError that names the file and the block.
    [[noreturn]] void fail(const Block& block, const std::string& what) const;

private:
    bool read(std::string& bytes, std::size_t count);

    std::string file_;
    std::ifstream stream_;
    std::endian order_ = std::endian::native;
    std::uint64_t position_ = 0;
    std::uint64_t blockBegin_ = 0;
    bool isTruncated_ = false;
};

// Calls take for each option that follows offset in a block's body, as far as they are whole.
void forEachOption(std::string_view body, std::size_t offset, std::endian order,
                   const std::function<void(std::uint16_t option, std::string_view value)>& take);

} // namespace recording
