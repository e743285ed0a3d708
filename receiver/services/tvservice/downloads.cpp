#include "tvservice/downloads.h"

#include <algorithm>

namespace services {

namespace messages = tvservice::messages;
namespace oadStatus = tvservice::oadStatus;

void Downloads::request(std::uint64_t client, tvservice::reqeustOadType_t type, const std::string& packages) {
    const auto refuse = [&](const char* reason) {
        sender_.to<messages::TvserviceOadStatusNotify>(
            client, static_cast<tvservice::NotifyOadStatus_t>(oadStatus::refused), std::string(reason));
    };
    if (packages.empty()) return refuse("no packages are named");
    const auto refuseAndCount = [&](const char* reason) {
        ++refused_;
        refuse(reason);
    };
    if (packages.size() > bounds::passedTextBytes) return refuseAndCount("the names of the packages are too long");
    if (busy_.exchange(true)) return refuseAndCount("a download is under way");
    held_ = packages.size();
    const auto count = 1 + std::count(packages.begin(), packages.end(), ',');
    sender_.toAll<messages::TvServiceFoundNewOadPacket>(static_cast<std::uint32_t>(count));
    const std::string text = "type " + std::to_string(type) + ": " + packages;
    sendStatus(oadStatus::started, text);
    // Schedules all steps at once; the line runs them in order.
    for (std::int32_t percent = 0; percent <= 100; percent += percentPerStep)
        line_.schedule([this, percent] { sender_.toAll<messages::TvserviceOadProgressNotify>(percent); },
                       step_ * (1 + percent / percentPerStep));
    line_.schedule(
        [this, text] {
            held_ = 0;
            busy_ = false;
            sendStatus(oadStatus::done, text);
        },
        step_ * (2 + 100 / percentPerStep));
}

void Downloads::sendStatus(std::int32_t status, const std::string& text) const {
    sender_.toAll<messages::TvserviceOadStatusNotify>(static_cast<tvservice::NotifyOadStatus_t>(status), text);
}

TableCount Downloads::count() const { return {"packages", held_, bounds::passedTextBytes, refused_}; }

} // namespace services
