// Downloads over the air: one at a time, from nowhere, in steps.
//
// A request's type is the service's to choose; it is only told on. Packages are named with commas between. What is
// told: how many packages there are; then the status "started", the progress in percent, the status "done", whose texts
// name the packages. A request that cannot be carried out gets the status "refused", with the reason as text; so does
// one whose packages have longer names than bounds::passedTextBytes together.
#pragma once

#include "common/bounds.h"
#include "common/delay-line.h"
#include "common/sender.h"

#include <tvservice/messages.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace services {

class Downloads {
public:
    enum Status : std::int32_t { started = 1, done = 2, refused = 3 };
    static constexpr std::int32_t percentPerStep = 10;

    Downloads(const Sender& sender, std::chrono::milliseconds step) : sender_(sender), step_(step) {}

    // Never waits; a refusal goes to the client, all else to all clients. On the receiving thread.
    void request(std::uint64_t client, tvservice::reqeustOadType_t type, const std::string& packages);

    TableCount count() const; // of bytes in the names of packages; from any thread

private:
    void tell(Status status, const std::string& text) const;

    const Sender& sender_;
    const std::chrono::milliseconds step_;
    std::atomic<bool> busy_ = false;
    std::atomic<std::size_t> held_ = 0;
    std::atomic<std::uint64_t> refused_ = 0;
    DelayLine line_; // has room for the steps of one download; ends before what its work uses
};

} // namespace services
