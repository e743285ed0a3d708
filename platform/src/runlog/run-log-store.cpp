#include "run-log-store.h"

#include "log/log.h"
#include "run-log-layout.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <sqlite3.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace lrt {
namespace {

constexpr int busyTimeoutMs = 5000;       // for the thread that stores; the end of the process does not wait for it
constexpr int readersBusyTimeoutMs = 100; // for a shell's thread; the end of the process waits for it

// The file is intact, but not a run log.
struct ForeignFile : std::runtime_error {
    using runtime_error::runtime_error;
};

bool isDamage(const SQLite::Exception& error) {
    return error.getErrorCode() == SQLITE_NOTADB || error.getErrorCode() == SQLITE_CORRUPT;
}

// Whether the error concerns only the record to be inserted.
bool isRecordsOwn(const SQLite::Exception& error) {
    const int code = error.getErrorCode();
    return code == SQLITE_TOOBIG || code == SQLITE_CONSTRAINT || code == SQLITE_NOMEM;
}

int numberOf(SQLite::Database& database, const char* query) { return database.execAndGet(query).getInt(); }

ino_t fileNumber(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

// Creates the file if it does not exist. Makes it and the files beside it inaccessible to other users, whatever the
// umask or an earlier process did; SQLite creates those files with the mode of the first. Opens no existing file:
// closing it would release all locks that this process has on it.
void keepPrivate(const std::string& path) {
    const int made = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (made >= 0) close(made);
    for (const char* part : {"", "-wal", "-shm"}) {
        const std::string file = path + part;
        struct stat status {};
        if (stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || (status.st_mode & 0777) == 0600) continue;
        if (chmod(file.c_str(), 0600) != 0 && errno != ENOENT)
            HOST_LOG(runlog, vdlDebugWarning, "%s: stays open to other users (expected: mode 0600): %m", file.c_str());
    }
}

} // namespace

struct RunLogStore::Connection {
    SQLite::Database database;
    SQLite::Statement insert, removeOld;
    ino_t file;

    explicit Connection(const std::string& path)
        : database((keepPrivate(path), path), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, busyTimeoutMs),
          insert((prepareFile(database), database),
                 "INSERT INTO run_log (log_code, log_time, error_code, log_kind, event_id, log_text) "
                 "VALUES (?, ?, ?, ?, ?, ?)"),
          removeOld(database, "DELETE FROM run_log WHERE id <= (SELECT max(id) FROM run_log) - ?"),
          file(fileNumber(path)) {}

    static void prepareFile(SQLite::Database& database) {
        identifyOrMake(database);
        database.exec("PRAGMA journal_mode=WAL");
        database.exec("PRAGMA synchronous=NORMAL");
    }

    // Checks and creates in one transaction, because another process may be creating the same file. Leaves a foreign
    // file unchanged.
    static void identifyOrMake(SQLite::Database& database) {
        SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
        const int id = numberOf(database, "PRAGMA application_id");
        const int version = numberOf(database, "PRAGMA user_version");
        if (id == applicationId && version == layoutVersion) return;
        if (id != 0 || version != 0 || numberOf(database, "SELECT count(*) FROM sqlite_master") != 0)
            throw ForeignFile("not a run log of this version");
        database.exec(
            "CREATE TABLE run_log (id INTEGER PRIMARY KEY, log_code TEXT NOT NULL, log_time TEXT NOT NULL, "
            "error_code TEXT NOT NULL, log_kind INTEGER NOT NULL, event_id INTEGER NOT NULL, log_text TEXT NOT NULL)");
        database.exec("PRAGMA application_id=" + std::to_string(applicationId));
        database.exec("PRAGMA user_version=" + std::to_string(layoutVersion));
        transaction.commit();
    }

    std::size_t write(const std::vector<RunLogRecord>& records, std::int64_t limit) {
        SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
        std::size_t leftOut = 0;
        std::string why;
        for (const RunLogRecord& record : records) {
            try {
                add(record);
            } catch (const SQLite::Exception& error) {
                // Some failures end the transaction, which discards the records before this one.
                if (!isRecordsOwn(error) || sqlite3_get_autocommit(database.getHandle()) != 0) throw;
                if (leftOut++ == 0) why = error.what();
            }
            insert.tryReset(); // returns the record's failure again, if there was one
        }
        removeOld.bind(1, limit);
        removeOld.exec();
        removeOld.reset();
        transaction.commit();
        if (leftOut != 0)
            HOST_LOG(runlog, vdlDebugWarning, "%s: left out %zu records: %s", database.getFilename().c_str(), leftOut,
                     why.c_str());
        return leftOut;
    }

    void add(const RunLogRecord& record) {
        insert.bind(1, record.logCode);
        insert.bind(2, record.logTime);
        insert.bind(3, record.errorCode);
        insert.bind(4, record.logKind);
        insert.bind(5, record.eventId);
        insert.bind(6, record.logText);
        insert.exec();
    }
};

RunLogStore::RunLogStore(std::string path, std::int64_t limit) : path_(std::move(path)), limit_(limit) {}

RunLogStore::~RunLogStore() = default;

std::size_t RunLogStore::write(const std::vector<RunLogRecord>& records) {
    if (records.empty()) return 0;
    const ino_t file = fileNumber(path_);
    // The file was removed, or moved aside by another process: records written to the open file would be lost.
    if (connection_ && connection_->file != file) connection_.reset();
    std::string damage;
    try {
        return writeOnce(records);
    } catch (const SQLite::Exception& error) {
        if (!isDamage(error)) throw;
        damage = error.what();
    } catch (const ForeignFile& error) {
        damage = error.what();
    }
    // Unless another process has already moved it aside and created a new one.
    if (file == fileNumber(path_)) moveAside(damage);
    return writeOnce(records);
}

std::size_t RunLogStore::writeOnce(const std::vector<RunLogRecord>& records) {
    try {
        if (!connection_) connection_ = std::make_unique<Connection>(path_);
        return connection_->write(records, limit_);
    } catch (...) {
        connection_.reset();
        throw;
    }
}

void RunLogStore::moveAside(const std::string& why) {
    const std::string aside = path_ + ".broken";
    // The main file last: as long as it exists, the next attempt finds it and repeats all of this.
    for (const char* part : {"-wal", "-shm", ""})
        if (std::rename((path_ + part).c_str(), (aside + part).c_str()) != 0 && (errno != ENOENT || !*part))
            throw std::system_error(errno, std::generic_category(),
                                    path_ + part + " (" + why + "): cannot move it aside");
    HOST_LOG(runlog, vdlDebugWarning, "%s: %s; moved to %s, beginning a new one", path_.c_str(), why.c_str(),
             aside.c_str());
}

std::vector<RunLogRecord> RunLogStore::readNewest(const std::string& path, std::size_t count, std::size_t bytes) {
    std::vector<RunLogRecord> records;
    if (count == 0 || !std::filesystem::exists(path)) return records;
    SQLite::Database database(path, SQLite::OPEN_READONLY, readersBusyTimeoutMs);
    SQLite::Statement query(database,
                            "SELECT log_code, log_time, error_code, log_kind, event_id, log_text FROM run_log "
                            "ORDER BY id DESC LIMIT ?");
    query.bind(1, static_cast<std::int64_t>(std::min<std::uint64_t>(count, std::numeric_limits<std::int64_t>::max())));
    for (std::size_t read = 0; read < bytes && query.executeStep();) {
        const RunLogRecord& record = records.emplace_back(
            RunLogRecord{query.getColumn(0).getString(), query.getColumn(1).getString(), query.getColumn(2).getString(),
                         query.getColumn(3).getInt(), query.getColumn(4).getInt(), query.getColumn(5).getString()});
        read += record.logCode.size() + record.logTime.size() + record.errorCode.size() + record.logText.size();
    }
    return records;
}

} // namespace lrt
