// frame-host with application libraries that start, and with libraries that do not.
#include "integration/program-run.h"
#include "support/test-where.h"

#include <sys/stat.h>

namespace {

using namespace program_run;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// Exit codes as docs/tvctl.md lists them.
constexpr int endedAsAsked = 0, failed = 1, usage = 2, badData = 6;

class FrameHost : public Programs {
protected:
    // The path of a library of this build; a path stays unchanged.
    std::string pathOf(const std::string& library) const {
        return library.find('/') == std::string::npos ? this->library("lib" + library + ".so") : library;
    }
    Words commandOf(const Words& libraries) const {
        Words command{program("frame-host")};
        for (const std::string& name : libraries) command.push_back(pathOf(name));
        return command;
    }
    std::string shellSocket() const { return runtimeFolder() + "/frame-host.shell"; }
    // The lines that the members of the fixtures wrote, in order.
    static std::vector<std::string> stepsIn(const std::string& error) {
        std::vector<std::string> steps;
        std::istringstream lines(error);
        for (std::string line; std::getline(lines, line);)
            if (line.find("-application ") != std::string::npos && line.find(": ") < 26) steps.push_back(line);
        return steps;
    }
};

TEST_F(FrameHost, StartsTheMembersInOrderAndStopsThemInReverseOrder) {
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto running = start(commandOf({"first-application", "second-application"}));
        ASSERT_TRUE(
            eventually([&] { return running->error().find("second-application 2: started") != std::string::npos; }));
        const Outcome outcome = running->terminate(signal);
        EXPECT_EQ(outcome.exitCode, endedAsAsked);
        EXPECT_EQ(outcome.output, "");
        EXPECT_THAT(
            stepsIn(outcome.error),
            ElementsAre("first-application 1: set up", "first-application 2: set up", "first-application 1: started",
                        "first-application 2: started", "second-application 1: set up", "second-application 2: set up",
                        "second-application 1: started", "second-application 2: started",
                        "second-application 2: stopped", "second-application 1: stopped",
                        "first-application 2: stopped", "first-application 1: stopped",
                        "second-application 2: destroyed", "second-application 1: destroyed",
                        "first-application 2: destroyed", "first-application 1: destroyed"));
    }
}

TEST_F(FrameHost, UndoesEverythingWhenAMembersStartFails) {
    const Outcome outcome = run(commandOf({"first-application", "unstartable-application", "second-application"}));
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.error, AllOf(HasSubstr("member 2 of " + pathOf("unstartable-application")),
                                     HasSubstr("start returned EBUSY, Device or resource busy"),
                                     HasSubstr("frame-host: " + pathOf("unstartable-application") +
                                               " did not start: EBUSY, Device or resource busy\n")));
    EXPECT_THAT(
        stepsIn(outcome.error),
        ElementsAre("first-application 1: set up", "first-application 2: set up", "first-application 1: started",
                    "first-application 2: started", "unstartable-application 1: set up",
                    "unstartable-application 2: set up", "unstartable-application 1: started",
                    "unstartable-application 2: started", "unstartable-application 1: stopped",
                    "first-application 2: stopped", "first-application 1: stopped",
                    "unstartable-application 2: destroyed", "unstartable-application 1: destroyed",
                    "first-application 2: destroyed", "first-application 1: destroyed"));
}

TEST_F(FrameHost, StartsNoMemberWhenASetUpFails) {
    const Outcome outcome = run(commandOf({"unset-application"}));
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.error, AllOf(HasSubstr("setupDone returned ENOMEM, Cannot allocate memory"),
                                     HasSubstr("did not start: ENOMEM, Cannot allocate memory")));
    EXPECT_THAT(stepsIn(outcome.error),
                ElementsAre("unset-application 1: set up", "unset-application 2: set up",
                            "unset-application 2: destroyed", "unset-application 1: destroyed"));
}

TEST_F(FrameHost, ReportsWhatAMemberThrew) {
    const Outcome outcome = run(commandOf({"throwing-application"}));
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.error, AllOf(HasSubstr("start threw: no picture memory"),
                                     HasSubstr("did not start: EIO, Input/output error")));
}

TEST_F(FrameHost, RejectsALibraryThatDoesNotExist) {
    const std::string missing = (folder / "missing.so").string();
    const Outcome outcome = run(commandOf({"first-application", missing}));
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.error,
                AllOf(HasSubstr("cannot load " + missing), HasSubstr("No such file or directory"),
                      HasSubstr("frame-host: " + missing + " did not start: ENOENT, No such file or directory\n"),
                      HasSubstr("first-application 1: stopped\n")));
}

TEST_F(FrameHost, RejectsAFileThatIsNotALibrary) {
    const std::string file = (folder / "text.so").string();
    std::ofstream(file) << "text";
    const Outcome outcome = run(commandOf({file}));
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.error, HasSubstr("cannot load " + file));
}

TEST_F(FrameHost, RejectsALibraryWithoutTheEntryPoint) {
    const Outcome outcome = run(commandOf({"frame-platform"}));
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.error, AllOf(HasSubstr(pathOf("frame-platform") + " is not an application library"),
                                     HasSubstr("frameCreateApplicationArray"),
                                     HasSubstr("did not start: ENOENT, No such file or directory")));
}

TEST_F(FrameHost, RejectsALibraryThatMakesNoMembers) {
    const Outcome outcome = run(commandOf({"memberless-application"}));
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.error, HasSubstr("did not start: EINVAL, Invalid argument"));
}

TEST_F(FrameHost, ReportsThatTheAdapterMustBeLoadedFirst) {
    const Outcome outcome = run(commandOf({"control-application", "app-tvservice-adapter"}));
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.error, AllOf(HasSubstr("load its library before this one"),
                                     HasSubstr("did not start: ENOENT, No such file or directory")));
    EXPECT_THAT(filesIn(runtimeFolder()), IsEmpty());
}

TEST_F(FrameHost, RemovesItsShellWhenItEnds) {
    const auto running = start(commandOf({"app-tvservice-adapter", "control-application"}));
    const std::string socket = shellSocket();
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(socket); }));
    struct stat status {};
    ASSERT_EQ(lstat(socket.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFSOCK | 0600));
    ASSERT_EQ(lstat(runtimeFolder().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFDIR | 0700));
    EXPECT_EQ(running->terminate().exitCode, endedAsAsked);
    EXPECT_THAT(filesIn(runtimeFolder()), IsEmpty());
}

TEST_F(FrameHost, ReportsBeforeLoadingThatAnotherProcessHasTheShell) {
    const auto running = start(commandOf({"shell-application"}));
    const auto answers = [&] { return run({program("tvctl"), "help"}).exitCode == 0; };
    ASSERT_TRUE(eventually(answers));
    for (const Words& libraries : {Words{"first-application"}, Words{"app-tvservice-adapter", "control-application"}}) {
        const Outcome second = run(commandOf(libraries));
        EXPECT_EQ(second.exitCode, failed);
        EXPECT_THAT(second.error, AllOf(HasSubstr("frame-host: debug shell at " + shellSocket() +
                                                  ": Address already in use; another "
                                                  "process of this user uses it: end that process"),
                                        HasSubstr("RUNTIME_DIRECTORY")));
        EXPECT_THAT(stepsIn(second.error), IsEmpty());
        EXPECT_TRUE(answers());
    }
    EXPECT_EQ(running->terminate().exitCode, endedAsAsked);
}

TEST_F(FrameHost, ReportsBeforeLoadingWhatBlocksTheShell) {
    std::filesystem::create_directory(runtimeFolder());
    std::filesystem::permissions(runtimeFolder(), std::filesystem::perms::owner_all);
    const std::string lock = shellSocket() + ".lock";
    for (const auto& [obstacle, problem] : {std::pair{shellSocket(), shellSocket() + ": File exists"},
                                            {lock, "cannot lock " + lock + ": Is a directory"}}) {
        std::filesystem::create_directory(obstacle);
        const Outcome outcome = run(commandOf({"first-application", "app-tvservice-adapter"}));
        EXPECT_EQ(outcome.exitCode, failed);
        EXPECT_THAT(outcome.error, AllOf(HasSubstr("frame-host: debug shell"),
                                         HasSubstr(problem + "; something else is there: remove it\n")));
        EXPECT_THAT(stepsIn(outcome.error), IsEmpty());
        EXPECT_TRUE(std::filesystem::is_directory(obstacle));
        std::filesystem::remove(obstacle);
        std::filesystem::remove(lock);
    }
}

// With any number of descriptors it either reports what is missing or starts. The dynamic loader, which needs
// descriptors too, exits with 127.
TEST_F_WHERE(support::runsWithoutDescriptors, FrameHost, EndsCleanlyWithoutDescriptors) {
    bool refused = false;
    for (int descriptors = 5; descriptors <= 14; ++descriptors) {
        const auto running =
            start(commandOf({"app-tvservice-adapter", "control-application"}),
                  R"(exec </dev/null >"$OUTPUT"; ulimit -n )" + std::to_string(descriptors) + R"(; exec "$0" "$@")");
        const auto isUp = [&] { return running->error().find("no connection to ") != std::string::npos; };
        ASSERT_TRUE(eventually([&] { return running->hasEnded() || isUp(); }));
        const Outcome outcome = isUp() ? running->terminate() : running->wait();
        EXPECT_THAT(outcome.exitCode, testing::AnyOf(isUp() ? endedAsAsked : failed, 127))
            << descriptors << " descriptors: " << outcome.error;
        EXPECT_NE(outcome.error, "");
        EXPECT_THAT(filesIn(runtimeFolder()), IsEmpty());
        refused = refused || outcome.exitCode == failed;
    }
    EXPECT_TRUE(refused);
}

TEST_F(FrameHost, RunsTheExampleOfTheDocumentation) {
    const auto service = start({program("tvserviced")});
    const auto running = start(commandOf({"app-tvservice-adapter", "minimal-application"}));
    EXPECT_TRUE(eventually([&] { return running->error().find("dvb://1.1.1: result 0\n") != std::string::npos; }));
    EXPECT_EQ(running->terminate().exitCode, endedAsAsked);
    EXPECT_EQ(service->terminate().exitCode, endedAsAsked);
}

TEST_F(FrameHost, LoadsAnApplicationByNameAfterTheAdapter) {
    const auto running = start({program("frame-host"), "--application", "control"});
    EXPECT_TRUE(eventually([&] { return run({program("tvctl"), "terminals"}).exitCode == 0; }));
    EXPECT_EQ(running->terminate().exitCode, endedAsAsked);
}

TEST_F(FrameHost, LoadsTheAdapterOnceAndApplicationsInOrder) {
    const auto running = start({program("frame-host"), "--application", "first", "--application",
                                pathOf("second-application"), pathOf("app-tvservice-adapter")});
    ASSERT_TRUE(
        eventually([&] { return running->error().find("second-application 2: started") != std::string::npos; }));
    EXPECT_LT(running->error().find("first-application 2: started"),
              running->error().find("second-application 1: set up"));
    EXPECT_EQ(running->terminate().exitCode, endedAsAsked);
}

TEST_F(FrameHost, ListsTheApplicationsWhenItDoesNotFindOne) {
    const Outcome outcome = run({program("frame-host"), "--application", "first", "--application", "contrl"});
    EXPECT_EQ(outcome.exitCode, failed);
    const auto modules = std::filesystem::path(pathOf("frame-platform")).parent_path().string();
    EXPECT_THAT(outcome.error, StartsWith("frame-host: --application: no libcontrl-application.so in " + modules +
                                          "; the applications there are: control, first, memberless, "));
    EXPECT_THAT(stepsIn(outcome.error), IsEmpty());
}

TEST_F(FrameHost, ReportsWhereItLookedForTheAdapter) {
    const std::filesystem::path programs = folder / "bin";
    std::filesystem::create_directory(programs);
    std::filesystem::copy_file(program("frame-host"), programs / "frame-host");
    environment["LD_LIBRARY_PATH"] = std::filesystem::path(pathOf("frame-platform")).parent_path().string();
    const Outcome outcome = run({(programs / "frame-host").string(), "--application", "control"});
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_THAT(outcome.error, AllOf(HasSubstr("no libapp-tvservice-adapter.so in " + folder.string() + "/lib"),
                                     HasSubstr("/tvservice-adapter or " + folder.string() + "/lib; install it")));
}

TEST_F(FrameHost, RejectsWrongUsage) {
    for (const Words& arguments : std::vector<Words>{{}, {"--fast", "x.so"}, {"--log"}, {"--log", "loud", "x.so"}}) {
        Words command{program("frame-host")};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const Outcome outcome = run(command);
        EXPECT_EQ(outcome.exitCode, usage) << testing::PrintToString(arguments);
        EXPECT_EQ(outcome.output, "") << testing::PrintToString(arguments);
        EXPECT_NE(outcome.error, "") << testing::PrintToString(arguments);
    }
    EXPECT_THAT(run({program("frame-host"), "--version"}).output, StartsWith("frame-host "));
    EXPECT_THAT(run({program("frame-host"), "--help"}).output, HasSubstr("Application libraries"));
}

TEST_F(FrameHost, RejectsAQueueLimitThatIsNotANumber) {
    environment["TVSA_QUEUE_MESSAGES"] = "a dozen";
    const Outcome outcome = run(commandOf({"first-application"}));
    EXPECT_EQ(outcome.exitCode, badData);
    EXPECT_THAT(outcome.error, HasSubstr("TVSA_QUEUE_MESSAGES: not a number"));
    EXPECT_THAT(stepsIn(outcome.error), IsEmpty());
}

} // namespace
