// Resource managers whose services answer at once.
#pragma once

#include "app-tvservice-proxy-main.h"
#include "instant-service.h"
#include "resource-manager.h"

#include <tvservice/client-base.h>

#include <boost/make_shared.hpp>
#include <cstdint>
#include <functional>
#include <thread-safety/mutex.h>

namespace bench {

// One live service per terminal; the terminals differ.
std::vector<tvservice::TvServiceReq_t> playRequests(std::size_t count, const std::string& uri);
inline const std::string liveUri = "dvb://8468.1537.28225/present?network=9018&transport=4102";
inline const std::string networkUri = "http://media.example/vod/0001/master.m3u8?session=2f0c51de9f4b4f1d";

// Both services answer with plain records inside the send call, so only the manager's own work remains.
class Manager : public tvservice::ResManager {
public:
    struct OneThread {};
    Manager() { countAnswers(); }
    // Without a worker: the caller processes its own requests with work().
    explicit Manager(OneThread) : ResManager(WithoutWorker{}) { countAnswers(); }

    void ask(const std::vector<tvservice::TvServiceReq_t>& requests) {
        frame::MsgIds ids;
        tvServiceReq(ids, {}, requests);
    }
    // Executes the front sending step. Returns false if there is none.
    bool work();
    void dropLast() {
        const thread_safety::LockGuard lock(resMutex);
        reqQueue.pop_back();
    }
    std::size_t queued() {
        const thread_safety::LockGuard lock(resMutex);
        return reqQueue.size();
    }

    // The number of answers to the callback so far.
    std::uint64_t answered() const { return answered_; }
    void waitForAnswers(std::uint64_t count);

protected:
    int ReqMM(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<tvservice::TvServiceReq_t>& requests) override {
        return MMServiceInfo(ids, transport, answersTo(requests));
    }
    int ReqTV(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<tvservice::TvServiceReq_t>& requests) override {
        return TVServiceInfo(ids, transport, answersTo(requests));
    }

private:
    void countAnswers();

    std::atomic<std::uint64_t> answered_{0}, awaited_{UINT64_MAX};
    thread_safety::Mutex mutex_; // prevents lost wake-ups
    std::condition_variable changed_;
};

// Reaches the TV service through its proxy, with messages built, marshalled, validated and read in both directions.
class ManagerWithProxy final : public Manager {
public:
    ManagerWithProxy() { join(); }
    explicit ManagerWithProxy(OneThread oneThread) : Manager(oneThread) { join(); }

private:
    struct Answers : tvservice::ClientBase {
        explicit Answers(ManagerWithProxy& manager) : manager_(manager) {}
        int tvServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                          const std::vector<tvservice::TvServiceInfo_t>& infos) override {
            return manager_.TVServiceInfo(ids, transport, infos);
        }
        ManagerWithProxy& manager_;
    };

    int ReqTV(frame::MsgIds& ids, const frame::TransportInfo& transport,
              const std::vector<tvservice::TvServiceReq_t>& requests) override {
        return proxy_.tvServiceReq(ids, transport, requests);
    }
    void join();

    InstantService service_;
    tvservice::Proxy proxy_;
};

} // namespace bench
