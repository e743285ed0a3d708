// Texts that are dangerous in logs, at terminals and in the run log.
#include "../killed/service-socket.h"
#include "endpoints.h"
#include "scenarios.h"
#include "text-messages.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/socket.h>

namespace access_check {
namespace {

constexpr const char* forged = "2026-01-01T00:00:00.000Z frame-host[1] io failure: forged";

const std::vector<std::string> texts{
    "\x1b[2J\x1b]0;title\x07\b\b\r\t\v\x01",
    std::string("dvb://1\n") + forged + "\n    | " + forged + "\r" + forged,
    std::string("before\0after", 12),
    "%n%n%s%s%s%s%1000000d%*d%x",
    R"('"`${HOME}$(id)\)",
    "'); DROP TABLE run_log; --\"",
    std::string("\x7f\xc2\x9b") + "31m\xc2\x85\xc2\x9d", // split, as the digits would become part of the escape
    "\xff\xfe\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80\xe2\x82",
    R"({"level":"failure","text":"forged"}])",
    std::string(std::size_t{64} * 1024, 'A') + "\x1b\n",
};

// Over a new client's connection.
void sendToServices(ReceiverKit& kit, const std::vector<Endpoint>& endpoints, const std::string& text) {
    for (const Endpoint& endpoint : endpoints) {
        if (endpoint.shell) continue;
        Socket client = clientOf(endpoint);
        const auto messages = requestsWith(text, endpoint.part);
        const auto before = counterOf(kit, endpoint.part, "received");
        for (const TextMessage& message : messages)
            require(client.send(message.frame), endpoint.name + " does not read");
        require(kit.waitFor([&] { return counterOf(kit, endpoint.part, "received") == before + messages.size(); },
                            receiver::defaultTimeout),
                endpoint.name + " did not receive all texts");
    }
}

// Over the services' own connections. The notifications to the adapter's clients must have each text unchanged.
void sendToFrameHost(ReceiverKit& kit, const std::string& text) {
    for (const Part service : {Part::tvService, Part::mmService})
        for (const TextMessage& message : notificationsWith(text, service)) {
            const auto before = kit.newestNotification();
            killed::sendAs(kit.processId(service), kit.processId(Part::frameHost), message.frame);
            kit.waitForNotification(message.notification, before, message.arguments);
        }
}

// As a command, as a service's name and as a line to a shell.
void sendToEndpoints(const std::vector<Endpoint>& endpoints, const std::string& text) {
    for (const Endpoint& endpoint : endpoints) {
        Socket client;
        require(client.connect(endpoint.path) == 0, endpoint.name + " accepts no connection");
        if (endpoint.shell) {
            const nlohmann::json words{{"words", {text, text}}};
            client.send(words.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n' + text + "\n\n");
            shutdown(client.descriptor(), SHUT_WR);
        } else {
            std::string hello = killed::helloOf(endpoint.path);
            constexpr std::size_t nameAt = 32;
            hello.replace(nameAt, 9, (text + std::string(9, '\x1b')).substr(0, 9));
            client.send(hello);
        }
        const std::string received = client.receiveAll();
        if (!endpoint.shell) continue;
        require(received.find('\x1b') == std::string::npos, endpoint.name + " sent a text unescaped");
    }
}

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

bool isUtf8(const std::string& text) {
    try {
        return !nlohmann::json(text).dump().empty();
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

// Valid UTF-8 without control characters other than line feeds.
bool isPrintable(const std::string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte < ' ' && byte != '\n') || byte == 0x7F) return false;
        if (byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0) return false;
    }
    return isUtf8(text);
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// Requires that the process itself wrote every line.
void checkLog(const std::filesystem::path& log, const std::string& process, pid_t pid, bool json) {
    const std::string text = contentOf(log);
    require(!text.empty() && isPrintable(text),
            log.filename().string() + " is empty, or has control characters or invalid UTF-8");
    const std::string begin = "Z " + process + '[' + std::to_string(pid) + "] "; // after the time
    constexpr std::size_t timeLength = sizeof "2000-01-01T00:00:00.000" - 1;
    for (const std::string& line : linesOf(text)) {
        bool own;
        if (json) {
            const auto object = nlohmann::json::parse(line, nullptr, false);
            own = object.is_object() && object.size() == 6 && object.value("pid", 0) == pid;
        } else {
            own = line.starts_with("    | ") || line.find(begin) == timeLength;
        }
        require(own, log.filename().string() + " has a forged line: " + line.substr(0, 200));
    }
}

receiver::ChildCommand commandOf(const ReceiverKit& kit, Part part, const std::vector<std::string>& words,
                                 const std::filesystem::path& output) {
    receiver::ChildCommand command;
    command.program = receiver::Places().programs / "tvctl";
    command.arguments = {"--target", receiver::nameOf(part)};
    command.arguments.insert(command.arguments.end(), words.begin(), words.end());
    command.environment = {{"RUNTIME_DIRECTORY", kit.runtimeFolder().string()}};
    command.errorLog = output;
    return command;
}

// What tvctl prints at a terminal.
std::string tvctl(const ReceiverKit& kit, Part part, const std::vector<std::string>& words) {
    const auto output = kit.folder() / "tvctl.out";
    std::filesystem::remove(output);
    receiver::ChildProcess(commandOf(kit, part, words, output)).wait();
    return contentOf(output);
}

void checkPrinted(const std::string& printed, const std::string& word) {
    require(isPrintable(printed), "tvctl " + word + " prints control characters or invalid UTF-8");
    for (const std::string& line : linesOf(printed))
        require(!line.starts_with(std::string(forged).substr(0, 20)), "tvctl " + word + " prints a forged line");
}

// A `tvctl watch` that prints the notifications of the adapter's clients.
class Watcher {
public:
    explicit Watcher(ReceiverKit& kit)
        : kit_(kit), output_(kit.folder() / "watch.out"), tvctl_(commandOf(kit, Part::frameHost, {"watch"}, output_)) {
        waitFor("1");
    }

    void check() {
        waitFor("2");
        const std::string printed = contentOf(output_);
        checkPrinted(printed, "watch");
        require(printed.find("\\x9b31m") != std::string::npos, "tvctl watch omits texts");
    }

private:
    // Notifies of a sound track, which has no text, again and again: tvctl does not print notifications from before its
    // start.
    void waitFor(const std::string& track) {
        const std::string arguments = "{\"track\":" + track;
        const auto printed = [&] {
            kit_.read(Part::tvService, {"emit", name, arguments + '}'});
            return contentOf(output_).find(name + (' ' + arguments) + ',') != std::string::npos; // then its name
        };
        require(kit_.waitFor(printed, receiver::defaultTimeout), "tvctl watch does not print notifications");
    }

    static constexpr const char* name = "TvServiceMtsAudioTrackInfoNotify";
    ReceiverKit& kit_;
    const std::filesystem::path output_;
    receiver::ChildProcess tvctl_;
};

void checkOutput(const ReceiverKit& kit, std::size_t expected) {
    const std::pair<Part, std::vector<const char*>> commands[] = {
        {Part::frameHost, {"answers", "notifications", "terminals", "bundles", "runlog"}},
        {Part::tvService, {"terminals"}},
        {Part::mmService, {"terminals"}}};
    for (const auto& [part, words] : commands)
        for (const std::string word : words) checkPrinted(tvctl(kit, part, {word}), word);
    const auto lines = linesOf(tvctl(kit, Part::frameHost, {"answers"})).size();
    require(lines == expected,
            "tvctl answers prints " + std::to_string(lines) + " lines for " + std::to_string(expected));
    const std::string error = tvctl(kit, Part::frameHost, {texts[0] + texts[1]});
    require(isPrintable(error), "tvctl's error for a command has control characters or invalid UTF-8");
}

// Whether the shell accepts it as a command's argument: a line has a maximum length, and is UTF-8.
bool canBeCommanded(const std::string& text) { return !isLong(text) && isUtf8(text); }

// Requires that the run log has the text unchanged, and nothing else.
void checkRunLog(ReceiverKit& kit, const std::string& uri) {
    const auto records = kit.ask(Part::frameHost, {"runlog", "100"});
    require(records.size() == 1 && records[0].at("logText").get<std::string>().ends_with("Uri: " + uri),
            "the run log does not have the text unchanged");
    SQLite::Database database((kit.folder() / "state" / "runlog.sqlite").string(), SQLite::OPEN_READONLY);
    require(database.execAndGet("PRAGMA integrity_check").getString() == "ok", "the run log is corrupt");
    require(database.execAndGet("SELECT COUNT(*) FROM run_log").getInt() == 1, "the run log has further records");
}

} // namespace

void sendTexts(Figures& figures) {
    for (const bool json : {true, false}) {
        ReceiverKit kit({}, {}, {{"TVSA_LOG", "trace"}, {"TVSA_LOG_FORMAT", json ? "json" : "text"}});
        kit.start();
        const auto endpoints = endpointsIn(kit.runtimeFolder());
        Watcher watcher(kit);
        std::string uri = "dvb://";
        for (const std::string& text : texts) {
            sendToServices(kit, endpoints, text);
            sendToFrameHost(kit, text);
            sendToEndpoints(endpoints, text);
            ++figures.texts;
            if (!canBeCommanded(text)) continue;
            uri += text;
            ++figures.textsInTheRunLog;
        }
        std::map<Part, pid_t> processes;
        for (const Part part : receiver::allParts) processes[part] = kit.processId(part);
        kit.read(Part::tvService, {"fault", "mute", "on"});
        kit.ask(Part::frameHost, {"play", "0:0", uri});
        require(kit.waitFor([&] { return !kit.ask(Part::frameHost, {"runlog"}).empty(); }, std::chrono::seconds(12)),
                "the failed play is not in the run log");
        kit.read(Part::tvService, {"fault", "clear"});
        checkRunLog(kit, uri);
        checkOutput(kit, 10);
        watcher.check();
        const std::string problems = kit.stop();
        require(problems.empty(), problems);
        for (const auto& [part, process] : processes) checkLog(logOf(kit, part), receiver::nameOf(part), process, json);
    }
}

} // namespace access_check
