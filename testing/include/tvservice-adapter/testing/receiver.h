// A receiver inside a test: the real adapter, resource manager and proxies, in the test's own process, with a TV and an
// MM service that do what the test tells them. There are no sockets and no other processes, and time is simulated: a
// test of a limit of five seconds takes less than a millisecond.
//
//     tvtest::Receiver receiver;
//     receiver.tv().next(tvtest::staysSilent());
//     receiver.start(frameCreateApplicationArray); // the application's
//     receiver.advance(6s);
//     EXPECT_THAT(receiver.dropped(), ElementsAre(Dropped("0:0"))); // matchers.h
//
// When things happen: the manager's worker and the services run only while the test calls advance() or waitFor(), or
// looks at what happened (requests(), answers(), ...); each of them first lets everything happen that is due. So a
// test sees the same every time. Notifications arrive on the test's thread, one at a time and in order.
//
// Processes: a process has one resource manager, so it has one Receiver in its life. The constructor throws
// std::logic_error when there was another one before. ctest's gtest_discover_tests gives each test its own process, and
// so does the main of main.h.
//
// Threads: use a Receiver on the thread that created it, or inside notifications and events. Threads of the application
// may call the adapter at any time. They run in real time: wait for them before you look at what they did.
//
// A program links tvservice-adapter::testing instead of tvservice-adapter::client; with both, there would be two
// managers, so the constructor throws std::logic_error. It compiles the application's sources: those of a library of
// its own would use Zappers in real time.
//
// Not simulated: the framework's thread (events of members, postEvent, do not run), connections to other services, and
// what the reference services do besides answering play and stop requests; see notify().
#pragma once

#include <tvservice-adapter/model-tvservice-adapter.h>
#include <tvservice-adapter/zapper.h>
#include <tvservice/interfaces.h>
#include <tvservice/results.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace tvtest {

using Time = std::chrono::nanoseconds; // simulated, since the Receiver was created

// ---- what happened; a terminal is "TYPE:ID" ----

// One terminal's entry in a list of play or stop requests that a service received.
struct Request {
    std::string service; // "TV" or "MM"
    std::string terminal;
    std::string uri; // tvservice::stopUri for a stop
    std::string reqId;
    Time at;
    tvservice::TvServiceReq_t record{}; // all of it; the MM service gets no strParam1, strParam4 and intParam4
};

// One terminal's entry in an answer (tvServiceInfo) that the adapter's clients received.
struct Answer {
    std::string terminal;
    std::string uri;
    std::int32_t result;
    std::string reqId;
    Time at;
};

// A terminal whose request the manager dropped, because its answer did not arrive in time.
struct DroppedRequest {
    std::string terminal;
    std::string reqId;
    Time at;
};

// A request of another kind that the TV service received, or a notification of another kind that clients received.
struct Message {
    std::string name;      // "TvServiceAudioReq"; docs/messages.md lists all
    std::string arguments; // as JSON: {"request":{"terminal":{"type":0,"id":0},"intParam1":1,"intParam2":0}}
    Time at;
};

// As text for people; googletest prints them so.
GENRPC_EXPORT std::ostream& operator<<(std::ostream& out, const Request& request);
GENRPC_EXPORT std::ostream& operator<<(std::ostream& out, const Answer& answer);
GENRPC_EXPORT std::ostream& operator<<(std::ostream& out, const DroppedRequest& dropped);
GENRPC_EXPORT std::ostream& operator<<(std::ostream& out, const Message& message);

// ---- what services do ----

// What a service does with one list of play or stop requests. By default it answers at once, with result 0 for each
// terminal.
struct Reaction {
    std::int32_t result = 0;
    Time delay{};
    int times = 1; // how often it sends the answer

    Reaction after(Time time) const { return {result, time, times}; }
    Reaction twice() const { return {result, delay, 2}; }
};

inline Reaction answers() { return {}; }
inline Reaction refuses(std::int32_t result) { return {result}; } // see tvservice/results.h
inline Reaction staysSilent() { return {0, {}, 0}; }

class Core;

// A scripted service. Stops are lists of requests, too: before a play, the adapter asks the services that may be
// showing something on the terminal to stop.
class GENRPC_EXPORT Service {
public:
    // For one list each, in the order of the calls.
    void next(Reaction reaction);
    // For lists with a request for this uri, when next() has none left for them.
    void when(const std::string& uri, Reaction reaction);
    // For all others.
    void always(Reaction reaction);

    // The service's process ends: answers that are not sent yet are lost, and so are all requests until it comes back.
    void die();
    void comeBack();

    // What it received, oldest first.
    std::vector<Request> requests();

    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

private:
    friend class Core;
    struct State;
    Service(Core& core, State& state) : core_(core), state_(state) {}

    Core& core_;
    State& state_;
};

// ---- the receiver ----

class GENRPC_EXPORT Receiver {
public:
    // Starts the proxies and the adapter. The run log is in a private folder, which is removed when the process ends.
    // zappers: how Zappers measure time in the calling library; leave it as it is. Throws std::logic_error (see above),
    // or std::runtime_error when a part does not start.
    explicit Receiver(tvservice::ZapperTime& zappers = tvservice::zapperTime);
    ~Receiver(); // stops the applications

    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    // Sets up and starts the members of an application, as frame-host does. Returns 0, or the first negative result
    // after undoing the start-up; -22 without an array. Several applications are started one after the other.
    int start(void** (*createApplicationArray)());
    // Stops and deletes the members of all applications, in reverse order.
    void stopApplications();

    // For requests and clients of the test's own.
    tvservice::ModelTvServiceAdapter& adapter();
    // Requests by the test: one bundle for one terminal. Return the adapter's result. Throw std::invalid_argument for a
    // terminal that is not "TYPE:ID".
    int play(const std::string& terminal, const std::string& uri, const std::string& reqId = {});
    int stop(const std::string& terminal, const std::string& reqId = {});

    Service& tv();
    Service& mm();
    // The TV service sends a notification of any kind:
    //     receiver.notify(&tvservice::ClientInterface::tvServiceAudioInfo, info);
    template <class Method, class... Arguments> void notify(Method method, const Arguments&... arguments) {
        frame::MsgIds ids;
        (sender().*method)(ids, frame::TransportInfo{}, arguments...);
    }

    // Runs a shell command of the adapter or of an application and returns what it printed. Throws
    // std::invalid_argument for an unknown command. arguments: the words after it; they are not checked.
    std::string command(const std::string& name, const std::vector<std::string>& arguments = {});

    Time now() const;
    // Lets time pass, and everything happen that becomes due.
    void advance(Time time);
    // Lets time pass until the condition holds, at most until the limit. Returns whether it holds.
    bool waitFor(const std::function<bool()>& condition, Time limit = std::chrono::minutes(1));
    // Calls action when this time has passed.
    void after(Time time, std::function<void()> action);

    // All of these: oldest first.
    std::vector<Request> requests();       // those of both services, in the order in which they were sent
    std::vector<Message> calls();          // all other requests that the TV service received
    std::vector<Answer> answers();         // what every client of the adapter received as tvServiceInfo
    std::vector<Message> notifications();  // all other notifications that every client received
    std::vector<DroppedRequest> dropped(); // by the manager
    // Forgets all of them.
    void forget();

private:
    tvservice::ClientInterface& sender(); // sends a notification of the TV service when it is called

    Core& core_; // lives as long as the process, like the manager
};

} // namespace tvtest
