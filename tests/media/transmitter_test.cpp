// What the transmitter broadcasts: others read its tables, texts and subtitles.
#include "integration/program-run.h"
#include "media/gstreamer/glib-pointers.h"
#include "media/gstreamer/packet.h"
#include "media/gstreamer/tables.h"

#include <algorithm>
// Its headers need this order.
// clang-format off
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/demux.h>
#include <dvbpsi/eit.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/dr_4d.h>
#include <dvbpsi/dr_55.h>
#include <dvbpsi/dr_56.h>
// clang-format on
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <netinet/in.h>
#include <set>
#include <sys/socket.h>
#include <sys/time.h>

namespace {

using namespace program_run;
using media::Owner, media::packetSize;
using testing::Contains, testing::ElementsAre, testing::HasSubstr;
using Lines = std::vector<std::string>;

std::string sample(const std::string& name) { return std::string(MEDIA_SAMPLES) + '/' + name; }

// Calls a function with each packet of the sample and its PID.
template <class Function> void forEachPacket(const std::string& name, const Function& function) {
    const std::string content = contentOf(sample(name));
    std::vector<std::uint8_t> bytes(content.begin(), content.end());
    ASSERT_GT(bytes.size(), 1000 * packetSize);
    for (std::size_t at = 0; at + packetSize <= bytes.size(); at += packetSize) {
        const auto packet = std::span<std::uint8_t>(bytes).subspan(at).first<packetSize>();
        function(packet, media::Packet(packet).pid());
    }
}

// "PROGRAM: KIND PID LANGUAGE TYPE" of subtitles and teletext.
Lines textsIn(const std::string& name) {
    media::Tables tables;
    forEachPacket(name, [&](auto packet, std::uint16_t) { tables.take(media::Packet(packet)); });
    Lines lines;
    for (const auto& [number, program] : tables.programs())
        for (const media::Stream& stream : program.streams) {
            using Kind = media::Stream::Kind;
            if (stream.kind != Kind::subtitle && stream.kind != Kind::teletext) continue;
            const bool isTeletext = stream.kind == Kind::teletext;
            lines.push_back(program.name + (isTeletext ? ": teletext " : ": subtitle ") + std::to_string(stream.pid) +
                            ' ' + stream.language +
                            (isTeletext
                                 ? ""
                                 : " type " + std::to_string(stream.type) + " pages " + std::to_string(stream.page) +
                                       '+' + std::to_string(stream.ancillaryPage)));
        }
    return lines;
}

// "LANGUAGE type TYPE page PAGE" of the teletext of program 1.
Lines pagesIn(const std::string& name) {
    Lines lines;
    const auto take = [](void* self, dvbpsi_pmt_t* table) {
        auto& found = *static_cast<Lines*>(self);
        for (const auto* stream = table->p_first_es; stream; stream = stream->p_next)
            for (auto* each = stream->p_first_descriptor; each; each = each->p_next) {
                const auto* const teletext = each->i_tag == 0x56 ? dvbpsi_DecodeTeletextDr(each) : nullptr;
                for (int i = 0; teletext && i < teletext->i_pages_number; ++i) {
                    const auto& page = teletext->p_pages[i];
                    std::ostringstream line;
                    line << std::string(std::begin(page.i_iso6392_language_code),
                                        std::end(page.i_iso6392_language_code))
                         << " type " << int{page.i_teletext_type} << " page " << int{page.i_teletext_magazine_number}
                         << '/' << std::hex << int{page.i_teletext_page_number};
                    found.push_back(line.str());
                }
            }
        dvbpsi_pmt_delete(table);
    };
    dvbpsi_t* const decoder = dvbpsi_new(nullptr, DVBPSI_MSG_NONE);
    dvbpsi_pmt_attach(decoder, 1, take, &lines);
    forEachPacket(name, [&](auto packet, std::uint16_t pid) {
        if (pid == 0x1001) dvbpsi_packet_push(decoder, packet.data());
    });
    dvbpsi_pmt_detach(decoder);
    dvbpsi_delete(decoder);
    return lines;
}

// "PROGRAM'S NUMBER: EVENT RATING" of the current and the next events.
class Events {
public:
    explicit Events(const std::string& name) : decoder_(dvbpsi_new(nullptr, DVBPSI_MSG_NONE)) {
        dvbpsi_AttachDemux(decoder_, newTable, this);
        forEachPacket(name, [&](auto packet, std::uint16_t pid) {
            if (pid == 0x12) dvbpsi_packet_push(decoder_, packet.data());
        });
        dvbpsi_DetachDemux(decoder_);
        dvbpsi_delete(decoder_);
    }
    const std::set<std::string>& lines() const { return lines_; }

private:
    static void newTable(dvbpsi_t* decoder, std::uint8_t table, std::uint16_t program, void* self) {
        if (table == 0x4E) dvbpsi_eit_attach(decoder, table, program, take, self);
    }
    static void take(void* self, dvbpsi_eit_t* table) {
        for (const auto* event = table->p_first_event; event; event = event->p_next) {
            std::string line = std::to_string(table->i_extension) + ':';
            for (auto* each = event->p_first_descriptor; each; each = each->p_next) {
                if (each->i_tag == 0x4D) {
                    const auto& text = *dvbpsi_DecodeShortEventDr(each);
                    line += ' ' + std::string(text.i_event_name, text.i_event_name + text.i_event_name_length);
                } else if (each->i_tag == 0x55) {
                    const auto& rating = dvbpsi_DecodeParentalRatingDr(each)->p_parental_rating[0];
                    line += ' ';
                    for (const int shift : {16, 8, 0}) line += static_cast<char>(rating.i_country_code >> shift & 0xFF);
                    line += ' ' + std::to_string(rating.i_rating + 3);
                }
            }
            static_cast<Events*>(self)->lines_.insert(line);
        }
        dvbpsi_eit_delete(table);
    }

    dvbpsi_t* const decoder_;
    std::set<std::string> lines_;
};

// A pipeline that reads a program of a sample and ends in an appsink "out".
class Reader {
public:
    Reader(const std::string& name, int program, const std::string& rest) {
        gst_init(nullptr, nullptr);
        const std::string text = "filesrc location=" + sample(name) +
                                 " ! tsdemux name=demux program-number=" + std::to_string(program) + ' ' + rest +
                                 " ! appsink name=out sync=false";
        GError* problem = nullptr;
        pipeline_.reset(gst_parse_launch(text.c_str(), &problem));
        if (problem) throw std::runtime_error(problem->message);
    }
    ~Reader() { gst_element_set_state(pipeline_.get(), GST_STATE_NULL); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    Owner<GstElement> element(const char* name) const {
        return Owner<GstElement>(gst_bin_get_by_name(GST_BIN(pipeline_.get()), name));
    }
    // Calls a function with the time since the start and the content of each buffer.
    template <class Function> void read(const Function& function) const {
        constexpr GstClockTime longest = 60 * GST_SECOND;
        const auto out = element("out");
        gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
        while (const Owner<GstSample> each{gst_app_sink_try_pull_sample(GST_APP_SINK(out.get()), longest)}) {
            GstBuffer* const buffer = gst_sample_get_buffer(each.get());
            const GstClockTime time = gst_segment_to_running_time(gst_sample_get_segment(each.get()), GST_FORMAT_TIME,
                                                                  GST_BUFFER_PTS(buffer));
            GstMapInfo map;
            ASSERT_TRUE(gst_buffer_map(buffer, &map, GST_MAP_READ));
            function(time, std::span<const std::uint8_t>(map.data, map.size));
            gst_buffer_unmap(buffer, &map);
        }
        EXPECT_TRUE(gst_app_sink_is_eos(GST_APP_SINK(out.get()))) << "the pipeline hangs";
    }

private:
    Owner<GstElement> pipeline_;
};

Lines pagesOf(const std::string& name, int page, const std::string& pad) {
    const Reader reader(name, 1,
                        "demux." + pad + " ! queue ! teletextdec subtitles-mode=true page=" + std::to_string(page) +
                            " ! text/x-raw,format=utf-8");
    Lines pages;
    reader.read([&](GstClockTime, auto bytes) {
        pages.emplace_back(bytes.begin(), std::ranges::find(bytes, '\0')); // and a new line
    });
    return pages;
}

// The overlay does not wait for subtitles, so it gets all of them before the pictures.
void holdPictures(GstElement* overlay) {
    const Owner<GstPad> pictures(gst_element_get_static_pad(overlay, "video_sink"));
    const Owner<GstPad> subtitles(gst_element_get_static_pad(overlay, "text_sink"));
    struct Hold {
        GstPad* pictures;
        gulong probe;
    };
    constexpr auto wait = [](GstPad*, GstPadProbeInfo*, void*) { return GST_PAD_PROBE_OK; };
    constexpr auto release = [](GstPad*, GstPadProbeInfo* info, void* data) {
        const auto& hold = *static_cast<Hold*>(data);
        if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_EOS)
            gst_pad_remove_probe(hold.pictures, hold.probe);
        return GST_PAD_PROBE_OK;
    };
    constexpr auto pictureProbe = static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BLOCK | GST_PAD_PROBE_TYPE_BUFFER);
    auto* const hold =
        new Hold{pictures.get(), gst_pad_add_probe(pictures.get(), pictureProbe, wait, nullptr, nullptr)};
    gst_pad_add_probe(subtitles.get(), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, release, hold,
                      [](void* data) { delete static_cast<Hold*>(data); });
}

class Picture {
public:
    explicit Picture(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    // Of the bar of the subtitles, if it is there with all its letters.
    std::string bar() const {
        constexpr int left = 160, right = 560, margin = 442, firstRow = 448, lastRow = 485;
        const auto letters = [&](int y) {
            for (int x = left; x < right; ++x)
                if (colour(x, y) == "black") return true;
            return false;
        };
        if (colour(left, margin) != colour(right - 1, margin)) return "none";
        return letters(firstRow) && letters(lastRow) ? colour(left, margin) : "none";
    }

private:
    std::string colour(int x, int y) const {
        constexpr int width = 720;
        const auto pixel = bytes_.subspan(std::size_t(y * width + x) * 3, 3);
        const auto is = [&](int red, int green, int blue) {
            constexpr int near = 40;
            return std::abs(pixel[0] - red) < near && std::abs(pixel[1] - green) < near &&
                   std::abs(pixel[2] - blue) < near;
        };
        return is(255, 255, 0) ? "yellow" : is(0, 255, 255) ? "cyan" : is(0, 0, 0) ? "black" : "other";
    }
    const std::span<const std::uint8_t> bytes_;
};

// The colours of the bar of subtitles at these times, in ms.
Lines barsAt(const std::vector<int>& times, const std::string& name, int program, const std::string& video,
             const std::string& subtitle) {
    const Reader reader(name, program,
                        "demux." + subtitle + " ! queue ! overlay.text_sink demux." + video +
                            " ! queue max-size-bytes=0 max-size-buffers=0 max-size-time=0 ! h264parse ! avdec_h264 ! "
                            "videoconvert ! dvbsuboverlay name=overlay ! videoconvert ! video/x-raw,format=RGB");
    holdPictures(reader.element("overlay").get());
    Lines bars;
    reader.read([&](GstClockTime time, auto bytes) {
        if (bars.size() < times.size() && time >= static_cast<GstClockTime>(times[bars.size()]) * GST_MSECOND)
            bars.push_back(Picture(bytes).bar());
    });
    return bars;
}

TEST(ABroadcast, ListsItsSubtitlesAndItsTeletext) {
    EXPECT_THAT(textsIn("one.ts"),
                ElementsAre("One: subtitle 259 eng type 16 pages 1+1", "One: subtitle 260 fra type 16 pages 1+1",
                            "One: teletext 261 eng", "One: subtitle 261 eng type 16 pages 888+0"));
    EXPECT_THAT(textsIn("other.ts"),
                ElementsAre("Sports: teletext 259 eng", "Sports: subtitle 259 eng type 16 pages 888+0",
                            "Movies: subtitle 515 eng type 16 pages 1+1"));
    EXPECT_THAT(pagesIn("one.ts"),
                testing::AllOf(testing::SizeIs(testing::Ge(2)),
                               testing::Each(testing::AnyOf("eng type 1 page 1/0", "eng type 2 page 0/88"))));
}

TEST(ABroadcast, RatesItsEventsForParents) {
    EXPECT_THAT(Events("other.ts").lines(), ElementsAre("1: Sports 0", "1: Sports 1", "2: Movies 0 GBR 16",
                                                        "2: Movies 1 GBR 16", "3: Music 0", "3: Music 1"));
}

TEST(ABroadcast, LosesNoPacket) {
    for (const char* name : {"one.ts", "other.ts"}) {
        std::map<std::uint16_t, std::uint8_t> counters;
        forEachPacket(name, [&](auto packet, std::uint16_t pid) {
            constexpr std::uint16_t padding = 0x1FFF;
            if (pid == padding || !media::Packet(packet).hasPayload()) return;
            const std::uint8_t counter = packet[3] & 0x0F;
            const auto [last, isFirst] = counters.try_emplace(pid, counter);
            EXPECT_TRUE(isFirst || counter == ((last->second + 1) & 0x0F)) << name << ' ' << pid;
            last->second = counter;
        });
        EXPECT_GT(counters.size(), 14U);
    }
}

TEST(ABroadcast, HasPagesOfTeletext) {
    const Lines pages = pagesOf("one.ts", 100, "private_0_0105");
    ASSERT_FALSE(pages.empty());
    EXPECT_EQ(pages.front(), R"(One\nPAGE 100\nSecond 000\n200 Another page\n888 Subtitles\n)");
    EXPECT_THAT(pages.back(), HasSubstr("Second 003"));
    EXPECT_THAT(pagesOf("one.ts", 200, "private_0_0105"), Contains(R"(PAGE 200\nMore about One\n100 First page\n)"));
    EXPECT_THAT(pagesOf("other.ts", 100, "private_0_0103"), Contains(HasSubstr(R"(Sports\nPAGE 100\n)")));
}

TEST(ABroadcast, HasSubtitlesInItsTeletext) {
    EXPECT_THAT(pagesOf("one.ts", 888, "private_0_0105"),
                ElementsAre(R"(SUBTITLE 000\n)", "\n", R"(SUBTITLE 002\n)", "\n"));
}

TEST(ABroadcast, ShowsSubtitlesOfALanguageAtTheirTimes) {
    const std::vector<int> times{1000, 1850, 3000, 3850};
    EXPECT_THAT(barsAt(times, "one.ts", 1, "video_0_0100", "subpicture_0_0103"),
                ElementsAre("yellow", "none", "yellow", "none"));
    EXPECT_THAT(barsAt(times, "one.ts", 1, "video_0_0100", "subpicture_0_0104"),
                ElementsAre("cyan", "none", "cyan", "none"));
    EXPECT_THAT(barsAt({500}, "other.ts", 2, "video_0_0200", "subpicture_0_0203"), ElementsAre("yellow"));
}

class ATransmitter : public Programs {
protected:
    ATransmitter() { environment["ASAN_OPTIONS"] = "detect_leaks=0"; } // of GStreamer's plugins
};

TEST_F(ATransmitter, SendsInRealTimeAndNothingWhileItsSignalIsLost) {
    const int receiver = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &size), 0);
    constexpr timeval wait{0, 100'000};
    ::setsockopt(receiver, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    const auto begin = std::chrono::steady_clock::now();
    const auto sender = start({program("tvsa-transmitter"), "--seconds", "2", "--loss", "9",
                               "udp://127.0.0.1:" + std::to_string(ntohs(address.sin_port))});
    std::vector<std::uint64_t> clocks;
    for (bool hasEnded = false; !hasEnded;) {
        hasEnded = sender->hasEnded(); // and what it has sent before is read
        std::array<std::uint8_t, 7 * packetSize> datagram{};
        while (::recv(receiver, datagram.data(), datagram.size(), 0) > 0)
            for (std::size_t at = 0; at < datagram.size(); at += packetSize)
                if (const auto clock =
                        media::Packet(std::span<std::uint8_t>(datagram).subspan(at).first<packetSize>()).pcr()) {
                    clocks.push_back(*clock);
                    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
                    EXPECT_GE(passed.count() * media::ticksPerSecond + static_cast<double>(clocks.front()),
                              static_cast<double>(*clock))
                        << "sent too early";
                }
    }
    ::close(receiver);
    EXPECT_EQ(sender->wait().exitCode, 0);
    ASSERT_FALSE(clocks.empty());
    const auto [first, last] = std::ranges::minmax(clocks);
    EXPECT_LT(last - first, media::ticksPerSecond + media::ticksPerSecond / 5) << "one second of every ten";
}

TEST_F(ATransmitter, LosesNoSignalIntoAFile) {
    const Outcome outcome = run({program("tvsa-transmitter"), "--loss", "2", (folder / "a.ts").string()});
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_THAT(outcome.error, HasSubstr("--loss is only for udp://ADDRESS:PORT"));
}

} // namespace
