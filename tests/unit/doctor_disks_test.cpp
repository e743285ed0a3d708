// What tvctl doctor finds on file systems that are not like others: of several layers, and such as do not answer.
#include "support/doctor-fixture.h"

#include <csignal>
#include <doctor/examination.h>
#include <doctor/report.h>
#include <fcntl.h>
#include <fstream>
#include <io/file-descriptor.h>
#include <io/socket-lock.h>
#include <sched.h>
#include <sys/mount.h>

namespace {

using namespace std::chrono_literals;
using namespace doctor_test;
using namespace tvctl::doctor;

// Mounts that only this process sees.
class DoctorOfDisks : public Doctor {
protected:
    void SetUp() override {
        if (unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            GTEST_SKIP() << "only root mounts";
    }
    void TearDown() override {
        for (auto place = mounted.rbegin(); place != mounted.rend(); ++place) umount2(place->c_str(), MNT_DETACH);
    }
    bool mount(const std::string& place, const char* type, const std::string& options) {
        if (::mount("none", place.c_str(), type, 0, options.c_str()) != 0) return false;
        mounted.push_back(place);
        return true;
    }
    std::string makeFolder(const std::string& name) const {
        std::filesystem::create_directory(folder + '/' + name);
        return folder + '/' + name;
    }

    std::vector<std::string> mounted;
};

TEST_F(DoctorOfDisks, TellsWhoHoldsALockWhereAFileHasADeviceOfItsOwn) {
    const std::string lower = makeFolder("lower"), upper = makeFolder("upper");
    if (!mount(upper, "tmpfs", "") || !mount(runtimeFolder, "overlay",
                                             "xino=off,lowerdir=" + lower + ",upperdir=" + makeFolder("upper/data") +
                                                 ",workdir=" + makeFolder("upper/work")))
        GTEST_SKIP() << "no overlays here";
    const std::string socket = runtimeFolder + "/tvservice.sock", lock = socket + ".lock";
    {
        const host::io::SocketLock held("service tvservice", socket);
        std::string name;
        std::getline(std::ifstream("/proc/self/comm"), name);
        EXPECT_THAT(
            checkContents(runtimeFolder),
            finds(Severity::warning, lock, "held by process " + std::to_string(getpid()) + " (" + name + "), but"));
    }
    EXPECT_THAT(checkContents(runtimeFolder), finds(Severity::ok, lock, "left by a process that has ended"));
}

// In a process of its own, as the threads of the checks that do not end go on.
TEST_F(DoctorOfDisks, GoesOnWhenTheRuntimeFoldersDiskDoesNotAnswer) {
    // A file system whose other end never says anything.
    const host::io::FileDescriptor silent(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
    if (!silent ||
        !mount(runtimeFolder, "fuse", "rootmode=40000,user_id=0,group_id=0,fd=" + std::to_string(silent.get())))
        GTEST_SKIP() << "no such file systems here";
    const auto examineAndEnd = [this] {
        signal(SIGALRM, SIG_DFL);
        alarm(60);
        const Examination examination = examine(20ms, 20ms);
        const bool found = examination.stuck && complaintsIn(examination.diagnosis) > 0 &&
                           testing::Matches(finds(Severity::wrong, "shells", "not examined"))(examination.diagnosis) &&
                           testing::Matches(finds(Severity::ok, stateFolder, "mode 0700"))(examination.diagnosis);
        std::fputs(asText(examination.diagnosis, {}).c_str(), stderr);
        std::_Exit(found ? 0 : 1);
    };
    EXPECT_EXIT(examineAndEnd(), testing::ExitedWithCode(0), "");
}

} // namespace
