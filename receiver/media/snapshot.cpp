#include <algorithm>
#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/binary_from_base64.hpp>
#include <boost/archive/iterators/transform_width.hpp>
#include <media/snapshot.h>

namespace media {

using namespace boost::archive::iterators;

std::string base64Of(const std::string& bytes) {
    using Digits = base64_from_binary<transform_width<std::string::const_iterator, 6, 8>>;
    std::string text(Digits(bytes.begin()), Digits(bytes.end()));
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

std::string bytesOf(std::string base64) {
    using Bytes = transform_width<binary_from_base64<std::string::const_iterator>, 8, 6>;
    const std::size_t padding = base64.size() - std::min(base64.size(), base64.find_last_not_of('=') + 1);
    std::replace(base64.end() - static_cast<std::ptrdiff_t>(padding), base64.end(), '=', 'A');
    std::string bytes(Bytes(base64.begin()), Bytes(base64.end()));
    bytes.resize(bytes.size() - std::min(bytes.size(), padding));
    return bytes;
}

} // namespace media
