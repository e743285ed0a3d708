#include "shell/command-table.h"

#include "base/guarded-call.h"
#include "request.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace appovshell {
namespace {

std::string usage(const std::string& word, const std::string& arguments) {
    return arguments.empty() ? word : word + " " + arguments;
}

} // namespace

std::string statusLine(int status, const std::string& error) {
    const std::string member = error.empty() ? std::string() : "\"error\":" + quoted(error) + ",";
    return "{" + member + "\"status\":" + std::to_string(status) + "}\n";
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
    thread_safety::LockGuard lock(mutex_);
    return commands_.emplace(std::move(word), std::move(command)).second ? 0 : -EEXIST;
}

std::string CommandTable::getArgument(unsigned index) {
    thread_safety::LockGuard lock(mutex_);
    return current_ && index < current_->arguments.size() ? current_->arguments[index] : std::string();
}

void CommandTable::print(const std::string& text) {
    thread_safety::LockGuard lock(mutex_);
    if (!current_) return;
    auto& output = current_->output;
    const auto room = maximumOutput - output.size();
    output.append(text, 0, room);
    if (text.size() > room) current_->cut = true;
}

bool CommandTable::wantsJson() {
    thread_safety::LockGuard lock(mutex_);
    return current_ && current_->json;
}

std::string CommandTable::answer(std::string_view request) {
    Request asked;
    const std::string complaint = read(request, asked);
    return complaint.empty() ? execute(asked) : complaint;
}

std::string CommandTable::read(std::string_view text, Request& asked) {
    using Member = Request::Member;
    const auto malformed = [](const char* why) {
        return statusLine(-EINVAL, std::string("malformed request: ") + why);
    };
    if (!readRequest(text, asked)) return malformed("not JSON");
    if (!asked.isObject) return malformed("not an object");
    if (asked.jsonMember == Member::OfAnotherType) return malformed("\"json\" is not a boolean");
    if (asked.lineMember == Member::OfAnotherType) return malformed("\"line\" is not a string");
    const bool hasLine = asked.lineMember == Member::Fits;
    if (!hasLine && asked.wordsMember == Member::Missing) return malformed("no \"line\"");
    if (!hasLine && asked.wordsMember == Member::OfAnotherType)
        return malformed("\"words\" is not an array of strings");
    return {};
}

std::string CommandTable::execute(const Request& asked) {
    Invocation invocation;
    invocation.json = asked.json;
    const bool hasLine = asked.lineMember == Request::Member::Fits;
    const Result result = hasLine ? run(asked.line, invocation) : run(asked.words, invocation);
    const auto status = statusLine(result.status, result.error);
    return invocation.output.empty() ? status : "{\"output\":" + quoted(invocation.output) + "}\n" + status;
}

// Sets the current invocation, and resets it however the command ends.
class CommandTable::Current {
public:
    Current(CommandTable& table, Invocation& invocation) : table_(table) { set(&invocation); }
    ~Current() { set(nullptr); }
    Current(const Current&) = delete;
    Current& operator=(const Current&) = delete;

private:
    void set(Invocation* invocation) {
        thread_safety::LockGuard lock(table_.mutex_);
        table_.current_ = invocation;
    }
    CommandTable& table_;
};

template <class Line> CommandTable::Result CommandTable::run(const Line& line, Invocation& invocation) {
    const auto first = takeWords(line, 1);
    if (first.error) return {-EINVAL, first.error};
    if (first.words.empty()) return {-EINVAL, "no command (help lists the commands)"};
    const auto& word = first.words[0];
    const Command* command = find(word);
    if (!command) return {-ENOSYS, "unknown command: " + word + " (help lists the commands)"};

    const auto& specification = command->specification;
    // One word more than the command takes, to detect too many; with "...", the rest belongs to the command.
    auto words = takeWords(line, specification.kinds.size() + (specification.takesRest ? 1 : 2));
    if (words.error) return {-EINVAL, words.error};
    if (!matchArguments(specification, words, invocation.arguments))
        return {-EINVAL, "usage: " + usage(word, command->help.arguments)};
    return call(*command, invocation);
}

CommandTable::Result CommandTable::call(const Command& command, Invocation& invocation) {
    Result result;
    {
        const Current current(*this, invocation);
        host::guardedCall([&] { result.status = command.handler(command.context); },
                          [&](const host::Thrown& thrown) {
                              result = {thrown.outOfMemory ? -ENOMEM : -EIO, thrown.what};
                          });
    }
    if (result.status == 0 && invocation.cut)
        result = {-EMSGSIZE, "the output is longer than " + std::to_string(maximumOutput) + " bytes and was cut"};
    return result;
}

const CommandTable::Command* CommandTable::find(const std::string& word) const {
    thread_safety::LockGuard lock(mutex_);
    const auto entry = commands_.find(word);
    return entry == commands_.end() ? nullptr : &entry->second;
}

void CommandTable::help() {
    std::string list;
    std::vector<std::pair<std::string, std::string>> lines;
    std::size_t width = 0;
    {
        thread_safety::LockGuard lock(mutex_);
        for (const auto& [word, command] : commands_) {
            const auto& [arguments, description] = command.help;
            list += (list.empty() ? "{\"arguments\":" : ",{\"arguments\":") + quoted(arguments) +
                    ",\"command\":" + quoted(word) + ",\"help\":" + quoted(description) + "}";
            lines.emplace_back(usage(word, arguments), description);
            width = std::max(width, lines.back().first.size());
        }
    }
    if (wantsJson()) return print("[" + list + "]\n");
    for (const auto& [call, description] : lines)
        print(description.empty() ? call + "\n"
                                  : call + std::string(width + 2 - call.size(), ' ') + description + "\n");
}

} // namespace appovshell
