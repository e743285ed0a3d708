// A whole receiver on this machine: the two services and the framework process with the adapter and the control
// application, in a private folder, driven through their shells.
//
// For one thread. A timeout throws ReceiverError, which says what was awaited.
#pragma once

#include <host/shell-client.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <kit/child-process.h>
#include <kit/log-file.h>
#include <kit/wait.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

namespace receiver {

class ReceiverError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The processes in the order in which they start.
enum class Part { tvService, mmService, frameHost };
inline constexpr std::array allParts{Part::tvService, Part::mmService, Part::frameHost};
const char* nameOf(Part part); // also the name of its shell

// Where the programs and the application libraries are; by default where this build puts them.
struct Places {
    std::filesystem::path programs, libraries;
    Places();
};

// A client's answer about one terminal.
struct Answer {
    std::string reqId, terminal;
    int result;
    std::string uri;
};

// Whether whole contains everything in part; of a list, each element must be contained in one of whole's elements.
bool includes(const nlohmann::json& whole, const nlohmann::json& part);

inline constexpr Milliseconds defaultTimeout{10000}; // for what is immediate on an idle machine

class ReceiverKit {
public:
    // interrupted is polled while waiting; the wait throws when it returns true. environment extends or overrides the
    // processes' default variables; by default, the services use the simulated media engine.
    explicit ReceiverKit(Places places = {}, std::function<bool()> interrupted = {},
                         std::map<std::string, std::string> environment = {});
    ~ReceiverKit(); // ends all processes and removes the folder

    // For parts that start from now on: another variable, and the TV service's channel list in place of its built-in
    // one.
    void setVariable(const std::string& name, const std::string& value) { environment_[name] = value; }
    void setChannels(const std::filesystem::path& list) { channels_ = list; }

    // Starts all parts and waits until both services are connected.
    void start();
    void start(Part part); // and waits until its shell has all its commands
    // Ends the parts in order, the framework process first. Returns the problems, one per line: a part that had died
    // before, did not end in time or ended with an error.
    std::string stop();
    std::string stop(Part part); // only this one

    void freeze(Part part);
    void thaw(Part part);
    void kill(Part part);       // at once, without any cleanup
    pid_t processId(Part part); // of a part that was started

    // Runs a command in a part's shell and returns what it printed, as JSON (null for nothing).
    nlohmann::json ask(Part part, const std::vector<std::string>& words);
    // The same for commands without JSON: returns what they printed, unchanged.
    std::string read(Part part, const std::vector<std::string>& words);

    // Send a request to the adapter and return the adapter's request id.
    std::string play(const std::string& terminals, const std::string& uri);
    std::string stopTerminals(const std::string& terminals);

    // The answers to a request so far, in the order in which the control application got them.
    std::vector<Answer> answersTo(const std::string& reqId);
    std::vector<Answer> waitForAnswers(const std::string& reqId, std::size_t count,
                                       Milliseconds limit = defaultTimeout);
    // What the resource manager logged about a request so far.
    std::vector<LogLine> stepsOf(const std::string& reqId) const;
    // Waits for such a line that contains part.
    LogLine waitForStep(const std::string& reqId, const std::string& part, Milliseconds limit = defaultTimeout);

    // The notifications to clients, as the control application lists them: objects with "number", "message" and
    // "arguments".
    std::uint64_t newestNotification();                      // its number, 0 before the first one
    nlohmann::json notificationsAfter(std::uint64_t number); // oldest first, at most 100
    // Waits for a notification with that name, after that number, whose arguments include the given ones.
    nlohmann::json waitForNotification(const std::string& message, std::uint64_t after,
                                       const nlohmann::json& arguments = nlohmann::json::object());

    bool waitFor(const std::function<bool()>& condition, Milliseconds limit);

    const std::filesystem::path& folder() const { return folder_; }
    std::filesystem::path runtimeFolder() const { return folder_ / "run"; }
    std::string logTails(std::size_t lines) const; // of all parts, for people

    ReceiverKit(const ReceiverKit&) = delete;
    ReceiverKit& operator=(const ReceiverKit&) = delete;

private:
    struct Process {
        std::unique_ptr<ChildProcess> child;
        host::ShellClient shell;
    };

    Process& of(Part part) { return processes_[static_cast<std::size_t>(part)]; }
    std::filesystem::path logOf(Part part) const;
    std::string shellOf(Part part) const;
    ChildCommand commandOf(Part part) const;
    bool isReady(Part part);
    std::string outputOf(Part part, const std::vector<std::string>& words, bool json);
    std::string submit(const std::vector<std::string>& words);
    std::vector<LogLine> managerLines() const;
    void end(Part part, std::string& problems);

    const Places places_;
    const std::function<bool()> interrupted_;
    std::map<std::string, std::string> environment_;
    std::filesystem::path folder_, channels_;
    std::array<Process, allParts.size()> processes_;
};

} // namespace receiver
