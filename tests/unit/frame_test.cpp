#include <frame/abstract-marshalling-impl.h>
#include <frame/io-statistics.h>
#include <frame/process.h>
#include <host/receiver.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using frame::Process;
using testing::ElementsAre;
using testing::ExitedWithCode;

using Trace = std::vector<std::string>;

// Lives on when the process deletes its members.
Trace& trace() {
    static Trace* const lines = new Trace;
    return *lines;
}

Trace takeTrace() { return std::exchange(trace(), {}); }

// Notes what happens to it; fails at the step named.
template <class Base> class Recording : public Base {
public:
    template <class... Arguments>
    explicit Recording(std::string name, std::string failing = {}, Arguments... arguments)
        : Base(arguments...), name_(std::move(name)), failing_(std::move(failing)) {}
    ~Recording() override {
        note("destroy");
        if (printsDestruction) std::fprintf(stderr, "destroy %s\n", name_.c_str());
    }

    std::function<void()> onStart, onStop;
    bool printsDestruction = false;

    using Base::registerInterface;
    using Base::unregisterInterface;

protected:
    int performSetupDone() override {
        if (Base::performSetupDone() != 0) return -107;
        registerInterface(this, name_);
        return note("setupDone");
    }
    int performStarting() override {
        if (onStart) onStart();
        return note("start");
    }
    int performStopping() override {
        if (onStop) onStop();
        return note("stop");
    }
    int note(const std::string& step) {
        trace().push_back(step + " " + name_);
        return step == failing_ ? -5 : 0;
    }

    std::string name_, failing_;
};

using Member = Recording<frame::AbstractProcessMember>;

class Proxy : public Recording<frame::AbstractMarshallingImpl> {
public:
    explicit Proxy(std::string name, std::string failing = {}, const std::string& service = "frame-test")
        : Recording(std::move(name), std::move(failing), CouplingMode::Default) {
        setServiceName(service);
        setSendBufferSize(1024);
    }
    void deliverEvents() override {
        note("deliver");
        Recording::deliverEvents();
    }

private:
    int registerMessageHandlers() override {
        return getOmqIOModule() ? note("handlers") : note("handlers without module");
    }
};

// The members that the next makeArray hands out.
std::vector<frame::AbstractProcessMember*>& nextMembers() {
    static std::vector<frame::AbstractProcessMember*> members;
    return members;
}

void** makeArray() {
    const auto members = std::exchange(nextMembers(), {});
    auto** array = static_cast<void**>(std::calloc(members.size() + 1, sizeof(void*)));
    std::copy(members.begin(), members.end(), array);
    return array;
}

int startMembers(std::vector<frame::AbstractProcessMember*> members) {
    nextMembers() = std::move(members);
    return Process::getInstance()->startAppMembersSync(makeArray);
}

bool isRegistered(const std::string& key) {
    boost::shared_ptr<frame::Interface> reference;
    return Process::getInstance()->getInterfaceReference(reference, key) == 0;
}

// Runs body in a process of its own, as the framework runs once per process. Expects what body checks to hold, the
// process to end by itself, and its error output to contain what output says.
template <class Body> void inOwnProcess(Body body, const std::string& output = {}) {
    EXPECT_EXIT(
        {
            takeTrace();
            body();
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        ExitedWithCode(0), testing::HasSubstr(output));
}

// Serves; onReady runs on the framework's thread.
int run(std::function<int()> onReady) {
    return host::runProcess([](void* context) { return (*static_cast<std::function<int()>*>(context))(); }, &onReady);
}

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

TEST(ApplicationMembers, ThatFailAreNamedInTheLog) {
    inOwnProcess([] { startMembers({new Member("A"), new Member("B", "setupDone")}); }, "member 2 of ");
    inOwnProcess([] { startMembers({new Member("A"), new Member("B", "setupDone")}); }, "setupDone returned -5");
}

TEST(ApplicationMembers, MayBeNone) { EXPECT_EQ(startMembers({}), 0); }

TEST(ApplicationMembers, MustComeInAnArray) {
    EXPECT_EQ(Process::getInstance()->startAppMembersSync(nullptr), -22);
    EXPECT_EQ(Process::getInstance()->startAppMembersSync([]() -> void** { return nullptr; }), -22);
}

TEST(ApplicationMembers, StartedByAMembersStartComeUpAtOnce) {
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

TEST(ApplicationMembers, OfAnotherThreadAreStartedOnTheFrameworksThread) {
    inOwnProcess([] {
        const auto framework = std::this_thread::get_id();
        std::thread::id startedOn;
        std::thread other;
        run([&] {
            other = std::thread([&] {
                auto* a = new Member("A");
                a->onStart = [&] { startedOn = std::this_thread::get_id(); };
                EXPECT_EQ(startMembers({a}), 0);
                EXPECT_EQ(startedOn, framework); // it has happened already
                EXPECT_EQ(startMembers({new Member("B", "start")}), -5);
                host::stopProcess();
            });
            return 0;
        });
        other.join();
        EXPECT_EQ(trace().back(), "stop A");
    });
}

TEST(ApplicationMembers, OfAnotherThreadAreRefusedWhileTheProcessEnds) {
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

TEST(ApplicationMembers, StartedAfterTheEndAreStartedByTheCaller) {
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

TEST(LoadingAnApplication, RefusesAPathWithoutLibrary) {
    inOwnProcess([] { EXPECT_EQ(host::loadApplication("/nonexistent/library.so"), -2); }, "/nonexistent/library.so");
}

TEST(LoadingAnApplication, RefusesALibraryWithoutEntry) {
    inOwnProcess([] { EXPECT_EQ(host::loadApplication("libm.so.6"), -2); }, "frameCreateApplicationArray");
}

TEST(MarshallingMembers, GetTheirModuleAndRegisterHandlersBetweenSetUpAndStart) {
    inOwnProcess([] {
        auto* proxy = new Proxy("P");
        EXPECT_EQ(startMembers({proxy}), 0);
        EXPECT_THAT(trace(), ElementsAre("setupDone P", "handlers P", "start P"));
        EXPECT_NE(proxy->getOmqIOModule(), nullptr);
        const auto statistics = frame::ioStatistics();
        ASSERT_EQ(statistics.size(), 1U);
        EXPECT_EQ(statistics[0].service, "frame-test");
    });
}

TEST(MarshallingMembers, AreRefusedWithoutAServiceName) {
    inOwnProcess([] { EXPECT_EQ(startMembers({new Proxy("P", "", "")}), -22); }, "service");
}

TEST(MarshallingMembers, HaveEventsDeliveredThroughTheirDelivery) {
    inOwnProcess([] {
        auto* proxy = new Proxy("P");
        run([&] {
            startMembers({proxy});
            takeTrace();
            proxy->postEvent([] { trace().push_back("event"); });
            proxy->postEvent(host::stopProcess);
            proxy->scheduleEvents();
            return 0;
        });
        EXPECT_THAT(trace(), ElementsAre("deliver P", "event", "stop P"));
    });
}

TEST(MarshallingMembers, RefuseToSendWithoutAModuleAndCompleteAllTheSame) {
    Proxy proxy("P");
    const vdl::EndianTable table{};
    int completed = 0;
    EXPECT_EQ(
        proxy.asyncSend(nullptr, frame::MsgIds::none, {1, 2, 3, 4}, nullptr, table, nullptr, [&] { ++completed; }),
        -107);
    EXPECT_EQ(completed, 1);
    EXPECT_EQ(frameOmqIOServiceRegisterMessageHandlerFunction(nullptr, {1, 2, 3, 4}, nullptr, nullptr, table), -107);
}

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
                a->postEvent([] { trace().push_back("3"); }); // waits for the schedule that event 2 makes
                return 0;
            });
            EXPECT_THAT(trace(), ElementsAre("1", "2", "3", "stop A"));
        },
        "bad event");
}

TEST(Events, PostedButNotScheduledDoNotRun) {
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

TEST(Events, OfAStoppedMemberAreDiscarded) {
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

TEST(Events, OfADestroyedMemberAreDiscarded) {
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

TEST(Events, OfManyThreadsAllRunOnTheFrameworksThread) {
    inOwnProcess([] {
        constexpr int threads = 4, perThread = 200;
        auto* a = new Member("A");
        int ran = 0; // touched by the framework's thread only
        std::vector<std::thread> posters;
        run([&] {
            startMembers({a});
            for (int i = 0; i < threads; ++i) {
                posters.emplace_back([&] {
                    for (int event = 0; event < perThread; ++event) {
                        a->postEvent([&] {
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

TEST(ProcessMember, IsAttachedAtMostOnce) {
    Member member("A");
    EXPECT_EQ(member.detachProcess(), -107);
    EXPECT_EQ(member.setupDone(), -107);
    EXPECT_EQ(member.attachProcess(*Process::getInstance()), 0);
    EXPECT_EQ(member.attachProcess(*Process::getInstance()), -114);
    EXPECT_EQ(member.setupDone(), 0);
    EXPECT_EQ(member.detachProcess(), 0);
    EXPECT_EQ(member.getServiceId(), 0);
}

class Registry : public testing::Test {
protected:
    void SetUp() override { member.attachProcess(*Process::getInstance()); }

    Member member{"A"};
    boost::shared_ptr<frame::Interface> reference;
    int number = 0, other = 0;
};

TEST_F(Registry, FindsWhatIsRegistered) {
    EXPECT_EQ(member.registerInterface(&number, "number"), 0);
    ASSERT_EQ(Process::getInstance()->getInterfaceReference(reference, "number"), 0);
    EXPECT_EQ(reference->get<int>(), &number);
}

TEST_F(Registry, HandsOutNullForAnotherType) {
    member.registerInterface(&number, "number");
    Process::getInstance()->getInterfaceReference(reference, "number");
    EXPECT_EQ(reference->get<long>(), nullptr);
}

TEST_F(Registry, LeavesTheReferenceAloneWhenTheKeyIsMissing) {
    member.registerInterface(&number, "number");
    Process::getInstance()->getInterfaceReference(reference, "number");
    EXPECT_EQ(Process::getInstance()->getInterfaceReference(reference, "missing"), -2);
    EXPECT_EQ(reference->get<int>(), &number);
}

TEST_F(Registry, RefusesAKeyThatIsTaken) {
    member.registerInterface(&number, "number");
    EXPECT_EQ(member.registerInterface(&other, "number"), -17);
    Process::getInstance()->getInterfaceReference(reference, "number");
    EXPECT_EQ(reference->get<int>(), &number);
}

TEST_F(Registry, RefusesANullObjectAndADetachedMember) {
    EXPECT_EQ(member.registerInterface(static_cast<int*>(nullptr), "number"), -22);
    Member detached("B");
    EXPECT_EQ(detached.registerInterface(&number, "number"), -22);
    EXPECT_FALSE(isRegistered("number"));
}

TEST_F(Registry, RemovesEveryRegistrationOfAnObject) {
    member.registerInterface(&number, "number");
    member.registerInterface(&number, "alias");
    member.registerInterface(&other, "other");
    EXPECT_EQ(member.unregisterInterface(&number), 0);
    EXPECT_FALSE(isRegistered("number"));
    EXPECT_FALSE(isRegistered("alias"));
    EXPECT_TRUE(isRegistered("other"));
    EXPECT_EQ(member.unregisterInterface(&number), -2);
}

TEST_F(Registry, RemovesNothingForNullAndStaysSilent) {
    member.registerInterface(&number, "number");
    testing::internal::CaptureStderr();
    EXPECT_EQ(member.unregisterInterface(static_cast<int*>(nullptr)), -2);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(isRegistered("number"));
}

TEST_F(Registry, DropsTheRegistrationsOfADetachedMember) {
    member.registerInterface(&number, "number");
    member.detachProcess();
    EXPECT_FALSE(isRegistered("number"));
}

TEST(MessageIds, OfNobodyAreZero) { EXPECT_EQ(frame::MsgIds::none, (frame::MsgIds{0, 0})); }

} // namespace
