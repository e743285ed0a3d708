// What an adapter finds in its process: services that are registered there, as the proxies would be.
#pragma once

#include "support/fake-shell.h"
#include "support/tv-doubles.h"

#include <frame/process.h>
#include <mmservice/interfaces.h>
#include <tvservice-adapter/model-tvservice-adapter.h>

#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace support {

// The keys that services built elsewhere are registered with, so spelled out here.
inline constexpr char tvServiceKey[] = "orvel.lm.interfaces.tvservice";
inline constexpr char mmServiceKey[] = "orvel.lm.interfaces.mmservice";

// A service in the process for as long as it lives.
template <class Interface, class Service, const char* key>
class Registered : public frame::AbstractApplication, public Service {
public:
    Registered() {
        attachProcess(*frame::Process::getInstance());
        EXPECT_EQ(registerInterface(static_cast<Interface*>(this), key), 0);
    }
    ~Registered() override { detachProcess(); }
};
using RegisteredTvService = Registered<tvservice::ServiceInterface, RecordingTvService, tvServiceKey>;

class CountingMmService : public mmservice::ServiceInterface {
public:
    int mmServiceReq(frame::MsgIds&, const frame::TransportInfo&,
                     const std::vector<mmservice::MMServiceReq_t>&) override {
        return 0;
    }
    int addClient(boost::shared_ptr<mmservice::ClientInterface> client) override {
        clients.push_back(std::move(client));
        return -17; // which does not matter to the adapter
    }
    int removeClient(boost::shared_ptr<mmservice::ClientInterface>) override { return 0; }
    std::vector<boost::shared_ptr<mmservice::ClientInterface>> clients;
};
using RegisteredMmService = Registered<mmservice::ServiceInterface, CountingMmService, mmServiceKey>;

// An adapter that lives as long as the process, as the resource manager keeps its client object's address.
inline tvservice::ModelTvServiceAdapter& newAdapter() {
    FakeShell::get(); // which it registers its command with when it starts
    auto* adapter = new tvservice::ModelTvServiceAdapter;
    static auto* const all = new std::vector<tvservice::ModelTvServiceAdapter*>; // keeps them reachable
    all->push_back(adapter);
    adapter->attachProcess(*frame::Process::getInstance());
    return *adapter;
}

} // namespace support
