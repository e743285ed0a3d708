#include "unit/recording-member.h"

#include <csignal>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace {

using namespace frame_test;
using frame::Process;
using testing::ElementsAre;

TEST(ApplicationMembers, AreAllSetUpInOrderAndThenAllStartedInOrder) {
    inOwnProcess([] {
        EXPECT_EQ(startMembers({new Member("A"), new Member("B")}), 0);
        EXPECT_THAT(trace(), ElementsAre("setupDone A", "setupDone B", "start A", "start B"));
    });
}

TEST(ApplicationMembers, GetServiceIdsInOrderOfAttaching) {
    inOwnProcess([] {
        auto *first = new Member("A"), *second = new Member("B");
        EXPECT_EQ(first->getServiceId(), 0);
        startMembers({first, second});
        EXPECT_GE(first->getServiceId(), 1);
        EXPECT_EQ(second->getServiceId(), first->getServiceId() + 1);
    });
}

TEST(ApplicationMembers, AreStoppedInReverseOrderAtTheEndAndDeletedInReverseOrderAtExit) {
    inOwnProcess(
        [] {
            auto *a = new Member("A"), *b = new Member("B");
            a->printsDestruction = b->printsDestruction = true;
            EXPECT_EQ(run([&] {
                          startMembers({a});
                          startMembers({b});
                          takeTrace();
                          host::stopProcess();
                          return 0;
                      }),
                      0);
            EXPECT_THAT(trace(), ElementsAre("stop B", "stop A"));
        },
        "destroy B\ndestroy A\n");
}

TEST(ApplicationMembers, AreStoppedBeforeTheyAreDeletedWhenTheFrameworkNeverRan) {
    inOwnProcess(
        [] {
            auto* a = new Member("A");
            a->onStop = [] { std::fprintf(stderr, "stop A\n"); };
            a->printsDestruction = true;
            startMembers({a});
        },
        "stop A\ndestroy A\n");
}

TEST(ApplicationMembers, AreUndoneWhenASetUpFails) {
    inOwnProcess([] {
        auto* a = new Member("A");
        EXPECT_EQ(startMembers({a, new Member("B", "setupDone"), new Member("C")}), -5);
        EXPECT_THAT(trace(), ElementsAre("setupDone A", "setupDone B"));
        EXPECT_EQ(a->getServiceId(), 0);
        EXPECT_FALSE(isRegistered("A"));
        EXPECT_FALSE(isRegistered("B"));
    });
}

TEST(ApplicationMembers, AreUndoneWhenMessageHandlersCannotBeRegistered) {
    inOwnProcess([] {
        EXPECT_EQ(startMembers({new Member("A"), new Proxy("P", "handlers"), new Proxy("Q")}), -5);
        EXPECT_THAT(trace(), ElementsAre("setupDone A", "setupDone P", "setupDone Q", "handlers P"));
        EXPECT_FALSE(isRegistered("A"));
    });
}

TEST(ApplicationMembers, AreStoppedInReverseOrderWhenALaterStartFails) {
    inOwnProcess([] {
        startMembers({new Member("earlier")});
        takeTrace();
        EXPECT_EQ(startMembers({new Member("A"), new Member("B"), new Member("C", "start"), new Member("D")}), -5);
        EXPECT_THAT(takeTrace(), ElementsAre("setupDone A", "setupDone B", "setupDone C", "setupDone D", "start A",
                                             "start B", "start C", "stop B", "stop A"));
        EXPECT_FALSE(isRegistered("A"));
        EXPECT_TRUE(isRegistered("earlier"));
    });
}

TEST(ApplicationMembers, AreUndoneWhenOneThrows) {
    inOwnProcess(
        [] {
            auto* b = new Member("B");
            b->onStart = [] { throw std::runtime_error("no memory for pictures"); };
            EXPECT_EQ(startMembers({new Member("A"), b}), -5);
            EXPECT_THAT(trace(), ElementsAre("setupDone A", "setupDone B", "start A", "stop A"));
        },
        "no memory for pictures");
}

TEST(ApplicationMembers, AreNamedInTheLogWhenTheyFail) {
    inOwnProcess([] { startMembers({new Member("A"), new Member("B", "setupDone")}); }, "member 2 of ");
    inOwnProcess(
        [] {
            startMembers({new Member("A"), new Member("B", "setupDone")});
        },
        "setupDone returned EIO, Input/output error");
}

TEST(ApplicationMembers, MayBeAnEmptyList) { EXPECT_EQ(startMembers({}), 0); }

TEST(ApplicationMembers, RequireAnArray) {
    EXPECT_EQ(Process::getInstance()->startAppMembersSync(nullptr), -22);
    EXPECT_EQ(Process::getInstance()->startAppMembersSync([]() -> void** { return nullptr; }), -22);
}

TEST(ApplicationMembers, StartAtOnceWhenAMembersStartRequestsIt) {
    inOwnProcess([] {
        auto* outer = new Member("outer");
        outer->onStart = [] { EXPECT_EQ(startMembers({new Member("inner")}), 0); };
        run([&] {
            EXPECT_EQ(startMembers({outer}), 0);
            EXPECT_THAT(takeTrace(), ElementsAre("setupDone outer", "setupDone inner", "start inner", "start outer"));
            host::stopProcess();
            return 0;
        });
        EXPECT_THAT(trace(), ElementsAre("stop outer", "stop inner"));
    });
}

TEST(ApplicationMembers, RequestedByAnotherThreadStartOnTheFrameworksThread) {
    inOwnProcess([] {
        const auto framework = std::this_thread::get_id();
        std::thread::id startedOn;
        std::thread other;
        run([&] {
            other = std::thread([&] {
                auto* a = new Member("A");
                a->onStart = [&] { startedOn = std::this_thread::get_id(); };
                EXPECT_EQ(startMembers({a}), 0);
                EXPECT_EQ(startedOn, framework); // the start has completed
                EXPECT_EQ(startMembers({new Member("B", "start")}), -5);
                host::stopProcess();
            });
            return 0;
        });
        other.join();
        EXPECT_EQ(trace().back(), "stop A");
    });
}

TEST(ApplicationMembers, RequestedByAnotherThreadAreRejectedWhileTheProcessEnds) {
    inOwnProcess([] {
        auto* a = new Member("A");
        a->onStop = [] {
            std::thread([] { EXPECT_EQ(Process::getInstance()->startAppMembersSync(makeArray), -108); }).join();
        };
        run([&] {
            startMembers({a});
            host::stopProcess();
            return 0;
        });
    });
}

TEST(ApplicationMembers, AreStartedByTheCallerAfterTheEnd) {
    inOwnProcess([] {
        host::stopProcess();
        run([] { return 0; });
        EXPECT_EQ(startMembers({new Member("A")}), 0);
        EXPECT_THAT(trace(), ElementsAre("setupDone A", "start A"));
    });
}

TEST(RunningAProcess, EndsOnTheTerminationSignal) {
    inOwnProcess([] { EXPECT_EQ(run([] { return kill(getpid(), SIGTERM); }), 0); });
    inOwnProcess([] { EXPECT_EQ(run([] { return kill(getpid(), SIGINT); }), 0); });
}

TEST(RunningAProcess, EndsWithTheResultOfAFailedReadyCall) {
    inOwnProcess([] {
        EXPECT_EQ(run([] {
                      startMembers({new Member("A")});
                      return 7;
                  }),
                  7);
        EXPECT_EQ(trace().back(), "stop A");
    });
}

TEST(LoadingAnApplication, RejectsAPathWithoutALibrary) {
    inOwnProcess([] { EXPECT_EQ(host::loadApplication("/nonexistent/library.so"), -2); }, "/nonexistent/library.so");
}

TEST(LoadingAnApplication, RejectsALibraryWithoutTheEntryPoint) {
    inOwnProcess([] { EXPECT_EQ(host::loadApplication("libm.so.6"), -2); }, "frameCreateApplicationArray");
}

} // namespace
