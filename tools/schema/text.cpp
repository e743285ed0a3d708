#include "kind-names.h"
#include "wire-rules.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace schema {
namespace {

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

std::string hex(std::uint32_t number) {
    char text[11];
    std::snprintf(text, sizeof text, "0x%08X", number);
    return text;
}

constexpr const char* aboutNumbers =
    "Except for the main terminal's type and the results 0 and 1, they are those of the reference services, as are the "
    "meanings of most fields. `tvservice/values.h` and `tvservice/results.h` have them for programs.";

// ---- for a terminal ----

constexpr std::size_t lineWidth = 100;

// Wraps text at lineWidth; the first line begins with "- ".
std::string wrapped(std::string_view text) {
    std::string lines = "- ";
    while (text.size() > lineWidth - 2) {
        const std::size_t end = text.rfind(' ', lineWidth - 2);
        lines += std::string(text.substr(0, end)) + "\n  ";
        text.remove_prefix(end + 1);
    }
    return lines + std::string(text) + "\n";
}

std::string fieldLines(const std::vector<Field>& fields) {
    std::size_t width = 0, typeWidth = 0;
    for (const auto& field : fields) {
        width = std::max(width, std::string_view(field.name).size());
        typeWidth = std::max(typeWidth, phraseOf(field.type).size());
    }
    std::string text;
    for (const auto& field : fields) {
        char numbers[32];
        std::snprintf(numbers, sizeof numbers, "%8zu %4zu  ", field.offset, field.type.size);
        std::string meaning = field.meaning;
        if (field.values) meaning += std::string(" [") + field.values->title + "]";
        const std::string phrase = phraseOf(field.type);
        text += numbers + padded(field.name, width) + "  " +
                (meaning.empty() ? phrase : padded(phrase, typeWidth) + "  " + meaning) + "\n";
    }
    return text;
}

std::string enumerationLines(const genrpc::Enumeration& enumeration) {
    std::size_t width = 0;
    for (const auto& value : enumeration.values) width = std::max(width, std::string_view(value.name).size());
    std::string text = std::string("\n") + enumeration.title + ": " + enumeration.about + "\n";
    for (const auto& [number, name, meaning] : enumeration.values)
        text += padded(std::to_string(number), 4) + padded(name, width) + "  " + meaning + "\n";
    return text;
}

std::string bytesOf(const vdl::EndianTable& table) {
    return std::to_string(table.size) + (table.size == 1 ? " byte" : " bytes");
}

// ---- for the document ----

std::string code(const std::string& text) { return "`" + text + "`"; }

std::string row(const std::vector<std::string>& cells) {
    std::string text = "|";
    for (const auto& cell : cells) text += " " + cell + " |";
    return text + "\n";
}

std::string header(const std::vector<std::string>& titles) {
    return row(titles) + row(std::vector<std::string>(titles.size(), "---"));
}

// A link to the section with this heading: its anchor is in lower case, with hyphens for spaces.
std::string linkTo(const std::string& heading) {
    std::string anchor = heading;
    std::transform(anchor.begin(), anchor.end(), anchor.begin(), [](char c) {
        return c == ' ' ? '-' : c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return "[" + heading + "](#" + anchor + ")";
}

std::string linked(const Type& type) {
    const std::string phrase = phraseOf(type), record = type.record ? type.record : "";
    return record.empty() ? phrase : phrase.substr(0, phrase.size() - record.size()) + linkTo(record);
}

std::string meaningOf(const Field& field) {
    return field.meaning + (field.values ? " (" + linkTo(field.values->title) + ")" : std::string());
}

std::string enumerationTable(const genrpc::Enumeration& enumeration) {
    std::string text = "\n### " + std::string(enumeration.title) + "\n\n" + enumeration.about + "\n\n" +
                       header({"Number", "Name", "Meaning"});
    for (const auto& [number, name, meaning] : enumeration.values) text += row({std::to_string(number), name, meaning});
    return text;
}

std::string messageRow(const Service& service, const Message& message) {
    std::string arguments;
    for (const auto& argument : message.arguments)
        arguments += (arguments.empty() ? "" : "<br>") + code(argument.name) + " at " +
                     std::to_string(argument.offset) + ": " + linked(argument.type) +
                     (*argument.meaning ? ", " + meaningOf(argument) : "");
    const std::string name = message.name;
    return row(
        {hex(message.meta.messageId), code(name), code(message.signature), arguments.empty() ? "none" : arguments,
         code("GoldenMessage.*/" + std::string(service.name) + "_" + name) + "<br>" + code("EveryMessage." + name)});
}

std::string messageTable(const Service& service, const std::string& direction) {
    std::string text = header({"Id", "Message", "Method", "Arguments", "Tests"});
    for (const auto& message : service.messages)
        if (message.direction == direction) text += messageRow(service, message);
    return text;
}

std::string recordTable(const Record& record) {
    std::string text = "### " + std::string(record.name) + "\n\n" + std::to_string(record.table->size) +
                       " bytes, family " + record.family + ".\n\n" +
                       header({"Offset", "Size", "Field", "Type", "Meaning"});
    for (const auto& field : record.fields)
        text += row({std::to_string(field.offset), std::to_string(field.type.size), code(field.name),
                     linked(field.type), meaningOf(field)});
    return text + "\n";
}

} // namespace

std::string phraseOf(const Type& type) {
    switch (type.kind) {
        case Kind::Scalar:
            return (type.isSigned ? "int" : "uint") + std::to_string(8 * type.size);
        case Kind::Flag:
            return "flag";
        case Kind::String:
            return "string";
        case Kind::StringList:
            return "list of strings";
        case Kind::Uint32List:
            return "list of uint32";
        case Kind::Record:
            return type.record;
        case Kind::Sequence:
            break;
    }
    return "sequence of " + std::string(type.record);
}

std::string asText() {
    std::string text = "Messages and records, version " + std::to_string(version) + "\n\n";
    for (const char* rule : wireRules) text += wrapped(rule);
    text += "\nNumbers with names: number, name, meaning.\n" + wrapped(aboutNumbers);
    for (const auto* enumeration : enumerations()) text += enumerationLines(*enumeration);
    text += "\nEach field: offset, size in bytes, name, type, meaning [what its numbers are].\n";
    for (const auto& service : services()) {
        for (const auto& message : service.messages)
            text += "\n" + std::string(service.name) + " " + message.direction + " " + hex(message.meta.messageId) +
                    " " + message.name + ", " + bytesOf(*message.table) + "\n    " + message.signature + "\n" +
                    fieldLines(message.arguments);
        for (const auto& record : service.records)
            text += "\n" + std::string(service.name) + " record " + record.name + ", " + bytesOf(*record.table) +
                    ", family " + record.family + "\n" + fieldLines(record.fields);
    }
    return text;
}

std::string asMarkdown() {
    std::string text =
        "# Messages\n\n"
        "`tvctl schema --markdown` generates this file; `tvctl schema --json` prints the same for programs. Each "
        "message\n"
        "has tests: its bytes in both byte orders (`tests/golden`), and its path through a whole\n"
        "receiver. `ctest --test-dir build/release -R NAME` runs them.\n\n"
        "## Wire form\n\n";
    for (const char* rule : wireRules) text += "- " + std::string(rule) + "\n";
    text += "\n" + header({"Kind", "Meaning"});
    for (const auto& kind : kinds) text += row({kind.name, kind.meaning});
    text += "\nA message's meta data: its id, and the instance, interface code and flag of its direction.\n\n" +
            header({"Direction", "Instance", "Interface code", "Flag"});
    for (const auto& message : {services()[0].messages.front(), services()[0].messages.back()})
        text += row({message.direction, hex(message.meta.instance), hex(message.meta.interfaceCode),
                     std::to_string(message.meta.flag)});
    text += "\n## Numbers with names\n\n" + std::string(aboutNumbers) + "\n";
    for (const auto* enumeration : enumerations()) text += enumerationTable(*enumeration);
    for (const auto& service : services()) {
        const std::string name = service.name;
        text += "\n## " + name + ": requests\n\n" + messageTable(service, "Request");
        text += "\n## " + name + ": notifications\n\n" + messageTable(service, "Notification");
        text += "\n## " + name + ": records\n\n";
        for (const auto& record : service.records) text += recordTable(record);
        text.pop_back(); // each record ends with an empty line
    }
    return text;
}

} // namespace schema
