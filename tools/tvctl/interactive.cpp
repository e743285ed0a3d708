#include "interactive.h"

#include "completion.h"
#include "failure.h"
#include "interruption.h"
#include "session.h"
#include "verbs.h"

#include <host/environment.h>
#include <host/printable.h>
#include <host/shell-client.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <histedit.h>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tvctl {
namespace {

constexpr int historyLines = 1000;

// The line editor, which lives until the process ends: its library cannot free the names of added functions. Its
// history persists across sessions.
class Editor {
public:
    explicit Editor(const Options& options)
        : completion_(options),
          prompt_(options.target + "> "),
          editor_(el_init("tvctl", stdin, stdout, stderr)),
          history_(history_init()) {
        el_set(editor_, EL_CLIENTDATA, this);
        el_set(editor_, EL_PROMPT, &Editor::prompt);
        el_set(editor_, EL_SIGNAL, 1);
        el_set(editor_, EL_EDITOR, "emacs");
        HistEvent event;
        history(history_, &event, H_SETSIZE, historyLines);
        history(history_, &event, H_SETUNIQUE, 1);
        el_set(editor_, EL_HIST, history, history_);
        el_set(editor_, EL_ADDFN, "complete-word", "Complete the word", &Editor::complete);
        el_set(editor_, EL_BIND, "^I", "complete-word", nullptr);
        el_set(editor_, EL_ADDFN, "cancel-line", "Begin a new line", &Editor::cancel);
        el_set(editor_, EL_BIND, "^C", "cancel-line", nullptr);
        el_set(editor_, EL_SETTY, "-d", "-isig", nullptr);
        try {
            historyFile_ = host::stateDirectory() + "/tvctl-history";
            history(history_, &event, H_LOAD, historyFile_.c_str());
        } catch (const std::exception& error) {
            std::cerr << "tvctl: cannot save the history: " << error.what() << '\n';
        }
    }

    Editor(const Editor&) = delete;
    Editor& operator=(const Editor&) = delete;

    // Reads the next line; false at the end of input.
    bool read(std::string& line) {
        int length = 0;
        el_set(editor_, EL_PREP_TERM, 1); // before the prompt is shown, so that Ctrl-C is a key from then on
        const char* text = el_gets(editor_, &length);
        if (!text || length <= 0) return false;
        line.assign(text, static_cast<std::size_t>(length));
        if (line.find_first_not_of(" \t\n") != std::string::npos) remember(text);
        return true;
    }

private:
    // Saves after every line, so that an interrupted session keeps its history, too.
    void remember(const char* line) {
        HistEvent event;
        history(history_, &event, H_ENTER, line);
        if (!historyFile_.empty()) history(history_, &event, H_SAVE, historyFile_.c_str());
    }

    static Editor& of(EditLine* editor) {
        void* self = nullptr;
        el_get(editor, EL_CLIENTDATA, &self);
        return *static_cast<Editor*>(self);
    }

    static char* prompt(EditLine* editor) { return of(editor).prompt_.data(); }

    // Extends the last word to the common prefix of all candidates; lists them when that adds nothing.
    static unsigned char complete(EditLine* editor, int) {
        const LineInfo* info = el_line(editor);
        const std::string typed(info->buffer, static_cast<std::size_t>(info->cursor - info->buffer));
        const auto candidates = of(editor).completion_.candidates(typed);
        if (candidates.empty()) return CC_ERROR;
        std::string shared = candidates[0];
        for (const auto& candidate : candidates) {
            const auto ends = std::mismatch(shared.begin(), shared.end(), candidate.begin(), candidate.end());
            shared.erase(ends.first, shared.end());
        }
        const std::size_t begin = typed.find_last_of(" \t") + 1;
        std::string addition = shared.substr(std::min(typed.size() - begin, shared.size()));
        if (candidates.size() == 1) addition += ' ';
        if (addition.empty()) {
            std::cout << '\n';
            for (const auto& candidate : candidates) std::cout << host::printable(candidate) << '\n';
            std::cout.flush();
            return CC_REDISPLAY;
        }
        return el_insertstr(editor, addition.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    }

    // Ctrl-C: leaves the line unused and begins a new one. The terminal sends no signal for it while a line is edited:
    // the receiver may be in the same process group.
    static unsigned char cancel(EditLine* editor, int) {
        const LineInfo* info = el_line(editor);
        el_cursor(editor, static_cast<int>(info->lastchar - info->cursor));
        el_deletestr(editor, static_cast<int>(info->lastchar - info->buffer));
        std::cout << "^C\n" << std::flush;
        return el_insertstr(editor, "\n") == 0 ? CC_NEWLINE : CC_ERROR; // without it, the input would end here
    }

    Completion completion_;
    std::string prompt_;
    EditLine* editor_;
    History* history_;
    std::string historyFile_;
};

// Runs a command of tvctl itself or of the process.
int runLine(const Options& given, const std::string& line) {
    Options options = given;
    options.inShell = true;
    options.targetGiven = false; // in this line
    const auto wrong = [&options](const std::string& why) {
        return report(std::cerr, options.json, {exitUsage, -EINVAL}, why);
    };
    std::vector<std::string> words;
    bool isVerbs = false; // or a process's, which may take the rest of a line as it is
    try {
        const auto first = host::wordsOf(line, 1);
        isVerbs = !first.empty() && (findVerb(first[0]) || first[0].starts_with('-'));
        words = host::wordsOf(line, line.size());
    } catch (const std::invalid_argument& error) {
        return isVerbs ? wrong(error.what()) : Session(options).run(line);
    }
    const std::size_t typed = words.size();
    if (words[0].starts_with('-') || !isVerbs)
        if (const auto exitCode = takeOptions(words, options)) return *exitCode;
    if (words.empty()) return wrong("a command is missing");
    if (words[0].starts_with('-')) return wrong("unknown option: " + words[0]);
    if (const Verb* verb = findVerb(words[0])) {
        if (verb->run == runShell) return wrong("this is a shell already; \"exit\" ends it");
        return run(*verb, options, {std::next(words.begin()), words.end()});
    }
    return words.size() == typed ? Session(options).run(line) : Session(options).run(words);
}

// Runs each line that read returns, until the input's end, "exit", or a line for which run returns false.
template <class Read, class Run> void runLines(const Read& read, const Run& run) {
    std::string line;
    while (read(line)) {
        const auto begin = line.find_first_not_of(" \t\r\n");
        if (begin == std::string::npos) continue;
        line = line.substr(begin, line.find_last_not_of("\r\n") + 1 - begin);
        if (line.substr(0, line.find_last_not_of(" \t") + 1) == "exit" || !run(line)) return;
    }
}

// Ends at the first failure unless it is to keep going. Returns the first failure's code.
int runScript(const Options& options, bool keepGoing) {
    int exitCode = exitDone;
    runLines([](std::string& line) { return static_cast<bool>(std::getline(std::cin, line)); },
             [&](const std::string& line) {
                 const int result = runLine(options, line);
                 if (exitCode == exitDone) exitCode = result;
                 return result == exitDone || keepGoing;
             });
    return exitCode;
}

// Runs a line in a child process, which Ctrl-C ends. Returns its exit code.
int runInChild(const Options& options, const std::string& line) {
    std::cout.flush();
    const pid_t child = fork();
    if (child < 0)
        return report(std::cerr, options.json, {exitFailed, -errno},
                      std::string("cannot fork: ") + std::strerror(errno));
    if (child == 0) {
        endWhenInterrupted();
        const int exitCode = runLine(options, line);
        std::cout.flush();
        _exit(exitCode);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const int exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (exitCode == exitInterrupted) std::cout << std::endl; // after the ^C that the terminal shows
    return exitCode;
}

int runDialogue(const Options& options) {
    std::signal(SIGINT, SIG_IGN);
    static Editor& editor = *new Editor(options);
    int exitCode = exitDone;
    runLines([&](std::string& line) { return editor.read(line); },
             [&](const std::string& line) {
                 exitCode = runInChild(options, line);
                 return true;
             });
    return exitCode;
}

} // namespace

int runShell(const Options& given, const std::vector<std::string>& arguments) {
    Options options = given;
    bool keepGoing = false;
    CLI::App app(
        "Runs commands of the process and of tvctl itself, one per line, until the end of input or \"exit\". Reads\n"
        "from the terminal, where Tab completes words and Ctrl-C ends a command or leaves a line, or from a file or\n"
        "pipe, where it ends with the first command that fails and its exit code.",
        "tvctl shell");
    addOptions(app, options);
    app.add_flag("--keep-going", keepGoing, "Run the lines after a failure, too; end with the first failure's code");
    if (const auto exitCode = parseArguments(app, arguments)) return *exitCode;
    return isatty(STDIN_FILENO) ? runDialogue(options) : runScript(options, keepGoing);
}

} // namespace tvctl
