// Simulated downloads over the air: one at a time, in steps.
//
// Clients receive the number of packages, then the status "started", the progress and the status "done". A rejected
// request gets the status "refused". A request is also rejected when the names of its packages exceed
// bounds::passedTextBytes in total.
#pragma once

#include <tvservice-adapter/service/bounds.h>
#include <tvservice-adapter/service/delay-line.h>
#include <tvservice-adapter/service/sender.h>
#include <tvservice/messages.h>
#include <tvservice/values.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace services {

class Downloads {
public:
    static constexpr std::int32_t percentPerStep = 10;

    Downloads(const Sender& sender, std::chrono::milliseconds step) : sender_(sender), step_(step) {}

    // Never blocks. A rejection goes to the client, everything else to all clients. On the receiving thread.
    void request(std::uint64_t client, tvservice::reqeustOadType_t type, const std::string& packages);

    TableCount count() const; // of bytes in the names of packages; from any thread

private:
    void sendStatus(std::int32_t status, const std::string& text) const; // one of tvservice::oadStatuses

    const Sender& sender_;
    const std::chrono::milliseconds step_;
    std::atomic<bool> busy_ = false;
    std::atomic<std::size_t> held_ = 0;
    std::atomic<std::uint64_t> refused_ = 0;
    DelayLine line_; // has room for the steps of one download; last, so that it ends before what its work uses
};

} // namespace services
