// Makes schedules: each event with an eye on where the reference stands, so that rare situations are not rare.
#pragma once

#include "events.h"
#include "model.h"

#include <cstdint>
#include <deque>
#include <string>
#include <utility>

namespace simulation {

// Few, so that they meet. The main one comes twice.
inline constexpr std::pair<int, int> terminals[] = {{0, 0}, {0, 0}, {0, 1}, {1, 0}, {5, 0}, {2, 7}};

// The same numbers on every machine and with every library.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next();
    std::size_t below(std::size_t bound) { return static_cast<std::size_t>(next() % bound); }
    bool percent(unsigned share) { return next() % 100 < share; }
    template <typename List> const auto& of(const List& list) { return list[below(std::size(list))]; }

private:
    std::uint64_t state_;
};

class Generator {
public:
    explicit Generator(std::uint64_t seed) : random_(seed) {}

    Schedule begin(std::uint64_t seed); // without events
    std::size_t length() { return 8 + random_.below(18); }
    Event next(const Model& model);

private:
    Event choose(const Model& model);
    Event request(const Model& model);
    Requests requests(const Model& model);
    Event pass(Nanoseconds time);
    Event answer(std::uint32_t from, Infos infos);
    // An answer of an awaited service, and one that may be of another.
    Event rightAnswer(const Model::Bundle& bundle);
    Event anyAnswer(const Model::Bundle& bundle);
    Event answerOf(std::uint32_t from, const Model::Bundle& bundle, bool starts);
    Event unmatched(const Model& model);
    Event work(const Model& model);
    void addSending(Event& work, const Model::Bundle& bundle, bool starts, const Model& model);
    void addWaking(Event& work, const Model& model);
    void planLimit(const Model::Bundle& bundle, const Model& model);

    enum class Planned { Work, Answer, WorkWithAnswer };
    struct Step {
        Planned kind;
        Nanoseconds before;
    };
    Random random_;
    std::deque<Step> plan_;
    unsigned serial_ = 0;
};

} // namespace simulation
