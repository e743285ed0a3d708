// The demonstration with the simulated media engine, which needs no other program than the receiver's.
#include "integration/program-run.h"

namespace {

using namespace program_run;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class ASimulatedDemonstration : public Programs {
protected:
    Outcome demonstrate(Words options) const {
        Words words{program("tvsa-demo"), "--sheet", (folder / "sheet.html").string()};
        words.insert(words.end(), options.begin(), options.end());
        const auto running = start(words);
        receiver::waitUntil([&] { return running->hasEnded(); }, std::chrono::seconds(90));
        return running->wait();
    }
};

TEST_F(ASimulatedDemonstration, IsShort) {
    const Outcome outcome = demonstrate({"--simulated"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("\n5 a file that is not there\n"), HasSubstr("cannot open file (3)"),
                                      HasSubstr("Everything was as expected"), Not(HasSubstr("reqid")),
                                      Not(HasSubstr("event")), Not(HasSubstr("Pictures"))));
    EXPECT_FALSE(std::filesystem::exists(folder / "sheet.html"));
}

TEST_F(ASimulatedDemonstration, ShowsWhatTheResourceManagerDidWhenAsked) {
    const Outcome outcome = demonstrate({"--simulated", "--verbose"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("new reqid control-1 created"), HasSubstr("TvServiceAudioInfo"),
                                      HasSubstr("reconnects   1")));
}

TEST_F(ASimulatedDemonstration, IsWhatABuildWithoutTheMediaEngineShows) {
    const auto libraries = folder / "lib";
    std::filesystem::create_directory(libraries);
    for (const char* name : {"libapp-tvservice-adapter.so", "libcontrol-application.so"})
        std::filesystem::create_symlink(library(name), libraries / name);
    const Outcome outcome = run({program("tvsa-demo"), "--lib", libraries.string(), "--shell"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    EXPECT_THAT(outcome.output, HasSubstr("Without pictures, with the simulated media engine: this build has no "));
}

} // namespace
