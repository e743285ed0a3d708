// Shared by the tests of the adapter without memory: memory in use, counting clients, a module without a socket.
#pragma once

#include "support/failing-allocations.h"
#include "support/wire.h"

#include <frame/omq-io-module.h>
#include <host/marshaller.h>
#include <mmservice/interfaces.h>
#include <tvservice/interfaces.h>
#include <vdl/flat.h>

#include <chrono>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <schema/samples.h>
#include <string>
#include <utility>
#include <vector>

namespace shortage_test {

using support::blocksHeld;
using support::EnoughMemory;
using support::failAtEveryAllocation;
using support::runShortAtEveryAllocation;
using support::Shortage;

inline constexpr Shortage shortages[] = {Shortage::Lasting, Shortage::Passing};

template <class Message> auto sampleOf() { return schema::Samples().next<typename Message::Body::Arguments>(); }

// The memory in use, of all kinds.
struct Held {
    static std::uint64_t flatBlocksInUse() {
        vdlFlatFree(vdlFlatAlloc(1));
        return host::flatHeapUsage().blocks;
    }

    std::uint64_t flatBlocks =
        flatBlocksInUse(); // must be first: the flat heap allocates memory when a thread first uses it
    long blocks = blocksHeld;
};

inline void expectHeld(const Held& before) {
    const Held now;
    EXPECT_EQ(now.blocks, before.blocks);
    EXPECT_EQ(now.flatBlocks, before.flatBlocks);
}

class CountingTvClient : public tvservice::ClientInterface {
public:
#define COUNT(service, direction, Name, method, id, ...)             \
    int method(GENRPC_PARAMETERS(__VA_ARGS__)) override {            \
        (void)ids, (void)transport GENRPC_EACH(IGNORE, __VA_ARGS__); \
        return static_cast<int>(++calls);                            \
    }
#define IGNORE(type, name) , (void)name
    TVSERVICE_NOTIFICATIONS(COUNT)
#undef IGNORE
#undef COUNT
    unsigned calls = 0;
};

class CountingMmClient : public mmservice::ClientInterface {
public:
    int mmServiceInfo(frame::MsgIds&, const frame::TransportInfo&,
                      const std::vector<mmservice::MMServiceInfo_t>&) override {
        return static_cast<int>(++calls);
    }
    unsigned calls = 0;
};

// Counts sent messages, from any thread, and delivers a test's messages to the bound handlers. It always has memory.
class FakeModule : public frame::OmqIOModule {
public:
    int registerMessageHandler(const frame::MsgMeta& meta, frame::MessageHandler handler, void* context,
                               const vdl::EndianTable&) override {
        bound_.push_back({meta, handler, context});
        return 0;
    }
    int asyncSend(const frame::MsgIds&, const frame::MsgMeta&, const frame::TransportInfo*,
                  const vdl::EndianTable& table, const void* payload,
                  const boost::function<void()>& completed) override {
        const EnoughMemory forTheTest;
        std::string wire = support::marshalled(table, payload);
        completed();
        const std::lock_guard lock(mutex_);
        last_ = std::move(wire);
        ++sent_;
        changed_.notify_all();
        return 0;
    }
    unsigned sent() const {
        const std::lock_guard lock(mutex_);
        return sent_;
    }
    // Waits until the last message sent contains this text. Returns whether it does.
    bool waitUntilSent(const std::string& part) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return last_.find(part) != std::string::npos; });
    }
    template <class Message> void deliver(const support::FlatBody<Message>& body) const {
        for (const auto& bound : bound_)
            if (bound.meta == Message::meta)
                bound.handler(bound.meta, frame::TransportInfo{}, body.get(), bound.context);
    }

private:
    struct Bound {
        frame::MsgMeta meta;
        frame::MessageHandler handler;
        void* context;
    };
    std::vector<Bound> bound_;
    unsigned sent_ = 0; // guarded by mutex_, like last_
    std::string last_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
};

} // namespace shortage_test
