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

// Both services answer with plain records from inside the sending: what remains is the manager's own work.
class Manager : public tvservice::ResManager {
public:
    struct OneThread {};
    Manager() { countAnswers(); }
    // Without a worker: the caller works off what it has asked for.
    explicit Manager(OneThread) : ResManager(WithoutWorker{}) { countAnswers(); }

    void ask(const std::vector<tvservice::TvServiceReq_t>& requests) {
        frame::MsgIds ids;
        tvServiceReq(ids, {}, requests);
    }
    // Carries out the front sending step; whether there was one.
    bool work();
    void forgetLast() {
        const thread_safety::LockGuard lock(resMutex);
        reqQueue.pop_back();
    }
    std::size_t queued() {
        const thread_safety::LockGuard lock(resMutex);
        return reqQueue.size();
    }

    // Answers that reached the callback since the manager was made.
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
    thread_safety::Mutex mutex_; // so that no wait misses a notification
    std::condition_variable arrived_;
};

// The TV service is reached through its proxy: with messages made, marshalled, validated and read both ways.
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
