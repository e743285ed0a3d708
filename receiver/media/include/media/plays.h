// Executes play and stop requests with an engine, and answers when all sources of a list are shown or have failed.
#pragma once

#include <tvservice-adapter/service/answer-line.h>
#include <tvservice-adapter/service/answers.h>
#include <tvservice-adapter/service/log.h>
#include <tvservice/core-records.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <media/engine.h>
#include <memory>
#include <string>
#include <thread-safety/mutex.h>
#include <utility>
#include <vector>

namespace media {

// Message: the service's answer.
template <class Message> class Plays {
public:
    using Infos = typename services::AnswerLine<Message>::Infos;
    // What is sent once the answers are out, and the approximate memory that it holds.
    struct Afterwards {
        services::DelayLine::Work work;
        std::size_t bytes = 0;
    };

    Plays(services::TerminalTable& table, services::FaultSwitches& faults, const services::Sender& sender,
          Engine& engine)
        : table_(table), sender_(sender), engine_(engine), answers_(sender, faults) {}
    ~Plays() { engine_.shutDown(); }
    Plays(const Plays&) = delete;
    Plays& operator=(const Plays&) = delete;

    // How a service takes a list of requests; all are called in this order, and afterwards possibly on a thread of the
    // engine.
    struct Rules {
        // result::done, or why a terminal cannot show a URI.
        std::function<std::int32_t(const Terminal&, const std::string& uri)> check;
        // What a URI names that was checked.
        std::function<Source(const std::string& uri)> source;
        // The sources with result::done are about to be opened.
        std::function<void(const Infos&)> begun = [](const Infos&) {};
        // Of a source that is shown: its tracks or its signal have changed.
        std::function<void(const Terminal&)> tracksChanged = [](const Terminal&) {};
        std::function<void(const Terminal&)> signalChanged = [](const Terminal&) {};
        // The answers are final.
        std::function<Afterwards(const Infos&)> afterwards = [](const Infos&) { return Afterwards{}; };
    };

    // On the receiving thread. The functions must not outlive the service.
    template <class Request> void execute(const std::vector<Request>& requests, std::uint64_t client, Rules rules) {
        services::Evictions evictions([this] { return sender_.clients(); },
                                      [this](const Terminal& terminal) { engine_.close(terminal); });
        const auto pending = std::make_shared<Pending>();
        pending->client = client;
        pending->afterwards = std::move(rules.afterwards);
        pending->infos =
            services::execute<typename Infos::value_type>(requests, client, table_, rules.check, &evictions);
        rules.begun(pending->infos);
        // A copy: from the first open on, the answers change on the engine's threads.
        const Infos infos = pending->infos;
        for (std::size_t i = 0; i < infos.size(); ++i) {
            const Terminal terminal{infos[i].terminal.type, infos[i].terminal.id};
            if (infos[i].result != result::done) continue;
            if (infos[i].uri == tvservice::stopUri) {
                engine_.close(terminal);
                continue;
            }
            addOne(*pending);
            const std::uint64_t number = table_.numberOf(terminal);
            const auto report = [this, number](std::function<void(const Terminal&)> change) {
                return [this, number, change = std::move(change)] {
                    if (const auto at = table_.terminalOf(number)) change(*at);
                };
            };
            engine_.open(
                terminal, rules.source(infos[i].uri),
                {.opened = [this, pending, i, number](const Outcome& outcome) { take(*pending, i, number, outcome); },
                 .over = [this, number](const Outcome& outcome) { end(number, outcome); },
                 .tracks = report(rules.tracksChanged),
                 .signal = report(rules.signalChanged)});
        }
        finishOne(*pending);
    }

    services::TableCount delayed() const { return answers_.delayed(); } // from any thread

private:
    struct Pending {
        std::uint64_t client = 0;
        std::function<Afterwards(const Infos&)> afterwards;
        Infos infos;
        std::size_t missing = 1; // results; 1 for the list, until all its sources are being opened
    };

    void addOne(Pending& pending) {
        const thread_safety::LockGuard lock(mutex_);
        ++pending.missing;
    }

    void take(Pending& pending, std::size_t index, std::uint64_t number, const Outcome& outcome) {
        if (outcome.result != result::done) {
            const auto& info = pending.infos[index];
            const Terminal terminal{info.terminal.type, info.terminal.id};
            log(terminal, host::printable(info.uri), outcome);
            if (!outcome.reason.empty()) table_.fail({info.reqId, terminal, outcome.result, outcome.reason});
            // Whatever the terminal shows instead stays.
            if (outcome.result != result::superseded) (void)table_.stop(number);
            const thread_safety::LockGuard lock(mutex_);
            pending.infos[index].result = outcome.result;
        }
        finishOne(pending);
    }

    static void log(const Terminal& terminal, const std::string& what, const Outcome& outcome) {
        const bool isNormal = outcome.result == result::done || outcome.result == result::superseded;
        SERVICE_LOG(isNormal ? vdlDebugProgress : vdlDebugWarning, "terminal %d:%d: %s: %s%s%s\n", terminal.type,
                    terminal.id, what.c_str(), tvservice::nameOfResult(outcome.result),
                    outcome.reason.empty() ? "" : ": ", host::printable(outcome.reason).c_str());
    }

    // A terminal went dark without a request: all clients are told, in an answer without request id.
    void end(std::uint64_t number, const Outcome& outcome) {
        const auto terminal = table_.stop(number);
        if (!terminal) return; // it shows something else by now
        log(*terminal, "over", outcome);
        Infos infos(1);
        infos[0].terminal.type = terminal->type;
        infos[0].terminal.id = terminal->id;
        infos[0].result = outcome.result;
        infos[0].uri = tvservice::stopUri;
        sender_.template toAll<Message>(infos);
    }

    void finishOne(Pending& pending) {
        {
            const thread_safety::LockGuard lock(mutex_);
            if (--pending.missing > 0) return;
        }
        // Without the mutex: it may wait for the engine, whose threads may wait for the mutex.
        Afterwards afterwards = pending.afterwards(pending.infos);
        const thread_safety::LockGuard lock(mutex_);
        answers_.schedule(std::move(pending.infos), pending.client, std::move(afterwards.work), afterwards.bytes);
    }

    services::TerminalTable& table_;
    const services::Sender& sender_;
    Engine& engine_;
    thread_safety::Mutex mutex_;
    services::AnswerLine<Message> answers_; // calls are made with the mutex, so from one thread at a time
};

} // namespace media
