#include "run-log-layout.h"

#include <host/run-log-file.h>

#include <SQLiteCpp/SQLiteCpp.h>
#include <cctype>
#include <unistd.h>

namespace host {
namespace {

constexpr int busyTimeoutMs = 1000;

// The percent-encoded name of a file, for a URI.
std::string inAddress(const std::string& file) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const char c : file) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) || c == '/' || c == '.' || c == '-' || c == '_')
            text += c;
        else
            text.append({'%', digits[byte >> 4], digits[byte & 15]});
    }
    return text;
}

// The URI to open the file with. If the two files beside a run log are missing, a reader creates them unless it
// declares the file immutable. That is correct then, because every writer has both files.
std::string addressOf(const std::string& file) {
    const bool inUse = ::access((file + "-wal").c_str(), F_OK) == 0 && ::access((file + "-shm").c_str(), F_OK) == 0;
    return "file:" + inAddress(file) + (inUse ? "?mode=ro" : "?mode=ro&immutable=1");
}

} // namespace

std::string problemOfRunLog(const std::string& file) {
    try {
        SQLite::Database database(addressOf(file), SQLite::OPEN_READONLY | SQLite::OPEN_URI, busyTimeoutMs);
        // An empty file has just been created by a process.
        const int id = database.execAndGet("PRAGMA application_id").getInt();
        const int version = database.execAndGet("PRAGMA user_version").getInt();
        const bool empty = database.execAndGet("SELECT count(*) FROM sqlite_master").getInt() == 0;
        if ((id != lrt::applicationId || version != lrt::layoutVersion) && !(id == 0 && version == 0 && empty))
            return "not a run log of this version";
        const std::string answer = database.execAndGet("PRAGMA quick_check(1)").getString();
        return answer == "ok" ? "" : "damaged: " + answer;
    } catch (const SQLite::Exception& error) {
        return error.what();
    }
}

} // namespace host
