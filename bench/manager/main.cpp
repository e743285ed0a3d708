// The work inside a framework process: bursts of play requests, notifications to many clients, long queues, log lines.
#include "cases.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    try {
        const auto options = bench::Options::of(argc, argv);
        for (const auto run : {bench::bursts, bench::fanOut, bench::intake, bench::growth, bench::suppressedLines})
            run(options);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "manager_bench: %s\n", error.what());
        return 1;
    }
}
