// Lines for the systemd journal, with a socket in the journal's place.
#include "log/journal.h"

#include "support/configuration-folder.h"

#include <vdl/debug.h>

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using host::debug::Journal;
using testing::Pair;
using testing::UnorderedElementsAre;

class JournalLines : public ConfigurationFolder {
protected:
    JournalLines() : path(folder + "/journal"), journal(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, bind(journal.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
        nameStandardError(0);
    }
    ~JournalLines() override { unsetenv("JOURNAL_STREAM"); }

    static void nameStandardError(ino_t difference) {
        struct stat file {};
        EXPECT_EQ(0, fstat(STDERR_FILENO, &file));
        const std::string name = std::to_string(file.st_dev) + ':' + std::to_string(file.st_ino + difference);
        setenv("JOURNAL_STREAM", name.c_str(), 1);
    }

    // The fields of the oldest line; none when there is no line.
    std::map<std::string, std::string> received() const {
        std::string datagram(1 << 18, '\0');
        const ssize_t size = recv(journal.get(), datagram.data(), datagram.size(), 0);
        datagram.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        std::map<std::string, std::string> fields;
        for (std::size_t at = 0; at < datagram.size();) {
            const std::size_t end = datagram.find('\n', at);
            std::size_t length = 0; // of 8 bytes, but datagrams are short
            for (int i = 8; i > 0; --i)
                length = length << 8 | static_cast<unsigned char>(datagram[end + static_cast<unsigned>(i)]);
            fields[datagram.substr(at, end - at)] = datagram.substr(end + 9, length);
            at = end + 9 + length + 1;
        }
        return fields;
    }

    const std::string path;
    const host::io::FileDescriptor journal;
};

TEST_F(JournalLines, HaveFieldsAndKeepTheirLineFeeds) {
    const auto lines = Journal::ofStandardError(path);
    ASSERT_TRUE(lines);
    ASSERT_TRUE(lines->write({vdlDebugWarning, "frame-host", "io", "warning", "two\nlines"}));
    EXPECT_THAT(received(), UnorderedElementsAre(Pair("MESSAGE", "two\nlines"), Pair("PRIORITY", "4"),
                                                 Pair("SYSLOG_IDENTIFIER", "frame-host"), Pair("TVSA_MODULE", "io"),
                                                 Pair("TVSA_LEVEL", "warning")));
}

TEST_F(JournalLines, HaveThePrioritiesOfSyslog) {
    const auto lines = Journal::ofStandardError(path);
    ASSERT_TRUE(lines);
    const std::pair<std::uint32_t, const char*> priorities[] = {
        {vdlDebugFailure, "3"}, {vdlDebugWarning, "4"}, {vdlDebugProgress, "6"}, {vdlDebugTrace, "7"}};
    for (const auto& [severity, priority] : priorities) {
        ASSERT_TRUE(lines->write({severity, "p", "m", "l", "text"}));
        EXPECT_EQ(received()["PRIORITY"], priority);
    }
}

TEST_F(JournalLines, GoToStandardErrorWhenThatLeadsElsewhere) {
    nameStandardError(1);
    EXPECT_FALSE(Journal::ofStandardError(path));
    unsetenv("JOURNAL_STREAM");
    EXPECT_FALSE(Journal::ofStandardError(path));
}

TEST_F(JournalLines, AreNotTakenByAJournalThatIsAbsentOrBehind) {
    EXPECT_FALSE(Journal::ofStandardError(folder + "/absent"));
    EXPECT_FALSE(Journal::ofStandardError(std::string(200, 'x')));
    const auto lines = Journal::ofStandardError(path);
    ASSERT_TRUE(lines);
    const std::string text(1000, 'x');
    int taken = 0;
    while (taken < 100000 && lines->write({vdlDebugTrace, "p", "m", "l", text})) ++taken;
    EXPECT_LT(taken, 100000) << "writing waits for no reader";
}

} // namespace
