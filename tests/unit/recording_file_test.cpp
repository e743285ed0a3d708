// Recordings as files: what is written is read again, also in the other byte order, cut short, or damaged.
#include "support/recorded-events.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <recording/packet.h>
#include <recording/pcapng.h>
#include <recording/recording-encoder.h>
#include <recording/recording-files.h>
#include <recording/recording-reader.h>
#include <recording/summary.h>
#include <string>
#include <sys/stat.h>
#include <vector>

using host::EventFlags;
using host::EventKind;
using recording::Event;
using recording::RecordingEncoder;
using recording::RecordingReader;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const std::string& ownSchema() { return recording::ownDecoder()->schema(); }

// What a test compares of an event, as text.
std::string textOf(const Event& event) {
    const auto& recorded = event.recorded;
    return event.origin->process + ' ' + std::to_string(event.origin->pid) + ' ' + recording::nameOf(recorded.kind) +
           ' ' + std::to_string(recorded.flags) + ' ' + std::to_string(recorded.number) + ' ' +
           std::to_string(recorded.thread) + ' ' + std::to_string(recorded.time) + ' ' +
           std::to_string(recorded.date - support::firstDate) + ' ' + recorded.name + ' ' + recorded.data + ' ' +
           std::to_string(recorded.size) + ' ' + std::to_string(event.lost);
}

std::vector<Event> someEvents() {
    const auto tv = support::processNamed("tvserviced", 11), host = support::processNamed("frame-host", 12);
    Event message = support::eventOf(host, EventKind::message, 10, "tvservice", "frame");
    message.recorded.flags = EventFlags::sent;
    message.recorded.number = 0x123456789abcdef0;
    Event received = support::eventOf(tv, EventKind::message, 20, "tvservice", "frame");
    received.recorded.flags = EventFlags::otherOrder;
    received.recorded.size = 100'000;
    Event late = support::lineOf(tv, 30, "text");
    late.lost = 4711;
    Event unknown = support::eventOf(tv, static_cast<EventKind>(99), 40, std::string(300, 'n'), "");
    return {message, received, late, unknown};
}

const std::string shortSchema = R"({"version": 1, "services": []})";

std::string recordingOf(const std::vector<Event>& events, std::endian order = std::endian::native,
                        const std::string& schema = ownSchema()) {
    RecordingEncoder encoder("tvctl 1.2", order);
    std::string bytes = encoder.begin(schema, support::firstDate);
    for (const Event& event : events) bytes += encoder.encode(event);
    return bytes;
}

class RecordingFile : public testing::Test {
protected:
    std::vector<std::string> textsOf(RecordingReader& reader) const {
        std::vector<std::string> texts;
        for (Event event; reader.next(event);) texts.push_back(textOf(event));
        return texts;
    }
    std::vector<std::string> textsIn(const std::string& bytes) const {
        folder_.write("file", bytes);
        RecordingReader reader(folder_ / "file");
        return textsOf(reader);
    }
    std::string rejectionOf(const std::string& bytes) const {
        try {
            textsIn(bytes);
        } catch (const recording::RecordingError& error) {
            return error.what();
        }
        return "";
    }
    static std::vector<std::string> wanted() {
        std::vector<std::string> texts;
        for (Event& event : someEvents()) {
            event.recorded.name.resize(std::min<std::size_t>(event.recorded.name.size(), 255));
            texts.push_back(textOf(event));
        }
        return texts;
    }

    support::RecordingFolder folder_;
};

TEST_F(RecordingFile, HasTheEventsThatWereWrittenInEitherByteOrder) {
    for (const auto order : {std::endian::little, std::endian::big})
        EXPECT_EQ(textsIn(recordingOf(someEvents(), order)), wanted());
}

TEST_F(RecordingFile, KeepsWhatIsKnownOfAProcess) {
    folder_.write("file", recordingOf(someEvents()));
    RecordingReader reader(folder_ / "file");
    Event event;
    ASSERT_TRUE(reader.next(event));
    EXPECT_EQ(event.origin->version, "1.2");
    EXPECT_EQ(event.origin->begin, 1000);
    EXPECT_EQ(event.origin->boot, "this boot");
    EXPECT_EQ(reader.program(), "tvctl 1.2");
}

TEST_F(RecordingFile, IsReadAsOneAfterFilesWereAppendedToEachOther) {
    const std::string both =
        recordingOf(someEvents(), std::endian::big) + recordingOf(someEvents(), std::endian::little);
    auto twice = wanted();
    for (const auto& text : wanted()) twice.push_back(text);
    EXPECT_EQ(textsIn(both), twice);
}

TEST_F(RecordingFile, IsReadUpToTheLastWholeBlockWhereverItIsCutOff) {
    const std::string begin = recordingOf({}, std::endian::native, shortSchema);
    const std::string whole = recordingOf(someEvents(), std::endian::native, shortSchema);
    std::size_t most = 0;
    for (std::size_t size = begin.size(); size < whole.size(); ++size) {
        folder_.write("file", whole.substr(0, size));
        RecordingReader reader(folder_ / "file");
        const auto texts = textsOf(reader);
        EXPECT_GE(texts.size(), most);
        EXPECT_LT(texts.size(), 4U);
        most = texts.size();
    }
    EXPECT_EQ(most, 3U);
    for (std::size_t size = 8; size < begin.size(); ++size)
        EXPECT_THAT(rejectionOf(whole.substr(0, size)), AnyOf("", HasSubstr("a pcapng file without a schema")));
}

TEST_F(RecordingFile, SaysWhetherItIsCutOff) {
    const std::string whole = recordingOf(someEvents());
    for (const std::size_t missing : {0U, 1U, 4U}) {
        folder_.write("file", whole.substr(0, whole.size() - missing));
        RecordingReader reader(folder_ / "file");
        textsOf(reader);
        EXPECT_EQ(reader.isTruncated(), missing > 0) << missing;
    }
}

TEST_F(RecordingFile, IsRejectedWithWhatItIsInstead) {
    EXPECT_THAT(rejectionOf(""), HasSubstr("is not a recording: it is empty"));
    EXPECT_THAT(rejectionOf("{\"a\":1}\n"), HasSubstr("is not a recording: it begins with \"{\"a\":1}\\x0a\""));
    EXPECT_THAT(rejectionOf(std::string("\xd4\xc3\xb2\xa1\2\0\4\0", 8)), HasSubstr("a pcap file of the older format"));
    EXPECT_THAT(rejectionOf("\x1f\x8b compressed"), HasSubstr("uncompress it first"));
    EXPECT_THROW(RecordingReader(folder_ / "."), recording::RecordingError);
    EXPECT_THROW(RecordingReader(folder_ / "missing"), recording::RecordingError);
}

// Little-endian words.
std::string words(std::initializer_list<std::uint32_t> list) {
    std::string bytes;
    for (const auto word : list) recording::append(bytes, word, std::endian::little);
    return bytes;
}
std::string section() { return words({0x0A0D0D0A, 28, 0x1A2B3C4D, 1, 0xFFFFFFFF, 0xFFFFFFFF, 28}); }

TEST_F(RecordingFile, IsRejectedWhenABlockIsMalformed) {
    const auto rejected = [&](std::initializer_list<std::uint32_t> block) {
        return rejectionOf(section() + words(block));
    };
    EXPECT_THAT(rejected({5, 8, 8}), HasSubstr("byte 28: a block of 8 bytes"));
    EXPECT_THAT(rejected({5, 13, 0, 13}), HasSubstr("byte 28: a block of 13 bytes"));
    EXPECT_THAT(rejected({5, 0xFFFFFFFC, 0}), HasSubstr("byte 28: a block of 4294967292 bytes"));
    EXPECT_THAT(rejected({5, 16, 0, 20}), HasSubstr("a block of 16 bytes that ends as one of 20"));
    EXPECT_THAT(rejected({6, 16, 0, 16}), HasSubstr("a packet that is cut off"));
    EXPECT_THAT(rejected({6, 32, 0, 0, 0, 0, 0, 32}), HasSubstr("a packet of the unknown interface 0"));
    EXPECT_THAT(rejected({1, 12, 12}), HasSubstr("an interface whose description is cut off"));
    EXPECT_THAT(rejectionOf(words({0x0A0D0D0A, 28, 0x11111111, 1, 0, 0, 28})), HasSubstr("an unknown byte order"));
    EXPECT_THAT(rejectionOf(words({0x0A0D0D0A, 28, 0x1A2B3C4D, 9, 0, 0, 28})), HasSubstr("a section of version 9"));
}

TEST_F(RecordingFile, IsRejectedWhenItsPacketsAreNotEvents) {
    const std::string interface = words({1, 20, 147, 0, 20});
    const auto rejected = [&](std::string data, std::uint32_t size) {
        data.resize((data.size() + 3) / 4 * 4);
        const auto length = static_cast<std::uint32_t>(32 + data.size());
        return rejectionOf(section() + interface + words({6, length, 0, 0, 0, size, size}) + data + words({length}));
    };
    EXPECT_THAT(rejected("abcd", 400), HasSubstr("a packet longer than its block"));
    EXPECT_THAT(rejected("abcd", 4), HasSubstr("byte 48: a packet of 4 bytes"));
    EXPECT_THAT(rejected(std::string(40, '\7'), 40), HasSubstr("a packet of version 7"));
    EXPECT_THAT(rejected("\1\4" + std::string(1, '\0') + '\7' + std::string(36, '\0'), 40),
                HasSubstr("whose name is cut off"));
    EXPECT_THAT(rejected("\1\4" + std::string(38, '\0'), 40), HasSubstr("an event before the schema"));
    EXPECT_THAT(rejected("\1\xff" + std::string(38, '\0'), 40), HasSubstr("the schema: it is malformed"));
    EXPECT_THAT(rejectionOf(section() + words({1, 20, 1, 0, 20})), HasSubstr("a pcapng file without a schema"));
}

TEST_F(RecordingFile, IsReadWithoutBlocksAndPacketsOfOtherPrograms) {
    const std::string whole = recordingOf(someEvents(), std::endian::little);
    const std::string foreign =
        words({1, 20, 1, 0, 20}) + words({6, 36, 3, 0, 0, 4, 4, 77, 36}) + words({99, 16, 7, 16});
    EXPECT_EQ(textsIn(whole + foreign), wanted());
}

TEST_F(RecordingFile, IsReadWithoutHarmWhateverAByteIs) {
    const std::string whole = recordingOf(someEvents(), std::endian::native, shortSchema);
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 0xFF);
        rejectionOf(changed);
    }
}

TEST_F(RecordingFile, IsDecodedByItsOwnSchema) {
    std::string schema = ownSchema();
    const std::string name = "\"TvServiceInfoReq\"";
    schema.replace(schema.find(name), name.size(), "\"RenamedReq\"");
    const auto& message = support::messageNamed("tvservice", "TvServiceInfoReq");
    const Event event = support::eventOf(support::processNamed("a"), EventKind::message, 1, "tvservice",
                                         support::frameOf(message.meta, std::string(1, '\0')));
    folder_.write("file", recordingOf({event}, std::endian::native, schema));
    RecordingReader reader(folder_ / "file");
    const auto summary = recording::summaryOf(reader);
    EXPECT_THAT(summary.messages, ElementsAre(std::pair("tvservice.RenamedReq", 1U)));
    EXPECT_NE(summary.schemas.begin()->first, recording::ownDecoder()->fingerprint());
}

TEST_F(RecordingFile, HasPacketsOfTheDescribedForm) {
    const std::string packet = recording::packetOf(someEvents()[0].recorded, 5);
    std::string header(
        "\1\2\1\x09\0\0\0\x46\x12\x34\x56\x78\x9a\xbc\xde\xf0\0\0\0\0\0\0\0\x0a\0\0\0\0\0\0\0\5"
        "\0\0\0\5\0\0\0\0",
        40);
    if (std::endian::native == std::endian::big)
        header[2] = recording::PacketFlags::sent | recording::PacketFlags::bigEndian;
    EXPECT_EQ(packet, header + "tvserviceframe");
}

// ---- files ----

class RecordingFiles : public RecordingFile {
protected:
    std::vector<std::string> textsInFile(const std::string& name) const {
        RecordingReader reader(folder_ / name);
        return textsOf(reader);
    }
};

TEST_F(RecordingFiles, ReplaceAnOldFileOnlyOnceTheyAreWhole) {
    folder_.write("file", "old");
    recording::RecordingFiles files(folder_ / "file", "tvctl", ownSchema());
    for (const Event& event : someEvents()) files.write(event);
    files.flush();
    EXPECT_EQ(folder_.read("file"), "old");
    EXPECT_EQ(textsInFile("file.part").size(), 4U);
    files.finish();
    EXPECT_EQ(textsInFile("file"), wanted());
    EXPECT_FALSE(folder_.has("file.part"));
    EXPECT_EQ(files.events(), 4U);
    EXPECT_EQ(files.bytes(), folder_.read("file").size());
}

TEST_F(RecordingFiles, AreOnlyForTheirOwner) {
    folder_.write("file.part", "from before");
    std::filesystem::permissions(folder_ / "file.part", std::filesystem::perms::all);
    recording::RecordingFiles(folder_ / "file", "tvctl", ownSchema()).finish();
    struct stat status {};
    ASSERT_EQ(::stat((folder_ / "file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(RecordingFiles, AreWrittenByOneProcessAtATime) {
    const recording::RecordingFiles files(folder_ / "file", "tvctl", ownSchema());
    EXPECT_THROW(recording::RecordingFiles(folder_ / "file", "tvctl", ownSchema()), recording::RecordingError);
    EXPECT_THROW(recording::RecordingFiles(folder_ / "none/file", "tvctl", ownSchema()), recording::RecordingError);
}

TEST_F(RecordingFiles, DoNotReplaceWhatIsNoFile) {
    ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(::mkfifo((folder_ / "file.part").c_str(), 0600), 0);
    for (const char* name : {"pipe", "file", "."})
        EXPECT_THROW(recording::RecordingFiles(folder_ / name, "tvctl", ownSchema()), recording::RecordingError);
}

TEST_F(RecordingFiles, AreRotatedBySize) {
    const std::uint64_t room = recordingOf({}).size() + 2800;
    recording::RecordingFiles files(folder_ / "file", "tvctl 1.2", ownSchema(),
                                    {.bytes = room, .nanoseconds = {}, .files = 3});
    const auto process = support::processNamed("a");
    for (int i = 0; i < 10; ++i) files.write(support::lineOf(process, i, std::string(500, 'x')));
    files.finish();
    EXPECT_LE(folder_.read("file").size(), room);
    EXPECT_THAT(textsInFile("file"), ElementsAre(HasSubstr(" 8 "), HasSubstr(" 9 ")));
    EXPECT_THAT(textsInFile("file.1"), ElementsAre(HasSubstr("a 7 line"), HasSubstr("a 7 line")))
        << "each file describes its processes again";
    EXPECT_TRUE(folder_.has("file.2"));
    EXPECT_FALSE(folder_.has("file.3"));
}

TEST_F(RecordingFiles, AreRotatedByTime) {
    recording::RecordingFiles files(folder_ / "file", "tvctl", ownSchema(),
                                    {.bytes = {}, .nanoseconds = 10, .files = 5});
    for (const int time : {0, 9, 10, 12, 35}) files.write(support::lineOf(support::processNamed("a"), time, "x"));
    files.finish();
    EXPECT_EQ(textsInFile("file").size(), 1U);
    EXPECT_EQ(textsInFile("file.1").size(), 2U);
    EXPECT_EQ(textsInFile("file.2").size(), 2U);
    EXPECT_FALSE(folder_.has("file.3"));
}

TEST_F(RecordingFiles, AreReplacedWithoutRotationWhenOnlyOneIsKept) {
    recording::RecordingFiles files(folder_ / "file", "tvctl", ownSchema(),
                                    {.bytes = {}, .nanoseconds = 10, .files = 1});
    for (const int time : {0, 20}) files.write(support::lineOf(support::processNamed("a"), time, "x"));
    files.finish();
    EXPECT_EQ(textsInFile("file").size(), 1U);
    EXPECT_FALSE(folder_.has("file.1"));
}

// ---- summaries ----

TEST_F(RecordingFile, IsSummarised) {
    folder_.write("file", recordingOf(someEvents()) + "cut off");
    RecordingReader reader(folder_ / "file");
    const auto summary = recording::summaryOf(reader);
    EXPECT_EQ(summary.events, 4U);
    EXPECT_EQ(summary.lost, 4711U);
    EXPECT_EQ(summary.last - summary.first, 30);
    EXPECT_TRUE(summary.isTruncated);
    EXPECT_EQ(summary.problem, "");
    EXPECT_THAT(summary.kinds, ElementsAre(std::pair("kind 99", 1U), std::pair("line", 1U), std::pair("message", 2U)));
    EXPECT_THAT(summary.messages, ElementsAre(std::pair("unknown", 2U)));
    ASSERT_EQ(summary.processes.size(), 2U);
    EXPECT_EQ(summary.processes[1].origin->process, "tvserviced");
    EXPECT_EQ(summary.processes[1].events, 3U);
    EXPECT_THAT(summary.schemas, ElementsAre(std::pair(recording::ownDecoder()->fingerprint(), "tvctl 1.2")));
}

TEST_F(RecordingFile, IsSummarisedUpToWhereItIsDamaged) {
    folder_.write("file", recordingOf(someEvents(), std::endian::little) + words({5, 8, 8}));
    RecordingReader reader(folder_ / "file");
    const auto summary = recording::summaryOf(reader);
    EXPECT_EQ(summary.events, 4U);
    EXPECT_THAT(summary.problem, HasSubstr("a block of 8 bytes"));
}

} // namespace
