#include <cstdlib>
#include <media/picture.h>
#include <png.h>
#include <stdexcept>

namespace media {

Picture::Picture(const std::string& png) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_memory(&image, png.data(), png.size()) != 0) {
        image.format = PNG_FORMAT_RGB;
        bytes_.resize(PNG_IMAGE_SIZE(image));
        png_image_finish_read(&image, nullptr, bytes_.data(), 0, nullptr);
    }
    if (PNG_IMAGE_FAILED(image)) throw std::runtime_error(std::string("not a picture: ") + image.message);
    width_ = static_cast<int>(image.width);
    height_ = static_cast<int>(image.height);
}

bool Picture::shows(const Colour& colour, int x, int y) const {
    constexpr int near = 40;
    if (x < 0 || x >= width_ || y < 0 || y >= height_) throw std::out_of_range("a place outside of the picture");
    const std::uint8_t* const pixel = &bytes_[(std::size_t(y) * std::size_t(width_) + std::size_t(x)) * 3];
    return std::abs(pixel[0] - colour.red) < near && std::abs(pixel[1] - colour.green) < near &&
           std::abs(pixel[2] - colour.blue) < near;
}

} // namespace media
