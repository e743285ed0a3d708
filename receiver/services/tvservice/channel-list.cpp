#include "tvservice/channel-list.h"

#include "tvservice/built-in-channels.h"

#include <host/printable.h>
#include <host/toml-file.h>

#include <cstddef>
#include <iterator>
#include <toml++/toml.h>

namespace services {

namespace {

constexpr std::string_view broadcastUri = "dvb://";

class Reader {
public:
    explicit Reader(const std::string& where) : where_(where) {}

    std::map<std::string, std::string> read(std::string_view text) const {
        const toml::table root = parse(text);
        for (const auto& [key, value] : root)
            if (key.str() != "channel") fail(value, "unknown key " + host::quoted(key.str()));
        std::map<std::string, std::string> names;
        const toml::node* const channels = root.get("channel");
        if (!channels) return names;
        if (!channels->is_array()) fail(*channels, "channels are written as [[channel]]");
        for (const toml::node& node : *channels->as_array()) {
            const toml::table* const channel = node.as_table();
            if (!channel) fail(node, "channels are written as [[channel]]");
            add(*channel, names);
        }
        return names;
    }

private:
    toml::table parse(std::string_view text) const {
        try {
            host::checkTomlNesting(text, where_);
            return toml::parse(text);
        } catch (const toml::parse_error& error) {
            fail(error.source(), std::string(error.description()));
        } catch (const host::TomlFileError& error) {
            throw ChannelListError(error.what());
        }
    }

    void add(const toml::table& channel, std::map<std::string, std::string>& names) const {
        for (const auto& [key, value] : channel)
            if (key.str() != "uri" && key.str() != "name") fail(value, "a channel has no " + host::quoted(key.str()));
        std::string uri = textOf(channel, "uri"), name = textOf(channel, "name");
        if (uri.compare(0, broadcastUri.size(), broadcastUri) != 0 || uri.size() == broadcastUri.size())
            fail(*channel.get("uri"), host::quoted(uri) + " is not a dvb:// URI");
        if (const auto known = names.find(uri); known != names.end())
            fail(*channel.get("uri"), host::quoted(uri) + " is the URI of " + host::quoted(known->second) + " already");
        names.emplace(std::move(uri), std::move(name));
    }

    std::string textOf(const toml::table& channel, std::string_view key) const {
        const toml::node* const node = channel.get(key);
        if (!node) fail(channel, "a channel without " + std::string(key));
        const auto text = node->value_exact<std::string>();
        if (!text || text->empty()) fail(*node, "a channel's " + std::string(key) + " must be a non-empty string");
        return *text;
    }

    [[noreturn]] void fail(const toml::node& node, const std::string& problem) const { fail(node.source(), problem); }
    [[noreturn]] void fail(const toml::source_region& place, const std::string& problem) const {
        throw ChannelListError(where_ + ':' + std::to_string(place.begin.line) + ": " + host::printable(problem));
    }

    const std::string& where_;
};

} // namespace

std::int32_t ChannelList::numberOf(const std::string& uri) const {
    const auto channel = names_.find(uri);
    if (channel == names_.end()) return 0;
    return static_cast<std::int32_t>(std::distance(names_.begin(), channel)) + 1;
}

std::string ChannelList::uriOf(std::int32_t number) const {
    if (number < 1 || static_cast<std::size_t>(number) > names_.size()) return {};
    return std::next(names_.begin(), number - 1)->first;
}

ChannelList ChannelList::builtIn() { return fromText(builtInChannels, "built-in channel list"); }

ChannelList ChannelList::fromFile(const std::string& path) {
    try {
        const auto file = host::readTomlFile(path);
        if (!file) throw ChannelListError(path + ": there is no such file");
        return fromText(file->text, path);
    } catch (const host::TomlFileError& error) {
        throw ChannelListError(error.what());
    }
}

ChannelList ChannelList::fromText(std::string_view text, const std::string& where) {
    ChannelList list;
    list.names_ = Reader(where).read(text);
    return list;
}

} // namespace services
