// Texts that people and files give: command lines, URIs, channel lists, JSON for arguments.
#include "budget.h"
#include "message-kinds.h"
#include "shell/command-line.h"
#include "target.h"
#include "tvservice/channel-list.h"

#include <genrpc/json.h>
#include <ov/uri.h>

#include <algorithm>
#include <tuple>
#include <type_traits>

namespace fuzz {
namespace {

std::string takeLine(std::string& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string line = text.substr(0, end);
    text.erase(0, end + 1);
    return line;
}

std::string quoted(const std::string& word) {
    std::string text = "\"";
    for (const char c : word) {
        if (c == '"' || c == '\\') text += '\\';
        text += c;
    }
    return text + '"';
}

// The plain size of the largest of a value's parts that a list has as elements; 0 for a value without lists.
template <class T> struct LargestElement {
    static constexpr std::size_t size = [] {
        if constexpr (std::is_enum_v<T> || std::is_arithmetic_v<T> || std::is_same_v<T, std::string>)
            return std::size_t{0};
        else
            return std::apply(
                [](const auto&... field) {
                    std::size_t largest = 0;
                    ((largest = std::max(largest, LargestElement<std::decay_t<decltype(T{}.*field.plain)>>::size)),
                     ...);
                    return largest;
                },
                T::Flat::fields());
    }();
};
template <class T> struct LargestElement<std::vector<T>> {
    static constexpr std::size_t size = std::max(sizeof(T), LargestElement<T>::size);
};
template <class... T> struct LargestElement<std::tuple<T...>> {
    static constexpr std::size_t size = std::max({std::size_t{0}, LargestElement<T>::size...});
};

// Elements of all lists in a text's JSON.
std::size_t elementsIn(const genrpc::Json& json) {
    std::size_t count = json.is_array() ? json.size() : 0;
    if (json.is_structured())
        for (const genrpc::Json& part : json) count += elementsIn(part);
    return count;
}

template <class Message> void jsonFor(const std::string& text) {
    using Arguments = typename Message::Body::Arguments;
    genrpc::Json json;
    {
        Measure measure;
        json = genrpc::Json::parse(text, nullptr, false);
        // The library's own: a list in a list takes a byte of text, and 72 of memory.
        measure.check("parsing JSON", text.size(), 72 * text.size(), 500);
    }
    if (json.is_discarded()) return;
    // An element becomes a whole record, however short its text is.
    const std::size_t lists = elementsIn(json) * LargestElement<Arguments>::size;
    Arguments arguments;
    std::string problem;
    {
        Measure measure;
        try {
            arguments = genrpc::argumentsFromJson<Message>(json);
        } catch (const genrpc::JsonError& error) {
            const Pause pause;
            problem = error.what();
        }
        measure.check("making arguments", text.size(), lists, 250);
    }
    if (!problem.empty()) {
        expect(problem.find(": ") != std::string::npos, problem);
        return;
    }
    const auto again =
        std::apply([](const auto&... one) { return genrpc::argumentsToJson<Message>(one...); }, arguments);
    expect(genrpc::argumentsFromJson<Message>(again) == arguments, "arguments survive as JSON");
    const auto parsed = genrpc::Json::parse(genrpc::textOf(again));
    expect(genrpc::argumentsFromJson<Message>(parsed) == arguments, "arguments survive as text");
}

} // namespace

// The first byte chooses the kind of message.
void json(Input input) {
#define FUZZ_JSON(service, direction, Name, ...) jsonFor<service::messages::Name>,
    constexpr void (*kinds[])(const std::string&) = {TVSERVICE_MESSAGES(FUZZ_JSON) MMSERVICE_MESSAGES(FUZZ_JSON)};
#undef FUZZ_JSON
    Source source(input);
    const std::size_t kind = source.byte() % std::size(kinds);
    kinds[kind](textOf(source.rest()));
}

// A command's specification, its help, and a command line, one line each.
void shellLines(Input input) {
    using namespace appovshell;
    std::string text = textOf(input);
    const std::string specificationText = takeLine(text), help = takeLine(text);
    Specification specification;
    const bool sound = parseSpecification(specificationText, specification);
    if (sound) {
        expect(!specification.word.empty(), "a command has a word");
        const HelpText parts = helpTextOf(specification, help);
        expect(help.ends_with(parts.description), "a help text ends with its description");
    }
    const std::size_t limit = sound ? 1 + specification.kinds.size() : 3;
    Measure measure;
    Words words = takeWords(text, limit);
    // A word is a string of its own, and a list of them doubles as it grows.
    measure.check("taking a line apart", text.size(), words.words.size() * 3 * sizeof(std::string), 32);
    const Pause pause;
    expect(words.words.size() <= limit, "no more words than were asked for");
    if (words.error) return;
    expect(text.ends_with(words.rest), "what is not taken is left as it was");
    std::string line;
    for (const std::string& word : words.words) line += quoted(word) + ' ';
    const Words again = takeWords(line + words.rest, words.words.size());
    expect(!again.error && again.words == words.words && again.rest == words.rest, "quoted words are the same words");
    if (!sound || words.words.empty()) return;
    std::vector<std::string> arguments;
    if (matchArguments(specification, words, arguments))
        expect(arguments.size() <= specification.argumentCount(), "no more arguments than the command takes");
}

void uris(Input input) {
    const std::string text = textOf(input);
    Measure measure;
    const ov::orveltools::uri::LtUri uri(text);
    measure.check("taking a URI apart", text.size(), 0, 16);
    const Pause pause;
    const std::string scheme = uri.getScheme();
    expect(uri.getUri() == text, "a URI is kept as it is");
    if (scheme.empty()) return;
    expect(scheme.size() < text.size() && text[scheme.size()] == ':', "a scheme ends at the colon");
    expect(ov::orveltools::uri::LtUri(scheme + ':').getScheme() == scheme, "a scheme is in small letters");
}

void channels(Input input) {
    const std::string text = textOf(input);
    services::ChannelList list;
    std::string problem;
    {
        Measure measure;
        try {
            list = services::ChannelList::fromText(text, "list");
        } catch (const services::ChannelListError& error) {
            const Pause pause;
            problem = error.what();
        }
        // The library's own: each part of a key is a table, with the place in the text that it is from; and the text of
        // an error takes up to 1300 steps, however short the input is.
        constexpr std::uint64_t stepsOfAnError = 1300;
        measure.check("reading a channel list", text.size(), 136 * text.size(), 300,
                      problem.empty() ? 0 : stepsOfAnError);
    }
    expect(problem.empty() || problem.starts_with("list:"), problem);
    for (const auto& [uri, channel] : list.all()) {
        expect(uri.starts_with("dvb://") && uri.size() > 6 && !channel.name.empty(), "a channel has a URI and a name");
        expect(channel.transport.empty() == (channel.program == 0), "a channel has a source and a program, or neither");
        expect(list.uriOf(list.numberOf(uri)) == uri, "a channel has its number");
    }
}

} // namespace fuzz
