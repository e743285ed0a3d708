// What happens in a schedule, complete in itself: a schedule can be played again, and shrunk, without what made it.
#pragma once

#include <frame/message.h>
#include <mmservice/records.h>
#include <tvservice/core-records.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace simulation {

using Nanoseconds = std::chrono::nanoseconds;
using Requests = std::vector<tvservice::TvServiceReq_t>;
using MmRequests = std::vector<mmservice::MMServiceReq_t>;
using Infos = std::vector<tvservice::TvServiceInfo_t>;

// Points within an event at which others happen.
enum class Place {
    MmSending, // the MM service is being sent a list
    TvSending, // the TV service is being sent a list
    Waiting,   // the worker waits and is woken before its second is over
    Expiring,  // the worker's second is over, but it does not hold the mutex again yet
    Reporting, // the first client is being told
};

struct Event {
    enum class Kind {
        Request, // a client asks
        Answer,  // a service answers
        Work,    // the worker does a cycle
        Pass,    // time passes
    };
    // Each time the place is reached, the next of its entries happens.
    struct Inside {
        Place place;
        std::vector<Event> events;
    };

    Kind kind = Kind::Work;
    Requests requests;              // Request
    std::uint32_t from = 0;         // Answer: of which service
    Infos infos;                    // Answer
    frame::MsgIds ids;              // Answer
    frame::TransportInfo transport; // Answer
    Nanoseconds time{};             // Pass
    std::vector<Inside> inside;
};

struct Schedule {
    std::uint64_t seed = 0;
    std::uint16_t level = 0;   // the most talkative severity that is logged
    std::uint32_t firstId = 1; // the first number that is given to a bundle without an id
    std::vector<Event> events;
};

void append(std::string& text, const tvservice::TvServiceReq_t& request);
void append(std::string& text, const mmservice::MMServiceReq_t& request);
void append(std::string& text, const tvservice::TvServiceInfo_t& info);
void append(std::string& text, const frame::MsgIds& ids, const frame::TransportInfo& transport);
template <typename Record> void append(std::string& text, const std::vector<Record>& records) {
    for (const Record& record : records) {
        text += "\n    ";
        append(text, record);
    }
    text += '\n';
}

// For people.
std::string describe(const Schedule& schedule);

} // namespace simulation
