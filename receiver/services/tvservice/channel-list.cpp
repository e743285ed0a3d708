#include "tvservice/channel-list.h"

#include "tvservice/built-in-channels.h"

#include <host/printable.h>
#include <host/toml-file.h>

#include <charconv>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <toml++/toml.h>
#include <utility>

namespace services {

namespace {

constexpr std::string_view broadcastUri = "dvb://", testPicture = "test://", file = "file://";
// Of a host: a name, or an address.
constexpr std::string_view hostCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_:[]%";

class Reader {
public:
    Reader(const std::string& where, const std::string& folder, const ChannelList::Check& check)
        : where_(where), folder_(folder), check_(check) {}

    std::vector<std::string> takeWarnings() { return std::move(warnings_); }

    std::map<std::string, Channel> read(std::string_view text) {
        const toml::table root = parse(text);
        for (const auto& [key, value] : root)
            if (key.str() != "channel") fail(value, "unknown key " + host::quoted(key.str()));
        std::map<std::string, Channel> known;
        const toml::node* const channels = root.get("channel");
        if (!channels) return known;
        if (!channels->is_array()) fail(*channels, "channels are written as [[channel]]");
        for (const toml::node& node : *channels->as_array()) {
            const toml::table* const channel = node.as_table();
            if (!channel) fail(node, "channels are written as [[channel]]");
            add(*channel, known);
        }
        return known;
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

    void add(const toml::table& channel, std::map<std::string, Channel>& channels) {
        for (const auto& [key, value] : channel)
            if (key.str() != "uri" && key.str() != "name" && key.str() != "source" && key.str() != "program")
                fail(value, "a channel has no " + host::quoted(key.str()));
        std::string uri = textOf(channel, "uri"), name = textOf(channel, "name");
        if (uri.compare(0, broadcastUri.size(), broadcastUri) != 0 || uri.size() == broadcastUri.size())
            fail(*channel.get("uri"), host::quoted(uri) + " is not a dvb:// URI");
        if (const auto known = channels.find(uri); known != channels.end())
            fail(*channel.get("uri"),
                 host::quoted(uri) + " is the URI of " + host::quoted(known->second.name) + " already");
        Channel added{std::move(name), "", 0};
        const toml::node* const source = channel.get("source");
        const toml::node* const program = channel.get("program");
        if (source) added.transport = checkedTransportOf(*source, textOf(channel, "source"));
        const bool hasPrograms = !added.transport.starts_with(testPicture);
        if (program && !source) fail(*program, "a channel with a program needs the source that has it");
        if (program && !hasPrograms) fail(*program, "a test picture has no program");
        if (source && hasPrograms) {
            if (!program) fail(*source, "a channel with a source needs the number of its program there");
            const auto number = program->value_exact<std::int64_t>();
            if (!number || *number < 1 || *number > UINT16_MAX)
                fail(*program, "a channel's program must be a number from 1 to 65535");
            added.program = static_cast<std::int32_t>(*number);
        }
        channels.emplace(std::move(uri), std::move(added));
    }

    std::string checkedTransportOf(const toml::node& node, const std::string& text) {
        std::string transport = transportOf(node, text);
        if (const std::string problem = check_(transport); !problem.empty())
            fail(node, host::quoted(text) + ": " + problem);
        if (!transport.starts_with(file)) return transport;
        const std::string path = transport.substr(file.size());
        std::error_code error;
        if (std::filesystem::is_directory(path, error)) fail(node, host::quoted(text) + " names a folder");
        if (!std::filesystem::exists(path, error))
            warnings_.push_back(at(node.source(), path + " is not there: its channel cannot be shown until it is"));
        return transport;
    }

    // A relative path becomes an absolute one. Throws for what cannot be a transport stream's source.
    std::string transportOf(const toml::node& node, const std::string& text) const {
        if (text.starts_with(file)) {
            const std::filesystem::path path = text.substr(file.size());
            if (!path.has_filename()) fail(node, host::quoted(text) + " names no file");
            return std::string(file) + (std::filesystem::path(folder_) / path).lexically_normal().string();
        }
        for (const std::string_view scheme : {"udp://", "rtp://"}) {
            if (!text.starts_with(scheme)) continue;
            const auto colon = text.rfind(':');
            const std::string_view port = std::string_view(text).substr(colon + 1);
            std::uint16_t number = 0;
            const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
            const bool hasHost = text.find_first_not_of(hostCharacters, scheme.size()) == std::string::npos;
            if (colon > scheme.size() && hasHost && error == std::errc() && end == port.data() + port.size() &&
                number > 0)
                return text;
            fail(node, host::quoted(text) + " is not " + std::string(scheme) + "HOST:PORT");
        }
        constexpr std::string_view adapter = "dvb-adapter://";
        if (text.starts_with(testPicture)) return text;
        if (text.starts_with(adapter)) {
            if (text.find_first_of("0123456789", adapter.size()) == adapter.size()) return text;
            fail(node, host::quoted(text) + " does not begin with the number of an adapter");
        }
        fail(node, host::quoted(text) + " is not a file://, udp://, rtp://, dvb-adapter:// or test:// URI");
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
        throw ChannelListError(at(place, problem));
    }
    std::string at(const toml::source_region& place, const std::string& problem) const {
        return where_ + ':' + std::to_string(place.begin.line) + ": " + host::printable(problem);
    }

    const std::string& where_;
    const std::string& folder_;
    const ChannelList::Check& check_;
    std::vector<std::string> warnings_;
};

} // namespace

std::int32_t ChannelList::numberOf(const std::string& uri) const {
    const auto channel = channels_.find(uri);
    if (channel == channels_.end()) return 0;
    return static_cast<std::int32_t>(std::distance(channels_.begin(), channel)) + 1;
}

std::string ChannelList::uriOf(std::int32_t number) const {
    if (number < 1 || static_cast<std::size_t>(number) > channels_.size()) return {};
    return std::next(channels_.begin(), number - 1)->first;
}

ChannelList ChannelList::builtIn() { return fromText(builtInChannels, "built-in channel list"); }

ChannelList ChannelList::fromFile(const std::string& path, const Check& check) {
    try {
        const auto list = host::readTomlFile(path);
        if (!list) throw ChannelListError(path + ": there is no such file");
        return fromText(list->text, path, std::filesystem::absolute(path).parent_path().string(), check);
    } catch (const host::TomlFileError& error) {
        throw ChannelListError(error.what());
    }
}

ChannelList ChannelList::fromText(std::string_view text, const std::string& where, const std::string& folder,
                                  const Check& check) {
    ChannelList list;
    Reader reader(where, folder, check);
    list.channels_ = reader.read(text);
    list.warnings_ = reader.takeWarnings();
    return list;
}

} // namespace services
