// The commands of a shell and their execution.
#pragma once

#include "shell/command-line.h"

#include <appovshell/server.h>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <thread-safety/mutex.h>
#include <vector>

namespace appovshell {

struct Request;

class CommandTable : public Server {
public:
    static constexpr std::size_t maximumOutput = 1024 * 1024; // bytes that a command may print

    CommandTable();

    int registerCommand(const std::string& specification, const std::string& help, CommandHandler handler,
                        void* context) override;
    std::string getArgument(unsigned index) override;
    void print(const std::string& text) override;
    bool wantsJson() override;

    // Runs a request, which is one line of JSON, {"line":"play 0:0 dvb://1","json":false}, and returns the lines of the
    // answer: {"output":"..."} if the command printed anything, then {"status":0} or {"status":-22,"error":"..."}.
    // "words":["play","0:0","dvb://1"] may replace "line"; "json" is optional. One call at a time.
    std::string answer(std::string_view request);
    // The two steps of answer. read parses the request and returns an empty text or, if it is malformed, the answer.
    // execute runs it.
    static std::string read(std::string_view text, Request& request);
    std::string execute(const Request& request);

private:
    struct Command {
        Specification specification;
        HelpText help;
        CommandHandler handler;
        void* context;
    };
    // A running command.
    struct Invocation {
        bool json = false;
        std::vector<std::string> arguments;
        std::string output;
        bool cut = false; // the output exceeded the limit
    };
    class Current;
    struct Result {
        int status;
        std::string error;
    };

    // line: the request's line or words, in a form that takeWords accepts.
    template <class Line> Result run(const Line& line, Invocation& invocation);
    Result call(const Command& command, Invocation& invocation);
    const Command* find(const std::string& word) const;
    void help();

    mutable thread_safety::Mutex mutex_;
    std::map<std::string, Command> commands_ TVSA_GUARDED_BY(mutex_); // entries are never removed
    Invocation* current_ TVSA_GUARDED_BY(mutex_) = nullptr;
};

// The last line of an answer; error may be empty.
std::string statusLine(int status, const std::string& error);

} // namespace appovshell
