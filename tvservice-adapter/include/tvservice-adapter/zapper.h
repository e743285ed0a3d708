// Sends the adapter one request per terminal at a time; applications use it for zapping.
//
// The adapter executes requests strictly one after the other. It drops one whose answer does not arrive, but it checks
// that only after a second without a new request. An application that sends a request with every key press therefore
// keeps the adapter from dropping a request, and all terminals wait. A Zapper sends the newest request when the one
// before it has been answered or dropped, and nothing in between:
//
//     tvservice::Zapper zapper(*adapter, [](const tvservice::ZapOutcome& outcome) { ... });
//     zapper.want(request);   // with every key press; twenty quick ones cost two requests and end on the last
//     zapper.stop({0, 0});    // a stop is a request like any other: the newest wins
//
// Time: a lost answer costs at most 7.5 s: 5 s until the adapter's limit, up to 1 s until the adapter checks it, up to
// 0.25 s until the Zapper notices, the rest for a busy machine. This counts from the moment when the request is sent to
// the service: if a stop had to be sent first, slow answers to it may have taken up to 5 s before. The adapter does not
// get a second without requests while requests that bypass the Zapper keep arriving, from this application or others;
// then the Zapper keeps waiting, with one request per terminal. Another Zapper can delay the check only once, by less
// than a second.
// Outcomes: each request gets one (see ZapOutcome), in order for those that were sent. The function that receives them
// must not throw, and may call want(), stop() and forget(). It is called on the thread of want() or forget() (replaced,
// notSent), on the one that delivers the adapter's notifications (answered, notSent), or on the Zapper's own (dropped,
// notSent). An answer that arrives after its request was dropped is not reported: an application that needs it
// registers a client of its own with the adapter.
//
// Threads: want(), stop() and forget() may be called from any thread and from inside a notification. The Zapper
// registers a client with the adapter, so it must not be created or destroyed inside a notification or inside the
// function that receives the outcomes, nor before the adapter has started. It may be destroyed with a pending request,
// which the adapter executes or drops; queued requests are discarded. No outcome is reported after the destructor
// returns. It never calls the adapter with its own lock held. An application ends or destroys it when it is stopped
// (performStopping), because its thread must not outlive the adapter.
//
// Request ids: it generates its own ("zap-..."), different from those of all other Zappers of the process.
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

// How the Zappers of a program or library measure time. A test with simulated time (tvservice-adapter::testing)
// replaces it before it creates a Zapper.
struct ZapperTime {
    ZapQueue::Clock::time_point (*now)() = ZapQueue::Clock::now;
    // Calls look once per interval until the returned object is destroyed. Null: each Zapper has a thread for that.
    std::shared_ptr<void> (*repeat)(std::chrono::milliseconds interval, std::function<void()> look) = nullptr;
};
inline ZapperTime zapperTime;

class Zapper {
public:
    using Report = std::function<void(const ZapOutcome&)>;

    // The adapter must have started, and must outlive the Zapper. Throws when there is no memory or thread for it.
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

    // Makes this the newest request for its terminal. It is sent at once when no request is pending. Its reqId is
    // replaced. Returns 0; ZapQueue::tooManyWaiting when requests for too many other terminals are queued; or hasEnded
    // after end().
    int want(TvServiceReq_t request) { return queue_->want(std::move(request)); }

    // Makes a stop the newest request for a terminal.
    int stop(const TvServiceTerminal_t& terminal) {
        TvServiceReq_t request;
        request.terminal = terminal;
        request.uri = stopUri;
        return want(std::move(request));
    }

    // Removes the queued request for a terminal (its outcome is `replaced`): for an application that is about to send a
    // newer one directly to the adapter.
    void forget(const TvServiceTerminal_t& terminal) { queue_->forget(terminal); }

    // Does the same as the destructor, for an application that is stopped while other threads may still call want().
    // Not from two threads at a time.
    void end() {
        if (!looking_.end()) return;
        adapter_.removeClient(listener_);
    }

private:
    static constexpr std::chrono::milliseconds lookInterval{250};

    // The adapter also holds a reference, for as long as it may call this.
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

    // Detects dropped requests, on a thread that sleeps while no request is pending.
    class Looking {
    public:
        explicit Looking(std::shared_ptr<ZapQueue> queue) : queue_(std::move(queue)) {
            if (zapperTime.repeat != nullptr)
                repetition_ = zapperTime.repeat(lookInterval, [looked = queue_] { looked->look(); });
            else
                thread_ = std::thread([this] {
                    while (queue_->waitToLook(lookInterval)) queue_->look();
                });
        }
        ~Looking() { end(); }
        // Returns whether it was still looking.
        bool end() {
            if (!thread_.joinable() && !repetition_) return false;
            queue_->end();
            if (thread_.joinable()) thread_.join();
            repetition_.reset();
            return true;
        }

    private:
        std::shared_ptr<ZapQueue> queue_;
        std::thread thread_;
        std::shared_ptr<void> repetition_; // instead of the thread
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
                zapperTime.now, std::move(report)};
    }

    ModelTvServiceAdapter& adapter_;
    std::shared_ptr<ZapQueue> queue_;
    boost::shared_ptr<Listener> listener_;
    Looking looking_;
};

} // namespace tvservice
