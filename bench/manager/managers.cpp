#include "managers.h"

namespace bench {

std::vector<tvservice::TvServiceReq_t> playRequests(std::size_t count, const std::string& uri) {
    std::vector<tvservice::TvServiceReq_t> requests(count);
    for (std::size_t i = 0; i < count; ++i) {
        requests[i].terminal = {2, static_cast<std::int32_t>(i)};
        requests[i].intParam3 = 90000;
        requests[i].uri = uri;
        requests[i].uuid = "3f0c51de-9f4b-4f1d-8d5e-0d6c5d1f7a20";
        requests[i].strParam2 = "extin";
        requests[i].strParamList = {"main", "hdmi-1"};
    }
    return requests;
}

bool Manager::work() {
    thread_safety::UniqueLock lock(resMutex);
    if (onSleep()) return false;
    const Sending sending = takeFront(GENRPC_HERE);
    lock.unlock();
    send(sending, GENRPC_HERE);
    return true;
}

void Manager::countAnswers() {
    registerInfocb([this](frame::MsgIds&, const frame::TransportInfo&, const std::vector<tvservice::TvServiceInfo_t>&) {
        if (answered_.fetch_add(1) + 1 == awaited_) {
            const thread_safety::LockGuard lock(mutex_);
            changed_.notify_one();
        }
        return 0;
    });
}

void Manager::waitForAnswers(std::uint64_t count) {
    awaited_ = count;
    thread_safety::UniqueLock lock(mutex_);
    changed_.wait(lock, [&] { return answered() >= count; });
}

void ManagerWithProxy::join() {
    proxy_.setOmqIOModule(&service_);
    proxy_.registerMessageHandlers();
    proxy_.addClient(boost::make_shared<Answers>(*this));
}

} // namespace bench
