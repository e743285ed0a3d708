// The numbers in the field `result` of answers, with their names. 0 and 1 mean the same with every service; the others
// are those of the reference services.
#pragma once

#include <genrpc/values.h>

namespace tvservice {

// VALUE(number, constant, name, meaning)
#define TVSERVICE_RESULTS(VALUE)                                                                           \
    VALUE(0, done, "done", "shown, stopped or chosen")                                                     \
    VALUE(1, superseded, "superseded", "a newer request for the terminal is queued")                       \
    VALUE(2, unknownChannel, "unknown channel", "the channel is not in the channel list")                  \
    VALUE(3, cannotOpenFile, "cannot open file", "the path is not that of a readable file")                \
    VALUE(4, unsupportedUri, "unsupported address", "the service cannot show this kind of address")        \
    VALUE(5, wrongByFault, "wrong by fault", "the service was told to answer wrongly, with `fault wrong`") \
    VALUE(6, locked, "locked", "the terminal is locked against minors; it keeps what it shows")            \
    VALUE(7, unknownTrack, "unknown track", "what the terminal shows has no such track")                   \
    VALUE(8, nothingShown, "nothing shown", "the terminal shows no broadcast, so it has no tracks")        \
    VALUE(9, noRoom, "no room",                                                                            \
          "the service's or the client's share of terminals or text is used up; the "                      \
          "terminal keeps what it shows")

#define TVSERVICE_RESULT_ENUMERATION(ENUMERATION) \
    ENUMERATION(result, results, "Results", "What became of a request.", TVSERVICE_RESULTS)
TVSERVICE_RESULT_ENUMERATION(GENRPC_ENUMERATION)

// The name of a result; "unknown" for a number that is not in the list.
constexpr const char* nameOfResult(std::int32_t number) { return nameOf(results, number); }

} // namespace tvservice
