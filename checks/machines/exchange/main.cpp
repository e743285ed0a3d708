// Two TV services, of this machine and of another one, are asked the same; each has to answer what the other answers.
#include "kinds.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace exchange {
namespace {

constexpr int firstLast = 1'000'000'000; // above it, numbers of no channel
constexpr int mostShown = 10;

// Plays one kind; returns what is different, or an empty text.
std::string play(const Kind& kind, Random& random, const Sides& sides, int number) {
    std::string wanted = kind.play(random, sides);
    std::array<Heard, 2> heard;
    // A download goes on by itself.
    for (std::size_t i = 0; i < sides.size() && kind.isDownload; ++i) heard[i] = sides[i]->hearUntil(endsDownload);
    const std::string last = askLast(sides, firstLast + number);
    for (std::size_t i = 0; i < sides.size(); ++i)
        for (std::string& text : sides[i]->hearUntil([&](const std::string& text) { return text == last; }))
            heard[i].push_back(std::move(text));
    if (!wanted.empty() && heard[0] != Heard{wanted, last}) return "sent: " + wanted + "\nheard: " + heard[0].front();
    if (heard[0] == heard[1]) return {};
    const auto [one, other] = std::mismatch(heard[0].begin(), heard[0].end(), heard[1].begin(), heard[1].end());
    const auto shown = [](const Heard& all, auto place) { return place == all.end() ? "nothing" : *place; };
    return "one: " + shown(heard[0], one) + "\nother: " + shown(heard[1], other);
}

int run(const std::vector<std::string>& foreign, const std::string& own, int roundTrips, std::uint64_t seed) {
    Side one({own}), other(foreign);
    const Sides sides{&one, &other};
    Random random(seed);
    int differences = 0;
    for (int i = 0; i < roundTrips; ++i) {
        const Kind* kind = nullptr;
        // A download takes half a second.
        do kind = &kinds()[random.below(static_cast<std::uint32_t>(kinds().size()))];
        while (kind->isDownload && !random.once(20));
        const std::string difference = play(*kind, random, sides, i);
        if (difference.empty()) continue;
        if (++differences <= mostShown) std::printf("%d, %s\n%s\n", i, kind->name, difference.c_str());
    }
    for (Side* const side : sides) {
        const std::string problem = side->end();
        if (problem.empty()) continue;
        ++differences;
        std::printf("the %s service: %s\n", side == &one ? "own" : "foreign", problem.c_str());
    }
    std::printf("%d round trips, %d differences\n", roundTrips, differences);
    return differences == 0 ? 0 : 1;
}

} // namespace
} // namespace exchange

int main(int argc, char** argv) {
    CLI::App options("Asks two TV services, of which one is another machine's, the same, and compares the answers.");
    std::vector<std::string> foreign;
    std::string own;
    int roundTrips = 20'000;
    std::uint64_t seed = 1;
    options.add_option("--own", own, "This machine's tvserviced")->required();
    options.add_option("--round-trips", roundTrips, "How often they are asked")->check(CLI::PositiveNumber);
    options.add_option("--seed", seed, "Of the choices");
    options.add_option("foreign", foreign, "The command that runs the other machine's tvserviced")->required();
    CLI11_PARSE(options, argc, argv);
    try {
        return exchange::run(foreign, own, roundTrips, seed);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "check-exchange: %s\n", error.what());
        return 1;
    }
}
