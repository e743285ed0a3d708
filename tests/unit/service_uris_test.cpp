#include "tvservice/channel-list.h"
#include "tvservice/uri-check.h"

#include <tvservice-adapter/service/mm-uris.h>
#include <tvservice-adapter/service/result.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

using namespace services;

namespace {

class PrivateFolder {
public:
    PrivateFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "services-XXXXXX").string();
        if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
        path_ = name;
    }
    ~PrivateFolder() { std::filesystem::remove_all(path_); }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    std::string file(const std::string& name, const std::string& text = "") const {
        std::string path = path_ / name;
        std::ofstream(path) << text;
        return path;
    }
    std::string path() const { return path_; }

private:
    std::filesystem::path path_;
};

std::string channelProblem(const std::string& text) {
    try {
        ChannelList::fromText(text, "list.toml");
        return "";
    } catch (const ChannelListError& error) {
        return error.what();
    }
}

} // namespace

TEST(ChannelList, HasTheChannelsOfItsText) {
    const auto list = ChannelList::fromText(
        "[[channel]]\nuri = \"dvb://1.2.3\"\nname = \"One\"\n"
        "[[channel]]\nuri = \"dvb://1.2.4\"\nname = \"Two\"\n",
        "list.toml");
    ASSERT_EQ(list.all().size(), 2U);
    EXPECT_EQ(list.all().at("dvb://1.2.3").name, "One");
    EXPECT_EQ(list.all().at("dvb://1.2.4").name, "Two");
    EXPECT_TRUE(list.has("dvb://1.2.3"));
    EXPECT_FALSE(list.has("dvb://1.2"));
}

std::string channelWith(const std::string& lines) { return "[[channel]]\nuri = \"dvb://1\"\nname = \"One\"\n" + lines; }

TEST(ChannelList, SaysWhereAChannelComesFrom) {
    const auto channelFrom = [](const std::string& source) {
        return ChannelList::fromText(channelWith("source = \"" + source + "\"\nprogram = 3\n"), "list", "/lists")
            .all()
            .at("dvb://1");
    };
    EXPECT_EQ(channelFrom("udp://239.0.0.1:5004").transport, "udp://239.0.0.1:5004");
    EXPECT_EQ(channelFrom("udp://239.0.0.1:5004").program, 3);
    EXPECT_EQ(channelFrom("rtp://[::1]:5004").transport, "rtp://[::1]:5004");
    EXPECT_EQ(channelFrom("file:///streams/a.ts").transport, "file:///streams/a.ts");
    EXPECT_EQ(channelFrom("file://a.ts").transport, "file:///lists/a.ts") << "relative to the list";
    EXPECT_EQ(channelFrom("file://../a.ts").transport, "file:///a.ts");
    EXPECT_EQ(channelFrom("dvb-adapter://0?delsys=dvb-t").transport, "dvb-adapter://0?delsys=dvb-t");
    const auto test = ChannelList::fromText(channelWith("source = \"test://A\"\n"), "list").all().at("dvb://1");
    EXPECT_EQ(test.transport, "test://A");
    EXPECT_EQ(test.program, 0);
}

TEST(ChannelList, RejectsSourcesThatCannotBe) {
    EXPECT_EQ(channelProblem(channelWith("program = 3\n")),
              "list.toml:4: a channel with a program needs the source that has it");
    EXPECT_EQ(channelProblem(channelWith("source = \"udp://a:1\"\n")),
              "list.toml:4: a channel with a source needs the number of its program there");
    EXPECT_EQ(channelProblem(channelWith("source = \"test://A\"\nprogram = 3\n")),
              "list.toml:5: a test picture has no program");
    for (const char* program : {"0", "65536", "-1", "\"1\"", "1.0"})
        EXPECT_EQ(channelProblem(channelWith("source = \"udp://a:1\"\nprogram = " + std::string(program) + "\n")),
                  "list.toml:5: a channel's program must be a number from 1 to 65535")
            << program;
    for (const auto& [source, problem] :
         {std::pair("http://a/b.ts", "is not a file://, udp://, rtp://, dvb-adapter:// or test:// URI"),
          std::pair("a.ts", "is not a file://"), std::pair("file://", "names no file"),
          std::pair("udp://a", "is not udp://HOST:PORT"), std::pair("udp://:1", "is not udp://HOST:PORT"),
          std::pair("udp://h h:5004", "is not udp://HOST:PORT"), std::pair("file:///tmp", "names a folder"),
          std::pair("file://..", "names a folder"), std::pair("rtp://a:65536", "is not rtp://HOST:PORT"),
          std::pair("rtp://a:1x", "is not rtp://HOST:PORT"),
          std::pair("dvb-adapter://x", "does not begin with the number of an adapter")})
        EXPECT_THAT(channelProblem(channelWith("program = 1\nsource = \"" + std::string(source) + "\"\n")),
                    testing::AllOf(testing::StartsWith("list.toml:5: "), testing::HasSubstr(problem)));
}

TEST(ChannelList, RejectsSourcesThatTheEngineRejects) {
    const auto check = [](const std::string& transport) { return transport + " is not for this engine"; };
    EXPECT_THROW(
        {
            try {
                ChannelList::fromText(channelWith("program = 1\nsource = \"dvb-adapter://0\"\n"), "list.toml", "/",
                                      check);
            } catch (const ChannelListError& error) {
                EXPECT_STREQ(error.what(), "list.toml:5: \"dvb-adapter://0\": dvb-adapter://0 is not for this engine");
                throw;
            }
        },
        ChannelListError);
}

TEST(ChannelList, WarnsOfFilesThatAreNotThere) {
    const auto list =
        ChannelList::fromText(channelWith("program = 1\nsource = \"file:///nowhere/a.ts\"\n"), "list.toml");
    EXPECT_THAT(
        list.warnings(),
        testing::ElementsAre("list.toml:5: /nowhere/a.ts is not there: its channel cannot be shown until it is"));
}

TEST(ChannelList, IsBuiltIntoTheProgram) { EXPECT_FALSE(ChannelList::builtIn().all().empty()); }

TEST(ChannelList, MayBeEmpty) { EXPECT_TRUE(ChannelList::fromText("", "list.toml").all().empty()); }

TEST(ChannelList, ReportsErrorsWithTheirLines) {
    const std::string one = "[[channel]]\nuri = \"dvb://1\"\nname = \"One\"\n";
    EXPECT_EQ(channelProblem(one + "\n[[channel]]\nuri = \"dvb://1\"\nname = \"Two\"\n"),
              "list.toml:6: \"dvb://1\" is the URI of \"One\" already");
    EXPECT_EQ(channelProblem("[[channel]]\nuri = \"tv://1\"\nname = \"One\"\n"),
              "list.toml:2: \"tv://1\" is not a dvb:// URI");
    EXPECT_EQ(channelProblem("[[channel]]\nuri = \"dvb://\"\nname = \"One\"\n"),
              "list.toml:2: \"dvb://\" is not a dvb:// URI");
    EXPECT_EQ(channelProblem("[[channel]]\nname = \"One\"\n"), "list.toml:1: a channel without uri");
    EXPECT_EQ(channelProblem("[[channel]]\nuri = \"dvb://1\"\n"), "list.toml:1: a channel without name");
    EXPECT_EQ(channelProblem("[[channel]]\nuri = 1\nname = \"One\"\n"),
              "list.toml:2: a channel's uri must be a non-empty string");
    EXPECT_EQ(channelProblem(one + "number = 1\n"), "list.toml:4: a channel has no \"number\"");
    EXPECT_EQ(channelProblem("\nname = \"One\"\n"), "list.toml:2: unknown key \"name\"");
    EXPECT_EQ(channelProblem("channel = 1\n"), "list.toml:1: channels are written as [[channel]]");
    EXPECT_EQ(channelProblem("channel = [1]\n"), "list.toml:1: channels are written as [[channel]]");
    EXPECT_EQ(channelProblem(one + "[[channel\n").substr(0, 12), "list.toml:4:");
}

// Each level of the parser's tree uses stack.
TEST(ChannelList, IsRejectedWhenNestedTooDeeply) {
    std::string dots;
    for (int i = 0; i < 60000; ++i) dots += ".a";
    for (const std::string& text :
         {"\n[a" + dots + "]\n", "\na" + dots + " = 1\n", "\nchannel = [{a" + dots + " = 1}]\n"})
        EXPECT_EQ(channelProblem(text), "list.toml:2: nested more than 16 levels deep");
}

TEST(ChannelList, IsQuotedAsPrintableText) {
    EXPECT_EQ(channelProblem("\"\\u001b[2J\" = 1\n"), "list.toml:1: unknown key \"\\x1b[2J\"");
    EXPECT_EQ(channelProblem("[[channel]]\nuri = \"\\n\"\nname = \"One\"\n"),
              "list.toml:2: \"\\x0a\" is not a dvb:// URI");
}

TEST(ChannelList, IsReadFromAFile) {
    const PrivateFolder folder;
    const std::string path = folder.file("list.toml", "[[channel]]\nuri = \"dvb://5\"\nname = \"Five\"\n");
    EXPECT_TRUE(ChannelList::fromFile(path).has("dvb://5"));
    EXPECT_TRUE(ChannelList::fromFile(folder.file("empty.toml")).all().empty());
}

TEST(ChannelList, NamesAFileThatCannotBeRead) {
    const PrivateFolder folder;
    const std::string pipe = folder.path() + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::vector<std::pair<std::string, std::string>> wrong{
        {folder.path() + "/missing.toml", "there is no such file"},
        {folder.path(), "not a file"},
        {pipe, "not a file"},
        {"/dev/zero", "longer than 1048576 bytes"}};
    for (const auto& [path, problem] : wrong) {
        try {
            ChannelList::fromFile(path);
            ADD_FAILURE() << path;
        } catch (const ChannelListError& error) {
            EXPECT_EQ(error.what(), path + ": " + problem);
        }
    }
}

TEST(TvUri, IsShownForChannelsOfTheListRecordingsAndInputs) {
    const auto list = ChannelList::fromText("[[channel]]\nuri = \"dvb://1\"\nname = \"One\"\n", "list.toml");
    EXPECT_EQ(checkTvUri(list, "dvb://1"), result::done);
    EXPECT_EQ(checkTvUri(list, "dvb://2"), result::unknownChannel);
    EXPECT_EQ(checkTvUri(list, "DVB://2"), result::unknownChannel);
    for (const char* shown : {"hdmi://2", "rec://7/1", "file:///PVR+/1", "FSL2:///PVR+/1"})
        EXPECT_EQ(checkTvUri(list, shown), result::done) << shown;
    for (const char* unsupported :
         {"", "tv://1", "nonsense", "ftp://host/film", "://", "%", "rec:", "rec://", "hdmi://"})
        EXPECT_EQ(checkTvUri(list, unsupported), result::unsupportedUri) << unsupported;
}

TEST(MmUri, IsShownForStreamsAndCastingOnly) {
    for (const char* shown :
         {"http://a/b", "HTTPS://a", "rtp://1", "miracast://x", "external://1", "youtube://v", "youtubev4://v"})
        EXPECT_EQ(checkMmUri(shown), result::done) << shown;
    for (const char* unsupported : {"dvb://1", "tv://1", "", "/etc/passwd", "://", "%", "http:", "http:a", "https://",
                                    "http:///b", "rtp://:5004", "http://a b/", "http://a/\n", "http://?b"})
        EXPECT_EQ(checkMmUri(unsupported), result::unsupportedUri) << unsupported;
}

TEST(MmUri, IsShownForFilesThatCanBeOpened) {
    const PrivateFolder folder;
    folder.file("a film.ts");
    for (const char* scheme : {"file://", "fsl2://", "FILE://", "file://localhost", "file:"}) {
        EXPECT_EQ(checkMmUri(scheme + folder.path() + "/a%20film.ts"), result::done) << scheme;
        EXPECT_EQ(checkMmUri(scheme + folder.path() + "/a film.ts"), result::done) << scheme;
        EXPECT_EQ(checkMmUri(scheme + folder.path() + "/other.ts"), result::cannotOpenFile) << scheme;
    }
    EXPECT_EQ(checkMmUri("file://" + folder.path() + "/a%20film.ts%00.ts"), result::cannotOpenFile);
    EXPECT_EQ(checkMmUri("file://"), result::cannotOpenFile);
    EXPECT_EQ(checkMmUri("file:"), result::cannotOpenFile);
}

TEST(MmUri, IsNotShownForFoldersAndDoesNotWaitForPipes) {
    const PrivateFolder folder;
    EXPECT_EQ(checkMmUri("file://" + folder.path()), result::cannotOpenFile);
    ASSERT_EQ(mkfifo((folder.path() + "/pipe").c_str(), 0600), 0);
    EXPECT_EQ(checkMmUri("file://" + folder.path() + "/pipe"), result::cannotOpenFile);
}

TEST(MmUri, DecodesOnlyWholePercentSequences) {
    EXPECT_EQ(localPathOf("file:///a%2Fb%2fc"), "/a/b/c");
    EXPECT_EQ(localPathOf("file:///100%"), "/100%");
    EXPECT_EQ(localPathOf("file:///%4"), "/%4");
    EXPECT_EQ(localPathOf("file:///%zz%-1"), "/%zz%-1");
    EXPECT_EQ(localPathOf("file:///%2541"), "/%41");
    EXPECT_EQ(localPathOf("file:///a?b#c"), "/a?b#c");
}
