#include "resource-manager.h"

#include "conversion.h"

#include <frame/process.h>
#include <genrpc/log.h>
#include <lrt/run-log-agent.h>
#include <mmservice/interfaces.h>
#include <ov/uri.h>
#include <tvservice-adapter/destination.h>
#include <tvservice/interfaces.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <utility>

namespace tvservice {

std::chrono::steady_clock::time_point (*resClock)() = std::chrono::steady_clock::now;
std::cv_status (*resWait)(std::condition_variable&, std::unique_lock<std::mutex>&) =
    [](std::condition_variable& condition, std::unique_lock<std::mutex>& lock) {
        return condition.wait_until(lock, std::chrono::steady_clock::now() + std::chrono::seconds(1));
    };

namespace {

namespace uri = ov::orveltools::uri;

constexpr auto module = genrpc::ManagerLog;
constexpr auto answerLimit = bundleAnswerLimit;
constexpr std::int32_t newerRequestQueued = 1; // result of a terminal for which a newer request is queued

// Found through the framework when first needed, kept until the process ends; used by the worker only.
ServiceInterface* tvServiceIf = nullptr;
mmservice::ServiceInterface* mmServiceIf = nullptr;

int sizeOf(const ResRequests_::Requests& requests) { return static_cast<int>(requests->size()); }

bool sameTerminal(const TvServiceTerminal_t& a, const TvServiceTerminal_t& b) {
    return a.type == b.type && a.id == b.id;
}

bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

// Whether a request's terminal occurs in a list.
class FindResource {
public:
    explicit FindResource(ResRequests_::Requests requests) : requests_(std::move(requests)) {}
    bool operator()(const TvServiceReq_t& request) const {
        return std::any_of(requests_->begin(), requests_->end(),
                           [&](const auto& held) { return sameTerminal(held.terminal, request.terminal); });
    }

private:
    ResRequests_::Requests requests_;
};

void forgetTerminals(std::vector<TvServiceReq_t>& running, const ResRequests_::Requests& of) {
    running.erase(std::remove_if(running.begin(), running.end(), FindResource(of)), running.end());
}

ResOP_ step(ResOperation op, unsigned response) { return {false, op, static_cast<ResResponse>(response), {}}; }

// A set of services, given as two flags.
unsigned services(bool mm, bool tv) { return (mm ? ResponseMM : 0U) + (tv ? ResponseTV : 0U); }

} // namespace

const char* textOf(ResOperation operation) {
    switch (operation) {
        case SendingStop:
            return "ResOperation::SendingStop";
        case WaitingStop:
            return "ResOperation::WaitingStop";
        case SendingStart:
            return "ResOperation::SendingStart";
        case WaitingStart:
            return "ResOperation::WaitingStart";
    }
    return "Unsupported operation";
}

const char* textOf(ResResponse response) {
    switch (response) {
        case ResponseNO:
            return "ResResponse::ResponseNO";
        case ResponseMM:
            return "ResResponse::ResponseMM";
        case ResponseTV:
            return "ResResponse::ResponseTV";
        case ResponseBOTH:
            return "ResResponse::ResponseBOTH";
    }
    return "Unsupported Response";
}

// ---- the one instance ----

ResManager* ResManager::getResMInstance() {
    static ResManager instance;
    return &instance;
}

ResManager::ResManager() : ResManager(WithoutWorker{}) {
    lrt::RunLogAgentImpl::getInstance(); // created now, so that it outlives the worker
    resThread = std::thread(&ResManager::ResMTask, this);
}

ResManager::ResManager(WithoutWorker) {
    using namespace std::placeholders;
    mmInfoCb = std::bind(&ResManager::tvServiceInfo, this, ResponseMM, _1, _2, _3);
    tvInfoCb = std::bind(&ResManager::tvServiceInfo, this, ResponseTV, _1, _2, _3);
}

ResManager::~ResManager() {
    exitTask = 1;
    if (resThread.joinable()) resThread.join();
}

// ---- intake ----

int ResManager::createReqID(const std::vector<TvServiceReq_t>& requests, std::string& reqId) {
    const std::string first = requests.front().reqId;
    if (!std::all_of(requests.begin(), requests.end(), [&](const auto& request) { return request.reqId == first; })) {
        // Requests of several bundles in one call are a client's programming error: answers could not be assigned.
        GENRPC_LOG(module, vdlDebugFailure, "reqid not equal in tvServiceReq \n");
        std::abort();
    }
    if (!first.empty()) {
        reqId = first;
        return 1;
    }
    while (reqIdLock.test_and_set()) {
    }
    const std::uint32_t sequence = reqIdSeq;
    reqIdSeq = sequence + 1;
    reqIdLock.clear();
    reqId = std::to_string(sequence);
    return 0;
}

int ResManager::tvServiceReq(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceReq_t>& requests) {
    GENRPC_LOG(module, vdlDebugTrace, "Called\n");
    if (requests.empty()) return 0;

    // What the MM service is assumed to play, by the starts sent to it; answers, failures and timeouts do not correct
    // it. The lock is held until the bundle is queued, so that bundles are queued in the order of the assumptions that
    // they are based on.
    static const auto runningMmReqs = std::make_shared<std::vector<TvServiceReq_t>>();
    static thread_safety::Mutex runningMutex;
    const thread_safety::LockGuard runningLock(runningMutex);

    const auto list = [&] {
        auto made = std::make_shared<std::vector<TvServiceReq_t>>();
        made->reserve(requests.size());
        return made;
    };
    const auto pStop = list(), pTvStop = list(), pMM = list(), pTV = list();
    const auto pInfo = std::make_shared<std::vector<TvServiceInfo_t>>();
    pInfo->reserve(requests.size());

    for (const TvServiceReq_t& received : requests) {
        TvServiceReq_t request = received;
        GENRPC_LOG(module, vdlDebugTrace,
                   "Tv Service Req:\nTERMINAL TYPE: %d  |  ID: %d\nURI:           '%s'\nUUID:          '%s'\n",
                   request.terminal.type, request.terminal.id, request.uri.c_str(), request.uuid.c_str());

        if (request.uri == stopUri && request.terminal.type != 5) {
            // Both services stop, and the TV service also starts the null source.
            pStop->push_back(request);
            pTvStop->push_back(request);
            pTV->push_back(request);
            continue;
        }

        const auto parsed = std::make_shared<uri::LtUri>(request.uri);
        const std::string scheme = parsed->getScheme();
        if (destination::isLocal(scheme)) {
            if (destination::isRecording(request.uri)) {
                GENRPC_LOG_PLAIN(module, vdlDebugProgress, "hdrplayback service url %s\n", parsed->getUri().c_str());
                pTV->push_back(request);
                request.uri = stopUri;
                pStop->push_back(request);
            } else {
                GENRPC_LOG_PLAIN(module, vdlDebugProgress, "media service  url %s\n", parsed->getUri().c_str());
                pMM->push_back(request);
                request.uri = stopUri;
                pStop->push_back(request);
                pTvStop->push_back(request);
            }
        } else if (destination::isStream(scheme)) {
            pMM->push_back(request);
            request.uri = stopUri;
            pStop->push_back(request);
            pTvStop->push_back(request);
        } else {
            // The TV service switches by itself; the MM service is stopped only where it is assumed to play.
            pTV->push_back(request);
            request.uri = stopUri;
            for (const TvServiceReq_t& running : *runningMmReqs)
                if (sameTerminal(running.terminal, request.terminal)) pStop->push_back(request);
        }
    }

    const auto pReqId = std::make_shared<std::string>();
    const int takenOver = createReqID(requests, *pReqId);
    GENRPC_LOG(module, vdlDebugProgress, "PFM-POWER2:new reqid %s created\n", pReqId->c_str());
    if (takenOver == 0)
        for (const auto& made : {pStop, pTvStop, pMM, pTV})
            for (TvServiceReq_t& request : *made) request.reqId = *pReqId;

    const auto bundle = std::make_shared<ResRequests_>(pStop, pTvStop, pMM, pTV, pInfo, pReqId);
    GENRPC_LOG(module, vdlDebugProgress, "Req size for new reqid %s: pStop %d, pTvStop %d, pMM %d, pTV %d \n",
               pReqId->c_str(), sizeOf(pStop), sizeOf(pTvStop), sizeOf(pMM), sizeOf(pTV));
    if (!pStop->empty() || !pTvStop->empty()) {
        bundle->resOps.push_back(step(SendingStop, ResponseNO));
        bundle->resOps.push_back(step(WaitingStop, services(!pStop->empty(), !pTvStop->empty())));
    }
    if (!pMM->empty() || !pTV->empty()) {
        bundle->resOps.push_back(step(SendingStart, ResponseNO));
        bundle->resOps.push_back(step(WaitingStart, services(!pMM->empty(), !pTV->empty())));
    }
    GENRPC_LOG(module, vdlDebugTrace, "dump the requests detail pstop size %d, pMM size %d, pTV size %d\n",
               sizeOf(bundle->pStop), sizeOf(bundle->pMM), sizeOf(bundle->pTV));

    // All memory is allocated before the bundle is queued: a call that fails changes neither queue nor assumption.
    std::vector<TvServiceReq_t> started = *pMM;
    runningMmReqs->reserve(runningMmReqs->size() + started.size());
    {
        const thread_safety::LockGuard lock(resMutex);
        reqQueue.push_back(bundle);
        resCond.notify_one();
    }
    if (!pStop->empty() || !pMM->empty()) {
        forgetTerminals(*runningMmReqs, pStop);
        forgetTerminals(*runningMmReqs, pMM);
        std::move(started.begin(), started.end(), std::back_inserter(*runningMmReqs));
    }
    return 0;
}

// ---- worker ----

void ResManager::ResMTask() {
    GENRPC_LOG(module, vdlDebugTrace, "tid %x \n", static_cast<unsigned>(pthread_self()));
    while (exitTask == 0) cycle(GENRPC_HERE);
}

void ResManager::cycle(genrpc::Here here) {
    thread_safety::UniqueLock lock(resMutex);
    if (!waitForWork(lock)) return timeoutCheck();
    const Sending sending = takeFront(here);
    lock.unlock();
    send(sending, here);
}

bool ResManager::onSleep() const {
    if (reqQueue.empty()) return true;
    const ResOperation op = reqQueue.front()->resOps.front().op;
    return op == WaitingStop || op == WaitingStart;
}

bool ResManager::waitForWork(thread_safety::UniqueLock& lock) {
    while (onSleep()) {
        // Every wait lasts a second: a notification starts the next one and thus delays the supervision.
        if (resWait(resCond, lock) == std::cv_status::timeout) return false;
    }
    return true;
}

ResManager::Sending ResManager::takeFront(genrpc::Here here) {
    const std::shared_ptr<ResRequests_> bundle = reqQueue.front();
    const ResOP_ front = bundle->resOps.front();
    GENRPC_LOG_AT(here, module, vdlDebugProgress, "Sending reqid %s, %s, %s\n", bundle->pReqId->c_str(),
                  textOf(front.op), textOf(front.response));

    bundle->resOps.pop_front();
    if (!bundle->resOps.empty()) bundle->resOps.front().startTime = resClock();
    return {bundle, front.op};
}

void ResManager::send(const Sending& sending, genrpc::Here here) {
    const auto& bundle = sending.bundle;
    const auto& forMm = sending.op == SendingStop ? bundle->pStop : bundle->pMM;
    const auto& forTv = sending.op == SendingStop ? bundle->pTvStop : bundle->pTV;
    // Requests are sent with ids of their own, not with the client's.
    frame::MsgIds ids;
    const frame::TransportInfo transport;
    // The result of sending is ignored: a bundle that was not sent gets no answer and is dropped after the limit. If
    // memory runs out while sending to one service, the other one still gets its requests.
    const auto sendThrough = [&](auto request, const std::vector<TvServiceReq_t>& requests) {
        if (requests.empty()) return;
        try {
            (this->*request)(ids, transport, requests);
        } catch (const std::exception& error) {
            GENRPC_LOG_AT(here, module, vdlDebugFailure, "reqid %s not sent: %s\n", bundle->pReqId->c_str(),
                          error.what());
        }
    };
    sendThrough(&ResManager::ReqMM, *forMm);
    sendThrough(&ResManager::ReqTV, *forTv);
}

int ResManager::ReqTV(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceReq_t>& requests) {
    GENRPC_LOG(module, vdlDebugTrace, "Called\n");
    if (tvServiceIf == nullptr) {
        boost::shared_ptr<frame::Interface> reference;
        const int result =
            frame::Process::getInstance()->getInterfaceReference(reference, ServiceInterface::interfaceKey);
        if (result < 0) {
            GENRPC_LOG(module, vdlDebugFailure, "Unable to lookup tvservice-interface: %d.\n", result);
            return -1;
        }
        tvServiceIf = reference->get<ServiceInterface>();
        GENRPC_LOG(module, vdlDebugProgress, "tvservice-interface pointer = %p.\n", static_cast<void*>(tvServiceIf));
    }
    if (tvServiceIf != nullptr) tvServiceIf->tvServiceReq(ids, transport, requests);
    return 0;
}

int ResManager::ReqMM(frame::MsgIds& ids, const frame::TransportInfo& transport,
                      const std::vector<TvServiceReq_t>& requests) {
    GENRPC_LOG(module, vdlDebugTrace, "Called\n");
    if (mmServiceIf == nullptr) {
        boost::shared_ptr<frame::Interface> reference;
        const int result =
            frame::Process::getInstance()->getInterfaceReference(reference, mmservice::ServiceInterface::interfaceKey);
        if (result < 0) {
            GENRPC_LOG(module, vdlDebugFailure, "Unable to lookup mmservice-interface: %d.\n", result);
            return -1;
        }
        mmServiceIf = reference->get<mmservice::ServiceInterface>();
        GENRPC_LOG(module, vdlDebugProgress, "mmservice-interface pointer = %p.\n", static_cast<void*>(mmServiceIf));
    }
    std::vector<mmservice::MMServiceReq_t> converted;
    convertTvtoMm(requests, converted);
    if (mmServiceIf != nullptr) mmServiceIf->mmServiceReq(ids, transport, converted);
    return 0;
}

// ---- supervision ----

void ResManager::timeoutCheck() {
    GENRPC_LOG(module, vdlDebugTrace, "Called \n");
    if (reqQueue.empty()) return;
    const std::shared_ptr<ResRequests_> bundle = reqQueue.front();
    const ResOP_ front = bundle->resOps.front();
    if (front.op != WaitingStop && front.op != WaitingStart) return;

    const char* reqId = bundle->pReqId->c_str();
    if (front.startTime + answerLimit >= resClock()) {
        GENRPC_LOG(module, vdlDebugTrace, "currently reqid %s,%s,%s\n", reqId, textOf(front.op),
                   textOf(front.response));
        return;
    }
    GENRPC_LOG(module, vdlDebugWarning, "Found reqid %s,%s,%s timeout 5s, erase it\n", reqId, textOf(front.op),
               textOf(front.response));

    reqQueue.pop_front(); // even if the record below fails

    // The run log records a main terminal that did not get its live picture.
    if (bundle->pTV) {
        const auto failed = std::find_if(bundle->pTV->begin(), bundle->pTV->end(), [](const auto& request) {
            return request.terminal.type == 0 && request.terminal.id == 0 && !contains(request.uri, stopUri);
        });
        if (failed == bundle->pTV->end()) return;
        try {
            auto& agent = lrt::RunLogAgentImpl::getInstance();
            lrt::RunLogRecord record;
            record.logCode = "004001";
            record.logTime = agent.getLogCurrentUTCTime();
            record.errorCode = "00400109";
            record.eventId = 9301;
            record.logText = std::string("Waiting for response of ") + textOf(front.op) + ", " +
                             textOf(front.response) + ", Uri: " + failed->uri;
            record.logKind = 4;
            GENRPC_LOG(module, vdlDebugWarning,
                       "writeTvRunLog switch channel failed, reason: timeout for response of %s \n", textOf(front.op));
            agent.writeRunLog(record);
        } catch (const std::exception& error) { // out of memory, which must not end the worker
            GENRPC_LOG(module, vdlDebugFailure, "no run log record of reqid %s: %s\n", reqId, error.what());
        }
    }
}

// ---- answers ----

void ResManager::registerInfocb(InfoCallback callback) { infoCbList.push_back(std::move(callback)); }

int ResManager::MMServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              const std::vector<TvServiceInfo_t>& infos) {
    return mmInfoCb(ids, transport, infos);
}

int ResManager::TVServiceInfo(frame::MsgIds& ids, const frame::TransportInfo& transport,
                              const std::vector<TvServiceInfo_t>& infos) {
    return tvInfoCb(ids, transport, infos);
}

int ResManager::tvServiceInfo(ResResponse from, frame::MsgIds& ids, const frame::TransportInfo& transport,
                              const std::vector<TvServiceInfo_t>& infos) {
    GENRPC_LOG(module, vdlDebugTrace, "Called\n");
    const auto passOn = [&](const std::vector<TvServiceInfo_t>& list) {
        for (const InfoCallback& callback : infoCbList) callback(ids, transport, list);
    };
    const auto notForUs = [&] {
        passOn(infos);
        return 0;
    };

    if (infos.empty()) {
        GENRPC_LOG(module, vdlDebugTrace, "tvServiceInfo empty return \n");
        return notForUs();
    }
    for (const TvServiceInfo_t& info : infos)
        GENRPC_LOG(module, vdlDebugTrace,
                   "%s Service Info:\nTERMINAL TYPE: %d  |  ID: %d\nRESULT:        %d\nURI:           '%s'\nUUID:      "
                   "    '%s'\nUUID_ANCESTOR: '%s'\n\n",
                   textOf(from), info.terminal.type, info.terminal.id, info.result, info.uri.c_str(), info.uuid.c_str(),
                   info.uuidAncestor.c_str());
    // A list answers one request: all records have the id of the first one.
    const std::string& reqId = infos.front().reqId;
    if (reqId.empty()) {
        GENRPC_LOG(module, vdlDebugTrace, "tvServiceInfo req_id empty return\n");
        return notForUs();
    }
    if (from != ResponseMM && from != ResponseTV && from != ResponseBOTH) {
        GENRPC_LOG(module, vdlDebugFailure, "response %s not corrected  in reqid %s\n", textOf(from), reqId.c_str());
        return notForUs();
    }

    thread_safety::UniqueLock lock(resMutex);
    if (reqQueue.empty()) {
        GENRPC_LOG(module, vdlDebugTrace, "currently queue empty, not for us\n");
        lock.unlock();
        return notForUs();
    }
    if (reqId != *reqQueue.front()->pReqId) {
        GENRPC_LOG(module, vdlDebugWarning, "red_id %s not found\n", reqId.c_str());
        lock.unlock();
        return notForUs();
    }
    std::vector<TvServiceInfo_t> outgoing = infos;
    const int result = notifyInfo(from, ids, transport, outgoing);
    lock.unlock();
    if (result == Finished) passOn(outgoing);
    return result;
}

int ResManager::notifyInfo(ResResponse from, frame::MsgIds& ids, const frame::TransportInfo& transport,
                           std::vector<TvServiceInfo_t>& infos) {
    GENRPC_LOG(module, vdlDebugTrace, "Called\n");
    const std::shared_ptr<ResRequests_> bundle = reqQueue.front();
    ResOP_& front = bundle->resOps.front();
    const char* reqId = bundle->pReqId->c_str();
    GENRPC_LOG(module, vdlDebugProgress, "Receiving req_id %s,%s,%s, all %s\n", reqId, textOf(front.op), textOf(from),
               textOf(front.response));

    const genrpc::Here here = GENRPC_HERE; // for the lambda, which has no name of its own
    const auto leaveQueue = [&]() TVSA_REQUIRES(resMutex) {
        reqQueue.pop_front();
        resCond.notify_one();
    };
    const auto finish = [&]() TVSA_REQUIRES(resMutex) {
        reqQueue.pop_front();
        verifyResult(infos);
        GENRPC_LOG_AT(here, module, vdlDebugProgress, "finished req_id %s\n", reqId);
        resCond.notify_one();
        return Finished;
    };
    // Subtracted, not cleared as a bit: if a service answers twice, the other one's answer does not bring the remainder
    // to zero, and the bundle waits until it is dropped. Only three answers of the MM service count as one of each
    // service.
    const auto allThere = [&] {
        front.response = static_cast<ResResponse>(front.response - from);
        return front.response == ResponseNO;
    };

    if (front.op == WaitingStop) {
        if (front.endAfterStop) {
            GENRPC_LOG(module, vdlDebugWarning, "WaitingStop req_id %s,%s,%s timeout, abandon it\n", reqId,
                       textOf(front.op), textOf(from));
            leaveQueue();
            return Refused;
        }
        if (checkStopResult(ids, transport, infos) != 0) {
            GENRPC_LOG(module, vdlDebugWarning, "StopResult req_id %s,%s,%s,abandon it\n", reqId, textOf(front.op),
                       textOf(from));
            leaveQueue();
            return Refused;
        }
        if (!allThere()) return StillWaiting;
        bundle->resOps.pop_front();
        if (bundle->resOps.empty()) return finish();
        resCond.notify_one();
        return StartReleased;
    }
    if (front.op == WaitingStart) {
        bundle->pInfo->insert(bundle->pInfo->end(), infos.begin(), infos.end());
        if (!allThere()) return StillWaiting;
        infos.swap(*bundle->pInfo); // allocates nothing: nothing may fail from here on
        return finish();
    }
    // The answer arrived before its request was sent.
    GENRPC_LOG(module, vdlDebugFailure, "Wrong response req_id %s,%s,%s\n", reqId, textOf(front.op), textOf(from));
    return Refused;
}

// A stop answer is never refused, whatever its result: a failed stop does not prevent the start.
int ResManager::checkStopResult(frame::MsgIds&, const frame::TransportInfo&, const std::vector<TvServiceInfo_t>&) {
    return 0;
}

void ResManager::verifyResult(std::vector<TvServiceInfo_t>& infos) {
    GENRPC_LOG(module, vdlDebugProgress, "Number of requests waiting for handling %d\n",
               static_cast<int>(reqQueue.size()));
    const auto markNewer = [&](const ResRequests_::Requests& starts, const char* kind) {
        if (!starts) return;
        for (const TvServiceReq_t& request : *starts)
            for (TvServiceInfo_t& info : infos)
                if (sameTerminal(info.terminal, request.terminal)) {
                    GENRPC_LOG_PLAIN(module, vdlDebugProgress,
                                     "A new request in %s request will soon be handled for terminal[type:%d id:%d], "
                                     "new URI %s\n",
                                     kind, request.terminal.type, request.terminal.id, request.uri.c_str());
                    info.result = newerRequestQueued;
                }
    };
    for (const auto& bundle : reqQueue) {
        markNewer(bundle->pMM, "media");
        markNewer(bundle->pTV, "livetv");
    }
}

// ---- status ----

std::vector<BundleStatus> ResManager::bundles() {
    const thread_safety::LockGuard lock(resMutex);
    std::vector<BundleStatus> result;
    for (const auto& bundle : reqQueue) {
        BundleStatus status{*bundle->pReqId, {}};
        for (const ResOP_& operation : bundle->resOps)
            status.steps.push_back({textOf(operation.op), textOf(operation.response)});
        for (const auto& starts : {bundle->pMM, bundle->pTV}) // a stop is a start of the null source, too
            for (const TvServiceReq_t& request : *starts) status.terminals.push_back(request.terminal);
        if (const ResOP_& front = bundle->resOps.front(); front.op == WaitingStop || front.op == WaitingStart)
            status.waited = std::chrono::duration_cast<std::chrono::milliseconds>(resClock() - front.startTime);
        result.push_back(std::move(status));
    }
    return result;
}

} // namespace tvservice
