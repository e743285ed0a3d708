// The picture of a terminal on its way through a service's shell, which limits an answer: in parts, as Base64.
#pragma once

#include <cstddef>
#include <string>

namespace media {

std::string base64Of(const std::string& bytes);
std::string bytesOf(std::string base64);

// The PNG that the shell command "snapshot" takes of a terminal. ask runs a command of the service's shell, given as a
// list of words, and returns its JSON.
template <class Ask> std::string pictureOf(const std::string& terminal, const Ask& ask) {
    std::string picture;
    for (;;) {
        const auto part = ask({"snapshot", terminal, std::to_string(picture.size())});
        const std::string bytes = bytesOf(part.at("data").template get<std::string>());
        picture += bytes;
        if (picture.size() >= part.at("size").template get<std::size_t>() || bytes.empty()) return picture;
    }
}

} // namespace media
