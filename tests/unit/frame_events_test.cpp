#include "unit/recording-member.h"

#include <stdexcept>
#include <thread>

namespace {

using namespace frame_test;
using frame::Process;
using testing::ElementsAre;

TEST(Events, RunInOrderAndOnlyThosePostedBeforeTheSchedule) {
    inOwnProcess(
        [] {
            auto* a = new Member("A");
            run([&] {
                startMembers({a});
                takeTrace();
                a->postEvent([] { trace().push_back("1"); });
                a->postEvent([] { throw std::runtime_error("bad event"); });
                a->postEvent([a] {
                    trace().push_back("2");
                    a->postEvent(host::stopProcess);
                    a->scheduleEvents();
                });
                a->scheduleEvents();
                a->scheduleEvents();
                a->postEvent([] { trace().push_back("3"); }); // runs in the schedule that event 2 requests
                return 0;
            });
            EXPECT_THAT(trace(), ElementsAre("1", "2", "3", "stop A"));
        },
        "bad event");
}

TEST(Events, DoNotRunUntilScheduled) {
    inOwnProcess([] {
        auto *a = new Member("A"), *b = new Member("B");
        run([&] {
            startMembers({a, b});
            takeTrace();
            a->postEvent([] { trace().push_back("unscheduled"); });
            b->postEvent(host::stopProcess);
            b->scheduleEvents();
            return 0;
        });
        EXPECT_THAT(trace(), ElementsAre("stop B", "stop A"));
    });
}

TEST(Events, AreDiscardedWhenTheirMemberStops) {
    inOwnProcess([] {
        auto *a = new Member("A"), *b = new Member("B");
        run([&] {
            startMembers({a, b});
            takeTrace();
            a->postEvent([a] { a->stop(); });
            a->postEvent([] { trace().push_back("event after stop"); });
            a->scheduleEvents();
            b->postEvent(host::stopProcess);
            b->scheduleEvents();
            return 0;
        });
        EXPECT_THAT(trace(), ElementsAre("stop A", "stop B", "stop A"));
    });
}

TEST(Events, RunAgainAfterAStoppedMemberRestarts) {
    inOwnProcess([] {
        auto* a = new Member("A");
        run([&] {
            startMembers({a});
            a->postEvent([] { trace().push_back("before the stop"); });
            a->stop();
            a->onStart = [a] { a->postEvent([] { trace().push_back("posted by the start"); }); };
            takeTrace();
            EXPECT_EQ(a->start(), 0);
            a->postEvent([] { trace().push_back("after the start"); });
            a->postEvent(host::stopProcess);
            a->scheduleEvents();
            // Ends the process, because A's events, which would end it, are discarded.
            auto* b = new Member("B");
            startMembers({b});
            b->postEvent(host::stopProcess);
            b->scheduleEvents();
            return 0;
        });
        EXPECT_THAT(trace(), ElementsAre("start A", "setupDone B", "start B", "posted by the start", "after the start",
                                         "stop B", "stop A"));
    });
}

TEST(Events, StayDiscardedWhenAStoppedMemberFailsToRestart) {
    inOwnProcess([] {
        auto* a = new Member("A");
        run([&] {
            startMembers({a});
            a->stop();
            takeTrace();
            a->onStart = [] { throw std::runtime_error("no start"); };
            EXPECT_THROW(a->start(), std::runtime_error);
            a->postEvent([] { trace().push_back("event"); });
            a->scheduleEvents();
            auto* b = new Member("B");
            startMembers({b});
            b->postEvent(host::stopProcess);
            b->scheduleEvents();
            return 0;
        });
        EXPECT_THAT(trace(), ElementsAre("setupDone B", "start B", "stop B", "stop A"));
    });
}

TEST(Events, AreDiscardedWhenTheirMemberIsDestroyed) {
    inOwnProcess([] {
        auto* b = new Member("B");
        run([&] {
            startMembers({b});
            takeTrace();
            {
                Member a("A");
                a.attachProcess(*Process::getInstance());
                a.postEvent([] { trace().push_back("event"); });
                a.scheduleEvents();
            }
            b->postEvent(host::stopProcess);
            b->scheduleEvents();
            return 0;
        });
        EXPECT_THAT(trace(), ElementsAre("destroy A", "stop B"));
    });
}

TEST(Events, RunOnTheFrameworksThreadWhateverThreadPostsThem) {
    inOwnProcess([] {
        constexpr int threads = 4, perThread = 200;
        const auto framework = std::this_thread::get_id();
        auto* a = new Member("A");
        int ran = 0; // used only by the framework's thread
        std::vector<std::thread> posters;
        run([&] {
            startMembers({a});
            for (int i = 0; i < threads; ++i) {
                posters.emplace_back([&] {
                    for (int event = 0; event < perThread; ++event) {
                        a->postEvent([&] {
                            EXPECT_EQ(std::this_thread::get_id(), framework);
                            if (++ran == threads * perThread) host::stopProcess();
                        });
                        a->scheduleEvents();
                    }
                });
            }
            return 0;
        });
        for (std::thread& poster : posters) poster.join();
        EXPECT_EQ(ran, threads * perThread);
    });
}

} // namespace
