#include <host/environment.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testing::AllOf;
using testing::HasSubstr;

// Gives each test its own folder and clears all variables that name folders.
struct Environment : testing::Test {
    Environment() {
        for (const char* name :
             {"RUNTIME_DIRECTORY", "XDG_RUNTIME_DIR", "STATE_DIRECTORY", "XDG_STATE_HOME", "HOME", "TVSA_ENDPOINT_TV"})
            unsetenv(name);
        char pattern[] = "/tmp/environment-XXXXXX";
        folder = mkdtemp(pattern);
    }
    ~Environment() override { std::filesystem::remove_all(folder); }

    static unsigned modeOf(const std::string& path) {
        struct stat status {};
        return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0U;
    }

    static std::string errorOf(const std::function<std::string()>& call) {
        try {
            return "no error: " + call();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    std::string folder;
};

TEST_F(Environment, KeepsSocketsInTheServiceManagersRuntimeFolder) {
    setenv("RUNTIME_DIRECTORY", (folder + "/run").c_str(), 1);
    setenv("XDG_RUNTIME_DIR", (folder + "/other").c_str(), 1);
    EXPECT_EQ(host::runtimeDirectory(), folder + "/run");
    EXPECT_EQ(modeOf(folder + "/run"), 0700U);
    EXPECT_EQ(host::runtimeDirectory(), folder + "/run");
}

TEST_F(Environment, KeepsSocketsInTheUsersRuntimeFolderOtherwise) {
    setenv("RUNTIME_DIRECTORY", "", 1);
    setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);
    EXPECT_EQ(host::runtimeDirectory(), folder + "/tvservice-adapter");
    EXPECT_EQ(modeOf(folder + "/tvservice-adapter"), 0700U);
}

TEST_F(Environment, KeepsLastingDataInTheFirstFolderThatIsNamed) {
    setenv("HOME", folder.c_str(), 1);
    EXPECT_EQ(host::stateDirectory(), folder + "/.local/state/tvservice-adapter");
    setenv("XDG_STATE_HOME", (folder + "/xdg").c_str(), 1);
    EXPECT_EQ(host::stateDirectory(), folder + "/xdg/tvservice-adapter");
    setenv("STATE_DIRECTORY", (folder + "/state").c_str(), 1);
    EXPECT_EQ(host::stateDirectory(), folder + "/state");
    for (const char* made : {"/.local/state/tvservice-adapter", "/xdg/tvservice-adapter", "/state"})
        EXPECT_EQ(modeOf(folder + made), 0700U) << made;
}

TEST_F(Environment, FailsToKeepLastingDataWithoutAnyFolder) {
    EXPECT_THAT(errorOf(host::stateDirectory), HasSubstr("none of STATE_DIRECTORY, XDG_STATE_HOME and HOME is set"));
}

TEST_F(Environment, RejectsAFolderThatIsOpenToOthers) {
    setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
    ASSERT_EQ(chmod(folder.c_str(), 0750), 0);
    EXPECT_THAT(errorOf(host::runtimeDirectory), AllOf(HasSubstr(folder), HasSubstr("open to other users")));
    setenv("STATE_DIRECTORY", folder.c_str(), 1);
    EXPECT_THAT(errorOf(host::stateDirectory), AllOf(HasSubstr(folder), HasSubstr("open to other users")));
}

TEST_F(Environment, RejectsAFileInPlaceOfAFolder) {
    const std::string path = folder + "/taken";
    std::ofstream(path) << "x";
    setenv("RUNTIME_DIRECTORY", path.c_str(), 1);
    EXPECT_THAT(errorOf(host::runtimeDirectory), AllOf(HasSubstr(path), HasSubstr("not a folder")));
    setenv("RUNTIME_DIRECTORY", (path + "/below").c_str(), 1);
    EXPECT_THAT(errorOf(host::runtimeDirectory), HasSubstr("Not a directory"));
}

TEST_F(Environment, RejectsALinkInPlaceOfAFolder) {
    std::filesystem::create_directory(folder + "/real");
    std::filesystem::create_symlink(folder + "/real", folder + "/link");
    setenv("RUNTIME_DIRECTORY", (folder + "/link").c_str(), 1);
    EXPECT_THAT(errorOf(host::runtimeDirectory), HasSubstr("not a folder"));
}

TEST_F(Environment, RejectsAFolderOfAnotherUser) {
    if (geteuid() == 0) {
        ASSERT_EQ(chown(folder.c_str(), 1, 1), 0);
        setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
    } else {
        setenv("RUNTIME_DIRECTORY", "/", 1);
    }
    EXPECT_THAT(errorOf(host::runtimeDirectory), HasSubstr("belongs to another user"));
}

TEST_F(Environment, NamesItsFoldersWithoutCreatingThem) {
    setenv("RUNTIME_DIRECTORY", (folder + "/run").c_str(), 1);
    setenv("STATE_DIRECTORY", (folder + "/state").c_str(), 1);
    EXPECT_EQ(host::runtimeDirectoryPath(), folder + "/run");
    EXPECT_EQ(host::stateDirectoryPath(), folder + "/state");
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(Environment, PlacesSocketsInTheRuntimeFolder) {
    setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
    EXPECT_EQ(host::endpointOf("tv"), folder + "/tv.sock");
    EXPECT_EQ(host::shellEndpointOf("frame-host"), folder + "/frame-host.shell");
}

TEST_F(Environment, ReadsASocketPathFromItsVariable) {
    setenv("TVSA_ENDPOINT_TV", "/somewhere/else", 1);
    EXPECT_EQ(host::endpointOf("tv"), "/somewhere/else");
}

TEST_F(Environment, RejectsASocketPathThatIsTooLong) {
    const std::string fits = "/" + std::string(106, 'x');
    setenv("TVSA_ENDPOINT_TV", fits.c_str(), 1);
    EXPECT_EQ(host::endpointOf("tv"), fits);
    setenv("TVSA_ENDPOINT_TV", (fits + "x").c_str(), 1);
    EXPECT_THAT(errorOf([] { return host::endpointOf("tv"); }), HasSubstr("too long (108 bytes): " + fits));
}

TEST_F(Environment, NamesTheProcessAfterItsProgramUntilANameIsSet) {
    EXPECT_EQ(host::processName(), program_invocation_short_name);
    host::setProcessName("frame-host");
    EXPECT_EQ(host::processName(), "frame-host");
}

} // namespace
