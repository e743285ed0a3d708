#include "golden.h"

#include <charconv>
#include <cstddef>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace checks {
namespace {

std::string bytesOf(const std::string& hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        unsigned char byte = 0;
        const char* digits = hex.data() + i;
        if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2)
            throw std::runtime_error("no hexadecimal digits: " + hex.substr(i, 2));
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

} // namespace

std::vector<Golden> goldenOf(const std::string& folder, const std::string& service, const std::string& message) {
    const std::string path = folder + "/" + service + "-" + message + ".json";
    std::ifstream file(path);
    if (!file) throw std::runtime_error(path + ": cannot be read");
    const auto content = nlohmann::json::parse(file);
    std::vector<Golden> all;
    for (const char* list : {"values", "accepted"})
        for (const auto& one : content.at(list))
            all.push_back({one.at("name"), bytesOf(one.at("little")), bytesOf(one.at("big"))});
    return all;
}

} // namespace checks
