// The broadcast channels that the TV service receives.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace services {

// An error in a channel list; what() begins with its file and line.
struct ChannelListError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Channel {
    std::string name; // for people
    // URI of its transport stream, file://, udp://, rtp:// or dvb-adapter://, or of a test picture, test://; empty:
    // unknown.
    std::string transport;
    std::int32_t program = 0; // its number there
};

class ChannelList {
public:
    // The built-in list.
    static ChannelList builtIn();
    // Says why a source can never be received; empty: it may be.
    using Check = std::function<std::string(const std::string& transport)>;
    static std::string checkNothing(const std::string&) { return {}; }
    // Both throw ChannelListError. where: the text's name in errors. folder: of relative paths in file:// sources.
    static ChannelList fromFile(const std::string& path, const Check& check = checkNothing);
    static ChannelList fromText(std::string_view text, const std::string& where, const std::string& folder = "/",
                                const Check& check = checkNothing);
    // What may be wrong, each with its file and line: files that are not there yet.
    const std::vector<std::string>& warnings() const { return warnings_; }

    bool has(const std::string& uri) const { return channels_.contains(uri); }
    // Channels are numbered from 1, in the order of their URIs; 0 and the empty URI mean that the list has no such
    // channel.
    std::int32_t numberOf(const std::string& uri) const;
    std::string uriOf(std::int32_t number) const;
    const std::map<std::string, Channel>& all() const { return channels_; } // by URI

private:
    std::map<std::string, Channel> channels_; // from a file of at most host::longestTomlFile bytes
    std::vector<std::string> warnings_;       // at most one for each
};

} // namespace services
