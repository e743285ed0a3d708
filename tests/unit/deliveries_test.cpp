// The two events of a message become one; events of several processes come in the order of their times.
#include "support/recorded-events.h"

#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <recording/deliveries.h>
#include <recording/follow.h>
#include <recording/merged-events.h>
#include <string>
#include <vector>

using recording::Event;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::int64_t ms = 1'000'000;
using Process = std::shared_ptr<const recording::Origin>;

Event messageOf(const Process& process, bool isSent, std::int64_t time, const std::string& data,
                std::uint64_t connection = 1) {
    Event event = support::eventOf(process, host::EventKind::message, time, "tvservice", data);
    event.recorded.flags = isSent ? host::EventFlags::sent : 0;
    event.recorded.number = connection;
    return event;
}

class Deliveries : public testing::Test {
protected:
    void send(const Process& process, std::int64_t time, const std::string& data, std::uint64_t connection = 1) {
        deliveries.add(messageOf(process, true, time, data, connection));
    }
    void receive(const Process& process, std::int64_t time, const std::string& data, std::uint64_t connection = 1) {
        deliveries.add(messageOf(process, false, time, data, connection));
    }
    // What is ready, such as "client sent a, service after 2".
    std::vector<std::string> shown() {
        std::vector<std::string> texts;
        while (const auto next = deliveries.take()) {
            const auto& recorded = next->event.recorded;
            const bool isSent = (recorded.flags & host::EventFlags::sent) != 0;
            const bool isMessage = recorded.kind == host::EventKind::message;
            std::string text = next->event.origin->process +
                               (!isMessage ? " line "
                                : isSent   ? " sent "
                                           : " got ") +
                               recorded.data;
            for (const auto& receipt : next->receipts)
                text += ", " + receipt.receiver->process + " after " + std::to_string(receipt.latency / ms);
            if (next->latency) text += " late " + std::to_string(*next->latency / ms);
            texts.push_back(text);
        }
        return texts;
    }
    std::vector<std::string> allShown() {
        deliveries.end();
        return shown();
    }

    const Process client = support::processNamed("client", 1), service = support::processNamed("service", 2),
                  other = support::processNamed("other", 3);
    recording::Deliveries deliveries;
};

TEST_F(Deliveries, ShowAMessageOnceWithItsReceiver) {
    send(client, 1 * ms, "a");
    EXPECT_THAT(shown(), IsEmpty()) << "its arrival may follow";
    receive(service, 3 * ms, "a");
    EXPECT_THAT(shown(), ElementsAre("client sent a, service after 2"));
    EXPECT_THAT(allShown(), IsEmpty());
}

TEST_F(Deliveries, KeepLaterEventsBehindAMessageThatWaits) {
    send(client, 1 * ms, "a");
    deliveries.add(support::lineOf(client, 2 * ms, "text"));
    EXPECT_THAT(shown(), IsEmpty());
    receive(service, 3 * ms, "a");
    EXPECT_THAT(shown(), ElementsAre("client sent a, service after 2", "client line text"));
}

TEST_F(Deliveries, ShowAMessageToAllWithEachReceiver) {
    send(service, 1 * ms, "a", 0);
    receive(client, 2 * ms, "a");
    EXPECT_THAT(shown(), IsEmpty()) << "more may receive it";
    receive(other, 3 * ms, "a");
    EXPECT_THAT(allShown(), ElementsAre("service sent a, client after 1, other after 2"));
}

TEST_F(Deliveries, DistinguishEqualMessages) {
    for (const int time : {1, 2}) send(service, time * ms, "a", 0);
    for (const int time : {11, 12}) receive(client, time * ms, "a");
    for (const int time : {21, 22}) receive(other, time * ms, "a");
    EXPECT_THAT(allShown(), ElementsAre("service sent a, client after 10, other after 20",
                                        "service sent a, client after 10, other after 20"));
}

TEST_F(Deliveries, DoNotWaitForeverForAReceiver) {
    send(client, 1 * ms, "a");
    deliveries.advance({"this boot", 200 * ms});
    EXPECT_THAT(shown(), IsEmpty());
    deliveries.advance({"this boot", 202 * ms});
    EXPECT_THAT(shown(), ElementsAre("client sent a"));
    receive(service, 500 * ms, "a");
    EXPECT_THAT(shown(), ElementsAre("service got a late 499"));
}

TEST_F(Deliveries, ShowAMessageWhoseSenderIsNotRecorded) {
    receive(service, 3 * ms, "a");
    EXPECT_THAT(shown(), ElementsAre("service got a"));
}

TEST_F(Deliveries, DoNotJoinWhatCannotBeTheSameMessage) {
    send(client, 5 * ms, "a");
    receive(service, 4 * ms, "a"); // before it was sent
    receive(client, 6 * ms, "a");  // by its sender
    receive(service, 6 * ms, "b"); // another one
    EXPECT_THAT(allShown(), ElementsAre("client sent a", "service got a", "client got a", "service got b"));
}

TEST_F(Deliveries, DoNotJoinMessagesOfDifferentRunsOfTheSystem) {
    send(support::processNamed("client", 1, "earlier boot"), 1 * ms, "a");
    receive(service, 2 * ms, "a");
    EXPECT_THAT(shown(), ElementsAre("client sent a", "service got a"));
}

TEST_F(Deliveries, JoinManyEqualMessagesOneByOne) {
    for (int i = 0; i < 1000; ++i) {
        send(client, i * ms, "a");
        receive(service, i * ms + 1, "a");
    }
    const auto all = allShown();
    EXPECT_EQ(all.size(), 1000U);
    EXPECT_THAT(all, testing::Each("client sent a, service after 0"));
}

TEST_F(Deliveries, ForgetMessagesThatNobodyReceived) {
    send(client, 0, "a");
    deliveries.add(support::lineOf(client, 11'000 * ms, "text"));
    receive(service, 11'001 * ms, "a");
    EXPECT_THAT(allShown(), ElementsAre("client sent a", "client line text", "service got a"));
}

TEST_F(Deliveries, HoldABoundedNumberOfEvents) {
    for (std::size_t i = 0; i < 2 * recording::Deliveries::mostWaiting; ++i) send(client, 1, std::to_string(i));
    EXPECT_EQ(shown().size(), recording::Deliveries::mostWaiting + 1);
}

// ---- the order of events ----

class MergedEvents : public testing::Test {
protected:
    using Events = std::shared_ptr<std::deque<Event>>;
    Events source(std::initializer_list<Event> list) {
        auto given = std::make_shared<std::deque<Event>>(list);
        merged.add(std::make_unique<support::GivenEvents>(given));
        return given;
    }
    std::vector<std::string> texts(const std::optional<recording::Moment>& until = std::nullopt) {
        std::vector<std::string> all;
        for (Event event; merged.next(event, until);) all.push_back(event.recorded.data);
        return all;
    }

    const Process a = support::processNamed("a"), b = support::processNamed("b");
    recording::MergedEvents merged;
};

TEST_F(MergedEvents, AreInTheOrderOfTheirTimes) {
    source({support::lineOf(a, 1, "1"), support::lineOf(a, 4, "4")});
    source({support::lineOf(b, 2, "2"), support::lineOf(b, 3, "3")});
    EXPECT_THAT(texts(), ElementsAre("1", "2", "3", "4"));
}

TEST_F(MergedEvents, AreHeldBackWhileEarlierOnesMayFollow) {
    const auto first = source({support::lineOf(a, 5, "5")});
    const auto second = source({});
    EXPECT_THAT(texts(recording::Moment{"this boot", 4}), IsEmpty());
    second->push_back(support::lineOf(b, 3, "3"));
    EXPECT_THAT(texts(recording::Moment{"this boot", 5}), ElementsAre("3", "5"));
}

TEST_F(MergedEvents, OfAnEarlierRunOfTheSystemAreOrderedByDate) {
    Event old = support::lineOf(support::processNamed("old", 1, "earlier boot"), 1000, "old");
    old.recorded.date = support::firstDate - 1;
    source({support::lineOf(a, 1, "new")});
    source({old});
    EXPECT_THAT(texts(recording::Moment{"this boot", 5}), ElementsAre("old", "new"));
}

class OverSource final : public recording::EventSource {
public:
    bool next(Event&) override { return false; }
    bool isOver() const override { return true; }
};

TEST_F(MergedEvents, ForgetSourcesThatAreOver) {
    merged.add(std::make_unique<OverSource>());
    source({});
    EXPECT_EQ(merged.sources(), 2U);
    EXPECT_THAT(texts(), IsEmpty());
    EXPECT_EQ(merged.sources(), 1U);
}

// ---- following ----

// Collects what it is given; the test decides when it has enough.
class Collector final : public recording::Follower {
public:
    bool take(Event event) override {
        texts.push_back(event.recorded.data);
        return texts.size() < most;
    }
    bool rest(const recording::Moment& now) override {
        rests.push_back(now.time);
        return true;
    }
    std::vector<std::string> texts;
    std::vector<std::int64_t> rests;
    std::size_t most = 1000;
};

class Following : public testing::Test {
protected:
    // A source that appears before the given round.
    void appear(std::size_t round, std::initializer_list<Event> list) {
        rounds_.resize(std::max(rounds_.size(), round + 1));
        auto given = std::make_shared<std::deque<Event>>(list);
        rounds_[round].push_back(std::make_unique<support::GivenEvents>(given));
    }
    // A round per 100 ms.
    void follow() {
        std::size_t round = 0;
        const auto appeared = [&] {
            return round < rounds_.size() ? std::move(rounds_[round])
                                          : std::vector<std::unique_ptr<recording::EventSource>>();
        };
        const auto now = [&] { return recording::Moment{"this boot", static_cast<std::int64_t>(round) * 100 * ms}; };
        recording::follow({appeared, now, [&] { return ++round < 4; }}, collector_);
    }

    std::vector<std::vector<std::unique_ptr<recording::EventSource>>> rounds_;
    Collector collector_;
    const Process process_ = support::processNamed("a");
};

TEST_F(Following, TakesEventsOfSourcesThatAppearLater) {
    appear(0, {support::lineOf(process_, 1, "old"), support::lineOf(process_, 250 * ms, "later")});
    appear(2, {support::lineOf(support::processNamed("b"), 150 * ms, "new")});
    follow();
    EXPECT_THAT(collector_.texts, ElementsAre("old", "new", "later"));
    EXPECT_EQ(collector_.rests.size(), 4U);
}

TEST_F(Following, EndsWhenTheFollowerHasEnough) {
    collector_.most = 1;
    appear(1, {support::lineOf(process_, 1, "1"), support::lineOf(process_, 2, "2")});
    follow();
    EXPECT_THAT(collector_.texts, ElementsAre("1"));
}

} // namespace
