#include "receiver-kit.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sys/stat.h>
#include <system_error>

namespace receiver {
namespace {

constexpr Milliseconds startLimit{20000}; // a machine under load loads programs slowly

std::filesystem::path makePrivateFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "receiver-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), "cannot create a private folder " + name);
    return name;
}

// A shell opens before its process has registered all commands. The process is ready after the last one.
const char* lastCommandOf(Part part) { return part == Part::frameHost ? "log" : "stats"; }

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

ReceiverError failed(Part part, const std::vector<std::string>& words, const std::string& why) {
    return ReceiverError(std::string(nameOf(part)) + ": " + words.front() + ": " + why);
}

// Whether a line of the resource manager is about a request: it names the id after "reqid " or "req_id ".
bool isAbout(const std::string& text, const std::string& reqId) {
    for (const std::string mark : {"reqid ", "req_id "})
        for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
            const auto end = at + mark.size() + reqId.size();
            if (text.compare(at + mark.size(), reqId.size(), reqId) == 0 &&
                (end >= text.size() || std::isalnum(static_cast<unsigned char>(text[end])) == 0))
                return true;
        }
    return false;
}

} // namespace

const char* nameOf(Part part) {
    switch (part) {
        case Part::tvService:
            return "tvserviced";
        case Part::mmService:
            return "mmserviced";
        case Part::frameHost:
            return "frame-host";
    }
    return "unknown part";
}

bool includes(const nlohmann::json& whole, const nlohmann::json& part) {
    if (part.is_object())
        return whole.is_object() && std::all_of(part.items().begin(), part.items().end(), [&](const auto& member) {
                   return whole.contains(member.key()) && includes(whole[member.key()], member.value());
               });
    if (part.is_array())
        return whole.is_array() && std::all_of(part.begin(), part.end(), [&](const nlohmann::json& element) {
                   return std::any_of(whole.begin(), whole.end(),
                                      [&](const nlohmann::json& candidate) { return includes(candidate, element); });
               });
    return whole == part;
}

Places::Places() : programs(RECEIVER_BIN), libraries(RECEIVER_LIB) {}

ReceiverKit::ReceiverKit(Places places, std::function<bool()> interrupted,
                         std::map<std::string, std::string> environment)
    : places_(std::move(places)),
      interrupted_(std::move(interrupted)),
      environment_(std::move(environment)),
      folder_(makePrivateFolder()) {
    for (const char* name : {"run", "state"})
        if (mkdir((folder_ / name).c_str(), 0700) != 0) throw std::system_error(errno, std::generic_category(), name);
}

ReceiverKit::~ReceiverKit() {
    for (Process& process : processes_) process.child.reset();
    std::error_code ignored; // files that cannot be removed stay in the temporary folder
    std::filesystem::remove_all(folder_, ignored);
}

// ---- the processes ----

std::filesystem::path ReceiverKit::logOf(Part part) const { return folder_ / (std::string(nameOf(part)) + ".log"); }

std::string ReceiverKit::shellOf(Part part) const {
    return (runtimeFolder() / (std::string(nameOf(part)) + ".shell")).string();
}

ChildCommand ReceiverKit::commandOf(Part part) const {
    ChildCommand command;
    command.program = places_.programs / nameOf(part);
    if (part == Part::frameHost)
        for (const char* library : {"libapp-tvservice-adapter.so", "libcontrol-application.so"})
            command.arguments.push_back((places_.libraries / library).string());
    if (part == Part::tvService && !channels_.empty()) command.arguments = {"--channels", channels_.string()};
    command.environment = {{"RUNTIME_DIRECTORY", runtimeFolder().string()},
                           {"STATE_DIRECTORY", (folder_ / "state").string()},
                           {"TVSA_LOG", "info"},
                           {"TVSA_LOG_FORMAT", "json"}};
    for (const auto& [name, value] : environment_) command.environment[name] = value;
    command.errorLog = logOf(part);
    return command;
}

bool ReceiverKit::isReady(Part part) {
    Process& process = of(part);
    if (!process.child->running())
        throw ReceiverError(std::string(nameOf(part)) + " ended while starting: " + process.child->failure());
    try {
        process.shell.connect(shellOf(part));
        const auto commands = nlohmann::json::parse(process.shell.run("help", true).output, nullptr, false);
        return std::any_of(commands.begin(), commands.end(), [&](const nlohmann::json& command) {
            return command.value("command", "") == lastCommandOf(part);
        });
    } catch (const host::ShellError& error) {
        if (error.kind() != host::ShellError::Kind::NotAvailable) throw;
        return false;
    }
}

void ReceiverKit::start(Part part) {
    of(part).child = std::make_unique<ChildProcess>(commandOf(part));
    if (!waitFor([&] { return isReady(part); }, startLimit))
        throw ReceiverError(std::string(nameOf(part)) + " did not become ready");
}

void ReceiverKit::start() {
    for (const Part part : allParts) start(part);
    const auto connected = [&] {
        const nlohmann::json services = ask(Part::frameHost, {"stats"});
        return services.size() == 2 &&
               std::all_of(services.begin(), services.end(), [](const auto& service) { return service["connected"]; });
    };
    if (!waitFor(connected, startLimit)) throw ReceiverError("the framework process did not connect to the services");
}

void ReceiverKit::end(Part part, std::string& problems) {
    Process& process = of(part);
    if (!process.child) return;
    process.shell.disconnect();
    if (!process.child->running())
        problems += std::string(nameOf(part)) + " had ended unexpectedly\n";
    else
        process.child->terminate(defaultTimeout);
    if (const std::string failure = process.child->failure(); !failure.empty())
        problems += std::string(nameOf(part)) + " ended with " + failure + '\n';
    process.child.reset();
}

std::string ReceiverKit::stop() {
    std::string problems;
    for (auto part = allParts.rbegin(); part != allParts.rend(); ++part) end(*part, problems);
    return problems;
}

std::string ReceiverKit::stop(Part part) {
    std::string problems;
    end(part, problems);
    return problems;
}

void ReceiverKit::freeze(Part part) { of(part).child->signal(SIGSTOP); }
void ReceiverKit::thaw(Part part) { of(part).child->signal(SIGCONT); }

void ReceiverKit::kill(Part part) {
    of(part).shell.disconnect();
    of(part).child.reset();
}

pid_t ReceiverKit::processId(Part part) { return of(part).child->id(); }

// ---- commands ----

std::string ReceiverKit::outputOf(Part part, const std::vector<std::string>& words, bool json) {
    Process& process = of(part);
    host::ShellReply reply;
    try {
        if (!process.shell.isConnected()) process.shell.connect(shellOf(part));
        reply = process.shell.run(words, json);
    } catch (const host::ShellError& error) {
        throw failed(part, words, error.what());
    }
    if (reply.status != 0) throw failed(part, words, std::to_string(reply.status) + ' ' + reply.error + reply.output);
    return reply.output;
}

std::string ReceiverKit::read(Part part, const std::vector<std::string>& words) { return outputOf(part, words, false); }

nlohmann::json ReceiverKit::ask(Part part, const std::vector<std::string>& words) {
    const std::string text = outputOf(part, words, true);
    if (text.empty()) return nullptr;
    auto output = nlohmann::json::parse(text, nullptr, false);
    if (output.is_discarded()) throw failed(part, words, "printed no JSON: " + text);
    return output;
}

std::string ReceiverKit::submit(const std::vector<std::string>& words) {
    return ask(Part::frameHost, words).at("request");
}

std::string ReceiverKit::play(const std::string& terminals, const std::string& uri) {
    return submit({"play", terminals, uri});
}

std::string ReceiverKit::stopTerminals(const std::string& terminals) { return submit({"stop", terminals}); }

// ---- outcomes ----

std::vector<Answer> ReceiverKit::answersTo(const std::string& reqId) {
    std::vector<Answer> result;
    for (const auto& answer : ask(Part::frameHost, {"answers", "1000"}))
        if (answer.at("reqId") == reqId)
            result.push_back({reqId, answer.at("terminal"), answer.at("result"), answer.at("uri")});
    return result;
}

std::vector<Answer> ReceiverKit::waitForAnswers(const std::string& reqId, std::size_t count, Milliseconds limit) {
    std::vector<Answer> result;
    if (!waitFor([&] { return (result = answersTo(reqId)).size() >= count; }, limit))
        throw ReceiverError("request " + reqId + ": " + std::to_string(result.size()) + " of " + std::to_string(count) +
                            " answers came within " + std::to_string(limit.count()) + " ms");
    return result;
}

std::vector<LogLine> ReceiverKit::managerLines() const {
    std::vector<LogLine> lines = readLog(logOf(Part::frameHost));
    std::erase_if(lines, [](const LogLine& line) { return line.module != "resource-manager"; });
    return lines;
}

std::vector<LogLine> ReceiverKit::stepsOf(const std::string& reqId) const {
    std::vector<LogLine> lines = managerLines();
    std::erase_if(lines, [&](const LogLine& line) { return !isAbout(line.text, reqId); });
    return lines;
}

LogLine ReceiverKit::waitForStep(const std::string& reqId, const std::string& part, Milliseconds limit) {
    std::vector<LogLine> lines;
    auto found = lines.end();
    const auto seen = [&] {
        lines = stepsOf(reqId);
        found =
            std::find_if(lines.begin(), lines.end(), [&](const LogLine& line) { return contains(line.text, part); });
        return found != lines.end();
    };
    if (!waitFor(seen, limit))
        throw ReceiverError("request " + reqId + ": no step \"" + part + "\" within " + std::to_string(limit.count()) +
                            " ms");
    return *found;
}

std::uint64_t ReceiverKit::newestNotification() {
    const nlohmann::json newest = ask(Part::frameHost, {"notifications"});
    return newest.empty() ? 0 : newest.back().at("number").get<std::uint64_t>();
}

nlohmann::json ReceiverKit::notificationsAfter(std::uint64_t number) {
    return ask(Part::frameHost, {"notifications", std::to_string(number)});
}

nlohmann::json ReceiverKit::waitForNotification(const std::string& message, std::uint64_t after,
                                                const nlohmann::json& arguments) {
    nlohmann::json last;
    const auto came = [&] {
        for (auto& notification : notificationsAfter(after)) {
            if (notification.at("message") != message) continue;
            last = std::move(notification);
            if (includes(last.at("arguments"), arguments)) return true;
        }
        return false;
    };
    if (!waitFor(came, defaultTimeout))
        throw ReceiverError("no " + message + " with " + arguments.dump() + " came within " +
                            std::to_string(defaultTimeout.count()) + " ms" +
                            (last.is_null() ? "" : "; the last one has " + last.at("arguments").dump()));
    return last;
}

bool ReceiverKit::waitFor(const std::function<bool()>& condition, Milliseconds limit) {
    return waitUntil(condition, limit, [this] {
        if (interrupted_ && interrupted_()) throw ReceiverError("interrupted");
    });
}

std::string ReceiverKit::logTails(std::size_t lines) const {
    std::string result;
    for (const Part part : allParts)
        if (const std::string tail = tailOf(logOf(part), lines); !tail.empty())
            result += std::string("---- ") + nameOf(part) + " ----\n" + tail;
    return result;
}

} // namespace receiver
