// What is seen in a picture that a service's shell command "snapshot" has given.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace media {

class Picture {
public:
    struct Colour {
        int red, green, blue;
    };
    static constexpr Colour yellow{255, 255, 0}, cyan{0, 255, 255}, white{255, 255, 255}, black{0, 0, 0};

    // Throws std::runtime_error when the bytes are no PNG.
    explicit Picture(const std::string& png);

    int width() const { return width_; }
    int height() const { return height_; }
    // Whether about this colour is there; codecs change it a little. Throws std::out_of_range outside of the picture.
    bool shows(const Colour& colour, int x, int y) const;

private:
    int width_ = 0, height_ = 0;
    std::vector<std::uint8_t> bytes_; // red, green and blue of each pixel, row by row
};

} // namespace media
