#include "command-table.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

namespace appovshell {
namespace {

// Commands may print bytes that are no UTF-8; those are replaced, so that the answer stays JSON.
std::string toLine(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string usage(const std::string& word, const std::string& arguments) {
    return arguments.empty() ? word : word + " " + arguments;
}

} // namespace

std::string statusLine(int status, const std::string& error) {
    nlohmann::json line{{"status", status}};
    if (!error.empty()) line["error"] = error;
    return toLine(line);
}

CommandTable::CommandTable() {
    const auto handler = [](void* table) {
        static_cast<CommandTable*>(table)->help();
        return 0;
    };
    CommandTable::registerCommand("help", "lists the commands", handler, this);
}

int CommandTable::registerCommand(const std::string& specification, const std::string& help, CommandHandler handler,
                                  void* context) {
    Command command{{}, {}, handler, context};
    if (!handler || !parseSpecification(specification, command.specification)) return -EINVAL;
    command.help = helpTextOf(command.specification, help);
    std::string word = command.specification.word;
    std::lock_guard lock(mutex_);
    return commands_.emplace(std::move(word), std::move(command)).second ? 0 : -EEXIST;
}

std::string CommandTable::getArgument(unsigned index) {
    std::lock_guard lock(mutex_);
    return current_ && index < current_->arguments.size() ? current_->arguments[index] : std::string();
}

void CommandTable::print(const std::string& text) {
    std::lock_guard lock(mutex_);
    if (!current_) return;
    auto& output = current_->output;
    const auto room = maximumOutput - output.size();
    output.append(text, 0, room);
    if (text.size() > room) current_->cut = true;
}

bool CommandTable::wantsJson() {
    std::lock_guard lock(mutex_);
    return current_ && current_->json;
}

std::string CommandTable::answer(std::string_view request, bool* wellFormed) {
    const auto json = nlohmann::json::parse(request, nullptr, false);
    if (wellFormed) *wellFormed = true;
    const auto malformed = [wellFormed](const char* why) {
        if (wellFormed) *wellFormed = false;
        return statusLine(-EINVAL, std::string("malformed request: ") + why);
    };
    if (json.is_discarded()) return malformed("not JSON");
    if (!json.is_object()) return malformed("not an object");
    const auto flag = json.find("json");
    if (flag != json.end() && !flag->is_boolean()) return malformed("\"json\" is not a boolean");
    Invocation invocation;
    invocation.json = flag != json.end() && flag->get<bool>();

    Result result;
    if (const auto line = json.find("line"); line != json.end()) {
        if (!line->is_string()) return malformed("\"line\" is not a string");
        result = run(line->get_ref<const std::string&>(), invocation);
    } else if (const auto words = json.find("words"); words != json.end()) {
        const auto isString = [](const nlohmann::json& word) { return word.is_string(); };
        if (!words->is_array() || !std::all_of(words->begin(), words->end(), isString))
            return malformed("\"words\" is not an array of strings");
        result = run(words->get<std::vector<std::string>>(), invocation);
    } else {
        return malformed("no \"line\"");
    }
    const auto status = statusLine(result.status, result.error);
    return invocation.output.empty() ? status : toLine({{"output", invocation.output}}) + status;
}

template <class Line> CommandTable::Result CommandTable::run(const Line& line, Invocation& invocation) {
    const auto first = takeWords(line, 1);
    if (first.error) return {-EINVAL, first.error};
    if (first.words.empty()) return {-EINVAL, "no command (help lists them)"};
    const auto& word = first.words[0];
    const Command* command = find(word);
    if (!command) return {-ENOSYS, "unknown command: " + word + " (help lists them)"};

    const auto& specification = command->specification;
    // One word more than the command takes, to see whether there are too many; all that follow "..." are its.
    auto words = takeWords(line, specification.kinds.size() + (specification.takesRest ? 1 : 2));
    if (words.error) return {-EINVAL, words.error};
    if (!matchArguments(specification, words, invocation.arguments))
        return {-EINVAL, "usage: " + usage(word, command->help.arguments)};
    return call(*command, invocation);
}

CommandTable::Result CommandTable::call(const Command& command, Invocation& invocation) {
    const auto setCurrent = [this](Invocation* current) {
        std::lock_guard lock(mutex_);
        current_ = current;
    };
    Result result;
    setCurrent(&invocation);
    try {
        result.status = command.handler(command.context);
    } catch (const std::exception& exception) {
        result = {-EIO, exception.what()};
    } catch (...) {
        result = {-EIO, "the command failed with an exception of an unknown type"};
    }
    setCurrent(nullptr);
    if (result.status == 0 && invocation.cut)
        result = {-EMSGSIZE, "the output is longer than " + std::to_string(maximumOutput) + " bytes and was cut"};
    return result;
}

const CommandTable::Command* CommandTable::find(const std::string& word) const {
    std::lock_guard lock(mutex_);
    const auto entry = commands_.find(word);
    return entry == commands_.end() ? nullptr : &entry->second;
}

void CommandTable::help() {
    auto list = nlohmann::json::array();
    std::vector<std::pair<std::string, std::string>> lines;
    std::size_t width = 0;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [word, command] : commands_) {
            const auto& [arguments, description] = command.help;
            list.push_back({{"command", word}, {"arguments", arguments}, {"help", description}});
            lines.emplace_back(usage(word, arguments), description);
            width = std::max(width, lines.back().first.size());
        }
    }
    if (wantsJson()) return print(toLine(list));
    for (const auto& [call, description] : lines)
        print(description.empty() ? call + "\n"
                                  : call + std::string(width + 2 - call.size(), ' ') + description + "\n");
}

} // namespace appovshell
