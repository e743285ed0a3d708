// What tvctl doctor finds in the configuration, and the format of its report.
#include "support/doctor-fixture.h"
#include "support/test-where.h"

#include <algorithm>
#include <doctor/examination.h>
#include <doctor/report.h>
#include <future>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/resource.h>

namespace {

using namespace std::chrono_literals;
using namespace doctor_test;
using namespace tvctl::doctor;

class DoctorOfConfiguration : public Doctor {};

TEST_F(DoctorOfConfiguration, ListsTheFilesThatAreRead) {
    const std::string file = configure("");
    EXPECT_THAT(checkFiles(), finds(Severity::ok, file, "read"));
    EXPECT_EQ(problemsIn(checkFiles()), 0U);
    unsetenv("TVSA_CONFIG");
    setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
    EXPECT_THAT(checkFiles(), finds(Severity::ok, folder + "/tvservice-adapter/config.toml", "does not exist"));
}

TEST_F(DoctorOfConfiguration, FindsAFileThatIsWrong) {
    const std::string file = configure("[queue]\nmessages = 0\n");
    EXPECT_THAT(checkFiles(), finds(Severity::wrong, "configuration", file + ":2: queue.messages: not a number"));
    setenv("TVSA_CONFIG", (folder + "/none").c_str(), 1);
    EXPECT_THAT(checkFiles(), finds(Severity::wrong, "configuration", "there is no such file"));
}

TEST_F(DoctorOfConfiguration, FindsAFileThatOthersMayWriteTo) {
    const std::string file = configure("queue.messages = 5\n", 0664);
    EXPECT_THAT(checkFiles(), finds(Severity::warning, file, "other users may write to it: mode 0664"));
}

TEST_F_WHERE(support::isRoot(), DoctorOfConfiguration, FindsAFileThatBelongsToAnotherUser) {
    const std::string file = configure("queue.messages = 5\n");
    ASSERT_EQ(chown(file.c_str(), 4711, 4711), 0);
    EXPECT_THAT(checkFiles(), finds(Severity::wrong, file, "belongs to user 4711"));
}

TEST_F(DoctorOfConfiguration, WarnsOfUnknownNames) {
    EXPECT_EQ(problemsIn(checkValues()), 0U);
    setenv("TVSA_QUEUE_BYTE", "1", 1);
    EXPECT_THAT(checkValues(), finds(Severity::warning, "TVSA_QUEUE_BYTE", "no setting has this variable"));
    setenv("TVSA_QUEUE_BYTE", "", 1); // treated as unset
    EXPECT_EQ(problemsIn(checkValues()), 0U);
    const std::string file = configure("endpoints.tvservise = \"/run/tv\"\n");
    EXPECT_THAT(checkValues(),
                finds(Severity::warning, "endpoints.tvservise", file + ":1: there is no service tvservise"));
}

TEST_F(DoctorOfConfiguration, WarnsOfAnInvalidVariableWithWhichProcessesStillStart) {
    setenv("TVSA_FLAT_HEAP_MB", "much", 1);
    EXPECT_EQ(problemsIn(checkFiles()), 0U);
    EXPECT_THAT(checkValues(), finds(Severity::warning, "configuration", "TVSA_FLAT_HEAP_MB: not a number"));
    EXPECT_EQ(problemsIn(checkLimits()), 0U);
}

TEST_F(DoctorOfConfiguration, FindsLimitsThatAreTooHighToLimitAnything) {
    EXPECT_EQ(problemsIn(checkLimits()), 0U);
    const std::string file = configure(
        "queue = { messages = 2147483647, bytes = 2147483647, wait_ms = 2147483647, "
        "unfinished_ms = 2147483647 }\nrun_log.queue = 9999999\n");
    const Diagnosis diagnosis = checkLimits();
    for (const char* name : {"queue.messages", "queue.bytes", "queue.wait_ms", "queue.unfinished_ms"})
        EXPECT_THAT(diagnosis, finds(Severity::wrong, name, file + ":1: 2147483647 is effectively unlimited"));
    EXPECT_THAT(diagnosis, finds(Severity::wrong, "run_log.queue", file + ":2: 9999999 is effectively unlimited"));
}

TEST_F(DoctorOfConfiguration, AcceptsTheHighestLimits) {
    configure("queue = { messages = 1000000, bytes = 1048576, wait_ms = 60000 }\nrun_log.queue = 1000000\n");
    EXPECT_EQ(problemsIn(checkLimits()), 0U);
    configure("queue = { messages = 1000001, bytes = 268435457, wait_ms = 600001 }\nrun_log.queue = 1000001\n");
    for (const char* name : {"queue.messages", "queue.bytes", "queue.wait_ms", "run_log.queue"})
        EXPECT_THAT(checkLimits(), finds(Severity::wrong, name, "effectively unlimited"));
}

TEST_F(DoctorOfConfiguration, WarnsOfAWaitThatIsLongerThanAnyTimeout) {
    const std::string file = configure("queue.wait_ms = 600000\n");
    EXPECT_THAT(checkLimits(),
                finds(Severity::warning, "queue.wait_ms", file + ":1: 600000 ms is longer than anybody waits"));
}

TEST_F(DoctorOfConfiguration, WarnsOfFewDescriptors) {
    rlimit former{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &former), 0);
    rlimit few = former;
    few.rlim_cur = 639;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_THAT(checkLimits(), finds(Severity::warning, "open files",
                                     "639 descriptors per process; a service may have 256 clients, 64 peers without "
                                     "a hello yet and, from other hosts, 64 to 256 in a handshake"));
    few.rlim_cur = 640;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_THAT(checkLimits(), finds(Severity::ok, "open files", "640 descriptors per process"));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &former), 0);
}

TEST_F(DoctorOfConfiguration, ExaminesWhatItCanWhenTheConfigurationIsWrong) {
    configure("nonsense");
    const Diagnosis diagnosis = examine(10s).diagnosis;
    EXPECT_THAT(diagnosis, finds(Severity::wrong, "configuration", "config.toml:1"));
    EXPECT_THAT(diagnosis, finds(Severity::warning, "services", "not examined"));
    EXPECT_THAT(diagnosis, finds(Severity::ok, runtimeFolder, "mode 0700"));
}

TEST(Examination, ReportsAnExceptionOfACheckAsAFinding) {
    Examination examination;
    EXPECT_TRUE(run(
        examination, "disk", []() -> Diagnosis { throw std::runtime_error("on fire"); }, 10s));
    EXPECT_THAT(examination.diagnosis, finds(Severity::wrong, "disk", "cannot be examined: on fire"));
    EXPECT_FALSE(examination.stuck);
}

TEST(Examination, ContinuesWhenACheckDoesNotEnd) {
    Examination examination;
    std::promise<void> end;
    const auto ended = std::make_shared<std::promise<void>>();
    auto over = ended->get_future();
    EXPECT_FALSE(run(
        examination, "disk",
        [released = std::make_shared<std::future<void>>(end.get_future()), ended] {
            released->wait();
            ended->set_value();
            return Diagnosis();
        },
        20ms));
    EXPECT_TRUE(examination.stuck);
    EXPECT_THAT(examination.diagnosis, finds(Severity::wrong, "disk", "not examined within 20 ms"));
    end.set_value();
    over.wait();
}

Diagnosis threeFindings() {
    Diagnosis diagnosis;
    diagnosis.ok("run log", "sound");
    diagnosis.warn("TVSA_X\x1b[31m", "unknown\nfor ever", "mend");
    diagnosis.wrong("key", "bad \xff", "throw\taway");
    diagnosis.entryPoints = {{"/run/a.sock", "user 0 only", "stale\x07"}};
    return diagnosis;
}

TEST(Report, IsATableWithoutTerminalControlSequences) {
    EXPECT_EQ(asText(threeFindings(), {}),
              "ok       run log         sound\n"
              "warning  TVSA_X\\x1b[31m  unknown\\x0afor ever -> mend\n"
              "wrong    key             bad \\xff -> throw\\x09away\n"
              "\n"
              "OPEN AT      TO           STATE\n"
              "/run/a.sock  user 0 only  stale\\x07\n"
              "\n"
              "1 ok, 1 warnings, 1 wrong\n");
}

TEST(Report, HasColoursOnRequest) {
    EXPECT_THAT(asText(threeFindings(), {.coloured = true}), testing::StartsWith("\x1b[32mok\x1b[0m       run log"));
}

TEST(Report, OmitsOkFindingsWhenQuiet) {
    const std::string text = asText(threeFindings(), {.quiet = true});
    EXPECT_THAT(text, testing::StartsWith("warning  "));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST(Report, IsAJsonObjectForPrograms) {
    const auto json = nlohmann::json::parse(asJson(threeFindings()));
    EXPECT_EQ(json["findings"][1], (nlohmann::json{{"severity", "warning"},
                                                   {"subject", "TVSA_X\x1b[31m"},
                                                   {"what", "unknown\nfor ever"},
                                                   {"remedy", "mend"}}));
    EXPECT_EQ(json["doors"][0]["who"], "user 0 only");
    EXPECT_EQ(json["ok"], 1);
    EXPECT_EQ(json["warnings"], 1);
    EXPECT_EQ(json["wrong"], 1);
}

} // namespace
