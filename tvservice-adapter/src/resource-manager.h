// The resource manager: every play and stop request for a display terminal passes through it on its way to the TV
// service or the MM service.
//
// One call of tvServiceReq makes one bundle. Bundles are carried out strictly one after the other by one worker thread:
// stops before starts, the MM service before the TV service. A bundle ends when the awaited answers are in, or is
// dropped when they are not all there more than 5 seconds after the sending.
//
// Threads: tvServiceReq, MMServiceInfo and TVServiceInfo may be called from any thread. registerInfocb belongs to
// start-up, before requests flow. resMutex is never held while a request is sent or a callback runs.
#pragma once

#include <frame/message.h>
#include <genrpc/log.h>
#include <tvservice-adapter/bundle-status.h>
#include <tvservice/core-records.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread-safety/mutex.h>
#include <thread>
#include <vector>

namespace tvservice {

// The kind of a step. The waiting kinds are the odd ones.
enum ResOperation : std::uint32_t { SendingStop = 0, WaitingStop = 1, SendingStart = 2, WaitingStart = 3 };

// A set of services: the one that answers, or those whose answers are awaited. MM and TV add up to BOTH.
enum ResResponse : std::uint32_t { ResponseNO = 0, ResponseMM = 1, ResponseTV = 2, ResponseBOTH = 3 };

const char* textOf(ResOperation operation); // "Unsupported operation" for another value
const char* textOf(ResResponse response);   // "Unsupported Response" for another value

// One step of a bundle.
struct ResOP_ {
    bool endAfterStop = false; // whether the bundle ends with its stop answer; nobody sets it today
    ResOperation op = SendingStop;
    ResResponse response = ResponseNO;                 // of a waiting step: the services still awaited
    std::chrono::steady_clock::time_point startTime{}; // of a waiting step: when the sending before it was done
};

// One bundle: what one call asked for. The lists do not change once it is queued; resOps is guarded by resMutex.
struct ResRequests_ {
    using Requests = std::shared_ptr<std::vector<TvServiceReq_t>>;

    std::deque<ResOP_> resOps;                           // steps still to do, the front one is under way
    Requests pStop;                                      // stops for the MM service
    Requests pTvStop;                                    // stops for the TV service
    Requests pMM;                                        // starts for the MM service
    Requests pTV;                                        // starts for the TV service
    std::shared_ptr<std::vector<TvServiceInfo_t>> pInfo; // answers gathered
    std::shared_ptr<std::string> pReqId;

    ResRequests_(const Requests& mmStops, const Requests& tvStops, const Requests& mmStarts, const Requests& tvStarts,
                 const std::shared_ptr<std::vector<TvServiceInfo_t>>& infos, const std::shared_ptr<std::string>& reqId)
        : pStop(mmStops), pTvStop(tvStops), pMM(mmStarts), pTV(tvStarts), pInfo(infos), pReqId(reqId) {}
};

class ResManager {
public:
    using InfoCallback =
        std::function<int(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceInfo_t>&)>;

    // The one manager, made with its worker on the first call and destroyed at process exit.
    static ResManager* getResMInstance();

    // Send a list to a service. 0, or -1 when the service's interface cannot be found.
    virtual int ReqMM(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceReq_t>& requests);
    virtual int ReqTV(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceReq_t>& requests);
    // Returns once the worker has noticed, up to about a second.
    virtual ~ResManager();

    ResManager(const ResManager&) = delete;
    ResManager& operator=(const ResManager&) = delete;

    // Queues the list as one bundle; 0. An empty list is nothing to do: 0 as well. ids and transport are not used.
    // A list whose requests carry different request ids ends the process.
    int tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<TvServiceReq_t>& requests) TVSA_EXCLUDES(resMutex);

    // Adds a callback for finished answers and for answers that belong to no bundle under way. Callbacks are called in
    // order of registration, on the thread that brought the answer.
    void registerInfocb(InfoCallback callback);

    // An answer of the MM service (converted), of the TV service.
    int MMServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceInfo_t>& infos);
    int TVServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceInfo_t>& infos);
    // An answer of the service `from`. Returns what notifyInfo made of an answer to the bundle under way, else 0.
    int tvServiceInfo(ResResponse from, frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceInfo_t>& infos) TVSA_EXCLUDES(resMutex);

    // The queue as it is now, for people.
    std::vector<BundleStatus> bundles() TVSA_EXCLUDES(resMutex);

protected:
    // A sending step that has begun. Answers may take its bundle off the queue while it is sent.
    struct Sending {
        std::shared_ptr<ResRequests_> bundle;
        ResOperation op;
    };

    // What a bundle is told by an answer to it.
    enum NotifyResult { Refused = -1, StillWaiting = 0, StartReleased = 1, Finished = 2 };

    struct WithoutWorker {};
    ResManager();
    explicit ResManager(WithoutWorker); // for tests that drive the worker's cycle themselves

    // The request id of the bundle that the requests will form: 1 and their common id, or 0 and a new one.
    int createReqID(const std::vector<TvServiceReq_t>& requests, std::string& reqId);

    // The worker. ResMTask repeats cycles: wait for something to send, at most a second at a time; send it, or look at
    // the clock. here: where a cycle's lines come from.
    void ResMTask() TVSA_EXCLUDES(resMutex);
    void cycle(genrpc::Here here) TVSA_EXCLUDES(resMutex);
    bool onSleep() const TVSA_REQUIRES(resMutex); // nothing to send
    // Waits until there is something to send (true), or a whole second without any notification has passed (false).
    bool waitForWork(thread_safety::UniqueLock& lock) TVSA_REQUIRES(resMutex);
    // Takes the front bundle's sending step off and sends what it says, logged as the task's own.
    Sending takeFront(genrpc::Here here) TVSA_REQUIRES(resMutex);
    void send(const Sending& sending, genrpc::Here here) TVSA_EXCLUDES(resMutex);
    // Drops the front bundle when its answers are more than 5 seconds overdue.
    void timeoutCheck() TVSA_REQUIRES(resMutex);

    // With a bundle under way: lets the bundle advance. For Finished, infos becomes what goes out.
    int notifyInfo(ResResponse from, frame::MsgIds& ids, const frame::TransportInfo& transport,
                   std::vector<TvServiceInfo_t>& infos) TVSA_REQUIRES(resMutex);
    int checkStopResult(frame::MsgIds& ids, const frame::TransportInfo& transport,
                        const std::vector<TvServiceInfo_t>& infos);
    // Marks every terminal for which a newer start is queued with result 1.
    void verifyResult(std::vector<TvServiceInfo_t>& infos) TVSA_REQUIRES(resMutex);

    std::list<InfoCallback> infoCbList; // fixed after start-up
    InfoCallback mmInfoCb;              // tvServiceInfo with ResponseMM
    InfoCallback tvInfoCb;              // tvServiceInfo with ResponseTV
    thread_safety::Mutex resMutex;      // guards reqQueue and the resOps of every bundle in it
    std::condition_variable resCond;    // wakes the worker
    std::uint32_t reqIdSeq = 1;         // the next generated id; guarded by reqIdLock
    std::thread resThread;
    std::atomic<int> exitTask{0};
    // The front one is under way. No bound: applications of this process add requests, peers only take them off.
    std::deque<std::shared_ptr<ResRequests_>> reqQueue TVSA_GUARDED_BY(resMutex);
    std::atomic_flag reqIdLock = ATOMIC_FLAG_INIT; // its own lock, so that an id never waits for the queue
};

// The manager's clock, and its wait of one second on that clock, for a test to put its own in their place before it
// makes a manager.
extern std::chrono::steady_clock::time_point (*resClock)();
extern std::cv_status (*resWait)(std::condition_variable& condition, std::unique_lock<std::mutex>& lock);

} // namespace tvservice
