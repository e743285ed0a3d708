// The situations that a full run must have been in often: what a generator reached counts, not how long it ran.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace simulation {

#define SIMULATION_SITUATIONS(SITUATION)                                                               \
    SITUATION(RequestsNone, "a client asks for nothing")                                               \
    SITUATION(RequestsSeveral, "a list of several requests")                                           \
    SITUATION(RequestsTerminalTwice, "a list with the same terminal twice")                            \
    SITUATION(RequestsBothServices, "a list whose starts go to both services")                         \
    SITUATION(Stop, "a stop")                                                                          \
    SITUATION(StopOfType5, "a stop for a terminal of type 5 is a live start")                          \
    SITUATION(Recording, "a recording")                                                                \
    SITUATION(CachedRecording, "a recording's cache is a file like others")                            \
    SITUATION(File, "a file")                                                                          \
    SITUATION(Network, "a network stream")                                                             \
    SITUATION(LiveFromLive, "a live start where the MM service plays nothing")                         \
    SITUATION(LiveFromMm, "a live start where the MM service plays")                                   \
    SITUATION(LiveFromMmTwice, "a live start where the MM service plays twice")                        \
    SITUATION(LiveAfterStop, "a live start where a stop made the MM service's play forgotten")         \
    SITUATION(MmReplacesMm, "a start for the MM service replaces another")                             \
    SITUATION(ClientId, "a client's own id")                                                           \
    SITUATION(ClientIdQueued, "a client's own id that is queued already")                              \
    SITUATION(ClientIdNumber, "a client's own id that is a number given to a bundle before")           \
    SITUATION(NumberWraps, "the numbers of bundles begin again at 0")                                  \
    SITUATION(QueuedBehindWaiting, "a bundle is queued behind one that waits")                         \
    SITUATION(QueuedFour, "four bundles are queued")                                                   \
    SITUATION(StopsToBoth, "stops are sent to both services")                                          \
    SITUATION(StopsToMm, "stops are sent to the MM service only")                                      \
    SITUATION(StartsToMm, "starts are sent to the MM service only")                                    \
    SITUATION(StartsToTv, "starts are sent to the TV service only")                                    \
    SITUATION(StartsToBoth, "starts are sent to both services")                                        \
    SITUATION(SendingStepOld, "a step is sent later than an answer would be waited for")               \
    SITUATION(SentAfterDrop, "a bundle is sent right after one was dropped")                           \
    SITUATION(RequestWhileMmSent, "a request while the MM service is sent a list")                     \
    SITUATION(RequestWhileTvSent, "a request while the TV service is sent a list")                     \
    SITUATION(AnswerWhileMmSent, "the MM service answers while it is sent a list")                     \
    SITUATION(AnswerWhileTvSent, "the TV service answers while it is sent a list")                     \
    SITUATION(TvAnswerBeforeSent, "the TV service answers before it is sent its list")                 \
    SITUATION(AdvancedWhileSent, "a bundle's stops are answered while they are being sent")            \
    SITUATION(EndedBeforeTvSent, "a bundle ends before the TV service is sent its list")               \
    SITUATION(EndedWhileSent, "a bundle ends while its starts are being sent")                         \
    SITUATION(TimePassesWhileSent, "sending takes time")                                               \
    SITUATION(RequestWhileReporting, "a client asks while it is told")                                 \
    SITUATION(AnswerWhileReporting, "a service answers while a client is told")                        \
    SITUATION(AnswerEmpty, "an answer without records")                                                \
    SITUATION(AnswerWithoutId, "an answer whose first record has no id")                               \
    SITUATION(AnswerWithoutIdThenId, "an answer whose second record alone has an id")                  \
    SITUATION(AnswerOfNobody, "an answer of no service")                                               \
    SITUATION(AnswerQueueEmpty, "an answer while nothing is queued")                                   \
    SITUATION(AnswerUnknownId, "an answer with an id of no bundle")                                    \
    SITUATION(AnswerQueuedId, "an answer to a bundle that is queued behind another")                   \
    SITUATION(AnswerAfterEnd, "an answer to a bundle that has ended")                                  \
    SITUATION(AnswerAfterDrop, "an answer to a bundle that was dropped")                               \
    SITUATION(AnswerSimilarId, "an answer whose id begins like the bundle's, or the other way")        \
    SITUATION(AnswerBeforeStops, "an answer before the stops are sent")                                \
    SITUATION(AnswerBeforeStarts, "an answer between the stops and the starts")                        \
    SITUATION(AnswerWrongService, "an answer of a service that was not asked")                         \
    SITUATION(AnswerTwice, "a second answer of a service while the other one's is awaited")            \
    SITUATION(AwaitedBelowZero, "more answers than awaited: the bundle cannot end by answers")         \
    SITUATION(ThreeMmForBoth, "three answers of the MM service pass for both services")                \
    SITUATION(AnswerOfBoth, "one answer of both services")                                             \
    SITUATION(StopAnswerFirstOfTwo, "the first of two stop answers")                                   \
    SITUATION(StopAnswerFailed, "a stop answer that reports a failure")                                \
    SITUATION(StopsAnswered, "the stops are answered")                                                 \
    SITUATION(StartAnswerFirstOfTwo, "the first of two start answers")                                 \
    SITUATION(EndedMmFirst, "a bundle ends with the MM service's records before the TV service's")     \
    SITUATION(EndedTvFirst, "a bundle ends with the TV service's records before the MM service's")     \
    SITUATION(NewerMedia, "a terminal is marked, the MM service plays on it next")                     \
    SITUATION(NewerLive, "a terminal is marked, the TV service plays on it next")                      \
    SITUATION(NewerTwice, "a terminal is marked by two bundles")                                       \
    SITUATION(NewerOther, "a record stays unmarked beside one that is marked")                         \
    SITUATION(NewerResultLost, "a failure is marked over")                                             \
    SITUATION(KeptBelow, "kept a nanosecond before the limit")                                         \
    SITUATION(KeptAtLimit, "kept at the limit")                                                        \
    SITUATION(DroppedAbove, "dropped a nanosecond after the limit")                                    \
    SITUATION(AnswerAtLimitFirst, "at the limit the answer comes before the check")                    \
    SITUATION(AnswerAtLimitSecond, "at the limit the answer comes after the check")                    \
    SITUATION(AnswerAboveLimitFirst, "a nanosecond after the limit the answer comes before the check") \
    SITUATION(AnswerAboveLimitSecond, "a nanosecond after the limit the answer comes after the check") \
    SITUATION(DroppedAtStops, "dropped while stops were awaited: its starts are never sent")           \
    SITUATION(DroppedAtStarts, "dropped while starts were awaited")                                    \
    SITUATION(DroppedHalfAnswered, "dropped with one of two answers")                                  \
    SITUATION(DroppedOverAnswered, "dropped with more answers than awaited")                           \
    SITUATION(RecordFirst, "a run-log record of a bundle's first live start")                          \
    SITUATION(RecordLater, "a run-log record of a later live start of the bundle")                     \
    SITUATION(NoRecordMmOnly, "dropped without a record: nothing for the TV service")                  \
    SITUATION(NoRecordTerminal, "dropped without a record: another terminal")                          \
    SITUATION(NoRecordStop, "dropped without a record: a stop of the main terminal")                   \
    SITUATION(NoRecordStopInside, "dropped without a record: the URI holds the stop URI")              \
    SITUATION(TickIdle, "a second passes with nothing queued")                                         \
    SITUATION(TickAtSending, "a second has passed, but meanwhile there is something to send")          \
    SITUATION(TickQueueEmptied, "a second has passed, but meanwhile the bundle has ended")             \
    SITUATION(WokenForNothing, "a wait ends early without any reason")                                 \
    SITUATION(WokenToSend, "a wait ends early and there is something to send")                         \
    SITUATION(WokenOverdue, "a wait ends early: the check of an overdue bundle is put off")

enum class Situation : std::size_t {
#define SIMULATION_NAME(name, text) name,
    SIMULATION_SITUATIONS(SIMULATION_NAME) Count
#undef SIMULATION_NAME
};

inline constexpr std::size_t situations = static_cast<std::size_t>(Situation::Count);

inline std::array<std::uint64_t, situations> reached{};
inline void hit(Situation situation) { ++reached[static_cast<std::size_t>(situation)]; }
inline void hitIf(bool met, Situation situation) { reached[static_cast<std::size_t>(situation)] += met ? 1U : 0U; }

const char* textOf(std::size_t situation);

} // namespace simulation
