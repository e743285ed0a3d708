// The broadcast channels that the TV service receives.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

namespace services {

// What is wrong with a channel list; the text begins with its file and line.
struct ChannelListError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class ChannelList {
public:
    // The list that comes with the program.
    static ChannelList builtIn();
    // Both throw ChannelListError. where: what the text is called in errors.
    static ChannelList fromFile(const std::string& path);
    static ChannelList fromText(std::string_view text, const std::string& where);

    bool has(const std::string& uri) const { return names_.contains(uri); }
    const std::map<std::string, std::string>& names() const { return names_; } // of the channels, by URI

private:
    std::map<std::string, std::string> names_;
};

} // namespace services
