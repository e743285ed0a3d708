// A resource manager without its thread. The test runs the worker's cycles one by one, in simulated time, and compares
// what the manager sends, reports, queues and logs as text.
#pragma once

#include "resource-manager.h"

#include <genrpc/log.h>
#include <host/log-capture.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <string>
#include <thread-safety/mutex.h>
#include <thread>
#include <utility>
#include <vector>

namespace managertest {

using namespace tvservice;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

inline std::string show(const TvServiceTerminal_t& terminal) {
    return " " + std::to_string(terminal.type) + ":" + std::to_string(terminal.id) + "=";
}

inline std::string show(const std::vector<TvServiceReq_t>& requests) {
    std::string text;
    for (const auto& r : requests) text += show(r.terminal) + r.uri + "#" + r.reqId;
    return text;
}

inline std::string show(const std::vector<TvServiceInfo_t>& infos) {
    std::string text;
    for (const auto& i : infos) text += show(i.terminal) + i.uri + "/" + std::to_string(i.result) + "#" + i.reqId;
    return text;
}

inline TvServiceReq_t request(int type, int id, const std::string& uri, const std::string& reqId = "") {
    TvServiceReq_t r;
    r.terminal = {type, id};
    r.uri = uri;
    r.reqId = reqId;
    return r;
}

inline TvServiceInfo_t info(int type, int id, const std::string& reqId, int result = 0, const std::string& uri = "u") {
    TvServiceInfo_t i;
    i.terminal = {type, id};
    i.result = result;
    i.uri = uri;
    i.reqId = reqId;
    return i;
}

// A line as "severity text", without the line number of its source location: "4000 resource-manager.cpp:notifyInfo():
// finished".
inline std::string show(const host::LogCapture::Line& line) {
    const std::string file = "resource-manager.cpp:";
    std::string text = line.text;
    if (text.rfind(file, 0) == 0) text.erase(file.size(), text.find(':', file.size()) + 1 - file.size());
    return std::to_string(line.levelWord - genrpc::ManagerLog * 65536U) + " " + text;
}

inline std::vector<std::string> show(const std::vector<host::LogCapture::Line>& lines) {
    std::vector<std::string> texts;
    texts.reserve(lines.size());
    for (const auto& line : lines) texts.push_back(show(line));
    return texts;
}

// A point in time that one thread sets and others read. Any thread that inspects the queue reads the clock.
class SimulatedNow {
public:
    using Point = std::chrono::steady_clock::time_point;

    operator Point() const { return Point(Point::duration(sinceStart_)); }
    SimulatedNow& operator=(Point point) {
        sinceStart_ = point.time_since_epoch().count();
        return *this;
    }
    SimulatedNow& operator+=(Point::duration time) { return *this = Point(*this) + time; }

private:
    std::atomic<Point::rep> sinceStart_{0};
};

// The clock of the manager under test. A wait returns at once: notified if duringWaits has an action, which then runs
// and may advance the time; timed out otherwise.
struct SimulatedTime {
    SimulatedNow now;
    std::deque<std::function<void()>> duringWaits;

    static SimulatedTime& get() {
        static SimulatedTime time;
        return time;
    }
    static void install() {
        get().now = SimulatedNow::Point(100s);
        get().duringWaits.clear();
        resClock = []() -> SimulatedNow::Point { return get().now; };
        resWait = [](std::condition_variable&, std::unique_lock<std::mutex>& lock) {
            auto& pending = get().duringWaits;
            if (pending.empty()) return std::cv_status::timeout;
            const auto action = std::move(pending.front());
            pending.pop_front();
            lock.unlock();
            action();
            lock.lock();
            return std::cv_status::no_timeout;
        };
    }
};

class Manager : public ResManager {
public:
    Manager() : ResManager(WithoutWorker{}) {
        registerInfocb([this](frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceInfo_t>& infos) {
            expectFreeMutex("while it reports");
            reports.push_back("info" + show(infos));
            return 0;
        });
    }
    int ReqMM(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<TvServiceReq_t>& r) override {
        return note("MM" + show(r), ids, transport);
    }
    int ReqTV(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<TvServiceReq_t>& r) override {
        return note("TV" + show(r), ids, transport);
    }

    // Sends requests as a client with its own ids and transport, which must not reach the services.
    int ask(const std::vector<TvServiceReq_t>& requests) {
        frame::MsgIds ids{77, 88};
        return tvServiceReq(ids, frame::TransportInfo{5, {1, 2}}, requests);
    }
    // Runs one cycle of the worker. Returns whether it sent something; otherwise it waited a second and checked the
    // clock.
    bool work() {
        const std::size_t before = sendings;
        cycle({"resource-manager.cpp", 1, "ResMTask"});
        expectFreeMutex("after a cycle");
        return sendings != before;
    }
    void supervise() {
        const thread_safety::LockGuard lock(resMutex);
        timeoutCheck();
    }
    int answer(ResResponse from, const std::vector<TvServiceInfo_t>& infos) {
        frame::MsgIds ids;
        return tvServiceInfo(from, ids, frame::TransportInfo{}, infos);
    }
    // The queue as text: "id: step/awaited ...".
    std::vector<std::string> queue() {
        std::vector<std::string> lines;
        for (const auto& bundle : bundles()) {
            std::string line = bundle.reqId + ":";
            for (const auto& step : bundle.steps)
                line += " " + step.operation.substr(14) + "/" + step.awaited.substr(13);
            lines.push_back(line);
        }
        return lines;
    }
    auto queued() {
        const thread_safety::LockGuard lock(resMutex);
        return reqQueue;
    }
    void queueUp(const std::shared_ptr<tvservice::ResRequests_>& bundle) {
        const thread_safety::LockGuard lock(resMutex);
        reqQueue.push_back(bundle);
    }
    std::string lists(std::size_t index = 0) {
        const auto& b = *queued()[index];
        return "pStop" + show(*b.pStop) + " | pTvStop" + show(*b.pTvStop) + " | pMM" + show(*b.pMM) + " | pTV" +
               show(*b.pTV);
    }

    using ResManager::createReqID;
    using ResManager::reqIdLock;
    using ResManager::reqIdSeq;

    std::vector<std::string> sent, reports;

private:
    int note(std::string line, const frame::MsgIds& ids, const frame::TransportInfo& transport) {
        EXPECT_EQ(ids, frame::MsgIds{});
        EXPECT_EQ(transport, frame::TransportInfo{});
        expectFreeMutex("while it sends");
        sent.push_back(std::move(line));
        ++sendings;
        return 0;
    }

    // Expects that this thread does not hold the mutex. Others may hold it for a moment.
    void expectFreeMutex(const char* when) {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        bool isFree;
        while (!(isFree = resMutex.try_lock()) && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        EXPECT_TRUE(isFree) << when;
        if (isFree) resMutex.unlock();
    }

    std::size_t sendings = 0; // never reset, unlike the records of what was sent
};

// The state of what the MM service plays outlives a manager. A live start removes a terminal from it.
inline void resetPlayingTerminals() {
    for (int type = 0; type < 10; ++type)
        for (int id = 0; id < 2; ++id) Manager().ask({request(type, id, "dvb://forget")});
}

class ResManagerTest : public testing::Test {
protected:
    ResManagerTest() {
        SimulatedTime::install();
        resetPlayingTerminals();
        log.emplace(std::vector<std::uint32_t>{genrpc::ManagerLog});
    }
    // The lines that contain part, without their source locations.
    std::vector<std::string> linesWith(const std::string& part) const {
        std::vector<std::string> found;
        for (const auto& line : log->lines()) {
            const auto place = line.text.find("(): ");
            if (line.text.find(part) != std::string::npos)
                found.push_back(line.text.substr(place == std::string::npos ? 0 : place + 4));
        }
        return found;
    }
    std::vector<std::string> lines() const { return show(log->lines()); }
    void forgetLines() {
        log.reset();
        log.emplace(std::vector<std::uint32_t>{genrpc::ManagerLog});
    }

    Manager manager;
    std::optional<host::LogCapture> log;
};

} // namespace managertest
