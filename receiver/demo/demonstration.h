// Shows and checks, step by step, a running receiver's play path and the other requests and notifications of its TV
// service.
#pragma once

#include "broadcasts.h"
#include "screen.h"
#include "sheet.h"

#include <cstddef>
#include <cstdint>
#include <kit/receiver-kit.h>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace demo {

inline constexpr const char* live = "dvb://1.1.1"; // the channel of most steps
std::string named(int result);                     // "locked (6)"

class Demonstration {
public:
    // broadcasts: what the receiver shows; nullptr: its media engine is simulated, and there are no pictures.
    Demonstration(receiver::ReceiverKit& kit, const Screen& screen, Broadcasts* broadcasts);

    // Throws receiver::ReceiverError, which names the step, when something is not as expected.
    void run();
    const std::vector<Step>& steps() const { return steps_; } // what happened

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
    void teletext();
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
    // Runs a command, waits for the expected notifications, shows all up to the last of them, and adds an outcome with
    // the result text.
    void expectNotifications(const std::vector<std::string>& command, const std::vector<Notification>& expected,
                             const std::string& result, receiver::Part part = receiver::Part::frameHost);

    void chooseTeletext(int number); // on 0:0; 0: none

    Request ask(const std::string& terminals, const std::string& uri);
    // Waits for the answers to a request, shows what happened and checks that they are the expected ones.
    void expectAnswers(Request& request, const std::vector<receiver::Answer>& expected);
    // Checks that the request's steps contain these texts in this order.
    void expectSteps(const Request& request, const std::vector<std::string>& texts);
    // Waits until the request is dropped, shows that, and checks that it took the answer timeout and got no answer.
    std::chrono::microseconds expectDropped(Request& request);
    void showSteps(Request& request) const;
    void statistics();
    void addOutcome(const std::string& request, const std::string& result, const std::string& time);
    void addOutcome(const Request& request, const std::string& result, std::chrono::microseconds time);
    void good(const std::string& remark);
    // The time from the request to its step with this text.
    std::chrono::microseconds timeOf(const Request& request, const std::string& text);

    // What a terminal is to show.
    struct Shown {
        std::string uri; // empty: nothing
        std::size_t sound = 0;
        bool isCovered = false; // by teletext
        bool hasSubtitles = false;
    };
    // How a terminal looks and sounds then.
    struct Appearance {
        std::string name, size;
        int pitch;
    };
    std::optional<Appearance> appearanceOf(const Shown& shown) const; // nothing: dark
    // Takes the terminals' pictures and checks that each shows and sounds as its program does.
    void look();
    Picture look(const std::string& terminal, const Shown& shown);
    std::string pictureOf(receiver::Part part, const std::string& terminal); // empty: the service shows none there

    receiver::ReceiverKit& kit_;
    const Screen& screen_;
    static constexpr const char* input = "rec://plain/hdmi?id=0";

    Broadcasts* const broadcasts_;
    std::string film_;
    std::map<std::string, Shown> shown_; // on the terminals used so far
    std::vector<Step> steps_;            // the last is the current one
};

} // namespace demo
