// What tvctl doctor finds in folders, files and limits, and about the services there.
#include "runlog/run-log-store.h"
#include "shell/shell-server.h"
#include "sockets/local-socket.h"
#include "sockets/socket-lock.h"
#include "support/doctor-fixture.h"

#include <host/log-capture.h>
#include <host/message-queue.h>
#include <host/run-log-file.h>
#include <host/shell-client.h>

#include <array>
#include <chrono>
#include <future>

namespace {

using namespace std::chrono_literals;
using namespace doctor_test;
using namespace tvctl::doctor;
using testing::Contains;
using testing::Field;

constexpr auto timeout = 10s;

class DoctorOfServices : public Doctor {
protected:
    std::string socketOf(const Service& service) const { return runtimeFolder + '/' + service.name + ".sock"; }
    Diagnosis check(const Service& service) const { return checkService(service, timeout); }

    const Service tv = services().at(0);
};

TEST_F(DoctorOfServices, KnowsBothServices) {
    std::vector<std::string> names;
    for (const Service& service : services()) names.push_back(service.name);
    EXPECT_THAT(names, testing::ElementsAre("tvservice", "mmservice"));
}

TEST_F(DoctorOfServices, WarnsOfAServiceThatDoesNotRun) {
    const Diagnosis diagnosis = check(tv);
    EXPECT_THAT(diagnosis, finds(Severity::warning, "tvservice", "not running: nobody serves " + socketOf(tv)));
    EXPECT_THAT(diagnosis.entryPoints, Contains(Field(&EntryPoint::state, "nobody serves it")));
    std::filesystem::remove(runtimeFolder);
    EXPECT_THAT(check(tv), finds(Severity::warning, "tvservice", "no runtime folder yet"));
    EXPECT_FALSE(std::filesystem::exists(runtimeFolder)) << "the doctor creates nothing";
}

TEST_F(DoctorOfServices, AcceptsAServiceWithTheSameMessages) {
    host::MessageQueue queue;
    queue.serve(tv.name, tv.messages, 4096);
    queue.start();
    const Diagnosis diagnosis = check(tv);
    EXPECT_THAT(diagnosis, finds(Severity::ok, "tvservice", "process " + std::to_string(getpid()) + " serves"));
    EXPECT_EQ(problemsIn(diagnosis), 0U);
    ASSERT_EQ(diagnosis.entryPoints.size(), 1U);
    EXPECT_EQ(diagnosis.entryPoints[0].place, socketOf(tv));
    EXPECT_EQ(diagnosis.entryPoints[0].who, "user " + std::to_string(geteuid()) + " only");
    EXPECT_EQ(diagnosis.entryPoints[0].state, "served by process " + std::to_string(getpid()));
}

TEST_F(DoctorOfServices, NamesTheMessageThatDiffers) {
    const host::LogCapture quiet; // also hides the service's warning about the rejected client
    std::vector<frame::MessageDescription> messages(tv.messages.begin(), tv.messages.end());
    messages[0].table = messages[1].table;
    host::MessageQueue queue;
    queue.serve(tv.name, {messages.data(), messages.size()}, 4096);
    queue.start();
    const Diagnosis diagnosis = check(tv);
    EXPECT_THAT(diagnosis,
                finds(Severity::wrong, "tvservice", std::string("(") + messages[0].name + ") has another layout"));
}

TEST_F(DoctorOfServices, FindsASilentService) {
    const int silent = listenAt(socketOf(tv));
    EXPECT_THAT(checkService(tv, 50ms),
                finds(Severity::wrong, "tvservice",
                      "process " + std::to_string(getpid()) + " does not answer; no answer within 50 ms"));
    ::close(silent);
}

TEST_F(DoctorOfServices, FindsAServiceThatIsTooBusyToAccept) {
    const int busy = listenAt(socketOf(tv), 0);
    const int waiting = host::io::connectTo(socketOf(tv));
    EXPECT_THAT(checkService(tv, 50ms), finds(Severity::wrong, "tvservice", "its process does not answer; "));
    ::close(waiting);
    ::close(busy);
}

TEST_F(DoctorOfServices, FindsAStaleSocket) {
    leaveSocketAt(socketOf(tv));
    const Diagnosis diagnosis = check(tv);
    EXPECT_THAT(diagnosis, finds(Severity::wrong, "tvservice", "is stale"));
    EXPECT_THAT(diagnosis.entryPoints, Contains(Field(&EntryPoint::state, "stale")));
    EXPECT_TRUE(std::filesystem::exists(socketOf(tv))) << "the doctor removes nothing";
}

TEST_F(DoctorOfServices, DoesNotReportASocketAsStaleWhileItsProcessStartsOrEnds) {
    leaveSocketAt(socketOf(tv));
    const host::io::SocketLock held("service tvservice", socketOf(tv));
    const Diagnosis diagnosis = check(tv);
    EXPECT_THAT(diagnosis,
                finds(Severity::warning, "tvservice", "is starting or stopping: process " + std::to_string(getpid())));
    EXPECT_EQ(diagnosis.findings.size(), 1U);
}

TEST_F(DoctorOfServices, FindsASocketThatIsOpenToOthers) {
    host::MessageQueue queue;
    queue.serve(tv.name, tv.messages, 4096);
    queue.start();
    ASSERT_EQ(chmod(socketOf(tv).c_str(), 0666), 0);
    EXPECT_THAT(check(tv), finds(Severity::wrong, socketOf(tv), "open to other users: mode 0666"));
}

TEST_F(DoctorOfServices, FindsAFileInPlaceOfASocket) {
    write("run/tvservice.sock", "");
    EXPECT_THAT(check(tv), finds(Severity::wrong, "tvservice", "is not a socket"));
}

TEST_F(DoctorOfServices, UsesTheConfiguredEndpoint) {
    setenv("TVSA_ENDPOINT_TVSERVICE", (folder + "/elsewhere").c_str(), 1);
    EXPECT_THAT(check(tv), finds(Severity::warning, "tvservice", "nobody serves " + folder + "/elsewhere"));
    setenv("TVSA_ENDPOINT_TVSERVICE", ("/" + std::string(120, 'x')).c_str(), 1);
    EXPECT_THAT(check(tv), finds(Severity::wrong, "tvservice", "too long"));
}

class DoctorOfFolders : public Doctor {};

TEST_F(DoctorOfFolders, AcceptsFoldersOfThisUser) {
    EXPECT_EQ(problemsIn(checkRuntimeFolder()), 0U);
    EXPECT_THAT(checkRuntimeFolder(), finds(Severity::ok, runtimeFolder, "mode 0700"));
    EXPECT_THAT(checkStateFolder(), finds(Severity::ok, stateFolder, "MiB left"));
    EXPECT_EQ(problemsIn(checkContents(runtimeFolder)), 0U);
}

TEST_F(DoctorOfFolders, CreatesNoFolders) {
    std::filesystem::remove(runtimeFolder);
    std::filesystem::remove(stateFolder);
    EXPECT_THAT(checkRuntimeFolder(), finds(Severity::ok, runtimeFolder, "does not exist yet"));
    EXPECT_THAT(checkStateFolder(), finds(Severity::ok, stateFolder, "does not exist yet"));
    EXPECT_EQ(problemsIn(checkContents(runtimeFolder)), 0U);
    EXPECT_TRUE(shellsIn(runtimeFolder).empty());
    EXPECT_FALSE(std::filesystem::exists(runtimeFolder));
    EXPECT_FALSE(std::filesystem::exists(stateFolder));
}

TEST_F(DoctorOfFolders, FindsAFolderOpenToOthersAndALink) {
    ASSERT_EQ(chmod(runtimeFolder.c_str(), 0755), 0);
    EXPECT_THAT(checkRuntimeFolder(), finds(Severity::wrong, runtimeFolder, "open to other users"));
    std::filesystem::create_directory_symlink(runtimeFolder, folder + "/link");
    setenv("STATE_DIRECTORY", (folder + "/link").c_str(), 1);
    EXPECT_THAT(checkStateFolder(), finds(Severity::wrong, folder + "/link", "not a folder"));
}

TEST_F(DoctorOfFolders, FindsAFolderThatOthersCanReplace) {
    ASSERT_EQ(chmod(folder.c_str(), 0777), 0);
    EXPECT_THAT(checkRuntimeFolder(),
                finds(Severity::wrong, runtimeFolder, "every user can replace the contents of " + folder));
    ASSERT_EQ(chmod(folder.c_str(), 01777), 0);
    EXPECT_EQ(problemsIn(checkRuntimeFolder()), 0U);
    ASSERT_EQ(chmod(folder.c_str(), 0770), 0);
    EXPECT_THAT(checkRuntimeFolder(), finds(Severity::warning, runtimeFolder, "its group can replace"));
}

TEST_F(DoctorOfFolders, WarnsWhenTheRuntimeFolderIsNotNamed) {
    unsetenv("RUNTIME_DIRECTORY");
    unsetenv("XDG_RUNTIME_DIR");
    EXPECT_THAT(checkRuntimeFolder(), finds(Severity::warning, "/tmp/tvservice-adapter-" + std::to_string(geteuid()),
                                            "XDG_RUNTIME_DIR is not set"));
    unsetenv("STATE_DIRECTORY");
    unsetenv("XDG_STATE_HOME");
    EXPECT_THAT(checkStateFolder(), finds(Severity::wrong, "state folder", "no state folder"));
}

TEST_F(DoctorOfFolders, DistinguishesStaleLocksFromHeldOnes) {
    const std::string socket = runtimeFolder + "/tvservice.sock", lock = socket + ".lock";
    {
        const host::io::SocketLock held("service tvservice", socket);
        const Diagnosis diagnosis = checkContents(runtimeFolder);
        EXPECT_THAT(diagnosis, finds(Severity::warning, lock, "held by process " + std::to_string(getpid())));
    }
    EXPECT_THAT(checkContents(runtimeFolder), finds(Severity::ok, lock, "left by a process that has ended"));
    ASSERT_EQ(chmod(lock.c_str(), 0644), 0);
    EXPECT_THAT(checkContents(runtimeFolder), finds(Severity::wrong, lock, "open to other users: mode 0644"));
    std::filesystem::remove(lock);
    std::filesystem::create_symlink("/dev/null", lock);
    EXPECT_THAT(checkContents(runtimeFolder), finds(Severity::wrong, lock, "not a regular file"));
}

TEST_F(DoctorOfFolders, WarnsOfUnknownFiles) {
    const std::string file = write("run/notes", ""), stale = runtimeFolder + "/radio.sock",
                      served = runtimeFolder + "/web.sock";
    leaveSocketAt(stale);
    const int listener = listenAt(served);
    const Diagnosis diagnosis = checkContents(runtimeFolder);
    EXPECT_THAT(diagnosis, finds(Severity::warning, file, "an unknown file"));
    EXPECT_THAT(diagnosis, finds(Severity::wrong, stale, "is stale"));
    EXPECT_THAT(diagnosis, finds(Severity::warning, served, "not a known service"));
    EXPECT_EQ(diagnosis.entryPoints.size(), 2U);
    ::close(listener);
}

class DoctorOfShells : public Doctor {
protected:
    const std::string socket = runtimeFolder + "/frame-host.shell";
};

// Serves one request with this reply.
std::future<void> answerOnce(int listener, const std::string& reply) {
    return std::async(std::launch::async, [listener, reply] {
        ::close(::accept(listener, nullptr, nullptr)); // the doctor first tests whether the socket is served
        const int client = ::accept(listener, nullptr, nullptr);
        char request[256];
        EXPECT_GT(::recv(client, request, sizeof request, 0), 0);
        EXPECT_EQ(::send(client, reply.data(), reply.size(), MSG_NOSIGNAL), static_cast<ssize_t>(reply.size()));
        ::close(client);
    });
}

TEST_F(DoctorOfShells, FindsShellsAndReadsTheirAnswers) {
    appovshell::ShellServer shell;
    shell.open(socket, geteuid());
    shell.start();
    ASSERT_EQ(shellsIn(runtimeFolder), std::vector{socket});
    const Diagnosis diagnosis = checkShell(socket, timeout);
    EXPECT_THAT(diagnosis, finds(Severity::ok, "frame-host", "answers in its shell"));
    EXPECT_EQ(problemsIn(diagnosis), 0U);
    EXPECT_THAT(diagnosis.entryPoints, Contains(Field(&EntryPoint::place, socket)));
    EXPECT_EQ(problemsIn(checkContents(runtimeFolder)), 0U);
}

TEST_F(DoctorOfShells, FindsAShellThatDoesNotAnswer) {
    const int silent = listenAt(socket);
    EXPECT_THAT(checkShell(socket, 50ms), finds(Severity::wrong, "frame-host", "timed out"));
    ::close(silent);
    EXPECT_THAT(checkShell(socket, timeout), finds(Severity::wrong, "frame-host", "is stale"));
}

TEST_F(DoctorOfShells, FindsAShellThatIsTooBusyToAccept) {
    const int busy = listenAt(socket, 0);
    const int waiting = host::io::connectTo(socket);
    EXPECT_THAT(checkShell(socket, 50ms),
                finds(Severity::wrong, "frame-host", "its process does not answer in its shell"));
    ::close(waiting);
    ::close(busy);
}

TEST_F(DoctorOfShells, AcceptsAShellWhoseClientsAreIdle) {
    const host::LogCapture quiet; // hides the shell's line about an evicted client
    appovshell::ShellServer shell;
    shell.open(socket, geteuid());
    shell.start();
    std::array<host::ShellClient, appovshell::ShellServer::maximumClients> clients;
    for (auto& client : clients) {
        client.connect(socket);
        ASSERT_EQ(client.run("help").status, 0);
    }
    EXPECT_THAT(checkShell(socket, timeout), finds(Severity::ok, "frame-host", "answers in its shell"));
}

TEST_F(DoctorOfShells, WarnsOfAShellWhoseClientsAreBusy) {
    const int listener = listenAt(socket);
    const auto shell = answerOnce(listener, "{\"status\":-11,\"error\":\"the shell already has 16 clients\"}\n");
    const Diagnosis diagnosis = checkShell(socket, timeout);
    shell.wait();
    EXPECT_THAT(diagnosis, finds(Severity::warning, "frame-host", "the shell already has 16 clients"));
    EXPECT_EQ(diagnosis.findings.size(), 1U);
    ::close(listener);
}

TEST_F(DoctorOfShells, FindsAShellWhoseCommandsFail) {
    const int listener = listenAt(socket);
    const auto shell = answerOnce(listener, "{\"status\":-5,\"error\":\"out of order\"}\n");
    const Diagnosis diagnosis = checkShell(socket, timeout);
    EXPECT_THAT(diagnosis, finds(Severity::wrong, "frame-host", "out of order"));
    EXPECT_EQ(diagnosis.findings.size(), 1U);
    shell.wait();
    ::close(listener);
}

// A receiver whose shell has one command, which prints a text.
struct PrintingShell {
    PrintingShell(const char* syntax, const std::string& socket) {
        EXPECT_EQ(shell.registerCommand(
                      syntax, "",
                      [](void* context) {
                          const auto& self = *static_cast<PrintingShell*>(context);
                          self.server.print(self.text);
                          return 0;
                      },
                      this),
                  0);
        shell.open(socket, geteuid());
        shell.start();
    }
    appovshell::ShellServer shell;
    appovshell::Server& server = shell;
    std::string text;
};

TEST_F(DoctorOfShells, WarnsOfARequestWhoseAnswerIsOverdue) {
    PrintingShell receiver("bundles [:d]", socket);
    std::string& queue = receiver.text;
    for (const char* quiet : {"[]", R"([{"reqId":"12","overdueMs":0,"state":"waits"}])", R"([{"reqId":"12"}])"}) {
        queue = quiet;
        EXPECT_EQ(problemsIn(checkShell(socket, timeout)), 0U) << quiet;
    }
    queue = R"([{"reqId":"12","overdueMs":40000,"state":"request 12 overdue for 40.0 s"}])";
    EXPECT_THAT(checkShell(socket, timeout), finds(Severity::warning, "frame-host", "request 12 overdue for 40.0 s"));
}

TEST_F(DoctorOfShells, WarnsOfAServiceThatDidNotAnswerTheNewestRequest) {
    PrintingShell receiver("requests [:d]", socket);
    for (const char* quiet : {"[]", R"([{"state":"ended","lines":["0:0 shown"]}])"}) {
        receiver.text = quiet;
        EXPECT_EQ(problemsIn(checkShell(socket, timeout)), 0U) << quiet;
    }
    receiver.text = R"([{"state":"given up","lines":["0:0 given up after 5 s: MM service did not answer the stop"]}])";
    EXPECT_THAT(checkShell(socket, timeout),
                finds(Severity::warning, "frame-host", "MM service did not answer the stop"));
}

TEST_F(DoctorOfShells, ReportsNothingAboutAShellThatHasEnded) {
    EXPECT_TRUE(checkShell(socket, timeout).findings.empty());
}

class DoctorOfTheRunLog : public Doctor {
protected:
    void store() const {
        lrt::RunLogStore log(file);
        log.write({{"code", "2024-05-17T08:30:00.123Z", "error", 1, 2, "text"}});
    }
    std::size_t filesThere() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(stateFolder), {}));
    }

    const std::string file = stateFolder + '/' + host::runLogName;
};

TEST_F(DoctorOfTheRunLog, AcceptsAValidRunLogAndLeavesNoOtherFiles) {
    EXPECT_TRUE(checkRunLog(stateFolder).findings.empty());
    store();
    ASSERT_EQ(filesThere(), 1U);
    EXPECT_THAT(checkRunLog(stateFolder), finds(Severity::ok, file, "sound, "));
    EXPECT_EQ(filesThere(), 1U);
}

TEST_F(DoctorOfTheRunLog, ReadsARunLogInUse) {
    lrt::RunLogStore log(file);
    log.write({{"code", "2024-05-17T08:30:00.123Z", "error", 1, 2, "text"}});
    ASSERT_EQ(filesThere(), 3U);
    EXPECT_THAT(checkRunLog(stateFolder), finds(Severity::ok, file, "sound, "));
    log.write({{"code", "2024-05-17T08:30:00.123Z", "error", 1, 2, "more"}});
    EXPECT_EQ(lrt::RunLogStore::readNewest(file, 10).size(), 2U);
}

TEST_F(DoctorOfTheRunLog, FindsADamagedAndAForeignRunLog) {
    write(std::string("state/") + host::runLogName, std::string(8192, 'x'), 0600);
    EXPECT_THAT(checkRunLog(stateFolder), finds(Severity::wrong, file, "not a database"));
    std::filesystem::remove(file);
    store();
    std::fstream(file).seekp(60).write("\0\0\0\7", 4); // its version
    EXPECT_THAT(checkRunLog(stateFolder), finds(Severity::wrong, file, "not a run log of this version"));
    ASSERT_EQ(chmod(file.c_str(), 0666), 0);
    EXPECT_THAT(checkRunLog(stateFolder), finds(Severity::wrong, file, "other users may write to it: mode 0666"));
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    EXPECT_THAT(checkRunLog(stateFolder), finds(Severity::wrong, file, "not a regular file"));
}

TEST_F(DoctorOfTheRunLog, AcceptsAnyFolderName) {
    const std::string odd = folder + "/50% of?this#one";
    std::filesystem::create_directory(odd);
    const std::string log = odd + '/' + host::runLogName;
    lrt::RunLogStore(log).write({{"code", "2024-05-17T08:30:00.123Z", "error", 1, 2, "text"}});
    EXPECT_THAT(checkRunLog(odd), finds(Severity::ok, log, "sound"));
}

} // namespace
