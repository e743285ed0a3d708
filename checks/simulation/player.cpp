#include "player.h"

#include "generator.h"
#include "model.h"
#include "subject.h"

#include <algorithm>

namespace simulation {
namespace {

class Player {
public:
    explicit Player(const Schedule& schedule) : model_(schedule), subject_(schedule) {}

    const Model& model() const { return model_; }

    std::optional<Difference> play(std::size_t index, const Event& event) {
        model_.trace.clear();
        subject_.trace.clear();
        model_.play(event);
        subject_.play(event);
        if (model_.trace == subject_.trace && model_.now == subject_.now) return std::nullopt;
        return Difference{index, model_.trace, subject_.trace};
    }
    std::optional<Difference> compareQueues(std::size_t events) {
        std::string expected = model_.queueText(), actual = subject_.queueText();
        if (expected == actual) return std::nullopt;
        return Difference{events - 1, "queue at the end:\n" + expected, "queue at the end:\n" + actual};
    }

private:
    Model model_;
    Subject subject_;
};

std::optional<Difference> playSeed(std::uint64_t seed, Schedule& schedule,
                                   std::vector<tvservice::TvServiceTerminal_t>& playing) {
    Generator generator(seed);
    schedule = generator.begin(seed);
    Player player(schedule);
    std::optional<Difference> difference;
    for (std::size_t left = generator.length(); left > 0 && !difference; --left) {
        schedule.events.push_back(generator.next(player.model()));
        difference = player.play(schedule.events.size() - 1, schedule.events.back());
    }
    playing = player.model().playing();
    return difference ? difference : player.compareQueues(schedule.events.size());
}

// Leaves out every event that is not needed, here and inside.
void shrink(const Schedule& schedule, std::vector<Event>& events) {
    for (std::size_t i = events.size(); i-- > 0;) {
        const Event event = events[i];
        const auto place = [&] { return events.begin() + static_cast<std::ptrdiff_t>(i); };
        events.erase(place());
        if (play(schedule)) continue;
        events.insert(place(), event);
        for (std::size_t j = events[i].inside.size(); j-- > 0;) {
            const Event::Inside inside = events[i].inside[j];
            const auto spot = [&] { return events[i].inside.begin() + static_cast<std::ptrdiff_t>(j); };
            events[i].inside.erase(spot());
            if (play(schedule)) continue;
            events[i].inside.insert(spot(), inside);
            shrink(schedule, events[i].inside[j].events);
        }
    }
}

void forgetAll() {
    std::vector<tvservice::TvServiceTerminal_t> all;
    for (const auto& [type, id] : terminals) all.push_back({type, id});
    Subject::forget(all);
}

} // namespace

std::optional<Difference> playSeed(std::uint64_t seed, Schedule& schedule) {
    // The reference knows what is left to forget: nothing, after most schedules.
    std::vector<tvservice::TvServiceTerminal_t> playing;
    auto difference = playSeed(seed, schedule, playing);
    Subject::forget(playing);
    return difference;
}

std::optional<Difference> play(const Schedule& schedule) {
    forgetAll();
    Player player(schedule);
    for (std::size_t i = 0; i < schedule.events.size(); ++i)
        if (auto difference = player.play(i, schedule.events[i])) return difference;
    return schedule.events.empty() ? std::nullopt : player.compareQueues(schedule.events.size());
}

void shrink(Schedule& schedule) {
    const auto difference = play(schedule);
    if (!difference) return; // needed what an earlier schedule left behind
    schedule.events.resize(difference->event + 1);
    for (std::size_t before = 0; before != schedule.events.size();) {
        before = schedule.events.size();
        shrink(schedule, schedule.events);
    }
}

std::string describe(const Schedule& schedule, const Difference& difference) {
    // The line in which they go apart is marked.
    std::size_t common = 0;
    while (common < std::min(difference.expected.size(), difference.actual.size()) &&
           difference.expected[common] == difference.actual[common])
        ++common;
    const auto marked = [&](std::string text) {
        const std::size_t feed = common == 0 ? std::string::npos : text.rfind('\n', common - 1);
        return text.insert(feed == std::string::npos ? 0 : feed + 1, ">>> ");
    };
    return describe(schedule) + "After event " + std::to_string(difference.event + 1) + " expected:\n" +
           marked(difference.expected) + "but was:\n" + marked(difference.actual);
}

} // namespace simulation
