// Matchers of googletest for what happened in a Receiver (receiver.h). This header needs gmock.
//
//     EXPECT_THAT(receiver.answers(), ElementsAre(Shown("0:0", "dvb://1.1.1"), Refused("1:0", 6)));
//     EXPECT_THAT(receiver.requests(), ElementsAre(To("MM", Stop("0:0")), To("TV", Play("0:0", "dvb://1.1.1"))));
//     EXPECT_THAT(receiver.answers(), Contains(At(4s, WithId("guide-17", Shown("0:0", "dvb://1.1.1")))));
//     EXPECT_THAT(receiver.calls(), ElementsAre(Named("TvServiceSendKeyReq", HasSubstr("\"ok\""))));
#pragma once

#include <tvservice-adapter/testing/receiver.h>

#include <gmock/gmock.h>

namespace tvtest {
namespace details {

inline std::string does(bool negation, const char* verb) {
    return (negation ? "is none that " : "") + std::string(verb);
}

} // namespace details

// ---- requests ----

MATCHER_P2(Play, terminal, uri, details::does(negation, "plays ") + uri + " on " + terminal) {
    return arg.terminal == terminal && arg.uri == uri;
}
MATCHER_P(Stop, terminal, details::does(negation, "stops ") + terminal) {
    return arg.terminal == terminal && arg.uri == tvservice::stopUri;
}
// service: "TV" or "MM".
MATCHER_P2(To, service, matcher, details::does(negation, "goes to the service ") + service + " and matches") {
    return arg.service == service && testing::ExplainMatchResult(matcher, arg, result_listener);
}

// ---- answers ----

MATCHER_P2(Shown, terminal, uri, details::does(negation, "shows ") + uri + " on " + terminal) {
    return arg.terminal == terminal && arg.uri == uri && arg.result == tvservice::result::done;
}
MATCHER_P(Stopped, terminal, details::does(negation, "has stopped ") + terminal) {
    return arg.terminal == terminal && arg.uri == tvservice::stopUri && arg.result == tvservice::result::done;
}
MATCHER_P2(Refused, terminal, result,
           details::does(negation, "refuses ") + terminal + ", result " + std::to_string(result)) {
    return arg.terminal == terminal && arg.result == result;
}
// A newer request for the terminal was queued.
MATCHER_P2(Superseded, terminal, uri, details::does(negation, "is superseded: ") + uri + " on " + terminal) {
    return arg.terminal == terminal && arg.uri == uri && arg.result == tvservice::result::superseded;
}

MATCHER_P(Dropped, terminal, details::does(negation, "was dropped on ") + terminal) { return arg.terminal == terminal; }

// ---- other requests and notifications ----

MATCHER_P(Named, name, details::does(negation, "is a ") + name) { return arg.name == name; }
// arguments: a matcher for the JSON text.
MATCHER_P2(Named, name, arguments, details::does(negation, "is a ") + name + " whose arguments match") {
    return arg.name == name && testing::ExplainMatchResult(arguments, arg.arguments, result_listener);
}

// ---- of all of them ----

MATCHER_P2(At, time, matcher, details::does(negation, "happens at the time and matches")) {
    return arg.at == time && testing::ExplainMatchResult(matcher, arg, result_listener);
}
MATCHER_P2(WithId, reqId, matcher, details::does(negation, "has the id ") + reqId + " and matches") {
    return arg.reqId == reqId && testing::ExplainMatchResult(matcher, arg, result_listener);
}

} // namespace tvtest
