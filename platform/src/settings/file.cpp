#include "file.h"

#include "known-settings.h"

#include <host/printable.h>
#include <host/toml-file.h>

#include <algorithm>
#include <sstream>
#include <string_view>
#include <toml++/toml.h>
#include <vector>

namespace host::config {
namespace {

[[noreturn]] void fail(const std::string& path, const std::string& problem) {
    throw ConfigurationError(path + ": " + problem);
}

bool isServiceName(std::string_view name) {
    return std::all_of(name.begin(), name.end(),
                       [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_'; });
}

// The known keys of the table whose settings' names begin with place.
std::string knownIn(const std::string& place) {
    std::vector<std::string> names;
    for (const Known& known : knownSettings()) {
        if (!known.name.starts_with(place) || known.name == place) continue;
        const std::string_view rest = known.name.substr(place.size());
        std::string name(rest.substr(0, rest.find('.')));
        if (names.empty() || names.back() != name) names.push_back(std::move(name));
    }
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
    return list;
}

// Whether any setting's name begins with place, which ends with a dot.
bool isTable(const std::string& place) {
    const auto settings = knownSettings();
    return std::any_of(settings.begin(), settings.end(),
                       [&](const Known& known) { return known.name.starts_with(place); });
}

class Reader {
public:
    Reader(const std::string& path, bool writableByOthers, Values& values)
        : path_(path), writableByOthers_(writableByOthers), values_(values) {}

    void read(const std::string& text) const {
        checkCharacters(text);
        checkTomlNesting(text, path_);
        try {
            readTable(toml::parse(text), {});
        } catch (const toml::parse_error& error) {
            failAt(error.source(), printable(error.description()));
        }
    }

private:
    // The parser would report another line, because it decodes ahead.
    void checkCharacters(std::string_view text) const {
        const auto beyondAscii = [](std::string_view line) {
            return std::count_if(line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) > 0x7F; });
        };
        for (int number = 1; !text.empty(); ++number) {
            const std::string_view line = text.substr(0, text.find('\n'));
            if (beyondAscii(line) != beyondAscii(printable(line)))
                fail(path_ + ':' + std::to_string(number), "not printable characters in UTF-8: " + quoted(line));
            text.remove_prefix(std::min(line.size() + 1, text.size()));
        }
    }

    void readTable(const toml::table& table, const std::string& place) const {
        for (const auto& [key, value] : table) {
            if (key.str().find('.') != std::string_view::npos) refuse(key, place);
            const std::string name = place + std::string(key.str());
            if (isTable(name + '.')) {
                if (!value.is_table()) failAt(key.source(), name + ": not a table");
                readTable(*value.as_table(), name + '.');
                continue;
            }
            const Known* const known = findKnown(name);
            if (!known) refuse(key, place);
            if (known->perService() && !isServiceName(key.str()))
                failAt(key.source(), quoted(key.str()) + " is not a service name in " +
                                         place.substr(0, place.size() - 1) + " (lower-case letters, digits, - and _)");
            if (known->trusted && writableByOthers_)
                failAt(key.source(), name + ": other users may write to this file (expected: mode 0644)");
            values_.insert_or_assign(name, Setting{textOf(*known, name, value), originOf(value.source())});
        }
    }

    [[noreturn]] void refuse(const toml::key& key, const std::string& place) const {
        failAt(key.source(), place.empty() ? "unknown table " + quoted(key.str()) + "; known: " + knownIn(place)
                                           : place.substr(0, place.size() - 1) + " has no " + quoted(key.str()) +
                                                 "; known: " + knownIn(place));
    }

    // The value in the form that a variable would have.
    std::string textOf(const Known& known, const std::string& name, const toml::node& value) const {
        std::string text, problem;
        if (known.kind == Kind::texts) {
            text = listOf(name, value);
        } else if (const auto number = value.value_exact<std::int64_t>(); number && known.kind == Kind::number) {
            text = std::to_string(*number);
        } else if (const auto words = value.value_exact<std::string>(); words && known.kind != Kind::number) {
            text = *words;
        } else {
            failAt(value.source(), name + ": " + wrongType(known, value));
        }
        if (problem = known.problemOf(text); !problem.empty()) failAt(value.source(), name + ": " + problem);
        return text;
    }

    std::string listOf(const std::string& name, const toml::node& value) const {
        if (!value.is_array()) failAt(value.source(), name + ": not a list of strings: " + shown(value));
        std::string list;
        for (const toml::node& item : *value.as_array()) {
            const auto text = item.value_exact<std::string>();
            if (!text) failAt(item.source(), name + ": not a string: " + shown(item));
            if (text->empty() || text->find(',') != std::string::npos)
                failAt(item.source(), name + ": not a string without commas: " + shown(item));
            list += (list.empty() ? "" : ",") + *text;
        }
        return list;
    }

    static std::string wrongType(const Known& known, const toml::node& value) {
        if (known.kind != Kind::number) return "not a string: " + shown(value);
        const auto text = value.value_exact<std::string>();
        // The value would be valid without its quotes.
        if (text && known.problemOf(*text).empty()) return "a string, not a number: " + quoted(*text);
        return known.problemOf(text ? *text : shown(value));
    }

    static std::string shown(const toml::node& value) {
        if (value.is_string()) return quoted(*value.value_exact<std::string>());
        if (value.is_table()) return "a table";
        if (value.is_array()) return "a list";
        std::ostringstream text;
        value.visit([&](const auto& content) { text << content; });
        return text.str();
    }

    std::string originOf(const toml::source_region& source) const {
        return path_ + ':' + std::to_string(source.begin.line);
    }
    [[noreturn]] void failAt(const toml::source_region& source, const std::string& problem) const {
        fail(originOf(source), problem);
    }

    const std::string& path_;
    const bool writableByOthers_;
    Values& values_;
};

} // namespace

bool addFile(const std::string& path, Values& values) {
    try {
        const auto file = readTomlFile(path);
        if (file) Reader(path, file->writableByOthers, values).read(file->text);
        return file.has_value();
    } catch (const TomlFileError& error) {
        throw ConfigurationError(error.what());
    }
}

} // namespace host::config
