// Sources that are damaged, or mean harm: each is shown, refused or given up, and the receiver goes on.
#include "hostile-server.h"
#include "made-stream.h"
#include "playing-receiver.h"

#include <random>
#include <sys/stat.h>

namespace {

using namespace playing_receiver;

using media::packetSize;

std::string sampleBytes() {
    constexpr std::size_t enough = 2000 * packetSize; // about one second
    return contentOf(std::string(MEDIA_SAMPLES) + "/one.ts").substr(0, enough);
}

// The sample with something wrong; the same for the same number.
std::string damaged(unsigned number) {
    std::string bytes = sampleBytes();
    std::mt19937 random(number);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    const std::size_t packets = bytes.size() / packetSize;
    switch (number % 5) {
        case 0: // cut
            bytes.resize(below(bytes.size()));
            break;
        case 1: // single bits
            for (std::size_t i = 0; i < 1 + number * 20; ++i)
                bytes[below(bytes.size())] ^= static_cast<char>(1 << below(8));
            break;
        case 2: // pieces are missing
            for (std::size_t i = 0; i < 20; ++i) bytes.erase(below(bytes.size() - 1000), below(1000));
            break;
        case 3: // headers of packets
            for (std::size_t i = 0; i < 500; ++i)
                bytes[below(packets) * packetSize + 1 + below(12)] = static_cast<char>(random());
            break;
        default: // packets in another order
            for (std::size_t i = 0; i < 500; ++i) {
                const auto a = bytes.begin() + static_cast<std::ptrdiff_t>(below(packets) * packetSize);
                const auto b = bytes.begin() + static_cast<std::ptrdiff_t>(below(packets) * packetSize);
                if (a != b) std::swap_ranges(a, a + packetSize, b);
            }
    }
    return bytes;
}

class HostileMedia : public PlayingReceiver {
protected:
    void write(const std::string& name, const std::string& content) const {
        std::ofstream(folder / name, std::ios::binary) << content;
    }
    std::string file(const std::string& name) const { return "file://" + (folder / name).string(); }

    // Plays a source that may not be shown, and returns tvctl's outcome.
    Outcome attempt(const std::string& terminal, const std::string& uri) const {
        Outcome outcome = tvctl({"play", terminal, uri});
        EXPECT_THAT(outcome.exitCode, testing::AnyOf(0, notShown, givenUp)) << uri << '\n' << outcome.error;
        return outcome;
    }
    // The receiver is as well as before: it plays, its processes live, and have not grown.
    void goesOn() const {
        play("0:0", "dvb://one");
        EXPECT_EQ(codeOn("0:0"), "One");
        play("0:1", std::string("file://") + MEDIA_SAMPLES + "/one.ts");
        for (Running* const process : {host_.get(), tvService_.get(), mmService_.get()})
            EXPECT_FALSE(process->hasEnded()) << process->error();
        for (const Running* const service : {tvService_.get(), mmService_.get()})
            EXPECT_LT(peakMegabytes(*service), mostMegabytes);
    }
    static std::size_t peakMegabytes(const Running& process) {
        std::istringstream status(contentOf("/proc/" + std::to_string(process.id()) + "/status"));
        std::string word;
        std::size_t kilobytes = 0;
        while (status >> word)
            if (word == "VmHWM:") status >> kilobytes;
        EXPECT_GT(kilobytes, 0);
        return kilobytes / 1024;
    }

private:
#ifdef __SANITIZE_ADDRESS__
    static constexpr std::size_t mostMegabytes = 1200; // with the memory that it keeps from being used again
#else
    static constexpr std::size_t mostMegabytes = 400;
#endif
};

// ---- transport streams ----

class DamagedStreams : public HostileMedia, public testing::WithParamInterface<unsigned> {};

TEST_P(DamagedStreams, AreShownOrRefusedAndTheReceiverGoesOn) {
    constexpr unsigned each = 5;
    const unsigned first = GetParam() * each;
    for (unsigned i = first; i < first + each; ++i) {
        const std::string name = "damaged-" + std::to_string(i) + ".ts";
        write(name, damaged(i));
        addChannel("dvb://damaged-" + std::to_string(i), file(name), static_cast<int>(i % 3) + 1);
    }
    startAll();
    for (unsigned i = first; i < first + each; ++i) {
        attempt("0:0", "dvb://damaged-" + std::to_string(i));
        attempt("0:1", file("damaged-" + std::to_string(i) + ".ts"));
    }
    goesOn();
    endAll();
}

INSTANTIATE_TEST_SUITE_P(Forty, DamagedStreams, testing::Range(0U, 8U));

// A list of 10,000 programs, of which 256 have tables, and all streams of these tables come.
std::string streamOfManyPrograms() {
    constexpr std::size_t all = 10'000, perSection = 250, withTable = 256;
    made_stream::MadeStream stream;
    for (std::uint16_t round = 0; round < 20; ++round) {
        for (std::size_t i = 0; i < all / perSection; ++i)
            stream.list(1 + i * perSection, perSection,
                        {.section = static_cast<std::uint8_t>(i), .last = all / perSection - 1});
        for (std::uint16_t number = 1; number <= withTable; ++number)
            stream.program(number, made_stream::Bytes(100, made_stream::video));
        constexpr std::size_t ticks = 4500, clockPid = 0x100;
        stream.clock(clockPid, round * ticks);
        for (std::uint16_t pid = 0x20; pid < media::pidCount; pid = static_cast<std::uint16_t>(pid + 16))
            if (pid < 0x1000) stream.keyFrame(pid);
    }
    return {stream.bytes.begin(), stream.bytes.end()};
}

// Sections that claim more than they have, or nothing at all.
std::string streamOfWrongLengths() {
    made_stream::MadeStream stream;
    for (std::size_t round = 0; round < 50; ++round) {
        stream.list(1, 1);
        for (const std::size_t length : {0U, 1U, 8U, 9U, 1021U, 4093U, 4095U}) {
            made_stream::Bytes section{2, static_cast<std::uint8_t>(0xB0 | length >> 8),
                                       static_cast<std::uint8_t>(length)};
            section.resize(400, 0xFE);
            for (const std::uint16_t pid : std::initializer_list<std::uint16_t>{0, 0x11, 0x12, 0x1001})
                stream.table(pid, section);
        }
        for (const std::uint8_t rest : std::initializer_list<std::uint8_t>{1, 182, 183, 255})
            stream.packet(0x1001, true, {rest});
        constexpr std::size_t ticks = 4500;
        stream.clock(0x100, round * ticks);
    }
    return {stream.bytes.begin(), stream.bytes.end()};
}

TEST_F(HostileMedia, HasTooManyProgramsOrWrongTables) {
    write("many.ts", streamOfManyPrograms());
    write("lengths.ts", streamOfWrongLengths());
    write("nothing.ts", std::string(100'000, '\x47'));
    write("no-clock.ts", sampleBytes().substr(0, packetSize));
    addChannel("dvb://many", file("many.ts"), 1);
    addChannel("dvb://too-many", file("many.ts"), 9999);
    for (const char* name : {"lengths", "nothing", "no-clock"})
        addChannel(std::string("dvb://") + name, file(std::string(name) + ".ts"), 1);
    startAll();
    for (const char* name : {"many", "lengths", "nothing", "no-clock"}) {
        attempt("1:0", std::string("dvb://") + name);
        attempt("1:1", file(std::string(name) + ".ts"));
    }
    EXPECT_THAT(attempt("1:0", "dvb://too-many").error, HasSubstr("no such program"));
    goesOn();
    endAll();
}

// ---- files ----

TEST_F(HostileMedia, IsAPlaylistThatNamesItselfOrNoFileAtAll) {
    addChannel("dvb://pipe", file("pipe.ts"), 1);
    startAll();
    write("variants.m3u8", "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\nvariants.m3u8\n");
    write("segments.m3u8", "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nsegments.m3u8\n");
    write("list.pls", "[playlist]\nFile1=list.pls\nNumberOfEntries=1\n");
    ASSERT_EQ(::mkfifo((folder / "pipe.ts").c_str(), 0600), 0);
    for (const std::string name : {"variants.m3u8", "segments.m3u8", "list.pls"})
        EXPECT_NE(attempt("1:0", file(name)).exitCode, 0) << name;
    for (const std::string name : {"pipe.ts", "."}) EXPECT_EQ(attempt("1:0", file(name)).exitCode, notShown) << name;
    EXPECT_EQ(attempt("1:0", "file:///dev/zero").exitCode, notShown);
    EXPECT_THAT(attempt("1:0", "dvb://pipe").error, HasSubstr("cannot open file"));
    goesOn();
    endAll();
}

// ---- pictures ----

class TooLargePictures : public HostileMedia {
protected:
    // Makes one black picture.
    void make(const std::string& name, const std::string& format, const Words& encoder) const {
        Words command{"gst-launch-1.0", "-q", "videotestsrc", "pattern=black", "num-buffers=1", "!", format, "!"};
        command.insert(command.end(), encoder.begin(), encoder.end());
        command.insert(command.end(), {"!", "filesink", "location=" + (folder / name).string()});
        ASSERT_EQ(run(command).exitCode, 0) << name;
    }
    void makeFilm(const std::string& name, const std::string& format) const {
        make(name, format, {"vp8enc", "deadline=1", "cpu-used=16", "!", "webmmux"});
    }
    void isRefused(const std::string& name, const std::string& reason) {
        EXPECT_THAT(attempt("1:0", file(name)).error, HasSubstr("too large")) << name;
        EXPECT_THAT(mmService_->error(), HasSubstr(reason)) << name;
    }
};

TEST_F(TooLargePictures, AreRefusedBeforeTheyTakeMemory) {
    startAll();
    makeFilm("film.webm", "video/x-raw,width=8192,height=8192");
    isRefused("film.webm", "pictures of 8192 x 8192 pixels; at most 4096 x 2304 are decoded");
    make("picture.png", "video/x-raw,format=GRAY8,width=12000,height=12000", {"pngenc", "compression-level=1"});
    isRefused("picture.png", "pictures of 12000 x 12000 pixels");
    make("raw.mkv", "video/x-raw,format=I420,width=4112,height=2304", {"matroskamux"});
    isRefused("raw.mkv", "pictures of 4112 x 2304 pixels");
    write("drawing.svg", R"(<svg xmlns="http://www.w3.org/2000/svg" width="30000" height="30000"/>)");
    isRefused("drawing.svg", "the size of the picture is not known before it is decoded");
    goesOn();
    endAll();
}

TEST_F(TooLargePictures, AreRefusedWhenTheFileSaysThatTheyAreSmall) {
    startAll();
    makeFilm("film.webm", "video/x-raw,width=8192,height=8192");
    std::string bytes = contentOf(folder / "film.webm");
    for (const char id : {'\xB0', '\xBA'}) { // the width and the height of the track
        const std::string large{id, '\x82', '\x20', '\0'}, small{id, '\x82', '\1', '\0'};
        const std::size_t at = bytes.find(large);
        ASSERT_NE(at, std::string::npos);
        bytes.replace(at, large.size(), small);
    }
    write("liar.webm", bytes);
    isRefused("liar.webm", "pictures of 8192 x 8192 pixels");
    goesOn();
    endAll();
}

TEST_F(HostileMedia, MayHaveTheLargestPicturesThatTelevisionsDecode) {
    startAll();
    ASSERT_EQ(run({"gst-launch-1.0", "-q", "videotestsrc", "num-buffers=1", "!", "video/x-raw,width=4096,height=2304",
                   "!", "jpegenc", "!", "filesink", "location=" + (folder / "large.jpg").string()})
                  .exitCode,
              0);
    play("1:0", file("large.jpg"));
    goesOn();
    endAll();
}

// ---- servers ----

std::string headers(std::size_t length, const std::string& type = "video/mp2t") {
    return "HTTP/1.1 200 OK\r\nContent-Type: " + type + "\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n";
}

std::map<std::string, hostile::Server::Answer> misbehaviour() {
    using hostile::Connection;
    const std::string sample = sampleBytes();
    const auto endless = [](const std::string& begin, const std::string& piece) {
        return [begin, piece](const Connection& connection, const std::string&) {
            if (connection.send(begin))
                while (connection.send(piece)) {
                }
        };
    };
    constexpr std::size_t large = 1 << 16;
    return {
        {"/stalls", [](const Connection& connection, const std::string&) { connection.stall(); }},
        {"/stalls-later",
         [sample](const Connection& connection, const std::string&) {
             connection.send(headers(sample.size()) + sample.substr(0, 3 * packetSize));
             connection.stall();
         }},
        {"/stalls-while-it-plays",
         [sample](const Connection& connection, const std::string&) {
             connection.send(headers(sample.size() * 10) + sample);
             connection.stall();
         }},
        {"/closes", [](const Connection&, const std::string&) {}},
        {"/redirects",
         [](const Connection& connection, const std::string& path) {
             connection.send("HTTP/1.1 302 Found\r\nLocation: " + path + "+\r\nContent-Length: 0\r\n\r\n");
         }},
        {"/too-short",
         [sample](const Connection& connection, const std::string&) { connection.send(headers(100) + sample); }},
        {"/too-long", [sample](const Connection& connection,
                               const std::string&) { connection.send(headers(sample.size() * 10) + sample); }},
        {"/endless-headers", endless("HTTP/1.1 200 OK\r\n", "X: " + std::string(large, 'x') + "\r\n")},
        {"/endless-zeros", endless("HTTP/1.1 200 OK\r\n\r\n", std::string(large, '\0'))},
        {"/endless-packets", endless("HTTP/1.1 200 OK\r\n\r\n",
                                     [] {
                                         made_stream::MadeStream stream;
                                         stream.list(1, 1);
                                         stream.program(1, {made_stream::video});
                                         stream.picture(0x100, 500);
                                         return std::string(stream.bytes.begin(), stream.bytes.end());
                                     }())},
        {"/variants.m3u8",
         [](const Connection& connection, const std::string&) {
             const std::string list = "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\nvariants.m3u8\n";
             connection.send(headers(list.size(), "application/vnd.apple.mpegurl") + list);
         }},
        {"/segments.m3u8",
         [](const Connection& connection, const std::string&) {
             const std::string list = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nsegments.m3u8\n";
             connection.send(headers(list.size(), "application/vnd.apple.mpegurl") + list);
         }},
        {"/good", [sample](const Connection& connection,
                           const std::string&) { connection.send(headers(sample.size()) + sample); }},
    };
}

TEST_F(HostileMedia, ComesFromAServerThatMisbehaves) {
    hostile::Server server(misbehaviour());
    startAll();
    for (const char* path : {"/closes", "/redirects", "/too-short", "/too-long", "/endless-headers", "/endless-zeros",
                             "/endless-packets", "/variants.m3u8", "/segments.m3u8", "/stalls-later", "/stalls"})
        attempt("1:0", server.address(path));
    play("1:0", server.address("/good"));
    goesOn();
    endAll();
}

TEST_F(HostileMedia, IsNotHeardWhileItsSourceStalls) {
    hostile::Server server(misbehaviour());
    startAll();
    play("1:0", server.address("/stalls-while-it-plays"));
    EXPECT_TRUE(eventually([&] { return pitchOn("1:0") != 0; })) << mmService_->error();
    EXPECT_TRUE(sounds("1:0", 0));
    EXPECT_NE(codeOn("1:0"), "") << "the picture stays";
    goesOn();
}

// The requests are given up after 5 s, but the sources stay until they have had their time.
TEST_F(HostileMedia, LeavesNothingWhenItNeverDelivers) {
    hostile::Server server(misbehaviour());
    startAll();
    for (const char* terminal : {"1:0", "1:1"})
        EXPECT_EQ(attempt(terminal, server.address("/stalls")).exitCode, givenUp);
    EXPECT_GT(server.open(), 0);
    EXPECT_TRUE(eventually([&] {
        return server.open() == 0 &&
               json::parse(tvctl({"--target", "mmserviced", "terminals", "--json"}).output).empty();
    })) << mmService_->error();
    EXPECT_THAT(mmService_->error(), HasSubstr("no connection: no picture or sound came within 10 s"));
    goesOn();
    endAll();
}

} // namespace
