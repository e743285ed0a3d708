#include "runlog/run-log-store.h"
#include "scenarios.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <chrono>
#include <csignal>
#include <fstream>
#include <kit/child-process.h>
#include <kit/log-file.h>
#include <kit/wait.h>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

namespace surroundings {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// The last number that the writer reported as stored; 0 before the first one.
long lastReported(const fs::path& file) {
    std::ifstream input(file);
    long number = 0, read = 0;
    while (input >> read && input.peek() == '\n') number = read;
    return number;
}

void examine(const std::string& file, long stored) {
    const SQLite::Database database(file, SQLite::OPEN_READONLY);
    SQLite::Statement check(const_cast<SQLite::Database&>(database), "PRAGMA integrity_check");
    check.executeStep();
    if (const std::string verdict = check.getColumn(0).getString(); verdict != "ok")
        throw std::runtime_error("the run log is corrupt: " + verdict);
    const auto newest = lrt::RunLogStore::readNewest(file, 1000);
    if (newest.empty() || newest.front().eventId < stored)
        throw std::runtime_error("record " + std::to_string(stored) + " was stored, and is missing");
    for (std::size_t i = 1; i < newest.size(); ++i)
        if (newest[i].eventId + 1 != newest[i - 1].eventId)
            throw std::runtime_error("records are missing between " + std::to_string(newest[i].eventId) + " and " +
                                     std::to_string(newest[i - 1].eventId));
}

} // namespace

void killWriters(unsigned times, const fs::path& program, Figures& figures) {
    std::string name = (fs::temp_directory_path() / "writers-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no private folder");
    const fs::path folder = name, log = folder / "runlog.sqlite";
    std::mt19937 random(1);
    for (; figures.killedWriters < times; ++figures.killedWriters) {
        const fs::path output = folder / ("output-" + std::to_string(figures.killedWriters));
        {
            receiver::ChildProcess writer({program, {log.string()}, {}, output});
            if (!receiver::waitUntil([&] { return lastReported(output) > 0 || !writer.running(); }, 10s) ||
                !writer.running())
                throw std::runtime_error("the writer writes nothing: " + receiver::tailOf(output, 3));
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
        } // the destructor kills it
        examine(log.string(), lastReported(output));
        fs::remove(output);
    }
    fs::remove_all(folder);
}

} // namespace surroundings
