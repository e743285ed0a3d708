// The rings of processes as sources of events: those that are there, those that appear, those that cannot be read.
#include "recorder/ring.h"
#include "support/recorded-events.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <recording/merged-events.h>
#include <recording/rings.h>
#include <string>
#include <vector>

using host::recorder::Ring;
using recording::Event;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class Rings : public testing::Test {
protected:
    std::unique_ptr<Ring> ring(const std::string& name) const {
        return std::make_unique<Ring>(folder_ / (name + ".ring"), Ring::leastBytes, "1.2");
    }
    static void add(Ring& ring, const std::string& text) { ring.add(host::EventKind::line, 0, 0, "module", text); }
    // The texts of all rings so far, without those that were returned.
    std::vector<std::string> texts(recording::Rings& rings) {
        for (auto& source : rings.appeared()) merged_.add(std::move(source));
        std::vector<std::string> all;
        for (Event event; merged_.next(event);) all.push_back(event.recorded.data);
        return all;
    }
    recording::Rings ringsFrom(recording::Rings::Begin begin, unsigned attempts = 1) const {
        return {folder_ / "", begin, attempts};
    }

    support::RecordingFolder folder_;
    recording::MergedEvents merged_;
};

TEST_F(Rings, OfAllProcessesAreReadFromTheOldestEvent) {
    const auto a = ring("a"), b = ring("b");
    add(*a, "1");
    add(*b, "2");
    auto rings = ringsFrom(recording::Rings::Begin::oldest);
    EXPECT_THAT(texts(rings), ElementsAre("1", "2"));
    add(*a, "3");
    EXPECT_THAT(texts(rings), ElementsAre("3"));
}

TEST_F(Rings, SkipWhatHappenedBefore) {
    const auto a = ring("a");
    add(*a, "before");
    auto rings = ringsFrom(recording::Rings::Begin::newest);
    EXPECT_THAT(texts(rings), IsEmpty());
    add(*a, "after");
    const auto late = ring("late");
    add(*late, "from the beginning");
    EXPECT_THAT(texts(rings), ElementsAre("after", "from the beginning"));
}

TEST_F(Rings, FollowAProcessThatStartsAgain) {
    auto first = ring("a");
    auto rings = ringsFrom(recording::Rings::Begin::oldest);
    EXPECT_THAT(texts(rings), IsEmpty());
    std::filesystem::rename(folder_ / "a.ring", folder_ / "a.ring.1");
    add(*first, "last words");
    const auto second = ring("a");
    add(*second, "first words");
    EXPECT_THAT(texts(rings), ElementsAre("last words", "first words"));
    EXPECT_EQ(merged_.sources(), 2U);
}

TEST_F(Rings, AreForgottenOnceTheyAreRemovedAndRead) {
    const auto a = ring("a");
    auto rings = ringsFrom(recording::Rings::Begin::oldest);
    EXPECT_THAT(texts(rings), IsEmpty());
    add(*a, "last words");
    std::filesystem::remove(folder_ / "a.ring");
    EXPECT_THAT(texts(rings), ElementsAre("last words"));
    EXPECT_EQ(merged_.sources(), 0U);
}

TEST_F(Rings, KnowTheirProcesses) {
    const auto a = ring("a");
    add(*a, "1");
    auto sources = ringsFrom(recording::Rings::Begin::oldest).appeared();
    ASSERT_THAT(sources, SizeIs(1));
    Event event;
    ASSERT_TRUE(sources[0]->next(event));
    EXPECT_EQ(event.origin->version, "1.2");
    EXPECT_EQ(event.origin->pid, static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(event.origin->decoder, recording::ownDecoder());
}

TEST_F(Rings, SayHowMuchWasOverwrittenUnread) {
    const auto a = ring("a");
    auto rings = ringsFrom(recording::Rings::Begin::oldest);
    auto sources = rings.appeared();
    Event event;
    add(*a, "1");
    ASSERT_TRUE(sources.at(0)->next(event));
    EXPECT_EQ(event.lost, 0U);
    for (int i = 0; i < 100; ++i) add(*a, std::string(10'000, 'x'));
    std::uint64_t lost = 0;
    while (sources[0]->next(event)) lost += event.lost;
    EXPECT_GT(lost, 500'000U);
}

TEST_F(Rings, ThatCannotBeReadAreReportedOnceAfterSomeAttempts) {
    folder_.write("a.ring", "not yet");
    folder_.write("b.ring", "never");
    auto rings = ringsFrom(recording::Rings::Begin::oldest, 3);
    EXPECT_THAT(texts(rings), IsEmpty());
    EXPECT_THAT(texts(rings), IsEmpty());
    EXPECT_THAT(rings.takeProblems(), IsEmpty());
    std::filesystem::remove(folder_ / "a.ring");
    const auto a = ring("a");
    add(*a, "now");
    EXPECT_THAT(texts(rings), ElementsAre("now"));
    EXPECT_THAT(rings.takeProblems(), ElementsAre(HasSubstr("b.ring")));
    EXPECT_THAT(texts(rings), IsEmpty());
    EXPECT_THAT(rings.takeProblems(), IsEmpty());
}

TEST_F(Rings, NeedNoFolder) {
    recording::Rings rings(folder_ / "none", recording::Rings::Begin::oldest);
    EXPECT_THAT(rings.appeared(), IsEmpty());
}

} // namespace
