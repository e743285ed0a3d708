// Shows and checks, step by step, a running receiver's play path and the other requests and notifications of its TV
// service.
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

    // Throws receiver::ReceiverError, which names the step, when something is not as expected.
    void run();

private:
    struct Request {
        std::string reqId, text;
        receiver::Time time;
        std::size_t shown = 0; // the number of its steps shown
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

    // A notification, and what its arguments must include.
    struct Notification {
        const char* message;
        nlohmann::json arguments;
    };
    // Runs a command, waits for the expected notifications, shows all up to the last of them, and adds a row with the
    // result text.
    void expectNotifications(const std::vector<std::string>& command, const std::vector<Notification>& expected,
                             const std::string& result, receiver::Part part = receiver::Part::frameHost);

    Request ask(const std::string& terminals, const std::string& uri);
    // Waits for the answers to a request, shows what happened and checks that they are the expected ones.
    void expectAnswers(Request& request, const std::vector<receiver::Answer>& expected);
    // Checks that the request's steps contain these texts in this order.
    void expectSteps(const Request& request, const std::vector<std::string>& texts);
    // Waits until the request is dropped, shows that, and checks that it took the answer timeout and got no answer.
    std::chrono::microseconds expectDropped(Request& request);
    void showSteps(Request& request) const;
    void statistics();
    void addRow(const Request& request, const std::string& result, std::chrono::microseconds time);
    // The time from the request to its step with this text.
    std::chrono::microseconds timeOf(const Request& request, const std::string& text);

    receiver::ReceiverKit& kit_;
    const Screen& screen_;
    std::string film_;
    std::string number_; // of the current step
    std::vector<Row> rows_;
};

} // namespace demo
