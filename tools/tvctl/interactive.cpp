#include "interactive.h"

#include "session.h"

#include <host/environment.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <histedit.h>
#include <iostream>
#include <string>
#include <string_view>
#include <unistd.h>

namespace tvctl {
namespace {

constexpr int historyLines = 1000;

// The line editor. Its history persists across sessions.
class Editor {
public:
    Editor(Session& session, const Options& options)
        : session_(session),
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
        el_set(editor_, EL_ADDFN, "complete-command", "Complete the command word", &Editor::complete);
        el_set(editor_, EL_BIND, "^I", "complete-command", nullptr);
        try {
            historyFile_ = host::stateDirectory() + "/tvctl-history";
            history(history_, &event, H_LOAD, historyFile_.c_str());
        } catch (const std::exception& error) {
            std::cerr << "tvctl: cannot save the history: " << error.what() << '\n';
        }
    }

    ~Editor() {
        history_end(history_);
        el_end(editor_);
    }

    Editor(const Editor&) = delete;
    Editor& operator=(const Editor&) = delete;

    // Reads the next line; false at the end of input.
    bool read(std::string& line) {
        int length = 0;
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

    // Extends the command word to the common prefix of all matching commands; lists them when that adds nothing.
    static unsigned char complete(EditLine* editor, int) {
        const LineInfo* info = el_line(editor);
        const std::string_view typed(info->buffer, static_cast<std::size_t>(info->cursor - info->buffer));
        if (typed.find_first_of(" \t") != std::string_view::npos) return CC_ERROR;
        auto words = of(editor).session_.commandWords();
        std::erase_if(words, [typed](const std::string& word) { return word.compare(0, typed.size(), typed) != 0; });
        if (words.empty()) return CC_ERROR;
        std::string shared = words[0];
        for (const auto& word : words) {
            const auto ends = std::mismatch(shared.begin(), shared.end(), word.begin(), word.end());
            shared.erase(ends.first, shared.end());
        }
        std::string addition = shared.substr(typed.size());
        if (words.size() == 1) addition += ' ';
        if (addition.empty()) {
            std::cout << '\n';
            for (const auto& word : words) std::cout << word << '\n';
            std::cout.flush();
            return CC_REDISPLAY;
        }
        return el_insertstr(editor, addition.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    }

    Session& session_;
    std::string prompt_;
    EditLine* editor_;
    History* history_;
    std::string historyFile_;
};

// Runs each line that read returns.
template <class Read> int runLines(Session& session, const Read& read) {
    int exitCode = exitDone;
    std::string line;
    while (read(line)) {
        const auto begin = line.find_first_not_of(" \t\r\n");
        if (begin == std::string::npos) continue;
        line = line.substr(begin, line.find_last_not_of("\r\n") + 1 - begin);
        if (line.substr(0, line.find_last_not_of(" \t") + 1) == "exit") break;
        exitCode = session.run(line);
    }
    return exitCode;
}

} // namespace

int runShell(const Options& given, const std::vector<std::string>& arguments) {
    Options options = given;
    CLI::App app("Runs commands of the process, one per line of standard input, until its end or \"exit\".",
                 "tvctl shell");
    addOptions(app, options);
    if (const auto exitCode = parseArguments(app, arguments)) return *exitCode;
    Session session(options);
    if (!isatty(STDIN_FILENO))
        return runLines(session, [](std::string& line) { return static_cast<bool>(std::getline(std::cin, line)); });
    Editor editor(session, options);
    return runLines(session, [&editor](std::string& line) { return editor.read(line); });
}

} // namespace tvctl
