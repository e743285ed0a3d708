// Sends the answers to play and stop requests, subject to the fault switches.
#pragma once

#include <tvservice-adapter/service/answers.h>
#include <tvservice-adapter/service/delay-line.h>
#include <tvservice-adapter/service/log.h>
#include <tvservice-adapter/service/sender.h>

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace services {

// Message: the service's answer.
template <class Message> class AnswerLine {
public:
    using Infos = std::tuple_element_t<0, typename Message::Body::Arguments>;

    AnswerLine(const Sender& sender, FaultSwitches& faults) : sender_(sender), faults_(faults) {}

    // Sends the answers, then calls then; both after the delay that the switches set. "mute" drops only the answers.
    // thenBytes: the approximate memory that then holds. When the delay line is full (DelayLine::schedule), both are
    // lost. From one thread at a time.
    void schedule(Infos infos, std::uint64_t client, DelayLine::Work then = {}, std::size_t thenBytes = 0) {
        const Faults faults = faults_.get();
        falsify(infos, faults);
        std::size_t bytes = thenBytes;
        for (const auto& info : infos)
            bytes += sizeof info + info.uri.size() + info.uuid.size() + info.uuidAncestor.size() + info.reqId.size();
        line_.schedule(
            [this, infos = std::move(infos), client, then = std::move(then), faults] {
                if (!faults.mute) send(infos, client);
                if (!faults.mute && faults.duplicate) send(infos, client);
                if (then) then();
            },
            faults.delay, bytes);
    }

    TableCount delayed() const { return line_.count(); } // from any thread

private:
    void send(const Infos& infos, std::uint64_t client) {
        sender_.to<Message>(client, infos);
        if (!faults_.countAnswer()) return;
        SERVICE_LOG(vdlDebugWarning, "exiting with a failure because of the fault switch exit-after\n");
        // Looks like a crash to clients: nothing is closed or unlinked properly.
        _exit(1);
    }

    const Sender& sender_;
    FaultSwitches& faults_;
    DelayLine line_;
};

} // namespace services
