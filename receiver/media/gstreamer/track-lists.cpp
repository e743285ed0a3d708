#include "track-lists.h"

namespace media {
namespace {

Stream::Kind kindOf(TrackKind kind) {
    switch (kind) {
        case TrackKind::audio:
            return Stream::Kind::audio;
        case TrackKind::subtitle:
            return Stream::Kind::subtitle;
        case TrackKind::video:
            return Stream::Kind::video;
        case TrackKind::teletext:
            return Stream::Kind::teletext;
    }
    return Stream::Kind::other;
}

// Adds the streams of a kind to a list, which fill turns into records.
template <class Info, class Fill>
void list(const Program& program, TrackKind kind, std::int32_t chosen, Info& info, const Fill& fill) {
    info.intParam1 = chosen;
    for (std::int32_t number = 1; const Stream* const stream = streamOf(program, kind, number); ++number) {
        auto& record = info.streams.emplace_back();
        record.intParam1 = number;
        record.shortParam1 = stream->pid;
        fill(*stream, number == chosen, record);
    }
}

} // namespace

const Stream* streamOf(const Program& program, TrackKind kind, std::int32_t number) {
    for (const Stream& stream : program.streams)
        if (stream.kind == kindOf(kind) && --number == 0) return &stream;
    return nullptr;
}

Tracks noTracks(const Terminal& terminal) {
    Tracks tracks;
    tracks.audio.terminal = tracks.subtitle.terminal = tracks.video.terminal =
        tracks.teletext.terminal = {terminal.type, terminal.id};
    return tracks;
}

Tracks tracksOf(const Terminal& terminal, const Program& program, const ChosenTracks& chosen,
                const PictureFormat& picture, const SoundFormat& sound, const std::string& uri) {
    Tracks tracks = noTracks(terminal);
    list(program, TrackKind::audio, chosen[TrackKind::audio], tracks.audio,
         [&](const Stream& stream, bool isChosen, auto& audio) {
             constexpr std::uint8_t forTheVisuallyImpaired = 3;
             audio.strParam1 = stream.language;
             audio.intParam2 = stream.coding;
             audio.shortParam2 = stream.tag;
             audio.flagParam1 = isChosen;
             audio.flagParam2 = stream.type == forTheVisuallyImpaired;
             audio.strParam3 = audio.flagParam2 ? "description" : "main";
             audio.strParam4 = uri;
             if (!isChosen) return;
             audio.intParam3 = sound.channels;
             audio.intParam4 = sound.rate;
         });
    list(program, TrackKind::subtitle, chosen[TrackKind::subtitle], tracks.subtitle,
         [&](const Stream& stream, bool isChosen, auto& subtitle) {
             constexpr std::uint8_t first = 0x20, last = 0x25; // for the hard of hearing
             subtitle.strParam1 = stream.language;
             subtitle.intParam2 = stream.coding;
             subtitle.intParam3 = stream.type;
             subtitle.shortParam2 = stream.page;
             subtitle.shortParam3 = stream.ancillaryPage;
             subtitle.flagParam1 = isChosen;
             subtitle.flagParam2 = stream.type >= first && stream.type <= last;
             subtitle.strParam3 = uri;
         });
    list(program, TrackKind::video, chosen[TrackKind::video], tracks.video,
         [&](const Stream& stream, bool isChosen, auto& video) {
             video.intParam2 = stream.coding;
             video.flagParam1 = isChosen;
             if (!isChosen) return;
             video.shortParam2 = static_cast<std::uint16_t>(picture.perSecond);
             video.shortParam3 = static_cast<std::uint16_t>(picture.width);
             video.shortParam4 = static_cast<std::uint16_t>(picture.height);
         });
    tracks.video.intParam4 = picture.width;
    tracks.video.intParam5 = picture.height;
    list(program, TrackKind::teletext, chosen[TrackKind::teletext], tracks.teletext,
         [](const Stream& stream, bool, auto& teletext) { teletext.strParam1 = stream.language; });
    return tracks;
}

} // namespace media
