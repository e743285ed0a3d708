// tvctl keygen as users run it.
#include "integration/program-run.h"

#include <host/keys.h>

#include <nlohmann/json.hpp>
#include <sys/stat.h>

namespace {

using namespace program_run;
using testing::AllOf;
using testing::HasSubstr;

constexpr int done = 0, failed = 1, usage = 2;

class Keygen : public Programs {
protected:
    Keygen() { environment["TVSA_CONFIG"] = (folder / "none.toml").string(); } // it needs no configuration

    Outcome keygen(const Words& arguments, const std::string& script = R"(exec "$0" "$@" </dev/null >"$OUTPUT")") {
        Words words{program("tvctl"), "keygen"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return run(words, script);
    }

    const std::string file = (folder / "own.key").string();
};

TEST_F(Keygen, MakesAPairThatOnlyItsUserCanRead) {
    const Outcome made = keygen({file});
    EXPECT_EQ(made.exitCode, done) << made.error;
    EXPECT_EQ(made.output, host::readKeys(file).publicKey + "\n");
    EXPECT_THAT(made.error, AllOf(HasSubstr(file), HasSubstr("keys.file"), HasSubstr("keys.clients")));
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_FALSE(std::filesystem::exists(runtimeFolder()));
}

TEST_F(Keygen, PrintsNothingButTheKeyWhenQuiet) {
    const Outcome made = keygen({"--quiet", file});
    EXPECT_EQ(made, (Outcome{done, host::readKeys(file).publicKey + "\n", ""}));
}

TEST_F(Keygen, PrintsJsonForPrograms) {
    const Outcome made = keygen({"--json", file});
    EXPECT_EQ(made.error, "");
    const nlohmann::json expected{{"public", host::readKeys(file).publicKey}, {"file", file}};
    EXPECT_EQ(nlohmann::json::parse(made.output), expected);
}

TEST_F(Keygen, ShowsThePublicKeyOfAFile) {
    const auto keys = host::makeKeys();
    host::writeKeys(file, keys);
    EXPECT_EQ(keygen({"--show", file}), (Outcome{done, keys.publicKey + "\n", ""}));
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    const Outcome open = keygen({"--show", file});
    EXPECT_EQ(open.exitCode, failed);
    EXPECT_EQ(open.output, "");
    EXPECT_THAT(open.error, AllOf(HasSubstr(file), HasSubstr("open to other users")));
}

TEST_F(Keygen, DoesNotOverwriteAnExistingFile) {
    std::ofstream(file) << "precious";
    const Outcome outcome = keygen({file});
    EXPECT_EQ(outcome.exitCode, failed);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.error, AllOf(HasSubstr(file), HasSubstr("File exists")));
    EXPECT_EQ(contentOf(file), "precious");
}

TEST_F(Keygen, ReportsThatTheKeyCannotBePrinted) {
    EXPECT_EQ(keygen({file}, R"(exec "$0" "$@" </dev/null >/dev/full)"),
              (Outcome{failed, "", "tvctl: cannot write to standard output\n"}));
    EXPECT_EQ(keygen({"--show", file}).exitCode, done) << "the pair is there all the same";
}

TEST_F(Keygen, RejectsWrongUsage) {
    EXPECT_EQ(keygen({}).exitCode, usage);
    EXPECT_EQ(keygen({file, "more"}).exitCode, usage);
    EXPECT_EQ(keygen({"--secret", file}).exitCode, usage);
    EXPECT_FALSE(std::filesystem::exists(file));
}

} // namespace
