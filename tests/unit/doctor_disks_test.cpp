// What tvctl doctor finds on unusual file systems: overlays, and file systems that do not answer.
#include "base/file-descriptor.h"
#include "sockets/socket-lock.h"
#include "support/doctor-fixture.h"
#include "support/test-where.h"

#include <csignal>
#include <doctor/examination.h>
#include <doctor/report.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using namespace doctor_test;
using namespace tvctl::doctor;

// Makes later mounts visible to this process only.
bool useOwnMounts() {
    return unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// Root in a container may lack the permission, and a kernel the file system. Tries it in a child process.
bool canMount(const std::function<bool(const std::string& place)>& mount) {
    std::string place = "/tmp/doctor-mounts-XXXXXX";
    if (mkdtemp(place.data()) == nullptr) return false;
    const pid_t child = fork();
    if (child == 0) _exit(useOwnMounts() && mount(place) ? 0 : 1);
    int status = 1;
    if (child > 0) waitpid(child, &status, 0);
    std::filesystem::remove_all(place);
    return status == 0;
}

bool canOverlay() {
    return canMount([](const std::string& place) {
        if (::mount("none", place.c_str(), "tmpfs", 0, "") != 0) return false;
        for (const char* name : {"/lower", "/upper", "/work"}) mkdir((place + name).c_str(), 0700);
        const std::string options =
            "xino=off,lowerdir=" + place + "/lower,upperdir=" + place + "/upper,workdir=" + place + "/work";
        return ::mount("none", place.c_str(), "overlay", 0, options.c_str()) == 0;
    });
}

// Mounts a FUSE file system whose server never answers.
bool mountSilently(const std::string& place, int silent) {
    const std::string options = "rootmode=40000,user_id=0,group_id=0,fd=" + std::to_string(silent);
    return ::mount("none", place.c_str(), "fuse", 0, options.c_str()) == 0;
}

host::io::FileDescriptor openSilent() { return host::io::FileDescriptor(::open("/dev/fuse", O_RDWR | O_CLOEXEC)); }

bool canMountSilently() {
    return canMount([](const std::string& place) { return mountSilently(place, openSilent().get()); });
}

class DoctorOfDisks : public Doctor {
protected:
    void SetUp() override { ASSERT_TRUE(useOwnMounts()); }
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

TEST_F_WHERE(canOverlay(), DoctorOfDisks, NamesTheHolderOfALockOnAnOverlay) {
    const std::string lower = makeFolder("lower"), upper = makeFolder("upper");
    ASSERT_TRUE(mount(upper, "tmpfs", ""));
    ASSERT_TRUE(mount(runtimeFolder, "overlay",
                      "xino=off,lowerdir=" + lower + ",upperdir=" + makeFolder("upper/data") +
                          ",workdir=" + makeFolder("upper/work")));
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

// In its own process, because the threads of the blocked checks keep running.
TEST_F_WHERE(canMountSilently(), DoctorOfDisks, ContinuesWhenTheRuntimeFoldersDiskDoesNotRespond) {
    const host::io::FileDescriptor silent = openSilent();
    ASSERT_TRUE(mountSilently(runtimeFolder, silent.get()));
    mounted.push_back(runtimeFolder);
    const auto examineAndEnd = [this] {
        signal(SIGALRM, SIG_DFL);
        alarm(60);
        const Examination examination = examine(20ms, 20ms);
        const bool found = examination.stuck && problemsIn(examination.diagnosis) > 0 &&
                           testing::Matches(finds(Severity::wrong, "shells", "not examined"))(examination.diagnosis) &&
                           testing::Matches(finds(Severity::ok, stateFolder, "mode 0700"))(examination.diagnosis);
        std::fputs(asText(examination.diagnosis, {}).c_str(), stderr);
        std::_Exit(found ? 0 : 1);
    };
    EXPECT_EXIT(examineAndEnd(), testing::ExitedWithCode(0), "");
}

} // namespace
