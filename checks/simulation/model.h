// The reference: what the resource manager is to do, in the plainest form, written from its description and sharing
// nothing with it but the records.
#pragma once

#include "stage.h"

#include <deque>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace simulation {

class Model final : public Stage {
public:
    enum Phase { StopsUnsent, StopsSent, StartsUnsent, StartsSent };
    struct Bundle {
        std::string id;
        Requests mmStops, tvStops, mmStarts, tvStarts;
        Phase phase = StartsUnsent;
        int awaited = 0; // of the sent lists: 1 for the MM service and 2 for the TV service, less what has answered
        Nanoseconds sentAt{};
        Infos answers;

        bool sent() const { return phase == StopsSent || phase == StartsSent; }
        const Requests& forMm() const { return phase <= StopsSent ? mmStops : mmStarts; }
        const Requests& forTv() const { return phase <= StopsSent ? tvStops : tvStarts; }

        // For the situations only.
        std::uint32_t firstFrom = 0, answered = 0;
        Nanoseconds readyAt{};
    };
    using Queue = std::deque<std::shared_ptr<Bundle>>;

    explicit Model(const Schedule& schedule) : nextNumber_(schedule.firstId), level_(schedule.level) {}

    static constexpr Nanoseconds limit = std::chrono::seconds(5);
    const Queue& queue() const { return queue_; }
    const std::set<std::string>& ended() const { return ended_; }
    const std::set<std::string>& dropped() const { return dropped_; }
    // Of requests for the MM service, in the order in which they came: what it is believed to play.
    const std::vector<tvservice::TvServiceTerminal_t>& playing() const { return playing_; }
    // The queue in a line for each bundle: what is still to do and who is awaited.
    std::string queueText() const;

private:
    int request(const Event& event) override;
    int answer(const Event& event) override;
    void work() override;

    void sort(const tvservice::TvServiceReq_t& request, Bundle& bundle);
    void believe(const Bundle& bundle);
    void hitRequests(const Bundle& bundle, bool numbered);
    void hitSending(const Bundle& bundle);
    void hitAnswer(const Bundle& bundle, std::uint32_t from);
    void hitUnmatched(const std::string& id);
    std::string idFor(const Requests& requests, bool& made);
    bool nothingToSend() const { return queue_.empty() || queue_.front()->sent(); }
    void send();
    void supervise();
    void record(const Bundle& dropped);
    int advance(const Event& event, Infos& outgoing);
    void report(const Event& event, const Infos& infos);
    void end(Infos& outgoing);
    void mark(Infos& infos);

    bool logged(unsigned severity) const { return severity <= level_; }
    // A line of the manager; function: where it comes from, nullptr when the line does not tell.
    template <typename... Parts> void line(unsigned severity, const char* function, const Parts&... parts);

    Queue queue_;
    std::vector<tvservice::TvServiceTerminal_t> playing_;
    std::uint32_t nextNumber_;
    const unsigned level_;

    // For the situations only.
    enum class Sending { None, Mm, Tv };
    Sending sending_ = Sending::None;
    bool reporting_ = false;
    bool justDropped_ = false;
    std::set<std::string> ended_, dropped_, numbers_;
    std::vector<tvservice::TvServiceTerminal_t> forgotten_; // whose play a stop made forgotten
    // Instants of the last answer to a bundle, of the last check that kept one and of the last that dropped one.
    Nanoseconds answeredAt_{-1}, keptAt_{-1}, droppedAt_{-1};
    Nanoseconds answeredAfterLimit_{}, droppedAfterLimit_{};
    std::string lastDropped_;
};

} // namespace simulation
