// Texts that people and files give: command lines, URIs, channel lists, JSON for arguments.
#include "appovshell/command-line.h"
#include "budget.h"
#include "message-kinds.h"
#include "target.h"
#include "tvservice/channel-list.h"

#include <genrpc/json.h>
#include <ov/uri.h>

#include <algorithm>

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

// Plain sizes of what a list's elements are made as before they are looked at.
template <class... R> constexpr std::size_t largestOf(support::TypeList<R...>) { return std::max({sizeof(R)...}); }
constexpr std::size_t largestRecord = std::max(
    {largestOf(support::CoreRecords{}), largestOf(support::StreamRecords{}), largestOf(support::StatusRecords{})});

template <class Message> void jsonFor(const std::string& text) {
    const genrpc::Json json = genrpc::Json::parse(text, nullptr, false);
    if (json.is_discarded()) return;
    typename Message::Body::Arguments arguments;
    {
        Measure measure;
        try {
            arguments = genrpc::argumentsFromJson<Message>(json);
        } catch (const genrpc::JsonError& error) {
            const Pause pause;
            expect(std::string(error.what()).find(": ") != std::string::npos, error.what());
            return;
        }
        // An element takes two bytes of text at least and becomes a whole record, however short it is.
        measure.check("making arguments", text.size(), (text.size() / 2 + 1) * largestRecord, 2000);
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
    // A word is a string of its own, and takes two bytes of the line at least; lists of words double as they grow.
    measure.check("taking a line apart", text.size(), (text.size() / 2 + 1) * 3 * sizeof(std::string), 100);
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
    try {
        const auto list = services::ChannelList::fromText(text, "list");
        for (const auto& [uri, name] : list.names()) {
            expect(uri.starts_with("dvb://") && uri.size() > 6 && !name.empty(), "a channel has a URI and a name");
            expect(list.uriOf(list.numberOf(uri)) == uri, "a channel has its number");
        }
    } catch (const services::ChannelListError& error) {
        expect(std::string(error.what()).starts_with("list:"), error.what());
    }
}

} // namespace fuzz
