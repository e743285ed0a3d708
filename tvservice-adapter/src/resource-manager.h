// The resource manager: every play and stop request for a display terminal passes through it on its way to the TV
// service or the MM service.
//
// One call of tvServiceReq makes one bundle. One worker thread executes bundles strictly one after the other: stops
// before starts, the MM service before the TV service. A bundle ends when all awaited answers have arrived, or is
// dropped when some of them are missing more than 5 seconds after the sending.
//
// Threads: tvServiceReq, MMServiceInfo and TVServiceInfo may be called from any thread. registerInfocb is for start-up,
// before the first request. resMutex is never held while a request is sent or a callback runs.
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

// The kind of a step. The odd kinds wait.
enum ResOperation : std::uint32_t { SendingStop = 0, WaitingStop = 1, SendingStart = 2, WaitingStart = 3 };

// A set of services: the one that answers, or those whose answers are awaited. MM and TV add up to BOTH.
enum ResResponse : std::uint32_t { ResponseNO = 0, ResponseMM = 1, ResponseTV = 2, ResponseBOTH = 3 };

const char* textOf(ResOperation operation); // "Unsupported operation" for another value
const char* textOf(ResResponse response);   // "Unsupported Response" for another value

// One step of a bundle.
struct ResOP_ {
    bool endAfterStop = false; // whether the bundle ends with its stop answer; never set at present
    ResOperation op = SendingStop;
    ResResponse response = ResponseNO;                 // of a waiting step: the services whose answers are missing
    std::chrono::steady_clock::time_point startTime{}; // of a waiting step: when the sending step before it was taken
};

// One bundle: the requests of one call. The lists do not change once it is queued; resOps is guarded by resMutex.
struct ResRequests_ {
    using Requests = std::shared_ptr<std::vector<TvServiceReq_t>>;

    std::deque<ResOP_> resOps;                           // steps not completed yet, the front one is the current one
    Requests pStop;                                      // stops for the MM service
    Requests pTvStop;                                    // stops for the TV service
    Requests pMM;                                        // starts for the MM service
    Requests pTV;                                        // starts for the TV service
    std::shared_ptr<std::vector<TvServiceInfo_t>> pInfo; // answers so far
    std::shared_ptr<std::string> pReqId;

    ResRequests_(const Requests& mmStops, const Requests& tvStops, const Requests& mmStarts, const Requests& tvStarts,
                 const std::shared_ptr<std::vector<TvServiceInfo_t>>& infos, const std::shared_ptr<std::string>& reqId)
        : pStop(mmStops), pTvStop(tvStops), pMM(mmStarts), pTV(tvStarts), pInfo(infos), pReqId(reqId) {}
};

class ResManager {
public:
    using InfoCallback =
        std::function<int(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceInfo_t>&)>;

    // The only manager, created with its worker on the first call and destroyed at process exit.
    static ResManager* getResMInstance();

    // Send a list to a service. 0, or -1 when the service's interface cannot be found.
    virtual int ReqMM(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceReq_t>& requests);
    virtual int ReqTV(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceReq_t>& requests);
    // Waits for the end of the worker, up to about a second.
    virtual ~ResManager();

    ResManager(const ResManager&) = delete;
    ResManager& operator=(const ResManager&) = delete;

    // Queues the list as one bundle and returns 0. An empty list has no effect. ids and transport are not used.
    // A list whose requests have different request ids ends the process.
    int tvServiceReq(frame::MsgIds& ids, const frame::TransportInfo& transport,
                     const std::vector<TvServiceReq_t>& requests) TVSA_EXCLUDES(resMutex);

    // Adds a callback for finished answers and for answers that do not belong to the current bundle. Callbacks are
    // called in order of registration, on the thread that delivered the answer.
    void registerInfocb(InfoCallback callback);

    // These handle an answer of the MM service (converted), or of the TV service.
    int MMServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceInfo_t>& infos);
    int TVServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceInfo_t>& infos);
    // Handles an answer of the service `from`. Returns notifyInfo's result if it is for the current bundle, else 0.
    int tvServiceInfo(ResResponse from, frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceInfo_t>& infos) TVSA_EXCLUDES(resMutex);

    // The current state of the queue, for users.
    std::vector<BundleStatus> bundles() TVSA_EXCLUDES(resMutex);

protected:
    // A sending step that has begun. Answers may remove its bundle from the queue while it is sent.
    struct Sending {
        std::shared_ptr<ResRequests_> bundle;
        ResOperation op;
    };

    // The effect of an answer on its bundle.
    enum NotifyResult { Refused = -1, StillWaiting = 0, StartReleased = 1, Finished = 2 };

    struct WithoutWorker {};
    ResManager();
    explicit ResManager(WithoutWorker); // for tests that run the worker's cycle themselves

    // Chooses the request id of the requests' bundle: returns 1 and their common id, or 0 and a new one.
    int createReqID(const std::vector<TvServiceReq_t>& requests, std::string& reqId);

    // The worker. ResMTask repeats cycles: wait for something to send, at most a second at a time; then send it, or
    // check for timeouts. here: the source position of a cycle's log lines.
    void ResMTask() TVSA_EXCLUDES(resMutex);
    void cycle(genrpc::Here here) TVSA_EXCLUDES(resMutex);
    bool onSleep() const TVSA_REQUIRES(resMutex); // nothing to send
    // Waits until there is something to send (true), or a whole second without any notification has passed (false).
    bool waitForWork(thread_safety::UniqueLock& lock) TVSA_REQUIRES(resMutex);
    // takeFront removes the front bundle's sending step, and send executes it; both log as the task.
    Sending takeFront(genrpc::Here here) TVSA_REQUIRES(resMutex);
    void send(const Sending& sending, genrpc::Here here) TVSA_EXCLUDES(resMutex);
    // Drops the front bundle when its answers are missing for more than 5 seconds.
    void timeoutCheck() TVSA_REQUIRES(resMutex);

    // Lets the current bundle advance; there must be one. For Finished, infos becomes the outgoing list.
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
    // The front one is current. Not limited: applications of this process add requests, peers only remove them.
    std::deque<std::shared_ptr<ResRequests_>> reqQueue TVSA_GUARDED_BY(resMutex);
    std::atomic_flag reqIdLock = ATOMIC_FLAG_INIT; // its own lock, so that an id never waits for the queue
};

// The manager's clock, and its wait of one second on that clock. A test may replace both before it creates a manager
// that uses them.
extern std::chrono::steady_clock::time_point (*resClock)();
extern std::cv_status (*resWait)(std::condition_variable& condition, std::unique_lock<std::mutex>& lock);

} // namespace tvservice
