// A running receiver's play path and the rest of what its TV service takes and tells, shown and checked step by step.
#pragma once

#include "screen.h"

#include <kit/receiver-kit.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace demo {

class Demonstration {
public:
    Demonstration(receiver::ReceiverKit& kit, const Screen& screen);

    // Throws receiver::ReceiverError, which names the step, for what is not as expected.
    void run();

private:
    struct Asked {
        std::string reqId, text;
        receiver::Time time;
        std::size_t shown = 0; // of its steps
    };

    void liveChannel();
    void file();
    void liveChannelAfterFile();
    void fiveTerminals();
    void missingFile();
    void tracks();
    void tunerAndLock();
    void download();
    void negotiation();
    void pathSwitch();
    void mediaServiceHangs();
    void tvServiceHangs();
    void serviceRestarts();

    // A notification that is expected, and what its arguments include.
    struct Told {
        const char* message;
        nlohmann::json arguments;
    };
    // Runs a command, waits for the notifications that it leads to, shows all up to the last of them, and adds a row
    // with result for people.
    void expectTold(const std::vector<std::string>& command, const std::vector<Told>& expected,
                    const std::string& result, receiver::Part part = receiver::Part::frameHost);

    Asked ask(const std::string& terminals, const std::string& uri);
    // Waits for the answers to a request, shows what happened and checks that they are the expected ones.
    void expectAnswers(Asked& asked, const std::vector<receiver::Answer>& expected);
    // Checks that the request's steps contain these texts in this order.
    void expectSteps(const Asked& asked, const std::vector<std::string>& texts);
    // Waits until the request is dropped, shows that, and checks that it took the time limit and gave no answer.
    std::chrono::microseconds expectDropped(Asked& asked);
    void showSteps(Asked& asked) const;
    void statistics();
    void addRow(const Asked& asked, const std::string& result, std::chrono::microseconds time);
    // When the request's step with this text was, from its asking.
    std::chrono::microseconds timeOf(const Asked& asked, const std::string& text);

    receiver::ReceiverKit& kit_;
    const Screen& screen_;
    std::string film_;
    std::string number_; // of the step under way
    std::vector<Row> rows_;
};

} // namespace demo
