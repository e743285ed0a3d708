#include <host/printable.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <media/commands.h>
#include <media/snapshot.h>
#include <nlohmann/json.hpp>

namespace media {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t mostOfPicture = std::size_t{512} << 10; // bytes in one answer, which a shell limits

// "0:0"; throws Error for anything else.
Terminal terminalOf(const std::string& text) {
    Terminal terminal;
    const char* const end = text.data() + text.size();
    const auto type = std::from_chars(text.data(), end, terminal.type);
    if (type.ec == std::errc() && type.ptr != end && *type.ptr == ':') {
        const auto id = std::from_chars(type.ptr + 1, end, terminal.id);
        if (id.ec == std::errc() && id.ptr == end && terminal.type >= 0 && terminal.id >= 0) return terminal;
    }
    throw Error("not a terminal, TYPE:ID: " + host::quoted(text));
}

} // namespace

int Commands::registerWith(appovshell::Server& shell) {
    shell_ = &shell;
    if (const int result = shell.registerCommand(
            "snapshot :s [:d]",
            "TERMINAL [OFFSET] - takes a picture of a terminal and prints it as PNG in Base64, in parts: of the last "
            "picture from OFFSET on",
            [](void* self) { return static_cast<Commands*>(self)->printSnapshot(); }, this);
        result < 0)
        return result;
    return shell.registerCommand(
        "level :s", "TERMINAL - how loud a terminal is, and its loudest tone",
        [](void* self) { return static_cast<Commands*>(self)->printLevel(); }, this);
}

// Prints the answer, or why there is none.
template <class Answer> int Commands::answer(const Answer& answer) {
    int failure = -EINVAL;
    try {
        const Terminal terminal = terminalOf(shell_->getArgument(0));
        failure = -ENODATA;
        shell_->print(answer(terminal).dump() + '\n');
        return 0;
    } catch (const Error& error) {
        shell_->print(std::string(error.what()) + '\n');
        return failure;
    }
}

int Commands::printSnapshot() {
    return answer([this](const Terminal& terminal) {
        const std::string text = shell_->getArgument(1);
        std::size_t offset = 0;
        std::from_chars(text.data(), text.data() + text.size(), offset);
        if (offset == 0) picture_ = engine_.snapshot(terminal);
        offset = std::min(offset, picture_.size());
        return Json{
            {"size", picture_.size()}, {"offset", offset}, {"data", base64Of(picture_.substr(offset, mostOfPicture))}};
    });
}

int Commands::printLevel() {
    return answer([this](const Terminal& terminal) {
        const Sound sound = engine_.sound(terminal);
        return Json{{"level", std::round(sound.level * 10) / 10}, {"pitch", sound.pitch}};
    });
}

} // namespace media
