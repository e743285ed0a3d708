#include "media/simulated/streams.h"
#include "service-kit/src/shell-commands.h"
#include "tvservice/channel-list.h"
#include "tvservice/channels-command.h"
#include "tvservice/locks.h"

#include <appovshell/server.h>
#include <host/log-capture.h>
#include <mmservice/records.h>
#include <tvservice-adapter/service/answers.h>
#include <tvservice-adapter/service/delay-line.h>
#include <tvservice-adapter/service/fault-switches.h>
#include <tvservice-adapter/service/log.h>
#include <tvservice-adapter/service/mm-uris.h>
#include <tvservice-adapter/service/terminal-table.h>
#include <tvservice/core-records.h>

#include <chrono>
#include <condition_variable>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <media/service-id.h>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace services;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

namespace {

tvservice::TvServiceReq_t request(int type, int id, const std::string& uri, const std::string& reqId = "") {
    tvservice::TvServiceReq_t request;
    request.terminal = {type, id};
    request.uri = uri;
    request.uuid = "uuid of " + uri;
    request.reqId = reqId;
    return request;
}

std::int32_t refuseNine(const Terminal&, const std::string& uri) {
    return uri == "dvb://9" ? result::unknownChannel : result::done;
}

std::vector<tvservice::TvServiceInfo_t> executeTv(const std::vector<tvservice::TvServiceReq_t>& requests,
                                                  TerminalTable& table) {
    return execute<tvservice::TvServiceInfo_t>(requests, 7, table, refuseNine);
}

// Each client shows something on as many terminals as it may. Their type is the client's number.
void fill(TerminalTable& table, const std::vector<int>& clients) {
    for (const int client : clients)
        for (int id = 0; id < static_cast<int>(bounds::terminalsOfAClient); ++id)
            table.show({client, id}, {"dvb://1", "", static_cast<std::uint64_t>(client), {}});
}

// A shell that the test calls directly.
class FakeShell : public appovshell::Server {
public:
    int registerCommand(const std::string& specification, const std::string&, appovshell::CommandHandler handler,
                        void* context) override {
        const std::string word = specification.substr(0, specification.find(' '));
        return commands_.try_emplace(word, handler, context).second ? 0 : -17;
    }
    std::string getArgument(unsigned index) override { return index < arguments_.size() ? arguments_[index] : ""; }
    void print(const std::string& text) override { output += text; }
    bool wantsJson() override { return json; }

    int run(const std::string& word, const std::vector<std::string>& arguments = {}) {
        arguments_ = arguments;
        output.clear();
        const auto& [handler, context] = commands_.at(word);
        return handler(context);
    }

    bool json = false;
    std::string output;

private:
    std::map<std::string, std::pair<appovshell::CommandHandler, void*>> commands_;
    std::vector<std::string> arguments_;
};

// ---- all tables with a share for each client ----

// Tables to which a client can add an entry for a terminal.
struct ShownTable {
    static constexpr const char* name = "terminals";
    static constexpr const char* refusal = "a play on terminal 0:256 is rejected: no room";
    bool put(const Terminal& terminal, std::uint64_t client, Evictions* evictions = nullptr) {
        return table.show(terminal, {"dvb://" + std::to_string(++puts), "", client, {}}, evictions);
    }
    void remove(const Terminal& terminal) { table.stop(terminal); }

    TerminalTable table;
    int puts = 0;
};
struct LockTable {
    static constexpr const char* name = "locks";
    static constexpr const char* refusal = "terminal 0:256 is not locked: 256 are locked already";
    bool put(const Terminal& terminal, std::uint64_t client, Evictions* evictions = nullptr) {
        return table.lock(terminal, ++puts, client, evictions) == Locks::Outcome::changed;
    }
    void remove(const Terminal& terminal) { table.unlock(terminal); }

    Locks table;
    int puts = 0;
};

template <class Table> class SharedTable : public testing::Test {
protected:
    // Each client fills its share with terminals. Their type is the client's number.
    void fill(const std::vector<int>& clients) {
        for (const int client : clients)
            for (int id = 0; id < share; ++id) put({client, id}, static_cast<std::uint64_t>(client));
    }
    bool put(const Terminal& terminal, std::uint64_t client, Evictions* evictions = nullptr) {
        return shared.put(terminal, client, evictions);
    }
    std::size_t held() const { return shared.table.count().held; }
    std::uint64_t refused() const { return shared.table.count().refused; }

    static constexpr int share = static_cast<int>(bounds::terminalsOfAClient);
    const host::LogCapture log{{logModule}};
    Table shared;
};

struct TableName {
    template <class Table> static std::string GetName(int) { return Table::name; }
};
using SharedTables = testing::Types<ShownTable, LockTable>;
TYPED_TEST_SUITE(SharedTable, SharedTables, TableName);

TYPED_TEST(SharedTable, RejectsEntriesBeyondAClientsShareAndAcceptsThoseOfOthers) {
    const int share = this->share;
    for (int id = 0; id < share; ++id) EXPECT_TRUE(this->put({0, id}, 1));
    EXPECT_FALSE(this->put({0, share}, 1));
    EXPECT_TRUE(this->put({0, 0}, 1)) << "replaces its own entry";
    EXPECT_TRUE(this->put({0, share}, 2)) << "an entry of another client";
    this->shared.remove({0, 0});
    EXPECT_TRUE(this->put({1, 0}, 1)) << "after an entry was removed";
    EXPECT_EQ(this->held(), bounds::terminalsOfAClient + 1);
    EXPECT_EQ(this->refused(), 1U);
}

TYPED_TEST(SharedTable, HoldsNoMoreThanItsBoundsWhateverTheClients) {
    std::size_t taken = 0;
    for (int id = 0; id < 2000; ++id) taken += this->put({0, id}, static_cast<std::uint64_t>(id)) ? 1 : 0;
    EXPECT_EQ(taken, bounds::terminals);
    EXPECT_EQ(this->held(), bounds::terminals);
    EXPECT_EQ(this->refused(), 2000 - bounds::terminals);
    EXPECT_TRUE(this->log.waitFor(TypeParam::refusal, 0ms));
}

TYPED_TEST(SharedTable, EvictsTheOldestEntriesOfClientsThatHaveGoneOnceItIsFull) {
    this->fill({3, 1, 2, 4});
    std::vector<Terminal> evicted;
    Evictions evictions(
        [] {
            return std::vector<std::uint64_t>{9, 4, 3};
        },
        [&](const Terminal& terminal) { evicted.push_back(terminal); });
    EXPECT_TRUE(this->put({1, 0}, 9, &evictions)) << "replaces the terminal's entry";
    EXPECT_THAT(evicted, IsEmpty());
    EXPECT_TRUE(this->put({9, 0}, 9, &evictions));
    EXPECT_TRUE(this->put({9, 1}, 9, &evictions));
    EXPECT_THAT(evicted, ElementsAre(Terminal{1, 1}, Terminal{1, 2}));
    EXPECT_EQ(this->held(), bounds::terminals);
    EXPECT_EQ(this->refused(), 0U);
    EXPECT_TRUE(this->log.waitFor("terminal 1:2 is evicted: the table of " + std::string(TypeParam::name) +
                                      " is full and its client has disconnected",
                                  0ms));
}

TYPED_TEST(SharedTable, GivesALateClientAsManyEntriesAsOthersKeep) {
    this->fill({1, 2, 3, 4});
    std::map<int, int> lost;
    Evictions evictions(
        [] {
            return std::vector<std::uint64_t>{1, 2, 3, 4};
        },
        [&](const Terminal& terminal) { ++lost[terminal.type]; });
    int taken = 0;
    while (this->put({9, taken}, 9, &evictions)) ++taken;
    EXPECT_EQ(taken, 51);
    EXPECT_THAT(lost, ElementsAre(Pair(1, 13), Pair(2, 13), Pair(3, 13), Pair(4, 12)));
    EXPECT_EQ(this->refused(), 1U);
    EXPECT_TRUE(this->log.waitFor("terminal 1:0 is evicted: the table of " + std::string(TypeParam::name) +
                                      " is full and its client has the most",
                                  0ms));
}

} // namespace

// ---- the terminals ----

TEST(TerminalTable, KeepsTheLastShownPerTypeAndIdInOrder) {
    TerminalTable table;
    const auto since = std::chrono::system_clock::time_point(1000s);
    table.show({1, 0}, {"dvb://1", "a", 1, since});
    table.show({0, 2}, {"dvb://2", "b", 2, since});
    table.show({1, 0}, {"dvb://3", "c", 3, since});
    const auto entries = table.entries();
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].terminal, (Terminal{0, 2}));
    EXPECT_EQ(entries[1].terminal, (Terminal{1, 0}));
    EXPECT_EQ(entries[1].shown, (Shown{"dvb://3", "c", 3, since}));
}

TEST(TerminalTable, StoppingEmptiesTheTerminalAndHasNoEffectAgain) {
    TerminalTable table;
    table.show({0, 0}, {"dvb://1", "", 1, {}});
    table.stop({0, 0});
    table.stop({0, 0});
    EXPECT_TRUE(table.entries().empty());
}

TEST(TerminalTable, SwapsWhatTwoTerminalsShowEvenWhenOneShowsNothing) {
    TerminalTable table;
    table.show({0, 0}, {"dvb://1", "", 1, {}});
    EXPECT_TRUE(table.swap({0, 0}, {1, 0}, 1));
    ASSERT_EQ(table.entries().size(), 1U);
    EXPECT_EQ(table.entries()[0].terminal, (Terminal{1, 0}));
    table.show({0, 0}, {"dvb://2", "", 1, {}});
    EXPECT_TRUE(table.swap({0, 0}, {1, 0}, 1));
    EXPECT_EQ(table.entries()[0].shown.uri, "dvb://1");
    EXPECT_EQ(table.entries()[1].shown.uri, "dvb://2");
    EXPECT_TRUE(table.swap({1, 0}, {1, 0}, 1));
    EXPECT_EQ(table.entries().size(), 2U);
    EXPECT_FALSE(table.swap({5, 0}, {6, 0}, 1));
}

// Otherwise a client that swaps another client's entry to ever new terminals would fill that client's share.
TEST(TerminalTable, CountsASwappedEntryTowardsTheRequestersShare) {
    const host::LogCapture log({logModule});
    TerminalTable table;
    const int share = static_cast<int>(bounds::terminalsOfAClient);
    for (int type = 1; type <= share; ++type) {
        ASSERT_TRUE(table.show({0, 0}, {"dvb://1", "", 1, {}}));
        ASSERT_TRUE(table.swap({0, 0}, {type, 0}, 2)) << type;
    }
    ASSERT_TRUE(table.show({0, 0}, {"dvb://1", "", 1, {}}));
    EXPECT_FALSE(table.swap({0, 0}, {share + 1, 0}, 2)) << "beyond the requester's share";
    EXPECT_EQ(table.count().refused, 1U);
    EXPECT_TRUE(table.swap({0, 0}, {1, 0}, 2)) << "both terminals show something";
    EXPECT_TRUE(table.swap({0, 0}, {share + 1, 0}, 2)) << "its own entry";
    EXPECT_TRUE(table.swap({1, 0}, {share + 2, 0}, 1)) << "by the client that owns the entry";
    for (int id = 0; id < share - 1; ++id) EXPECT_TRUE(table.show({1000, id}, {"dvb://1", "", 1, {}})) << id;
    EXPECT_FALSE(table.show({1001, 0}, {"dvb://1", "", 1, {}}));
}

TEST(TerminalTable, RejectsMoreTextThanFits) {
    const host::LogCapture log({logModule});
    TerminalTable table;
    const std::string half(bounds::textBytesOfAClient / 2, 'x');
    EXPECT_FALSE(table.show({0, 0}, {half + half, "y", 1, {}}));
    EXPECT_TRUE(table.show({0, 0}, {half, half, 1, {}}));
    EXPECT_FALSE(table.show({0, 1}, {"", "y", 1, {}}));
    EXPECT_TRUE(table.show({0, 0}, {half, "", 1, {}}));
    EXPECT_TRUE(table.show({0, 1}, {"", "y", 1, {}}));
    std::size_t bytes = 0;
    for (int client = 2; client < 100; ++client)
        table.show({client, 0}, {half, half, static_cast<std::uint64_t>(client), {}});
    for (const auto& entry : table.entries()) bytes += entry.shown.textBytes();
    EXPECT_LE(bytes, bounds::textBytes);
}

TEST(TerminalTable, GivesALateClientAsMuchTextAsOthersKeep) {
    const host::LogCapture log({logModule});
    TerminalTable table;
    const std::string half(bounds::textBytesOfAClient / 2, 'x');
    for (int client = 1; client <= 4; ++client)
        for (int id = 0; id < 2; ++id) table.show({client, id}, {half, "", static_cast<std::uint64_t>(client), {}});
    Evictions evictions([] { return std::vector<std::uint64_t>{1, 2, 3, 4}; });
    EXPECT_TRUE(table.show({9, 0}, {half, "", 9, {}}, &evictions));
    EXPECT_FALSE(table.show({9, 1}, {half, "", 9, {}}, &evictions));
    EXPECT_TRUE(table.show({9, 0}, {half, "", 9, {}}, &evictions)) << "replaces its own entry";
    EXPECT_EQ(table.entries().size(), 8U);
}

TEST(TerminalTable, EvictsAllEntriesOfClientsThatHaveGoneFirst) {
    const host::LogCapture log({logModule});
    TerminalTable table;
    const int share = static_cast<int>(bounds::terminalsOfAClient);
    fill(table, {1, 2, 3});
    table.show({9, 0}, {"dvb://1", "", 9, {}});
    fill(table, {4}); // all but one, for which there is no room
    std::vector<std::uint64_t> connected{2, 4, 9, 10, 11};
    std::vector<Terminal> evicted;
    const auto show = [&](int id, std::uint64_t client) {
        Evictions evictions([&] { return connected; }, [&](const Terminal& terminal) { evicted.push_back(terminal); });
        return table.show({static_cast<int>(client), id}, {"dvb://1", "", client, {}}, &evictions);
    };
    for (int id = 1; id < share; ++id) EXPECT_TRUE(show(id, 9)) << id;
    EXPECT_FALSE(show(share, 9)) << "beyond its own share";
    for (int id = 0; id < share; ++id) EXPECT_TRUE(show(id, 10)) << id;
    EXPECT_TRUE(show(0, 11)) << "replaces the last evictable entry";
    EXPECT_FALSE(log.waitFor("has the most", 0ms));
    EXPECT_TRUE(show(1, 11));
    EXPECT_TRUE(log.waitFor("has the most", 0ms));
    connected = {};
    EXPECT_TRUE(show(2, 11)) << "after all clients have gone";
    EXPECT_EQ(evicted.back(), (Terminal{2, 1}));
}

TEST(TerminalTable, EvictsAsManyEntriesAsATextNeeds) {
    const host::LogCapture log({logModule});
    TerminalTable table;
    const std::string quarter(bounds::textBytesOfAClient / 4, 'x');
    for (int client = 1; client <= 4; ++client)
        for (int id = 0; id < 4; ++id) table.show({client, id}, {quarter, "", static_cast<std::uint64_t>(client), {}});
    Evictions evictions([] { return std::vector<std::uint64_t>{}; });
    EXPECT_TRUE(table.show({9, 0}, {quarter + quarter, quarter, 9, {}}, &evictions));
    EXPECT_EQ(table.entries().size(), 14U);
    EXPECT_EQ(table.entries().front().terminal, (Terminal{1, 3}));
}

TEST(TerminalTable, KeepsCountOfSharesThroughStopsSwapsAndReplacements) {
    TerminalTable table;
    for (int round = 0; round < 100; ++round) {
        fill(table, {1, 2, 3, 4});
        fill(table, {4, 3, 2, 1});
        for (int type = 1; type <= 4; ++type) {
            table.swap({type, 1}, {5 - type, 2}, 1);
            table.show({type, 3}, {"dvb://longer", "uuid", 5U - static_cast<unsigned>(type), {}});
        }
        for (const auto& [terminal, shown] : table.entries()) table.stop(terminal);
    }
    fill(table, {1, 2, 3, 4});
    EXPECT_EQ(table.count().held, bounds::terminals);
}

TEST(ClientTable, ChecksNoMoreEntriesPerRequestWhenItIsFull) {
    struct Counting {
        std::uint64_t client;
        unsigned* checks;
        std::size_t textBytes() const {
            ++*checks;
            return 1;
        }
    };
    unsigned checks = 0;
    const auto checksFor = [&](ClientTable<Counting>& table, const Terminal& terminal, std::uint64_t client) {
        checks = 0;
        table.put(terminal, {client, &checks}, nullptr);
        return checks;
    };
    ClientTable<Counting> table("things");
    const unsigned first = checksFor(table, {0, 0}, 1), replaced = checksFor(table, {0, 0}, 1);
    for (std::size_t i = 0; i < bounds::terminals; ++i) table.put({1, static_cast<int>(i)}, {i, &checks}, nullptr);
    EXPECT_LE(checksFor(table, {2, 0}, 2000), first);
    EXPECT_LE(checksFor(table, {0, 0}, 1), replaced);
}

TEST(Locks, ReportWhetherTheyChanged) {
    Locks locks;
    EXPECT_EQ(locks.lock({0, 0}, 12, 1), Locks::Outcome::changed);
    EXPECT_EQ(locks.lock({0, 0}, 12, 1), Locks::Outcome::unchanged);
    EXPECT_EQ(locks.lock({0, 0}, 16, 1), Locks::Outcome::changed);
    EXPECT_TRUE(locks.contains({0, 0}));
    EXPECT_EQ(locks.unlock({0, 1}), Locks::Outcome::unchanged);
    EXPECT_EQ(locks.unlock({0, 0}), Locks::Outcome::changed);
    EXPECT_FALSE(locks.contains({0, 0}));
}

TEST(ChannelList, NumbersItsChannelsFromOneInTheOrderOfTheirUris) {
    const auto channels = ChannelList::fromText(
        "[[channel]]\nuri = \"dvb://b\"\nname = \"B\"\n[[channel]]\nuri = \"dvb://a\"\nname = \"A\"\n", "text");
    EXPECT_EQ(channels.numberOf("dvb://a"), 1);
    EXPECT_EQ(channels.uriOf(2), "dvb://b");
    EXPECT_EQ(channels.numberOf("dvb://c"), 0);
    for (const int number : {0, -1, 3, INT32_MIN, INT32_MAX}) EXPECT_EQ(channels.uriOf(number), "") << number;
}

TEST(Streams, HaveTheNumbersOfTheirChannel) {
    using media::ServiceId;
    using media::serviceIdOf;
    EXPECT_EQ(serviceIdOf("dvb://1.22.333"), (ServiceId{1, 22, 333}));
    EXPECT_EQ(serviceIdOf("dvb://7.x.1"), (ServiceId{7, 0, 0}));
    for (const char* none : {"", "/", "//", "dvb:", "dvb://", "dvb://99999999999.1.1"})
        EXPECT_EQ(serviceIdOf(none), ServiceId{}) << none;
    EXPECT_EQ(media::streamsOf<tvservice::VideoStreamInfo_t>("dvb://1.1.2")[0].shortParam1, 0x200);
}

TEST(TerminalTable, CanBeReadWhileItChanges) {
    TerminalTable table;
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i) {
            table.show({0, i % 8}, {"dvb://1", "", 1, {}});
            table.stop({0, (i + 4) % 8});
        }
    });
    for (int i = 0; i < 200; ++i) EXPECT_LE(table.entries().size(), 8U);
    writer.join();
}

TEST(Answers, AreOnePerRequestInOrderWithTheRequestsFields) {
    TerminalTable table;
    const auto infos = executeTv({request(0, 1, "dvb://1", "id"), request(0, 2, "dvb://9", "id")}, table);
    ASSERT_EQ(infos.size(), 2U);
    EXPECT_EQ(infos[0], (tvservice::TvServiceInfo_t{{0, 1}, 0, "dvb://1", "uuid of dvb://1", "", "id"}));
    EXPECT_EQ(infos[1], (tvservice::TvServiceInfo_t{{0, 2}, 2, "dvb://9", "uuid of dvb://9", "", "id"}));
}

TEST(Answers, AreEmptyForNoRequests) {
    TerminalTable table;
    EXPECT_TRUE(executeTv({}, table).empty());
}

TEST(Answers, ToAListQueryTheConnectedClientsOnce) {
    const host::LogCapture log({logModule});
    TerminalTable table;
    fill(table, {1, 2, 3, 4});
    int asked = 0;
    Evictions evictions([&] {
        ++asked;
        return std::vector<std::uint64_t>{1, 2, 3, 4, 7};
    });
    std::vector<tvservice::TvServiceReq_t> requests;
    for (int id = 0; id < 1000; ++id) requests.push_back(request(9, id, "dvb://1"));
    const auto infos = execute<tvservice::TvServiceInfo_t>(requests, 7, table, refuseNine, &evictions);
    EXPECT_EQ(asked, 1);
    const std::size_t part = bounds::terminals / 5; // as much as each of the other four keeps
    for (std::size_t i = 0; i < infos.size(); ++i)
        EXPECT_EQ(infos[i].result, i < part ? result::done : result::noRoom) << i;
}

TEST(Answers, RecordTheClientOfAShownEntry) {
    TerminalTable table;
    executeTv({request(3, 4, "dvb://1")}, table);
    const auto entries = table.entries();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].terminal, (Terminal{3, 4}));
    EXPECT_EQ(entries[0].shown.client, 7U);
    EXPECT_EQ(entries[0].shown.uuid, "uuid of dvb://1");
}

TEST(Answers, ReportSuccessForAStopWhetherOrNotSomethingWasShown) {
    TerminalTable table;
    const auto infos = executeTv(
        {request(0, 0, "dvb://1"), request(0, 0, tvservice::stopUri), request(0, 5, tvservice::stopUri)}, table);
    for (const auto& info : infos) EXPECT_EQ(info.result, result::done);
    EXPECT_EQ(infos[1].uri, "rec://plain/null");
    EXPECT_TRUE(table.entries().empty());
}

TEST(Answers, LeaveTheTerminalUnchangedForAFailedRequest) {
    TerminalTable table;
    executeTv({request(0, 0, "dvb://1"), request(0, 0, "dvb://9")}, table);
    ASSERT_EQ(table.entries().size(), 1U);
    EXPECT_EQ(table.entries()[0].shown.uri, "dvb://1");
}

TEST(Answers, WorkForTheMmServicesRecordsToo) {
    TerminalTable table;
    mmservice::MMServiceReq_t request;
    request.terminal = {2, 3};
    request.uri = "nothing:known";
    request.reqId = "r";
    const auto infos =
        execute<mmservice::MMServiceInfo_t>(std::vector<mmservice::MMServiceReq_t>{request}, 1, table,
                                            [](const Terminal&, const std::string& uri) { return checkMmUri(uri); });
    ASSERT_EQ(infos.size(), 1U);
    EXPECT_EQ(infos[0], (mmservice::MMServiceInfo_t{{2, 3}, 4, "nothing:known", "", "", "r"}));
}

TEST(Answers, AreFalsifiedAccordingToTheSwitches) {
    TerminalTable table;
    auto infos = executeTv({request(0, 1, "dvb://1", "id"), request(0, 2, "dvb://9", "id")}, table);
    const auto honest = infos;
    falsify(infos, Faults{});
    EXPECT_EQ(infos, honest);
    Faults faults;
    faults.wrong = faults.otherId = true;
    falsify(infos, faults);
    for (const auto& info : infos) {
        EXPECT_EQ(info.result, result::wrongByFault);
        EXPECT_NE(info.reqId, "id");
    }
}

TEST(FaultSwitches, AreAllOffAtFirst) { EXPECT_EQ(FaultSwitches().get(), Faults{}); }

TEST(FaultSwitches, AreSetByNameAndValue) {
    FaultSwitches switches;
    for (const auto& [name, value] : std::map<std::string, std::string>{{"delay", "250"},
                                                                        {"mute", "on"},
                                                                        {"wrong", "on"},
                                                                        {"duplicate", "on"},
                                                                        {"other-id", "on"},
                                                                        {"exit-after", "3"}})
        EXPECT_EQ(switches.set(name, value), "");
    EXPECT_EQ(switches.get(), (Faults{250ms, true, true, true, true, 3}));
    EXPECT_EQ(switches.set("mute", "off"), "");
    EXPECT_EQ(switches.get(), (Faults{250ms, false, true, true, true, 3}));
}

TEST(FaultSwitches, AreAllClearedAtOnce) {
    FaultSwitches switches;
    switches.set("delay=10");
    switches.set("wrong=on");
    EXPECT_EQ(switches.set("clear"), "");
    EXPECT_EQ(switches.get(), Faults{});
}

TEST(FaultSwitches, RejectUnknownSwitchesAndListTheKnownOnes) {
    FaultSwitches switches;
    for (const char* wrong : {"", "=", "noise=on", "delay", "delay=", "delay=-1", "delay=1s", "delay=3600001",
                              "exit-after=x", "exit-after=4294967296", "mute", "mute=yes", "clear=on", "delay=1 "}) {
        EXPECT_NE(switches.set(wrong), "") << wrong;
        EXPECT_EQ(switches.get(), Faults{}) << wrong;
    }
    EXPECT_EQ(switches.set("mute=yes"), "mute takes on or off, not \"yes\"");
    EXPECT_NE(switches.set("noise=on").find("delay MS"), std::string::npos);
}

TEST(FaultSwitches, CountAnswersDownToTheLastOne) {
    FaultSwitches switches;
    EXPECT_FALSE(switches.countAnswer());
    switches.set("exit-after=2");
    EXPECT_FALSE(switches.countAnswer());
    EXPECT_TRUE(switches.countAnswer());
    EXPECT_FALSE(switches.countAnswer());
}

TEST(DelayLine, WorksAtOnceOnTheCallersThreadWithoutADelay) {
    DelayLine line;
    std::thread::id worker;
    line.schedule([&] { worker = std::this_thread::get_id(); }, 0ms);
    EXPECT_EQ(worker, std::this_thread::get_id());
}

TEST(DelayLine, WorksLaterInTheOrderGivenWhateverTheDelays) {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<int> done;
    DelayLine line;
    const auto start = std::chrono::steady_clock::now();
    const auto note = [&](int number) {
        return [&, number] {
            const std::lock_guard lock(mutex);
            done.push_back(number);
            changed.notify_one();
        };
    };
    line.schedule(note(1), 30ms);
    line.schedule(note(2), 1ms);
    line.schedule(note(3), 0ms);
    std::unique_lock lock(mutex);
    ASSERT_TRUE(changed.wait_for(lock, 10s, [&] { return done.size() == 3; }));
    EXPECT_EQ(done, (std::vector<int>{1, 2, 3}));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
}

TEST(DelayLine, DropsAndCountsWorkBeyondItsLimits) {
    const host::LogCapture log({logModule});
    DelayLine line;
    const auto hour = std::chrono::hours(1);
    line.schedule([] {}, hour, bounds::delayedBytes);
    line.schedule([] {}, hour, 1);
    EXPECT_EQ(line.count().held, 1U);
    EXPECT_EQ(line.count().refused, 1U);
    for (std::size_t i = 0; i < bounds::delayedAnswers + 9; ++i) line.schedule([] {}, hour);
    EXPECT_EQ(line.count().held, bounds::delayedAnswers);
    EXPECT_EQ(line.count().refused, 11U);
}

TEST(DelayLine, ContinuesAfterWorkThatThrows) {
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;
    DelayLine line;
    line.schedule([] { throw std::runtime_error("lost"); }, 1ms);
    line.schedule(
        [&] {
            const std::lock_guard lock(mutex);
            done = true;
            changed.notify_one();
        },
        1ms);
    std::unique_lock lock(mutex);
    EXPECT_TRUE(changed.wait_for(lock, 10s, [&] { return done; }));
}

TEST(DelayLine, DropsPendingWorkWhenItEnds) {
    bool done = false;
    {
        DelayLine line;
        line.schedule([&] { done = true; }, std::chrono::hours(1));
    }
    EXPECT_FALSE(done);
}

TEST(ShellCommands, ListTheTerminalsForPeopleAndPrograms) {
    TerminalTable table;
    FaultSwitches faults;
    FakeShell shell;
    ShellCommands commands(table, faults);
    ASSERT_EQ(commands.registerWith(shell), 0);
    EXPECT_EQ(shell.run("terminals"), 0);
    EXPECT_EQ(shell.output, "");
    table.show({0, 1}, {"dvb://1\n\xFF", "u", 2, std::chrono::system_clock::time_point(0s)});
    EXPECT_EQ(shell.run("terminals"), 0);
    EXPECT_EQ(shell.output,
              "type 0, typeName \"main\", id 1, uri \"dvb://1\\n\xEF\xBF\xBD\", uuid \"u\", client 2, "
              "since \"1970-01-01T00:00:00Z\"\n");
    shell.json = true;
    EXPECT_EQ(shell.run("terminals"), 0);
    const auto list = nlohmann::json::parse(shell.output);
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0]["type"], 0);
    EXPECT_EQ(list[0]["typeName"], "main");
    EXPECT_EQ(list[0]["id"], 1);
    EXPECT_EQ(list[0]["uuid"], "u");
    EXPECT_EQ(list[0]["client"], 2);
}

TEST(ShellCommands, ReportHowFullTheTablesAre) {
    const host::LogCapture log({logModule});
    TerminalTable table;
    FaultSwitches faults;
    FakeShell shell;
    ShellCommands commands(table, faults);
    commands.addTables([] { return std::vector<TableCount>{{"locks", 2, 3, 4}}; });
    ASSERT_EQ(commands.registerWith(shell), 0);
    table.show({0, 1}, {"dvb://1", "", 2, {}});
    table.show({0, 2}, {std::string(bounds::textBytes, 'x'), "", 2, {}});
    EXPECT_EQ(shell.run("stats", {"tables"}), 0);
    EXPECT_EQ(shell.output,
              "table \"terminals\", held 1, most 256, refused 1\n"
              "table \"locks\", held 2, most 3, refused 4\n");
    EXPECT_EQ(shell.run("stats", {"chairs"}), -22);
}

TEST(ShellCommands, ListTheChannels) {
    const auto channels = ChannelList::fromText(
        "[[channel]]\nuri = \"dvb://2\"\nname = \"Two\"\n[[channel]]\nuri = \"dvb://1\"\nname = \"One\"\n",
        "list.toml");
    FakeShell shell;
    ChannelsCommand command(channels);
    ASSERT_EQ(command.registerWith(shell), 0);
    EXPECT_EQ(shell.run("channels"), 0);
    EXPECT_EQ(shell.output, "number 1, uri \"dvb://1\", name \"One\"\nnumber 2, uri \"dvb://2\", name \"Two\"\n");
    shell.json = true;
    EXPECT_EQ(shell.run("channels"), 0);
    EXPECT_EQ(nlohmann::json::parse(shell.output)[1]["name"], "Two");
}

TEST(ShellCommands, SetTheLevelAtWhichRequestsAreLogged) {
    const host::LogCapture log({logModule});
    TerminalTable table;
    FaultSwitches faults;
    FakeShell shell;
    ShellCommands commands(table, faults);
    ASSERT_EQ(commands.registerWith(shell), 0);
    vdlDebugNameModule(logModule, "service");
    EXPECT_EQ(shell.run("log", {"service=failure"}), 0);
    executeTv({request(0, 0, "dvb://1", "6")}, table);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(shell.run("log", {"service=info"}), 0);
    executeTv({request(0, 1, "dvb://9", "7")}, table);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text, "client 7: request 7: terminal 0:1: dvb://9: unknown channel");
    EXPECT_EQ(shell.output, "");
    EXPECT_EQ(shell.run("log", {"servise=info"}), -22);
    EXPECT_THAT(shell.output, HasSubstr("no module of this process has the name servise; it has "));
    EXPECT_EQ(shell.run("log", {"service=loud"}), -22);
    EXPECT_THAT(shell.output, HasSubstr("loud"));
    EXPECT_EQ(shell.run("log", {}), -22);
    EXPECT_THAT(shell.output, HasSubstr("expected MODULE=LEVEL; the modules are "));
}

TEST(ShellCommands, TellWhyARequestFailed) {
    TerminalTable table;
    FaultSwitches faults;
    FakeShell shell;
    ShellCommands commands(table, faults);
    ASSERT_EQ(commands.registerWith(shell), 0);
    table.fail({"a-1", {0, 1}, result::codecMissing, "H.264 decoder"});
    table.fail({"a-2", {0, 0}, result::noTuner, "no tuner"});
    shell.json = true;
    EXPECT_EQ(shell.run("failures", {"a-1"}), 0);
    EXPECT_EQ(nlohmann::json::parse(shell.output),
              nlohmann::json::parse(R"([{"type": 0, "id": 1, "result": 11, "resultName": "codec missing",
                                         "reason": "H.264 decoder"}])"));
}

TEST(TerminalTable, KeepsTheNewestFailuresAndShortReasons) {
    TerminalTable table;
    table.fail({"first", {0, 0}, result::notMedia, "x"});
    const std::string large(2 * TerminalTable::mostReasonBytes, 'x');
    table.fail({large, {0, 0}, result::notMedia, "x"});
    for (std::size_t i = 0; i < TerminalTable::mostFailures; ++i) table.fail({"a", {0, 0}, result::notMedia, large});
    EXPECT_TRUE(table.failuresOf("first").empty());
    EXPECT_TRUE(table.failuresOf(large).empty());
    ASSERT_EQ(table.failuresOf("a").size(), TerminalTable::mostFailures);
    EXPECT_EQ(table.failuresOf("a")[0].reason.size(), TerminalTable::mostReasonBytes);
}

TEST(ShellCommands, SetAndListTheFaultSwitches) {
    TerminalTable table;
    FaultSwitches faults;
    FakeShell shell;
    ShellCommands commands(table, faults);
    ASSERT_EQ(commands.registerWith(shell), 0);
    EXPECT_EQ(shell.run("fault", {"delay", "20"}), 0);
    EXPECT_EQ(faults.get().delay, 20ms);
    EXPECT_EQ(shell.run("faults"), 0);
    EXPECT_EQ(shell.output,
              "delay 20, mute \"off\", wrong \"off\", duplicate \"off\", other-id \"off\", exit-after 0\n");
    EXPECT_EQ(shell.run("fault", {"clear"}), 0);
    EXPECT_EQ(faults.get(), Faults{});
    shell.json = true;
    EXPECT_EQ(shell.run("faults"), 0);
    EXPECT_EQ(nlohmann::json::parse(shell.output)["mute"], "off");
}

TEST(ShellCommands, ReportWhatIsWrongWithAFaultSwitch) {
    TerminalTable table;
    FaultSwitches faults;
    FakeShell shell;
    ShellCommands commands(table, faults);
    ASSERT_EQ(commands.registerWith(shell), 0);
    EXPECT_EQ(shell.run("fault", {"mute", "maybe"}), -22);
    EXPECT_EQ(shell.output, "mute takes on or off, not \"maybe\"\n");
}

TEST(ShellCommands, AreNotRegisteredTwice) {
    TerminalTable table;
    FaultSwitches faults;
    FakeShell shell;
    ShellCommands commands(table, faults), others(table, faults);
    EXPECT_EQ(commands.registerWith(shell), 0);
    EXPECT_EQ(others.registerWith(shell), -17);
}
