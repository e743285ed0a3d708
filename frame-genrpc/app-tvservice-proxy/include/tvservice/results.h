// The numbers in the field `result` of answers, with their names. 0 and 1 mean the same with every service; the others
// are those of the reference services.
#pragma once

#include <genrpc/values.h>

namespace tvservice {

// VALUE(number, constant, name, meaning)
#define TVSERVICE_RESULTS(VALUE)                                                                                  \
    VALUE(0, done, "done", "shown, stopped or chosen")                                                            \
    VALUE(1, superseded, "superseded", "a newer request for the terminal is queued")                              \
    VALUE(2, unknownChannel, "unknown channel", "the channel is not in the channel list")                         \
    VALUE(3, cannotOpenFile, "cannot open file", "the path is not that of a readable file")                       \
    VALUE(4, unsupportedUri, "unsupported address", "the service cannot show this kind of address")               \
    VALUE(5, wrongByFault, "wrong by fault", "the service was told to answer wrongly, with `fault wrong`")        \
    VALUE(6, locked, "locked", "the terminal is locked against minors; it keeps what it shows")                   \
    VALUE(7, unknownTrack, "unknown track", "what the terminal shows has no such track")                          \
    VALUE(8, nothingShown, "nothing shown", "the terminal shows no broadcast, so it has no tracks")               \
    VALUE(9, noRoom, "no room",                                                                                   \
          "the service's or the client's share of terminals or text is used up; the "                             \
          "terminal keeps what it shows")                                                                         \
    VALUE(10, notMedia, "not media", "what the address names cannot be decoded: of no known format, or damaged")  \
    VALUE(11, codecMissing, "codec missing", "no installed plugin decodes it; the service's log names the codec") \
    VALUE(12, noPermission, "no permission", "the service must not read it")                                      \
    VALUE(13, noConnection, "no connection", "the source cannot be reached, or breaks off")                       \
    VALUE(14, noProgram, "no such program", "the channel's transport stream does not have its program")           \
    VALUE(15, noSource, "no source", "the channel list does not say where the channel comes from")                \
    VALUE(16, noTuner, "no tuner", "all tuners receive other transport streams; a notification names them")       \
    VALUE(17, tooLarge, "too large", "its pictures have more pixels than televisions decode")

#define TVSERVICE_RESULT_ENUMERATION(ENUMERATION) \
    ENUMERATION(result, results, "Results", "What became of a request.", TVSERVICE_RESULTS)
TVSERVICE_RESULT_ENUMERATION(GENRPC_ENUMERATION)

// The name of a result; "unknown" for a number that is not in the list.
constexpr const char* nameOfResult(std::int32_t number) { return nameOf(results, number); }

} // namespace tvservice
