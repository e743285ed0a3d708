// The commands of a shell, and running them.
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

    // Runs the request in one line of JSON, {"line":"play 0:0 dvb://1","json":false}, and returns the lines that answer
    // it: {"output":"..."} when the command printed something, then {"status":0} or {"status":-22,"error":"..."}.
    // "words":["play","0:0","dvb://1"] may stand for "line"; "json" may be missing. One call at a time.
    std::string answer(std::string_view request);
    // The two halves of that: reads the request, and returns an empty text or, when it is malformed, the answer; and
    // runs it.
    static std::string read(std::string_view text, Request& request);
    std::string execute(const Request& request);

private:
    struct Command {
        Specification specification;
        HelpText help;
        CommandHandler handler;
        void* context;
    };
    // One command under way.
    struct Invocation {
        bool json = false;
        std::vector<std::string> arguments;
        std::string output;
        bool cut = false; // the output went beyond the limit
    };
    class Current;
    struct Result {
        int status;
        std::string error;
    };

    // line: the request's line or words, in the forms that takeWords has.
    template <class Line> Result run(const Line& line, Invocation& invocation);
    Result call(const Command& command, Invocation& invocation);
    const Command* find(const std::string& word) const;
    void help();

    mutable thread_safety::Mutex mutex_;
    std::map<std::string, Command> commands_ TVSA_GUARDED_BY(mutex_); // entries are never removed
    Invocation* current_ TVSA_GUARDED_BY(mutex_) = nullptr;
};

// A line that ends an answer; error may be empty.
std::string statusLine(int status, const std::string& error);

} // namespace appovshell
