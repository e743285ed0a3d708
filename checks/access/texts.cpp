// Texts that could do harm where they are written: in logs, at terminals, in the run log.
#include "../killed/service-socket.h"
#include "doors.h"
#include "scenarios.h"

#include <genrpc/flat-region.h>
#include <host/marshaller.h>
#include <host/message-queue.h>
#include <mmservice/messages.h>
#include <tvservice/messages.h>

#include <SQLiteCpp/SQLiteCpp.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <sys/socket.h>

namespace access_check {
namespace {

namespace tv = tvservice::messages;
namespace mm = mmservice::messages;

constexpr const char* forged = "2026-01-01T00:00:00.000Z frame-host[1] io failure: forged";

const std::vector<std::string> texts{
    "\x1b[2J\x1b]0;title\x07\b\b\r\t\v\x01",
    std::string("dvb://1\n") + forged + "\n    | " + forged + "\r" + forged,
    std::string("before\0after", 12),
    "%n%n%s%s%s%s%1000000d%*d%x",
    R"('"`${HOME}$(id)\)",
    "'); DROP TABLE run_log; --\"",
    std::string("\x7f\xc2\x9b") + "31m\xc2\x85\xc2\x9d", // else the digits were the escape's
    "\xff\xfe\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80\xe2\x82",
    R"({"level":"failure","text":"forged"}])",
    std::string(std::size_t{64} * 1024, 'A') + "\x1b\n",
};

// A message as it travels.
template <class Message, class... Args> std::string frameOf(const Args&... args) {
    const std::unique_ptr<genrpc::FlatRegion, decltype(&genrpc::FlatRegion::release)> region(
        genrpc::FlatRegion::create(4096), genrpc::FlatRegion::release);
    host::Bytes body;
    host::marshal(host::planOf(*Message::table()), Message::Body::build(*region, args...), body,
                  host::maximumMessageBytes);
    constexpr auto& meta = Message::meta;
    std::string bytes;
    for (const std::uint32_t word : {static_cast<std::uint32_t>(body.size()), meta.instance, meta.interfaceCode,
                                     meta.messageId, std::uint32_t{meta.flag}, 0U, 0U, 0U})
        bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
    return bytes.append(body.data(), body.size());
}

// With the text in each of its fields, or a long one, of which no socket takes several at once, in one.
template <class Record> Record filled(const std::string& text) {
    Record record;
    record.uri = text;
    if (text.size() < 1000) record.uuid = record.reqId = text;
    return record;
}

// Every message of a client that has texts.
void sendToServices(ReceiverKit& kit, const std::vector<Door>& doors, const std::string& text) {
    for (const Door& door : doors) {
        if (door.shell) continue;
        Socket client = clientOf(door);
        std::vector<std::string> frames;
        if (door.part == Part::mmService)
            frames = {frameOf<mm::MmServiceReq>(std::vector{filled<mmservice::MMServiceReq_t>(text)})};
        else
            frames = {frameOf<tv::TvServiceReq>(std::vector{filled<tvservice::TvServiceReq_t>(text)}),
                      frameOf<tv::TvServiceSendKeyReq>(text), frameOf<tv::TvServiceSourceChanged>(text),
                      frameOf<tv::RequestPackagesReq>(tvservice::reqeustOadType_t{}, text)};
        const auto before = counterOf(kit, door.part, "received");
        for (const std::string& frame : frames) require(client.say(frame), door.name + " does not listen");
        require(kit.waitFor([&] { return counterOf(kit, door.part, "received") == before + frames.size(); },
                            receiver::patience),
                door.name + " did not take the texts");
    }
}

// And of a service, over its own connection.
void sendToFrameHost(ReceiverKit& kit, const std::string& text) {
    auto info = filled<tvservice::TvServiceInfo_t>(text);
    if (text.size() < 1000) info.uuidAncestor = text;
    tvservice::TvServicePlayInfo_t play;
    play.strParam1 = text;
    const std::pair<Part, std::vector<std::string>> all[] = {
        {Part::tvService, {frameOf<tv::TvServiceInfo>(std::vector{info}), frameOf<tv::TvServicePlayInfo>(play)}},
        {Part::mmService, {frameOf<mm::MmServiceInfo>(std::vector{filled<mmservice::MMServiceInfo_t>(text)})}}};
    for (const auto& [service, frames] : all) {
        const auto before = receivedFrom(kit, service);
        for (const std::string& frame : frames)
            killed::sayInstead(kit.processId(service), kit.processId(Part::frameHost), frame);
        require(kit.waitFor(
                    [&, part = service, count = frames.size()] { return receivedFrom(kit, part) >= before + count; },
                    receiver::patience),
                "the framework process did not take the texts");
    }
}

// In the place of a command, of a service's name and of a line to a shell.
void sayToDoors(const std::vector<Door>& doors, const std::string& text) {
    for (const Door& door : doors) {
        Socket client;
        require(client.connect(door.path) == 0, door.name + " takes no connection");
        if (door.shell) {
            const nlohmann::json words{{"words", {text, text}}};
            client.say(words.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n' + text + "\n\n");
            shutdown(client.descriptor(), SHUT_WR);
        } else {
            std::string hello = killed::helloOf(door.path);
            constexpr std::size_t nameAt = 32;
            hello.replace(nameAt, 9, (text + std::string(9, '\x1b')).substr(0, 9));
            client.say(hello);
        }
        const std::string heard = client.hearAll();
        if (!door.shell) continue;
        require(heard.find('\x1b') == std::string::npos, door.name + " said a text as it is");
    }
}

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// No byte that steers a terminal, and nothing that is no text.
bool isHarmless(const std::string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte < ' ' && byte != '\n') || byte == 0x7F) return false;
        if (byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0) return false;
    }
    try {
        return !nlohmann::json(text).dump().empty();
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// Every line is one that the process wrote as such.
void judgeLog(const std::filesystem::path& log, const std::string& process, pid_t pid, bool json) {
    const std::string text = contentOf(log);
    require(!text.empty() && isHarmless(text), log.filename().string() + " holds what it must not");
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
        require(own, log.filename().string() + " has a line that nobody wrote: " + line.substr(0, 200));
    }
}

// What tvctl prints at a terminal.
std::string tvctl(const ReceiverKit& kit, Part part, const std::vector<std::string>& words) {
    const auto output = kit.folder() / "tvctl.out";
    std::filesystem::remove(output);
    receiver::ChildCommand command;
    command.program = receiver::Places().programs / "tvctl";
    command.arguments = {"--target", receiver::nameOf(part)};
    command.arguments.insert(command.arguments.end(), words.begin(), words.end());
    command.environment = {{"RUNTIME_DIRECTORY", kit.runtimeFolder().string()}};
    command.errorLog = output;
    receiver::ChildProcess(command).wait();
    return contentOf(output);
}

void judgeOutput(const ReceiverKit& kit, std::size_t expected) {
    const std::pair<Part, std::vector<const char*>> commands[] = {
        {Part::frameHost, {"answers", "notifications", "terminals", "bundles", "runlog"}},
        {Part::tvService, {"terminals"}},
        {Part::mmService, {"terminals"}}};
    for (const auto& [part, words] : commands)
        for (const std::string word : words) {
            const std::string printed = tvctl(kit, part, {word});
            require(isHarmless(printed), "tvctl " + word + " prints what it must not");
            for (const std::string& line : linesOf(printed))
                require(!line.starts_with(std::string(forged).substr(0, 20)),
                        "tvctl " + word + " prints a forged line");
        }
    const auto lines = linesOf(tvctl(kit, Part::frameHost, {"answers"})).size();
    require(lines == expected,
            "tvctl answers prints " + std::to_string(lines) + " lines for " + std::to_string(expected));
    const std::string error = tvctl(kit, Part::frameHost, {texts[0] + texts[1]});
    require(isHarmless(error), "tvctl says of a command what it must not");
}

// The run log keeps the text as it is, and nothing but the text.
void judgeRunLog(ReceiverKit& kit, const std::string& uri) {
    const auto records = kit.ask(Part::frameHost, {"runlog", "100"});
    require(records.size() == 1 && records[0].at("logText").get<std::string>().ends_with("Uri: " + uri),
            "the run log does not have the text as it is");
    SQLite::Database database((kit.folder() / "state" / "runlog.sqlite").string(), SQLite::OPEN_READONLY);
    require(database.execAndGet("PRAGMA integrity_check").getString() == "ok", "the run log is not sound");
    require(database.execAndGet("SELECT COUNT(*) FROM run_log").getInt() == 1, "the run log has another table");
}

} // namespace

void sendTexts(Figures& figures) {
    for (const bool json : {true, false}) {
        ReceiverKit kit({}, {}, {{"TVSA_LOG", "trace"}, {"TVSA_LOG_FORMAT", json ? "json" : "text"}});
        kit.start();
        const auto doors = doorsIn(kit.runtimeFolder());
        std::string uri = "dvb://";
        for (const std::string& text : texts) {
            sendToServices(kit, doors, text);
            sendToFrameHost(kit, text);
            sayToDoors(doors, text);
            if (text.size() < 1000 && static_cast<unsigned char>(text[0]) != 0xFF) uri += text;
            ++figures.texts;
        }
        std::map<Part, pid_t> processes;
        for (const Part part : receiver::allParts) processes[part] = kit.processId(part);
        kit.read(Part::tvService, {"fault", "mute", "on"});
        kit.ask(Part::frameHost, {"play", "0:0", uri});
        require(kit.waitFor([&] { return !kit.ask(Part::frameHost, {"runlog"}).empty(); }, std::chrono::seconds(12)),
                "the failed play is not in the run log");
        kit.read(Part::tvService, {"fault", "clear"});
        judgeRunLog(kit, uri);
        judgeOutput(kit, 10);
        const std::string complaints = kit.stop();
        require(complaints.empty(), complaints);
        for (const auto& [part, process] : processes) judgeLog(logOf(kit, part), receiver::nameOf(part), process, json);
    }
}

} // namespace access_check
