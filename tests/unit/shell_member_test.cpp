// The debug shell as a member of a framework process.
#include "sockets/local-socket.h"
#include "unit/recording-member.h"

#include <appovshell/server.h>
#include <host/environment.h>
#include <host/shell-client.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <pthread.h>
#include <sys/stat.h>

namespace {

using namespace frame_test;

// The type and permissions of the file at a path; 0 if there is none.
mode_t modeOf(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

int startShell() { return frame::Process::getInstance()->startAppMembersSync(CreateOvshellProxy); }

struct ShellMember : testing::Test {
    ShellMember() {
        char name[] = "/tmp/shell-member-XXXXXX";
        folder = mkdtemp(name);
        runtime = folder + "/run";
        socket = runtime + "/receiver.shell";
        setenv("RUNTIME_DIRECTORY", runtime.c_str(), 1);
    }
    ~ShellMember() override { std::filesystem::remove_all(folder); }

    // Runs a framework process whose shell has a receiver's name.
    template <class Body> void inReceiver(Body body, const std::string& output = {}) {
        inOwnProcess(
            [&] {
                host::setProcessName("receiver");
                body();
            },
            output);
    }

    std::string folder, runtime, socket;
};

TEST_F(ShellMember, ServesUntilTheProcessEndsAndRemovesItsSocket) {
    inReceiver([&] {
        run([&] {
            EXPECT_EQ(startShell(), 0);
            EXPECT_EQ(modeOf(runtime), static_cast<mode_t>(S_IFDIR | 0700));
            EXPECT_EQ(modeOf(socket), static_cast<mode_t>(S_IFSOCK | 0600));
            EXPECT_TRUE(isRegistered(appovshell::Server::name()));
            host::ShellClient client;
            client.connect(socket);
            EXPECT_EQ(client.run("help").status, 0);
            host::stopProcess();
            return 0;
        });
        EXPECT_EQ(modeOf(socket), 0U);
        EXPECT_FALSE(isRegistered(appovshell::Server::name()));
        host::ShellClient client;
        EXPECT_THROW(client.connect(socket), host::ShellError);
    });
}

TEST_F(ShellMember, AcceptsCommandsOfOtherMembers) {
    inReceiver([&] {
        auto* member = new Member("A");
        member->onStart = [] {
            boost::shared_ptr<frame::Interface> shell;
            ASSERT_EQ(frame::Process::getInstance()->getInterfaceReference(shell, appovshell::Server::name()), 0);
            const auto handler = [](void*) { return -16; };
            EXPECT_EQ(shell->get<appovshell::Server>()->registerCommand("busy", "", handler, nullptr), 0);
        };
        run([&] {
            startShell();
            startMembers({member});
            host::ShellClient client;
            client.connect(socket);
            EXPECT_EQ(client.run("busy").status, -16);
            host::stopProcess();
            return 0;
        });
    });
}

TEST_F(ShellMember, StopsWithAClientThatStaysConnected) {
    inReceiver([&] {
        host::ShellClient client;
        run([&] {
            startShell();
            client.connect(socket);
            EXPECT_EQ(client.run("help").status, 0);
            host::stopProcess();
            return 0;
        });
        EXPECT_THROW(client.run("help"), host::ShellError);
    });
}

TEST_F(ShellMember, IsTheOnlyOneInAProcess) {
    inReceiver(
        [&] {
            run([&] {
                EXPECT_EQ(startShell(), 0);
                EXPECT_EQ(startShell(), -EADDRINUSE);
                EXPECT_TRUE(isRegistered(appovshell::Server::name()));
                host::ShellClient client;
                client.connect(socket);
                EXPECT_EQ(client.run("help").status, 0);
                host::stopProcess();
                return 0;
            });
        },
        "debug shell at " + socket + ": Address already in use");
    EXPECT_EQ(modeOf(socket), 0U);
}

TEST_F(ShellMember, FailsToStartWhereAnotherProcessHasItsShell) {
    std::filesystem::create_directory(runtime);
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
    const host::io::FileDescriptor other(host::io::listenAt(socket));
    inReceiver([&] {
        EXPECT_EQ(startShell(), -EADDRINUSE);
        EXPECT_FALSE(isRegistered(appovshell::Server::name()));
    });
    EXPECT_EQ(modeOf(socket), static_cast<mode_t>(S_IFSOCK | 0600));
}

TEST_F(ShellMember, FailsToStartInAFolderThatIsOpenToOthers) {
    std::filesystem::create_directory(runtime);
    std::filesystem::permissions(runtime, static_cast<std::filesystem::perms>(0755));
    inReceiver([&] { EXPECT_EQ(startShell(), -EIO); }, "folder " + runtime + ": open to other users");
    EXPECT_EQ(modeOf(socket), 0U);
}

TEST_F(ShellMember, FailsToStartWhenItsNameIsTaken) {
    inReceiver(
        [&] {
            startMembers({new Member(appovshell::Server::name())});
            EXPECT_EQ(startShell(), -EEXIST);
            EXPECT_EQ(modeOf(socket), 0U);
            EXPECT_TRUE(isRegistered(appovshell::Server::name()));
        },
        "cannot register");
}

TEST_F(ShellMember, LeavesNothingBehindWhenAnotherMemberCannotBeSetUp) {
    inReceiver([&] {
        void** array = CreateOvshellProxy();
        auto* shell = static_cast<frame::AbstractProcessMember*>(array[0]);
        std::free(array);
        EXPECT_EQ(startMembers({shell, new Member("B", "setupDone")}), -5);
        EXPECT_EQ(modeOf(socket), 0U);
        EXPECT_EQ(startShell(), 0);
    });
}

// A thread whose stack does not fit into memory cannot be started.
TEST_F(ShellMember, LeavesNothingBehindWhenItsThreadCannotBeStarted) {
    inReceiver([&] {
        pthread_attr_t before, huge;
        ASSERT_EQ(pthread_getattr_default_np(&before), 0);
        ASSERT_EQ(pthread_attr_init(&huge), 0);
        ASSERT_EQ(pthread_attr_setstacksize(&huge, SIZE_MAX / 8 * 7), 0);
        ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
        EXPECT_EQ(startShell(), -EAGAIN);
        ASSERT_EQ(pthread_setattr_default_np(&before), 0);
        EXPECT_EQ(modeOf(socket), 0U);
        EXPECT_FALSE(isRegistered(appovshell::Server::name()));
        EXPECT_EQ(startShell(), 0);
        EXPECT_EQ(modeOf(socket), static_cast<mode_t>(S_IFSOCK | 0600));
    });
}

} // namespace
