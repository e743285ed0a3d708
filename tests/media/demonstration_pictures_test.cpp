// The demonstration of a receiver that really plays: the pictures on its sheet show what its requests asked for.
#include "integration/program-run.h"

#include <map>
#include <media/picture.h>
#include <media/snapshot.h>
#include <regex>

namespace {

using namespace program_run;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class ADemonstration : public Programs {
protected:
    Outcome demonstrate(const Words& options, const std::string& input = "") const {
        Words words{program("tvsa-demo"), "--sheet", sheet};
        words.insert(words.end(), options.begin(), options.end());
        std::ofstream(folder / "input") << input;
        const auto running = start(words, R"(exec "$0" "$@" <")" + (folder / "input").string() + R"(" >"$OUTPUT")");
        receiver::waitUntil([&] { return running->hasEnded(); }, longest);
        return running->wait();
    }
    std::string codeIn(const std::string& base64) const {
        const std::string picture = (folder / "picture.png").string();
        std::ofstream(picture, std::ios::binary) << media::bytesOf(base64);
        const Outcome read = run({"zbarimg", "--quiet", "--raw", picture});
        return read.output.substr(0, read.output.find('\n'));
    }
    // "One", from its QR code, "One, subtitle", or "teletext".
    std::string contentOfPicture(const std::string& base64) const {
        const media::Picture picture(media::bytesOf(base64));
        using media::Picture;
        if (picture.width() == pageWidth) {
            constexpr int lineBegin = 20, lineEnd = 50; // of the name of the program
            for (int x = 0; x < pageWidth; ++x)
                for (int y = lineBegin; y < lineEnd; ++y)
                    if (picture.shows(Picture::yellow, x, y) || picture.shows(Picture::cyan, x, y)) return "teletext";
            return "a page without text";
        }
        constexpr int barX = 165, barY = 443;
        const bool hasSubtitle = picture.height() > barY && picture.shows(Picture::yellow, barX, barY);
        return codeIn(base64) + (hasSubtitle ? ", subtitle" : "");
    }

    // By terminal: what its picture shows, or what stands there instead.
    using Terminals = std::map<std::string, std::string>;
    // By the titles of the steps, in order.
    std::vector<std::pair<std::string, Terminals>> steps() const {
        std::vector<std::pair<std::string, Terminals>> result;
        std::ifstream file(sheet);
        const std::regex title("<h2>.*</b> (.*)</h2>"), terminal("<figcaption><b>([0-9:]+)</b>");
        const std::string data = "data:image/png;base64,";
        for (std::string line; std::getline(file, line);) {
            // The pictures are too long for regular expressions.
            std::string content = "nothing";
            if (const auto at = line.find(data); at != std::string::npos) {
                const auto begin = at + data.size(), end = line.find('"', begin);
                content = contentOfPicture(line.substr(begin, end - begin));
                line.erase(at, end - at);
            }
            std::smatch match;
            if (std::regex_search(line, match, title)) result.push_back({match[1], {}});
            if (std::regex_search(line, match, terminal)) result.back().second[match[1]] = content;
        }
        return result;
    }

    static constexpr int pageWidth = 492;
    static constexpr std::chrono::seconds longest{240};
    std::string sheet = (folder / "sheet.html").string();
};

TEST_F(ADemonstration, ShowsOnItsSheetWhatEachTerminalShowedAtEachStep) {
    const Outcome outcome = demonstrate({});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.output << outcome.error;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("Everything was as expected"),
                                      HasSubstr("Pictures of each step: " + sheet), Not(HasSubstr("reqid"))));
    const Terminals five{{"0:0", "One"}, {"1:0", "One"}, {"2:0", "One"}, {"3:0", "nothing"}, {"4:0", "One"}};
    Terminals withSubtitle = five, withPage = five;
    withSubtitle["0:0"] = "One, subtitle";
    withPage["0:0"] = "teletext";
    const Terminals tuned{{"0:0", "One, subtitle"}, {"1:0", "Music"}, {"2:0", "One"},
                          {"3:0", "nothing"},       {"4:0", "One"},   {"5:0", "nothing"}};
    const auto dark = [](Terminals lit) {
        for (const char* terminal : {"0:0", "1:0", "2:0", "3:0", "4:0", "5:0", "8:0", "9:0"})
            lit.try_emplace(terminal, "nothing");
        return lit;
    };
    // The test picture of the input has no code.
    const auto switched = [](Terminals others) {
        for (const char* terminal : {"0:0", "1:0", "4:0", "8:0", "9:0"}) others.try_emplace(terminal, "");
        others.insert({{"2:0", "One"}, {"3:0", "nothing"}, {"5:0", "nothing"}});
        return others;
    };
    using Expected = std::vector<std::pair<std::string, Terminals>>;
    EXPECT_EQ(steps(), (Expected{
                           {"a live channel", {{"0:0", "One"}}},
                           {"a file instead", {{"0:0", "Movies"}}},
                           {"the live channel again", {{"0:0", "One"}}},
                           {"five terminals at once",
                            {{"0:0", "One"}, {"1:0", "One"}, {"2:0", "One"}, {"3:0", "One"}, {"4:0", "One"}}},
                           {"a file that is not there", five},
                           {"tracks are chosen", withSubtitle},
                           {"a page of teletext", withPage},
                           {"the tuner, and a locked terminal", tuned},
                           {"a download over the air", tuned},
                           {"who may have the tuner", tuned},
                           {"the path switch", switched({})},
                           {"the MM service hangs", switched({{"1:0", "nothing"}})},
                           {"the TV service hangs", switched({{"0:0", "One"}, {"1:0", "nothing"}})},
                           {"the TV service is killed and started again", dark({{"0:0", "Two"}})},
                       }));
    EXPECT_THAT(contentOf(sheet), AllOf(HasSubstr("cannot open file (3)"), HasSubstr("5:0</b>"),
                                        Not(HasSubstr("<script")), Not(HasSubstr("=\"http")), Not(HasSubstr("url("))));
}

TEST_F(ADemonstration, GivesAShellOnAReceiverThatPlays) {
    const Outcome outcome = demonstrate({"--shell"}, "play 0:0 dvb://1.2.3\n");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("film.ts"), HasSubstr("0:0 shown dvb://1.2.3"))) << outcome.error;
}

TEST_F(ADemonstration, GoesOnWithoutWindowsWhereThereIsNoDisplay) {
    environment["DISPLAY"] = environment["WAYLAND_DISPLAY"] = "";
    for (const char* const wish : {"--window", "--fullscreen"}) {
        const Outcome outcome = demonstrate({"--shell", wish});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
        EXPECT_THAT(outcome.output, HasSubstr("No windows: neither DISPLAY nor WAYLAND_DISPLAY is set.\n"));
        EXPECT_THAT(outcome.output, HasSubstr("film.ts"));
    }
}

TEST_F(ADemonstration, SaysAtOnceThatItsSheetCannotBeWritten) {
    sheet = "/nowhere/sheet.html";
    const Outcome outcome = demonstrate({});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.error, HasSubstr("cannot write /nowhere/sheet.html: No such file or directory"));
}

TEST_F(ADemonstration, NamesWhatIsMissingAndSimulatesTheMediaEngine) {
    // Programs that find no plugin for what they broadcast.
    environment["GST_PLUGIN_SYSTEM_PATH_1_0"] = environment["GST_PLUGIN_PATH_1_0"] = folder.string();
    environment["GST_REGISTRY_1_0"] = (folder / "registry").string();
    const Outcome outcome = demonstrate({"--shell"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    EXPECT_THAT(outcome.output, HasSubstr("Without pictures, with the simulated media engine: tvsa-transmitter: no "
                                          "element"));
    EXPECT_THAT(outcome.output, Not(HasSubstr("film.ts")));
}

} // namespace
