#include "tables.h"

#include "sections.h"

#include <tvservice/values.h>

#include <algorithm>
#include <array>
// Its headers need this order.
// clang-format off
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/demux.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/eit.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/sdt.h>
// clang-format on
#include <glib.h>
#include <optional>
#include <set>
#include <utility>

namespace media {
namespace {

constexpr std::uint16_t listPid = 0, descriptionPid = 0x11, eventPid = 0x12;
constexpr std::uint8_t descriptionTable = 0x42; // of the services of this transport stream
constexpr std::uint8_t eventTable = 0x4E;       // of what they broadcast now and next

// Descriptors (ISO/IEC 13818-1, 2.6; ETSI EN 300 468, 6.2).
enum Descriptor : std::uint8_t {
    languageDescriptor = 0x0A,
    serviceDescriptor = 0x48,
    ratingDescriptor = 0x55,
    componentDescriptor = 0x52,
    teletextDescriptor = 0x56,
    subtitleDescriptor = 0x59,
    ac3Descriptor = 0x6A,
    enhancedAc3Descriptor = 0x7A,
};

std::span<const std::uint8_t> bytesOf(const dvbpsi_descriptor_t& descriptor) {
    return {descriptor.p_data, descriptor.i_length};
}

std::string languageOf(std::span<const std::uint8_t> bytes) {
    std::string language;
    for (const std::uint8_t byte : bytes.first(std::min<std::size_t>(bytes.size(), 3)))
        language += byte > ' ' && byte < 0x7F ? static_cast<char>(byte) : '?';
    return language;
}

// The first bytes of a text tell its character set (ETSI EN 300 468, annex A).
std::string textOf(std::span<const std::uint8_t> bytes) {
    std::string set = "ISO6937";
    if (!bytes.empty() && bytes[0] == 0x15) {
        set = "UTF-8";
        bytes = bytes.subspan(1);
    } else if (bytes.size() >= 3 && bytes[0] == 0x10) {
        set = "ISO-8859-" + std::to_string(bytes[2]);
        bytes = bytes.subspan(3);
    } else if (!bytes.empty() && bytes[0] >= 0x01 && bytes[0] <= 0x0B) {
        set = "ISO-8859-" + std::to_string(bytes[0] + 4);
        bytes = bytes.subspan(1);
    }
    gchar* const converted =
        g_convert_with_fallback(reinterpret_cast<const gchar*>(bytes.data()), static_cast<gssize>(bytes.size()),
                                "UTF-8", set.c_str(), "?", nullptr, nullptr, nullptr);
    if (!converted) return {};
    std::string text = converted;
    g_free(converted);
    return text;
}

// Teletext is one stream with many pages: subtitles among them are listed as streams of their own.
void addTeletext(std::span<const std::uint8_t> pages, Stream stream, std::vector<Stream>& streams) {
    constexpr std::size_t entrySize = 5;
    constexpr std::uint8_t initial = 1, subtitles = 2, subtitlesForTheHardOfHearing = 5;
    constexpr std::uint16_t usualPage = 100;
    std::vector<Stream> others;
    stream.kind = Stream::Kind::teletext;
    stream.page = usualPage;
    stream.language = languageOf(pages);
    for (; pages.size() >= entrySize; pages = pages.subspan(entrySize)) {
        const std::uint8_t type = pages[3] >> 3, magazine = pages[3] & 7;
        const auto page =
            static_cast<std::uint16_t>((magazine == 0 ? 8 : magazine) * 100 + (pages[4] >> 4) * 10 + (pages[4] & 0x0F));
        if (type == initial) {
            stream.page = page;
            stream.language = languageOf(pages);
        } else if (type == subtitles || type == subtitlesForTheHardOfHearing) {
            constexpr std::uint8_t normal = 0x10, forTheHardOfHearing = 0x20; // as those of bitmaps are numbered
            Stream& other = others.emplace_back(stream);
            other.kind = Stream::Kind::subtitle;
            other.coding = tvservice::subtitleCoding::teletext;
            other.language = languageOf(pages);
            other.type = type == subtitles ? normal : forTheHardOfHearing;
            other.page = page;
        }
    }
    streams.push_back(std::move(stream));
    streams.insert(streams.end(), others.begin(), others.end());
}

void addStream(const dvbpsi_pmt_es_t& source, std::vector<Stream>& streams) {
    using Kind = Stream::Kind;
    namespace video = tvservice::videoCoding;
    namespace audio = tvservice::audioCoding;
    Stream stream;
    stream.pid = source.i_pid;
    switch (source.i_type) {
        case 0x01:
        case 0x02:
            stream.kind = Kind::video;
            stream.coding = video::mpeg2;
            break;
        case 0x1B:
            stream.kind = Kind::video;
            stream.coding = video::avc;
            break;
        case 0x24:
            stream.kind = Kind::video;
            break;
        case 0x03:
        case 0x04:
            stream.kind = Kind::audio;
            stream.coding = audio::mpeg;
            break;
        case 0x0F:
        case 0x11:
            stream.kind = Kind::audio;
            break;
        case 0x81:
            stream.kind = Kind::audio;
            stream.coding = audio::ac3;
            break;
        default:
            break;
    }
    for (const auto* descriptor = source.p_first_descriptor; descriptor; descriptor = descriptor->p_next) {
        const auto bytes = bytesOf(*descriptor);
        switch (descriptor->i_tag) {
            case languageDescriptor:
                stream.language = languageOf(bytes);
                if (bytes.size() >= 4) stream.type = bytes[3];
                break;
            case componentDescriptor:
                if (!bytes.empty()) stream.tag = bytes[0];
                break;
            case ac3Descriptor:
            case enhancedAc3Descriptor:
                stream.kind = Kind::audio;
                stream.coding = descriptor->i_tag == ac3Descriptor ? audio::ac3 : 0;
                break;
            case teletextDescriptor:
                return addTeletext(bytes, std::move(stream), streams);
            case subtitleDescriptor:
                stream.kind = Kind::subtitle;
                stream.coding = tvservice::subtitleCoding::bitmaps;
                stream.language = languageOf(bytes);
                if (bytes.size() < 8) break;
                stream.type = bytes[3];
                stream.page = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
                stream.ancillaryPage = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
                break;
            default:
                break;
        }
    }
    streams.push_back(std::move(stream));
}

// The least age, of the first country that has one.
std::optional<int> ratingIn(const dvbpsi_eit_event_t& event) {
    for (const auto* descriptor = event.p_first_descriptor; descriptor; descriptor = descriptor->p_next) {
        constexpr std::size_t entrySize = 4; // a country and its rating
        constexpr std::uint8_t undefined = 0, highest = 0x0F, ageOfZero = 3;
        const auto bytes = bytesOf(*descriptor);
        if (descriptor->i_tag != ratingDescriptor) continue;
        for (std::size_t at = 3; at < bytes.size(); at += entrySize)
            if (bytes[at] > undefined && bytes[at] <= highest) return bytes[at] + ageOfZero;
    }
    return 0;
}

// Takes sections of one kind of table. The library takes them as packets, and says what it drops only on request.
struct Decoder {
    dvbpsi_t* const handle = dvbpsi_new(nullptr, DVBPSI_MSG_NONE); // null without memory
    std::uint8_t counter = 0;                                      // of packets

    void push(std::span<const std::uint8_t> section) {
        if (!handle) return;
        for (bool begins = true; begins || !section.empty(); begins = false) {
            std::array<std::uint8_t, packetSize> packet;
            packet.fill(0xFF);
            constexpr std::uint8_t startsUnit = 0x40, hasPayload = 0x10, rest = 0;
            packet[0] = syncByte;
            packet[1] = begins ? startsUnit : 0;
            packet[3] = static_cast<std::uint8_t>(hasPayload | counter);
            counter = (counter + 1) & 0x0F;
            packet[4] = rest;
            const auto payload = std::span(packet).subspan(begins ? 5 : 4);
            const std::size_t size = std::min(payload.size(), section.size());
            std::ranges::copy(section.first(size), payload.begin());
            section = section.subspan(size);
            dvbpsi_packet_push(handle, packet.data());
        }
    }
};

} // namespace

struct Tables::Decoders {
    struct ProgramTable {
        Decoders* decoders;
        std::uint16_t number;
        Decoder decoder;
        ProgramTable(Decoders& all, std::uint16_t program) : decoders(&all), number(program) {
            if (decoder.handle) dvbpsi_pmt_attach(decoder.handle, number, takeProgram, this);
        }
        ~ProgramTable() {
            if (!decoder.handle) return;
            dvbpsi_pmt_detach(decoder.handle);
            dvbpsi_delete(decoder.handle);
        }
        ProgramTable(const ProgramTable&) = delete;
        ProgramTable& operator=(const ProgramTable&) = delete;
    };

    Decoders() {
        if (list.handle) dvbpsi_pat_attach(list.handle, takeList, this);
        for (dvbpsi_t* const tables : {descriptions.handle, events.handle})
            if (tables) dvbpsi_AttachDemux(tables, takeTable, this);
    }
    ~Decoders() {
        if (list.handle) {
            dvbpsi_pat_detach(list.handle);
            dvbpsi_delete(list.handle);
        }
        for (dvbpsi_t* const tables : {descriptions.handle, events.handle}) {
            if (!tables) continue;
            dvbpsi_DetachDemux(tables);
            dvbpsi_delete(tables);
        }
    }
    Decoders(const Decoders&) = delete;
    Decoders& operator=(const Decoders&) = delete;

    static void takeList(void* self, dvbpsi_pat_t* table) {
        auto& decoders = *static_cast<Decoders*>(self);
        if (table->b_current_next) decoders.setList(*table);
        dvbpsi_pat_delete(table);
    }
    void setList(const dvbpsi_pat_t& table) {
        std::map<std::uint16_t, Program> listed;
        for (const auto* entry = table.p_first_program; entry && listed.size() < mostPrograms; entry = entry->p_next) {
            if (entry->i_number == 0) continue; // the network's table
            Program& program = listed[entry->i_number];
            const auto known = programs.find(entry->i_number);
            if (known != programs.end() && known->second.tablePid == entry->i_pid) program = known->second;
            program.tablePid = entry->i_pid;
        }
        programs.swap(listed);
        replaced = isListKnown = changed = true;
    }

    static void takeProgram(void* self, dvbpsi_pmt_t* table) {
        auto& source = *static_cast<ProgramTable*>(self);
        if (table->b_current_next) source.decoders->setProgram(source.number, *table);
        dvbpsi_pmt_delete(table);
    }
    void setProgram(std::uint16_t number, const dvbpsi_pmt_t& table) {
        const auto program = programs.find(number);
        if (program == programs.end()) return;
        program->second.isKnown = true;
        program->second.clockPid = table.i_pcr_pid;
        program->second.streams.clear();
        for (const auto* stream = table.p_first_es; stream; stream = stream->p_next)
            addStream(*stream, program->second.streams);
        changed = true;
    }

    static void takeTable(dvbpsi_t* handle, std::uint8_t table, std::uint16_t extension, void* self) {
        auto& decoders = *static_cast<Decoders*>(self);
        // Other tables describe other transport streams.
        if (handle == decoders.descriptions.handle && table == descriptionTable && !decoders.isDescribed)
            decoders.isDescribed = dvbpsi_sdt_attach(handle, table, extension, takeDescriptions, self);
        if (handle == decoders.events.handle && table == eventTable && decoders.withEvents.size() < mostPrograms &&
            !decoders.withEvents.contains(extension) && dvbpsi_eit_attach(handle, table, extension, takeEvents, self))
            decoders.withEvents.insert(extension);
    }
    static void takeDescriptions(void* self, dvbpsi_sdt_t* table) {
        auto& decoders = *static_cast<Decoders*>(self);
        for (const auto* service = table->p_first_service; service; service = service->p_next)
            for (const auto* each = service->p_first_descriptor; each; each = each->p_next)
                if (each->i_tag == serviceDescriptor) decoders.setName(service->i_service_id, bytesOf(*each));
        dvbpsi_sdt_delete(table);
    }
    void setName(std::uint16_t number, std::span<const std::uint8_t> bytes) {
        if (bytes.size() < 2 || (names.size() >= mostPrograms && !names.contains(number))) return;
        const std::size_t provider = bytes[1], length = 2 + provider;
        if (bytes.size() <= length) return;
        const auto name = bytes.subspan(length + 1);
        names[number] = textOf(name.first(std::min<std::size_t>(bytes[length], name.size())));
        changed = true;
    }

    static void takeEvents(void* self, dvbpsi_eit_t* table) {
        auto& decoders = *static_cast<Decoders*>(self);
        if (table->b_current_next)
            decoders.setRating(table->i_extension,
                               table->p_first_event ? ratingIn(*table->p_first_event) : std::nullopt);
        dvbpsi_eit_delete(table);
    }
    // Of a program's two sections of events, the first is about what runs now, if anything does. The library would wait
    // for the other one, and does not say of which of them an event is: so it gets the first one as a table of its own.
    void takePresent(std::span<const std::uint8_t> section) {
        constexpr std::size_t numberAt = 6, lastNumberAt = 7, lastOfSegmentAt = 12, shortest = 18;
        if (Sections::tableOf(section) != eventTable || section[numberAt] != 0 || section.size() < shortest) return;
        std::vector<std::uint8_t> present(section.begin(), section.end());
        present[lastNumberAt] = present[lastOfSegmentAt] = 0;
        Sections::writeChecksum(present);
        // Twice: the library looks whether a table is whole before it adds the section that has come.
        for (int i = 0; i < 2; ++i) events.push(present);
    }
    // Also before the program is listed: the library does not repeat what has not changed.
    void setRating(std::uint16_t number, std::optional<int> rating) {
        const auto known = ratings.find(number);
        if (known == ratings.end() ? ratings.size() >= mostPrograms : known->second == rating) return;
        ratings[number] = rating;
        changed = true;
    }

    // After a new list, not from inside the library's callback.
    void replaceProgramTables() {
        replaced = false;
        programTables.clear();
        for (const auto& [number, program] : programs) {
            programTables[program.tablePid].push_back(std::make_unique<ProgramTable>(*this, number));
        }
        std::erase_if(sections, [this](const auto& entry) { return !contains(entry.first); });
    }

    // Whether a PID has tables.
    bool contains(std::uint16_t pid) const {
        return pid == listPid || pid == descriptionPid || pid == eventPid || programTables.contains(pid);
    }
    void take(std::uint16_t pid, std::span<const std::uint8_t> section) {
        if (pid == listPid) {
            list.push(section);
        } else if (pid == descriptionPid) {
            descriptions.push(section);
        } else if (pid == eventPid) {
            takePresent(section);
        } else {
            // One PID may have the tables of many programs.
            for (const auto& table : programTables[pid])
                if (table->number == Sections::extensionOf(section)) table->decoder.push(section);
        }
    }

    Decoder list, descriptions, events;
    std::map<std::uint16_t, Sections> sections;          // by PID; of those with tables
    std::set<std::uint16_t> withEvents;                  // programs; at most mostPrograms
    std::map<std::uint16_t, std::optional<int>> ratings; // by number; at most mostPrograms
    std::map<std::uint16_t, Program> programs;           // at most mostPrograms
    std::map<std::uint16_t, std::string> names;          // by number; at most mostPrograms
    std::map<std::uint16_t, std::vector<std::unique_ptr<ProgramTable>>> programTables; // by PID
    bool isListKnown = false, isDescribed = false, replaced = false, changed = false;
};

Tables::Tables() : decoders_(std::make_unique<Decoders>()) {}
Tables::~Tables() = default;

bool Tables::take(const Packet& packet) {
    Decoders& all = *decoders_;
    const std::uint16_t pid = packet.pid();
    if (!all.contains(pid)) return false;
    all.changed = false;
    all.sections[pid].take(packet, [&](std::span<const std::uint8_t> section) { all.take(pid, section); });
    if (all.replaced) all.replaceProgramTables();
    if (!all.changed) return false;
    for (auto& [number, program] : all.programs) {
        if (const auto name = all.names.find(number); name != all.names.end()) program.name = name->second;
        if (const auto rating = all.ratings.find(number); rating != all.ratings.end()) program.rating = rating->second;
    }
    return true;
}

bool Tables::areProgramsKnown() const { return decoders_->isListKnown; }
const std::map<std::uint16_t, Program>& Tables::programs() const { return decoders_->programs; }

} // namespace media
