// Writes records to a run log forever, and prints which ones are stored.
#include "runlog/run-log-store.h"

#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::string file = argv[1];
    const auto newest = lrt::RunLogStore::readNewest(file, 1);
    std::int32_t number = newest.empty() ? 0 : newest.front().eventId;
    // A limit so low that old records are removed all the time.
    lrt::RunLogStore store(file, 200);
    for (;;) {
        std::vector<lrt::RunLogRecord> records(1 + static_cast<std::size_t>(number) % 7);
        for (lrt::RunLogRecord& record : records)
            record = {"code", "time", "error", 1, ++number, std::string(static_cast<std::size_t>(number) % 2000, 'x')};
        store.write(records);
        std::cout << number << std::endl;
    }
}
