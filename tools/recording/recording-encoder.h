// Events as the bytes of a recording. One encoder makes one section of a file.
#pragma once

#include "event.h"

#include <bit>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace recording {

class RecordingEncoder {
public:
    // program: what writes the recording, such as "tvctl 1.0".
    explicit RecordingEncoder(std::string program, std::endian order = std::endian::native)
        : program_(std::move(program)), order_(order) {}

    // What a section begins with. All its messages are decoded by this schema. date: of the first event, so that the
    // schema stays before it when other programs merge recordings.
    std::string begin(const std::string& schema, std::int64_t date);
    // The event, after a description of its process if it is the first one of it.
    std::string encode(const Event& event);

private:
    std::string block(std::uint32_t type, const std::string& body) const;
    std::string interface(const std::string& name, const std::string& text) const;
    std::string packet(std::uint32_t interface, std::int64_t date, std::string_view data, std::uint64_t originalSize,
                       std::uint32_t flags) const;
    std::uint32_t interfaceOf(const Event& event, std::string& bytes);
    void option(std::string& body, std::uint16_t number, std::string_view value) const;

    std::string program_;
    std::endian order_;
    std::map<std::shared_ptr<const Origin>, std::uint32_t> interfaces_; // from 1; 0 is that of the schema
};

} // namespace recording
