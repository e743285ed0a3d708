// The two services' requests and answers in one form.
#pragma once

#include <frame/message-set.h>
#include <frame/omq-io-module.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tvctl::conformance {

struct Terminal {
    std::int32_t type = 0, id = 0;
    bool operator==(const Terminal&) const = default;
};

struct Request {
    Terminal terminal;
    std::string uri, uuid, reqId;
};

struct Entry { // of an answer
    Terminal terminal;
    std::int32_t result = 0;
    std::string uri, uuid, reqId;
};

struct Sample {
    const char* message;
    int (*send)(frame::OmqIOModule& channel); // returns the result of sending
};

// Functions for frame::OmqIOModule, whose results send returns.
struct Protocol {
    const char* service;
    const char* address; // that the reference service can show
    frame::MessageSet messages;

    int (*send)(frame::OmqIOModule& channel, const std::vector<Request>& requests);
    std::vector<Entry> (*entriesOf)(const void* payload); // of an answer
    frame::MsgMeta request, answer;                       // the messages with these lists
    std::vector<const frame::MessageDescription*> notifications;
    // A list of requests as it is sent.
    std::string (*wireOf)(const std::vector<Request>& requests);
    std::vector<Sample> samples; // every request of the interface, with sample values
};

// Null for an unknown name.
const Protocol* protocolOf(const std::string& service);
std::string serviceNames(); // for people

} // namespace tvctl::conformance
