// Runs the project's programs in a private folder until they end, and collects their output.
#pragma once

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kit/child-process.h>
#include <kit/receiver-kit.h>
#include <kit/wait.h>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace program_run {

using Words = std::vector<std::string>;

struct Outcome {
    std::optional<int> exitCode; // empty if a signal ended it
    std::string output, error;
};

inline bool operator==(const Outcome& a, const Outcome& b) {
    return a.exitCode == b.exitCode && a.output == b.output && a.error == b.error;
}

inline void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "exit code " << outcome.exitCode.value_or(-1) << ", output \"" << outcome.output << "\", error \""
         << outcome.error << '"';
}

inline std::string contentOf(const std::filesystem::path& file) {
    std::ostringstream content;
    content << std::ifstream(file).rdbuf();
    return content.str();
}

inline bool eventually(const std::function<bool()>& condition) {
    return receiver::waitUntil(condition, std::chrono::seconds(20));
}

class Programs : public testing::Test {
protected:
    // A running program. Standard output and standard error go to separate files.
    class Running {
    public:
        Running(const Programs& place, const Words& command, const std::string& script)
            : output_(place.folder / (std::to_string(place.runs_) + ".out")),
              error_(place.folder / (std::to_string(place.runs_) + ".err")),
              child_({"/bin/sh", argumentsOf(command, script), environmentOf(place), error_}) {
            ++place.runs_;
        }

        pid_t id() const { return child_.id(); }
        std::string error() const { return contentOf(error_); }
        bool hasEnded() { return !child_.running(); }
        void signal(int number) { child_.signal(number); }
        Outcome wait() {
            if (!eventually([&] { return !child_.running(); })) {
                ADD_FAILURE() << "the program does not end";
                child_.signal(SIGKILL);
                child_.wait();
            }
            return {child_.exitCode(), contentOf(output_), contentOf(error_)};
        }
        Outcome terminate(int number = SIGTERM) {
            signal(number);
            return wait();
        }

    private:
        static Words argumentsOf(const Words& command, const std::string& script) {
            Words arguments{"-c", script};
            arguments.insert(arguments.end(), command.begin(), command.end());
            return arguments;
        }
        std::map<std::string, std::string> environmentOf(const Programs& place) const {
            auto environment = place.environment;
            environment["OUTPUT"] = output_.string();
            return environment;
        }

        const std::filesystem::path output_, error_;
        receiver::ChildProcess child_;
    };

    Programs() {
        std::string name = (std::filesystem::temp_directory_path() / "programs-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no private folder " + name);
        folder = name;
        environment = {{"RUNTIME_DIRECTORY", runtimeFolder()}, {"STATE_DIRECTORY", (folder / "state").string()}};
    }
    ~Programs() override { std::filesystem::remove_all(folder); }

    std::string runtimeFolder() const { return (folder / "run").string(); }
    std::string program(const std::string& name) const { return (places.programs / name).string(); }
    std::string library(const std::string& name) const { return (places.libraries / name).string(); }

    // The script receives the command's program and arguments as "$0" and "$@".
    std::unique_ptr<Running> start(const Words& command,
                                   const std::string& script = R"(exec "$0" "$@" </dev/null >"$OUTPUT")") const {
        return std::make_unique<Running>(*this, command, script);
    }
    Outcome run(const Words& command) const { return start(command)->wait(); }
    Outcome run(const Words& command, const std::string& script) const { return start(command, script)->wait(); }

    // The files of a folder except locks and recordings, which remain when a program ends.
    static std::vector<std::string> filesIn(const std::filesystem::path& place) {
        std::vector<std::string> names;
        if (std::filesystem::exists(place))
            for (const auto& entry : std::filesystem::directory_iterator(place))
                if (entry.path().extension() != ".lock" && entry.path().filename() != "recordings")
                    names.push_back(entry.path().filename());
        return names;
    }

    const receiver::Places places;
    std::filesystem::path folder;
    std::map<std::string, std::string> environment;

private:
    mutable int runs_ = 0;
};

} // namespace program_run
