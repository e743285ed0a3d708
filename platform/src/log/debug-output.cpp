#include "base/escape.h"
#include "journal.h"
#include "line-limit.h"
#include "log-levels/levels.h"
#include "log/log.h"
#include "log/output.h"
#include "recorder/recorder.h"

#include <host/process-name.h>
#include <vdl/debug.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <unistd.h>

namespace host::debug {
namespace {

constexpr std::size_t shortText = 1024;
constexpr std::size_t longestText = 64 * 1024;

const char* severityName(std::uint32_t severity) {
    if (severity <= vdlDebugFailure) return "failure";
    if (severity <= vdlDebugWarning) return "warning";
    if (severity <= vdlDebugProgress) return "info";
    return "trace";
}

std::string moduleName(std::uint32_t module) {
    if (const char* name = nameOfModule(module)) return name;
    char number[16];
    std::snprintf(number, sizeof number, "0x%04x", module);
    return number;
}

// Writes the lines. Never destroyed: lines are still logged while static objects are destroyed.
class Output {
public:
    static Output& instance() {
        static Output& output = *new Output;
        return output;
    }

    void write(std::uint32_t levelWord, std::string_view text) {
        if (journal_ && writeToJournal(levelWord, text)) return;
        const std::string line = json_ ? jsonLine(levelWord, text) : textLine(levelWord, text);
        sink_.log(spdlog::details::log_msg(spdlog::source_loc{}, "", spdlog::level::info, line));
    }

private:
    Output() {
        std::string problem;
        if (const auto ask = jsonIsWanted.load()) json_ = ask(problem);
        sink_.set_formatter(std::make_unique<spdlog::pattern_formatter>(
            json_ ? R"({"time":"%Y-%m-%dT%H:%M:%S.%fZ",%v})" : "%Y-%m-%dT%H:%M:%S.%eZ %v",
            spdlog::pattern_time_type::utc));
        if (!json_) journal_ = Journal::ofStandardError();
        if (!problem.empty()) write(levelWordOf(Module::vdl, vdlDebugWarning), problem);
    }

    bool writeToJournal(std::uint32_t levelWord, std::string_view text) const {
        std::string escaped;
        appendEscaped(escaped, text, "\n");
        const std::uint32_t severity = levelWord & 0xFFFF;
        return journal_->write({severity, processName(), moduleName(levelWord >> 16), severityName(severity), escaped});
    }

    static std::string textLine(std::uint32_t levelWord, std::string_view text) {
        std::string line = processName() + '[' + std::to_string(getpid()) + "] " + moduleName(levelWord >> 16) + ' ' +
                           severityName(levelWord & 0xFFFF) + ": ";
        appendEscaped(line, text, "\n    | ");
        return line;
    }

    // The members after the time, which the formatter adds in front.
    static std::string jsonLine(std::uint32_t levelWord, std::string_view text) {
        const auto quoted = [](const std::string& value) {
            return nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        };
        std::string escaped;
        appendEscaped(escaped, text, "\n");
        return "\"process\":" + quoted(processName()) + ",\"pid\":" + std::to_string(getpid()) +
               ",\"module\":" + quoted(moduleName(levelWord >> 16)) + ",\"level\":\"" +
               severityName(levelWord & 0xFFFF) + "\",\"text\":" + quoted(escaped);
    }

    spdlog::sinks::stderr_sink_mt sink_;
    bool json_ = false;
    std::optional<Journal> journal_;
};

// Peers must not be able to fill the log, neither with errors that they cause nor by connecting and disconnecting.
// Lines that users enable to follow details are not limited: traces, and progress of the product and of applications.
bool isLimited(std::uint32_t levelWord) {
    const std::uint32_t module = levelWord >> 16;
    const bool isPlatforms = module >= firstPlatformModule && module <= lastPlatformModule;
    return (levelWord & 0xFFFF) <= (isPlatforms ? vdlDebugProgress : vdlDebugWarning);
}

bool isSuppressed(const vdlDebugChunk& chunk, const char* format) {
    if (!isLimited(chunk.levelWord)) return false;
    LineLimit* const limit = LineLimit::of(chunk.levelWord, format);
    if (!limit || limit->admits(chunk)) return false;
    reportSuppressedLater();
    return true;
}

void recordLine(std::uint32_t levelWord, std::string_view text) noexcept {
    const std::uint32_t module = levelWord >> 16;
    char number[16];
    const char* name = nameOfModule(module);
    if (!name) {
        std::snprintf(number, sizeof number, "0x%04x", module);
        name = number;
    }
    recorder::record(EventKind::line, levelWord & 0xFFFF, name, text);
}

// format: the text's format; null for a line without a limit.
void output(std::uint32_t levelWord, std::string_view text, const char* format) {
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    if (isRecorded(levelWord)) recordLine(levelWord, text);
    const bool isCaptured = captures.load(std::memory_order_acquire) != 0;
    if (!isCaptured && !isPrinted(levelWord)) return;
    const bool isKept = isCaptured && capture(levelWord, text);
    if ((format && isSuppressed({levelWord}, format)) || isKept) return;
    Output::instance().write(levelWord, text);
}

// At process exit: reports the lines that are still suppressed.
struct Ending {
    ~Ending() { LineLimit::reportSuppressed(LineLimit::Clock::time_point::max()); }
} const ending;

void reportLostLine() noexcept { std::fputs("debug output: a line was lost\n", stderr); }

} // namespace

constinit std::atomic<bool (*)(std::string& problem)> jsonIsWanted{nullptr};

void writeLine(std::uint32_t levelWord, std::string_view text) noexcept {
    try {
        output(levelWord, text, nullptr);
    } catch (...) { // out of memory
        reportLostLine();
    }
}

} // namespace host::debug

void vdlDebugOutput0(const vdlDebugChunk& chunk, const char* format, ...) noexcept {
    using namespace host::debug;
    const int callersErrno = errno; // %m prints it, and the caller may still need it
    char text[shortText];
    va_list arguments;
    va_start(arguments, format);
    const int formatted = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    try {
        const auto length = static_cast<std::size_t>(formatted);
        if (formatted < 0) {
            output(chunk.levelWord, std::string(format) + " [not printable: " + std::strerror(errno) + "]", format);
        } else if (length < sizeof text) {
            output(chunk.levelWord, {text, length}, format);
        } else {
            std::string whole(std::min(length, longestText), '\0');
            errno = callersErrno;
            va_start(arguments, format);
            std::vsnprintf(whole.data(), whole.size() + 1, format, arguments);
            va_end(arguments);
            if (length > whole.size()) whole += " [" + std::to_string(length - whole.size()) + " more bytes]";
            output(chunk.levelWord, whole, format);
        }
    } catch (...) { // out of memory
        reportLostLine();
    }
    errno = callersErrno;
}
