// Services registered in the adapter's process, in place of the proxies.
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

// Services built elsewhere register with these keys, so the literals are repeated here.
inline constexpr char tvServiceKey[] = "orvel.lm.interfaces.tvservice";
inline constexpr char mmServiceKey[] = "orvel.lm.interfaces.mmservice";

// A service that stays registered in the process for its lifetime.
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
        return -17; // the adapter ignores it
    }
    int removeClient(boost::shared_ptr<mmservice::ClientInterface>) override { return 0; }
    std::vector<boost::shared_ptr<mmservice::ClientInterface>> clients;
};
using RegisteredMmService = Registered<mmservice::ServiceInterface, CountingMmService, mmServiceKey>;

// An adapter that lives as long as the process, because the resource manager keeps the address of its client object.
inline tvservice::ModelTvServiceAdapter& newAdapter() {
    FakeShell::get(); // must exist before the adapter registers its command
    auto* adapter = new tvservice::ModelTvServiceAdapter;
    static auto* const all =
        new std::vector<tvservice::ModelTvServiceAdapter*>; // keeps them reachable for the leak checker
    all->push_back(adapter);
    adapter->attachProcess(*frame::Process::getInstance());
    return *adapter;
}

} // namespace support
