// The numbers in the field `result` of answers, with their names. 0 and 1 mean the same with every service; the others
// are those of the reference services.
#pragma once

#include <cstdint>

namespace tvservice {

// RESULT(number, constant, name, meaning)
#define TVSERVICE_RESULTS(RESULT)                                                                           \
    RESULT(0, done, "done", "shown, stopped or chosen")                                                     \
    RESULT(1, superseded, "superseded", "a newer request for the terminal is queued")                       \
    RESULT(2, unknownChannel, "unknown channel", "the channel is not in the channel list")                  \
    RESULT(3, cannotOpenFile, "cannot open file", "the path is not that of a readable file")                \
    RESULT(4, unsupportedUri, "unsupported address", "the service cannot show this kind of address")        \
    RESULT(5, wrongByFault, "wrong by fault", "the service was told to answer wrongly, with `fault wrong`") \
    RESULT(6, locked, "locked", "the terminal is locked against minors; it keeps what it shows")            \
    RESULT(7, unknownTrack, "unknown track", "what the terminal shows has no such track")                   \
    RESULT(8, nothingShown, "nothing shown", "the terminal shows no broadcast, so it has no tracks")        \
    RESULT(9, noRoom, "no room",                                                                            \
           "the service's or the client's share of terminals or text is used up; the "                      \
           "terminal keeps what it shows")

namespace result {
#define TVSERVICE_RESULT_CONSTANT(number, constant, name, meaning) inline constexpr std::int32_t constant = number;
TVSERVICE_RESULTS(TVSERVICE_RESULT_CONSTANT)
#undef TVSERVICE_RESULT_CONSTANT
} // namespace result

struct Result {
    std::int32_t number;
    const char* name;
    const char* meaning;
};

inline constexpr Result results[] = {
#define TVSERVICE_RESULT_ENTRY(number, constant, name, meaning) {number, name, meaning},
    TVSERVICE_RESULTS(TVSERVICE_RESULT_ENTRY)
#undef TVSERVICE_RESULT_ENTRY
};

// The name of a result; "unknown" for a number that is not in the list.
constexpr const char* nameOfResult(std::int32_t number) {
    for (const Result& result : results)
        if (result.number == number) return result.name;
    return "unknown";
}

} // namespace tvservice
