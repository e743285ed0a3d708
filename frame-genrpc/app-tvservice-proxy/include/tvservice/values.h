// The numbers in records and messages that have names, besides the results:
//
//     if (message.byteParam1 == tvservice::tunerState::tuning) ...
//     puts(nameOf(tvservice::tunerStates, message.byteParam1)); // "tuning"
//
// The adapter passes all of them on unchanged. Except for the main terminal's type, they are those of the reference
// services; another service may define others.
#pragma once

#include <tvservice/results.h>

namespace tvservice {

// VALUE(number, constant, name, meaning)
#define TVSERVICE_TERMINAL_TYPES(VALUE)                                       \
    VALUE(-1, none, "none", "no terminal: windows that could not be swapped") \
    VALUE(0, main, "main", "the main screen; 0:0 is the main terminal")

#define TVSERVICE_AUDIO_CODINGS(VALUE)   \
    VALUE(1, mpeg, "MPEG", "MPEG audio") \
    VALUE(2, ac3, "AC-3", "AC-3 audio")

#define TVSERVICE_SUBTITLE_CODINGS(VALUE)                 \
    VALUE(1, bitmaps, "bitmaps", "subtitles as pictures") \
    VALUE(2, teletext, "teletext", "subtitles in teletext")

#define TVSERVICE_VIDEO_CODINGS(VALUE)        \
    VALUE(1, mpeg2, "MPEG-2", "MPEG-2 video") \
    VALUE(2, avc, "AVC", "AVC video")

#define TVSERVICE_MTS_TRACKS(VALUE)                                               \
    VALUE(0, main, "main", "the main sound; the service's choice when it starts") \
    VALUE(1, second, "second programme", "the sound of the second programme")     \
    VALUE(2, both, "both", "both sounds")

#define TVSERVICE_RELEASE_DEMANDS(VALUE) VALUE(1, wanted, "to be released", "another client asks for the tuner")

#define TVSERVICE_RELEASE_ANSWERS(VALUE)                                  \
    VALUE(0, refused, "not granted", "the number is not that of a tuner") \
    VALUE(1, granted, "granted", "all other clients have been asked to release it")

#define TVSERVICE_DISPLAY_STATES(VALUE)                  \
    VALUE(0, dark, "dark", "the terminal shows nothing") \
    VALUE(1, showing, "showing", "the terminal shows the URI")

#define TVSERVICE_LOCK_STATES(VALUE)                                   \
    VALUE(0, unlocked, "unlocked", "the terminal may show everything") \
    VALUE(1, locked, "locked", "the TV service rejects what is to be played on the terminal")

#define TVSERVICE_SOURCE_STATES(VALUE)                      \
    VALUE(0, none, "no source", "the signal has no source") \
    VALUE(1, present, "source", "the signal has a source")

#define TVSERVICE_SIGNAL_STATES(VALUE)                          \
    VALUE(0, none, "no signal", "the tuner receives no signal") \
    VALUE(1, present, "signal", "the tuner receives a signal")

#define TVSERVICE_TUNER_STATES(VALUE) VALUE(1, tuning, "tuning", "the tuner switches to a channel")

#define TVSERVICE_BROADCAST_APPLICATIONS(VALUE)                     \
    VALUE(0, none, "none", "no application has taken the key")      \
    VALUE(1, red, "red", "the application of the red key")          \
    VALUE(2, green, "green", "the application of the green key")    \
    VALUE(3, yellow, "yellow", "the application of the yellow key") \
    VALUE(4, blue, "blue", "the application of the blue key")

#define TVSERVICE_LINKAGE_KINDS(VALUE) VALUE(1, replacement, "replacement", "the other channel replaces this one")

#define TVSERVICE_CAS_CHOICES(VALUE)                                     \
    VALUE(0, refused, "not chosen", "the type is not that of a service") \
    VALUE(1, chosen, "chosen", "the service is in use")

#define TVSERVICE_CAPTION_STATES(VALUE)         \
    VALUE(0, off, "off", "captions are hidden") \
    VALUE(1, on, "on", "captions are shown")

#define TVSERVICE_OAD_STATUSES(VALUE)                      \
    VALUE(1, started, "started", "the download has begun") \
    VALUE(2, done, "done", "all packages are there")       \
    VALUE(3, refused, "refused", "the request is rejected, for the reason in the text")

// ENUMERATION(namespace of the constants, name, title, about, values)
#define TVSERVICE_NAMED_VALUES(ENUMERATION)                                                                           \
    ENUMERATION(terminalType, terminalTypes, "Terminal types",                                                        \
                "The kinds of terminals. The receiver defines all other numbers.", TVSERVICE_TERMINAL_TYPES)          \
    ENUMERATION(audioCoding, audioCodings, "Audio codings", "How an audio stream is coded.", TVSERVICE_AUDIO_CODINGS) \
    ENUMERATION(subtitleCoding, subtitleCodings, "Subtitle codings", "How a subtitle stream is coded.",               \
                TVSERVICE_SUBTITLE_CODINGS)                                                                           \
    ENUMERATION(videoCoding, videoCodings, "Video codings", "How a video stream is coded.", TVSERVICE_VIDEO_CODINGS)  \
    ENUMERATION(mtsTrack, mtsTracks, "MTS tracks", "The tracks of a multichannel sound broadcast.",                   \
                TVSERVICE_MTS_TRACKS)                                                                                 \
    ENUMERATION(releaseDemand, releaseDemands, "Release demands", "What a client shall do with a tuner.",             \
                TVSERVICE_RELEASE_DEMANDS)                                                                            \
    ENUMERATION(releaseAnswer, releaseAnswers, "Release answers", "What became of a request to release a tuner.",     \
                TVSERVICE_RELEASE_ANSWERS)                                                                            \
    ENUMERATION(displayState, displayStates, "Display states", "Whether a terminal shows something.",                 \
                TVSERVICE_DISPLAY_STATES)                                                                             \
    ENUMERATION(lockState, lockStates, "Lock states", "Whether a terminal is locked against minors.",                 \
                TVSERVICE_LOCK_STATES)                                                                                \
    ENUMERATION(sourceState, sourceStates, "Source states", "Whether the signal has a source.",                       \
                TVSERVICE_SOURCE_STATES)                                                                              \
    ENUMERATION(signalState, signalStates, "Signal states", "Whether a tuner receives a signal.",                     \
                TVSERVICE_SIGNAL_STATES)                                                                              \
    ENUMERATION(tunerState, tunerStates, "Tuner states", "What a tuner does.", TVSERVICE_TUNER_STATES)                \
    ENUMERATION(broadcastApplication, broadcastApplications, "Broadcast applications",                                \
                "The applications in the broadcast.", TVSERVICE_BROADCAST_APPLICATIONS)                               \
    ENUMERATION(linkageKind, linkageKinds, "Linkage kinds", "Why a channel is linked to another one.",                \
                TVSERVICE_LINKAGE_KINDS)                                                                              \
    ENUMERATION(casChoice, casChoices, "CAS choices", "What became of the choice of a conditional access service.",   \
                TVSERVICE_CAS_CHOICES)                                                                                \
    ENUMERATION(captionState, captionStates, "Caption states", "Whether captions are shown.",                         \
                TVSERVICE_CAPTION_STATES)                                                                             \
    ENUMERATION(oadStatus, oadStatuses, "OAD statuses", "The status of an over-the-air download.",                    \
                TVSERVICE_OAD_STATUSES)
TVSERVICE_NAMED_VALUES(GENRPC_ENUMERATION)

// All of them, the results first.
#define TVSERVICE_ENUMERATIONS(ENUMERATION) \
    TVSERVICE_RESULT_ENUMERATION(ENUMERATION) TVSERVICE_NAMED_VALUES(ENUMERATION)

} // namespace tvservice
