// Counts heap allocations per message on the sending thread after a warm-up: through the proxy alone, and through the
// proxy and a message queue with a real connection. The message itself is in the flat heap and does not count.
#include "codec/cases.h"
#include "common/report.h"

#include <host/message-queue.h>
#include <tvservice/messages.h>

#include <app-tvservice-proxy-main.h>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <thread>

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

// All other allocation functions, including operator new, call one of these.
static thread_local std::size_t allocations [[gnu::tls_model("initial-exec")]] = 0;

void* malloc(std::size_t size) { return ++allocations, __libc_malloc(size); }
void* calloc(std::size_t count, std::size_t size) { return ++allocations, __libc_calloc(count, size); }
void* realloc(void* block, std::size_t size) { return ++allocations, __libc_realloc(block, size); }
void* aligned_alloc(std::size_t alignment, std::size_t size) { return ++allocations, __libc_memalign(alignment, size); }
}

namespace bench {
namespace {

constexpr Goal none{4, 0};
constexpr std::size_t warmUp = 100, counted = 400;

// Discards each message.
class DiscardingModule : public frame::OmqIOModule {
public:
    int registerMessageHandler(const frame::MsgMeta&, frame::MessageHandler, void*, const vdl::EndianTable&) override {
        return 0;
    }
    int asyncSend(const frame::MsgIds&, const frame::MsgMeta&, const frame::TransportInfo*, const vdl::EndianTable&,
                  const void*, const boost::function<void()>& completed) override {
        completed();
        return 0;
    }
};

// Waits until the service has received that many messages in all.
template <class Received> void waitFor(Received received, std::uint64_t expected) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (received() < expected) {
        if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("the service receives no messages");
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

// Sends lists of requests through the proxy. Calls settle(n) after the n-th one.
template <class Settle>
double allocationsPerMessage(tvservice::ServiceInterface& proxy, const Requests& requests, Settle settle) {
    frame::MsgIds ids = frame::MsgIds::none;
    const frame::TransportInfo transport{};
    std::size_t sent = 0, before = 0, during = 0;
    for (; sent < warmUp + counted; ++sent) {
        before = allocations;
        proxy.tvServiceReq(ids, transport, requests);
        if (sent >= warmUp) during += allocations - before;
        settle(sent + 1); // so that the socket can accept the whole next message
    }
    return static_cast<double>(during) / static_cast<double>(counted);
}

int discard(const frame::MsgMeta&, const frame::TransportInfo&, const void*, void*) { return 0; }

double throughQueue(const Requests& requests) {
    using Message = tvservice::messages::TvServiceReq;
    host::MessageQueue serving, sending;
    frame::OmqIOModule& service = serving.serve(tvservice::serviceName, tvservice::messageSet(), 16384);
    service.registerMessageHandler(Message::meta, discard, nullptr, *Message::table());
    tvservice::Proxy proxy;
    host::QueueChannel& channel =
        sending.connectTo(proxy.getServiceName(), proxy.getMessageSet(), proxy.getSendBufferSize(), nullptr);
    proxy.setOmqIOModule(&channel);
    serving.start();
    sending.start();
    sending.open(channel);
    waitFor([&] { return std::uint64_t{sending.statistics().at(0).connected}; }, 1);
    return allocationsPerMessage(proxy, requests, [&](std::uint64_t sent) {
        waitFor([&] { return serving.statistics().at(0).received; }, sent);
    });
}

double throughProxy(const Requests& requests) {
    DiscardingModule module;
    tvservice::Proxy proxy;
    proxy.setOmqIOModule(&module);
    return allocationsPerMessage(proxy, requests, [](std::uint64_t) {});
}

void run(const Options& options) {
    const Report report("allocations");
    const std::size_t before = allocations;
    const auto block = std::make_unique<char>();
    keep(block.get());
    if (allocations != before + 1) throw std::logic_error("allocations are not counted");
    for (const std::size_t count : {1U, 100U}) {
        const std::string label = "request/" + std::to_string(count);
        if (!options.wants(label)) continue;
        const Requests requests = sampleRequests(count);
        report.value(label, "proxy", throughProxy(requests), {"allocation", "message"}, none);
        report.value(label, "proxy and queue", throughQueue(requests), {"allocation", "message"}, none);
    }
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    std::string folder = std::filesystem::temp_directory_path() / "allocations-XXXXXX";
    try {
        if (!mkdtemp(folder.data())) throw std::runtime_error("no temporary folder");
        setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
        bench::run(bench::Options::of(argc, argv));
        std::filesystem::remove_all(folder);
        return 0;
    } catch (const std::exception& error) {
        std::filesystem::remove_all(folder);
        std::cerr << "allocations_bench: " << error.what() << '\n';
        return 1;
    }
}
