// Asks the adapter for one thing per terminal at a time: what applications zap through.
//
// The adapter carries out requests strictly one after the other. It drops one whose answer does not come, but it looks
// for that only after a second without a new request. Whoever asks for a channel with every key press therefore keeps a
// lost answer from being given up, and all terminals wait. A Zapper sends the newest request when the one before it was
// answered or dropped, and nothing in between:
//
//     tvservice::Zapper zapper(*adapter, [](const tvservice::ZapOutcome& outcome) { ... });
//     zapper.want(request);   // with every key press; twenty quick ones cost two requests and end on the last
//     zapper.stop({0, 0});    // a stop is a request like any other: the newest wins
//
// Time: a lost answer costs at most 7.5 s: 5 s until the adapter's limit, up to 1 s until the adapter looks at it, up
// to 0.25 s until the Zapper sees that, the rest for a busy machine. That is counted from the sending to the service: a
// request that needs a stop first may have spent up to 5 s on slow answers to that before. The adapter does not get its
// second of quiet while requests keep coming to it by other ways, from this application or others; the Zapper then
// waits on, with one request per terminal. Another Zapper can put the look off only once, by less than a second.
//
// Outcomes: each request gets one (see ZapOutcome), in order for those that were sent. The function that takes them
// must not throw, and may call want(), stop() and forget(). It is called on the thread of want() or forget() (replaced,
// notSent), on the one that brings the adapter's notifications (answered, notSent), or on the Zapper's own (dropped,
// notSent). An answer that comes after its request was dropped is not reported: an application that needs it registers
// a client of its own with the adapter.
//
// Threads: want(), stop() and forget() may be called from any thread and from inside a notification. The Zapper
// registers a client with the adapter, so it must be neither made nor destroyed inside a notification or inside the
// function that takes the outcomes, nor before the adapter has started. It may be destroyed with a request under way,
// which the adapter carries out or drops; what waits is forgotten. No outcome is reported once the destructor returns.
// It never calls the adapter with a lock of its own held. An application ends or destroys it when it is stopped
// (performStopping), because its thread must not outlive the adapter.
//
// Request ids: it makes its own ("zap-..."), different from those of all other Zappers of the process.
#pragma once

#include <tvservice-adapter/model-tvservice-adapter.h>
#include <tvservice-adapter/zap-queue.h>
#include <tvservice/client-base.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tvservice {

class Zapper {
public:
    using Report = std::function<void(const ZapOutcome&)>;

    // The adapter must have started, and outlives the Zapper. Throws when there is no memory or no thread for it.
    explicit Zapper(ModelTvServiceAdapter& adapter, Report report = {})
        : adapter_(adapter),
          queue_(std::make_shared<ZapQueue>(surroundings(adapter, std::move(report)))),
          listener_(boost::make_shared<Listener>(queue_)),
          looking_(queue_) {
        adapter_.addClient(listener_);
    }
    ~Zapper() { end(); }

    Zapper(const Zapper&) = delete;
    Zapper& operator=(const Zapper&) = delete;

    // Makes this the newest wanted thing on its terminal. It is sent at once when nothing is under way. The reqId is
    // replaced. 0; or ZapQueue::tooManyWaiting when requests for so many other terminals wait already, hasEnded after
    // end().
    int want(TvServiceReq_t request) { return queue_->want(std::move(request)); }

    // Makes a stop the newest wanted thing on a terminal.
    int stop(const TvServiceTerminal_t& terminal) {
        TvServiceReq_t request;
        request.terminal = terminal;
        request.uri = stopUri;
        return want(std::move(request));
    }

    // Forgets what waits for a terminal (its outcome is `replaced`): for an application that is about to ask the
    // adapter directly for something newer there.
    void forget(const TvServiceTerminal_t& terminal) { queue_->forget(terminal); }

    // What the destructor does, for an application that is stopped while others may still call want(). Not from two
    // threads at a time.
    void end() {
        if (!looking_.end()) return;
        adapter_.removeClient(listener_);
    }

private:
    static constexpr std::chrono::milliseconds lookInterval{250};

    // Kept by the adapter, too, for as long as it may call it.
    class Listener : public ClientBase {
    public:
        explicit Listener(std::shared_ptr<ZapQueue> queue) : queue_(std::move(queue)) {}
        int tvServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                          const std::vector<TvServiceInfo_t>& infos) override {
            queue_->answer(infos);
            return 0;
        }

    private:
        std::shared_ptr<ZapQueue> queue_;
    };

    // The thread that sees what the adapter has dropped; it sleeps while nothing is under way.
    class Looking {
    public:
        explicit Looking(std::shared_ptr<ZapQueue> queue)
            : queue_(std::move(queue)), thread_([this] {
                  while (queue_->waitToLook(lookInterval)) queue_->look();
              }) {}
        ~Looking() { end(); }
        // Whether there was something to end.
        bool end() {
            if (!thread_.joinable()) return false;
            queue_->end();
            thread_.join();
            return true;
        }

    private:
        std::shared_ptr<ZapQueue> queue_;
        std::thread thread_;
    };

    static ZapQueue::Surroundings surroundings(ModelTvServiceAdapter& adapter, Report report) {
        return {[&adapter](const TvServiceReq_t& request) {
                    frame::MsgIds ids;
                    return adapter.tvServiceReq(ids, frame::TransportInfo{}, {request});
                },
                [&adapter](const std::string& reqId) {
                    const auto bundles = adapter.bundles();
                    return std::any_of(bundles.begin(), bundles.end(),
                                       [&](const BundleStatus& bundle) { return bundle.reqId == reqId; });
                },
                ZapQueue::Clock::now, std::move(report)};
    }

    ModelTvServiceAdapter& adapter_;
    std::shared_ptr<ZapQueue> queue_;
    boost::shared_ptr<Listener> listener_;
    Looking looking_;
};

} // namespace tvservice
