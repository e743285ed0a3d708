// Runs one codec's case a number of times inside one function, so that callgrind can count its instructions:
// --toggle-collect=countedRuns. Arguments: CODEC CASE RUNS, as in `own request/100 50`.
#include "codec/cases.h"

#include <charconv>
#include <cstring>
#include <exception>
#include <iostream>
#include <thread>
#include <unistd.h>

extern "C" [[gnu::noinline]] void countedRuns(const bench::RoundTrip& roundTrip, unsigned runs) {
    for (unsigned i = 0; i < runs; ++i) roundTrip();
}

int main(int argc, char** argv) {
    try {
        const bool own = argc == 4 && std::strcmp(argv[1], "own") == 0;
        unsigned runs = 0;
        if ((!own && (argc != 4 || std::strcmp(argv[1], "limit") != 0)) ||
            std::from_chars(argv[3], argv[3] + std::strlen(argv[3]), runs).ec != std::errc{})
            throw std::invalid_argument("usage: codec_count own|limit CASE RUNS");
        std::thread([] { pause(); }).detach(); // as in a receiver: in a process with one thread, locks cost nothing
        const bench::RoundTrip roundTrip = caseOf(own ? bench::ownCodec() : bench::limitCodec(), argv[2]);
        for (int i = 0; i < 4; ++i) roundTrip(); // until buffers have their final sizes
        countedRuns(roundTrip, runs);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "codec_count: " << error.what() << '\n';
        return 1;
    }
}
