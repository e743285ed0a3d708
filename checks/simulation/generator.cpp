#include "generator.h"

#include "uris.h"

#include <iterator>
#include <tuple>
#include <utility>

namespace simulation {
namespace {

using namespace std::chrono_literals;

constexpr std::int32_t results[] = {0, 0, 0, 1, -5, 7};

Infos infosFor(const Requests& requests, const std::string& id, Random& random, unsigned& serial) {
    Infos infos;
    for (const auto& request : requests) {
        auto& info = infos.emplace_back();
        info.terminal = request.terminal;
        info.result = random.of(results);
        info.uri = request.uri;
        info.uuid = request.uuid;
        info.uuidAncestor = "a" + std::to_string(++serial);
        info.reqId = id;
    }
    return infos;
}

} // namespace

std::uint64_t Random::next() {
    state_ += 0x9E3779B97F4A7C15U;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
    return mixed ^ (mixed >> 31U);
}

Schedule Generator::begin(std::uint64_t seed) {
    static constexpr std::uint16_t quieter[] = {4000, 3000, 1000, 0};
    Schedule schedule;
    schedule.seed = seed;
    schedule.level = random_.percent(85) ? std::uint16_t{5000} : random_.of(quieter);
    schedule.firstId = random_.percent(3) ? UINT32_MAX - static_cast<std::uint32_t>(random_.below(2)) : 1;
    return schedule;
}

Event Generator::next(const Model& model) {
    Event event = choose(model);
    if (event.kind == Event::Kind::Answer && random_.percent(15))
        event.inside.push_back({Place::Reporting, {random_.percent(60) ? request(model) : unmatched(model)}});
    return event;
}

Event Generator::choose(const Model& model) {
    const auto& queue = model.queue();
    if (!plan_.empty()) {
        const Step step = plan_.front();
        plan_.pop_front();
        if (step.before > 0ns) {
            plan_.push_front({step.kind, 0ns});
            return pass(step.before);
        }
        if (queue.empty() || step.kind == Planned::Work) return Event{};
        if (step.kind == Planned::Answer) return rightAnswer(*queue.front());
        Event cycle;
        cycle.inside.push_back({Place::Expiring, {rightAnswer(*queue.front())}});
        return cycle;
    }
    const std::size_t roll = random_.below(100);
    if (queue.empty()) {
        if (roll < 70) return request(model);
        if (roll < 85) return unmatched(model);
        if (roll < 95) return work(model);
        return pass(random_.below(7) * 1s);
    }
    const auto& front = *queue.front();
    if (!front.sent()) {
        if (roll < 62) return work(model);
        if (roll < 78) return request(model);
        if (roll < 86) return anyAnswer(front);
        if (roll < 94) return unmatched(model);
        return pass(random_.below(7) * 1s + 1ns);
    }
    if (roll < 40) return rightAnswer(front);
    if (roll < 48) return anyAnswer(front);
    if (roll < 57) return unmatched(model);
    if (roll < 70) return work(model);
    if (roll < 84) return request(model);
    if (roll < 87) return pass(random_.below(7) * 1s + 1ns);
    planLimit(front, model);
    return choose(model);
}

// The bundle's last instants: the check and the answer in either order, at the limit or beside it.
void Generator::planLimit(const Model::Bundle& bundle, const Model& model) {
    const Nanoseconds beside(static_cast<int>(random_.below(3)) - 1);
    const Nanoseconds left = bundle.sentAt + Model::limit + beside - 1s - model.now;
    switch (random_.below(4)) {
        case 0:
            plan_ = {{Planned::Work, left}, {Planned::Answer, 0ns}};
            break;
        case 1:
            plan_ = {{Planned::WorkWithAnswer, left}};
            break;
        case 2:
            plan_ = {{Planned::Answer, left + 1s}};
            break;
        default:
            plan_ = {{Planned::Work, left}};
            break;
    }
}

// ---- clients ----

Event Generator::request(const Model& model) {
    Event event;
    event.kind = Event::Kind::Request;
    event.requests = requests(model);
    return event;
}

Requests Generator::requests(const Model& model) {
    Requests made;
    const std::size_t roll = random_.below(100);
    const std::size_t count = roll < 2 ? 0 : roll < 62 ? 1 : roll < 84 ? 2 : roll < 97 ? 3 : 5;
    for (std::size_t i = 0; i < count; ++i) {
        auto& request = made.emplace_back();
        std::tie(request.terminal.type, request.terminal.id) = random_.of(terminals);
        // Stops and recordings are few among the URIs and many among what is asked.
        const std::size_t kind = random_.below(10);
        request.uri = kind == 0 ? uris[0].text : uris[random_.below(kind < 3 ? 7 : uriCount)].text;
        request.intParam1 = static_cast<std::int32_t>(++serial_);
        request.intParam4 = -1;
        request.uuid = "u" + std::to_string(serial_);
        request.strParam1 = "1";
        request.strParam4 = "4";
        if (random_.percent(20)) request.strParamList = {"main", ""};
    }
    if (random_.percent(80)) return made;
    static const std::string own[] = {"abc", "abcd", "ab", std::string("ab\0c", 4), "01", "-1", " 1", "4294967295"};
    std::string id = random_.of(own);
    const auto& queue = model.queue();
    if (random_.percent(30))
        id = std::to_string(1 + random_.below(4));
    else if (!queue.empty() && random_.percent(30))
        id = queue[random_.below(queue.size())]->id;
    for (auto& request : made) request.reqId = id;
    return made;
}

Event Generator::pass(Nanoseconds time) {
    Event event;
    event.kind = Event::Kind::Pass;
    event.time = time;
    return event;
}

// ---- services ----

Event Generator::answer(std::uint32_t from, Infos infos) {
    Event event;
    event.kind = Event::Kind::Answer;
    event.from = from;
    event.infos = std::move(infos);
    event.ids = {static_cast<std::uint32_t>(random_.below(3)), ++serial_};
    event.transport.connection = random_.below(2);
    return event;
}

Event Generator::rightAnswer(const Model::Bundle& bundle) {
    const auto wanted = static_cast<unsigned>(bundle.awaited);
    const bool both = bundle.awaited == 3 || bundle.awaited <= 0;
    return answerOf(both ? 1 + static_cast<std::uint32_t>(random_.below(2)) : wanted, bundle,
                    bundle.phase >= Model::StartsUnsent);
}

Event Generator::anyAnswer(const Model::Bundle& bundle) {
    const std::size_t roll = random_.below(10);
    const std::uint32_t from = roll < 4 ? 1 : roll < 8 ? 2 : 3;
    return answerOf(from, bundle, bundle.phase >= Model::StartsUnsent);
}

Event Generator::answerOf(std::uint32_t from, const Model::Bundle& bundle, bool starts) {
    const Requests& mm = starts ? bundle.mmStarts : bundle.mmStops;
    const Requests& tv = starts ? bundle.tvStarts : bundle.tvStops;
    Infos infos = infosFor(from == 1 ? mm : tv, bundle.id, random_, serial_);
    if (infos.empty()) infos = infosFor(from == 1 ? tv : mm, bundle.id, random_, serial_);
    if (infos.empty()) infos.emplace_back().reqId = bundle.id;
    if (random_.percent(10)) { // as a service may: with other terminals, and ids that nobody looks at
        auto& more = infos.emplace_back();
        std::tie(more.terminal.type, more.terminal.id) = random_.of(terminals);
        more.result = random_.of(results);
        more.reqId = random_.percent(50) ? "other" : "";
    }
    return answer(from, std::move(infos));
}

// An answer that belongs to no bundle under way, mostly.
Event Generator::unmatched(const Model& model) {
    const auto& queue = model.queue();
    const auto from = 1 + static_cast<std::uint32_t>(random_.below(2));
    Infos infos(1 + random_.below(2));
    for (auto& info : infos) {
        std::tie(info.terminal.type, info.terminal.id) = random_.of(terminals);
        info.result = random_.of(results);
        info.reqId = "nobody's";
    }
    const auto pick = [&](const std::set<std::string>& ids) {
        if (!ids.empty())
            infos.front().reqId = *std::next(ids.begin(), static_cast<std::ptrdiff_t>(random_.below(ids.size())));
    };
    switch (random_.below(9)) {
        case 0:
            return answer(from, {});
        case 1:
            infos.front().reqId.clear();
            break;
        case 2: {
            static constexpr std::uint32_t nobody[] = {0, 4, 5, 0x80000000, UINT32_MAX};
            if (!queue.empty()) infos.front().reqId = queue.front()->id;
            return answer(random_.of(nobody), std::move(infos));
        }
        case 3:
        case 4:
            pick(model.ended());
            break;
        case 5:
            pick(model.dropped());
            break;
        case 6:
            if (queue.size() > 1) infos.front().reqId = queue[1 + random_.below(queue.size() - 1)]->id;
            break;
        case 7:
            if (!queue.empty()) {
                const std::string& id = queue.front()->id;
                infos.front().reqId = random_.percent(50) ? id + std::string(1, '\0') : id.substr(0, id.size() - 1);
            }
            break;
        default:
            break;
    }
    return answer(from, std::move(infos));
}

// ---- the worker ----

Event Generator::work(const Model& model) {
    Event event;
    if (model.queue().empty()) {
        addWaking(event, model);
        return event;
    }
    const auto& front = *model.queue().front();
    if (front.sent()) addWaking(event, model);
    const bool starts = front.phase >= Model::StopsSent;
    if (random_.percent(40)) addSending(event, front, starts, model);
    return event;
}

void Generator::addSending(Event& work, const Model::Bundle& bundle, bool starts, const Model& model) {
    for (const Place place : {Place::MmSending, Place::TvSending}) {
        Event::Inside inside{place, {}};
        for (std::size_t count = random_.below(4); count > 0; --count) {
            const std::size_t roll = random_.below(10);
            if (roll < 5)
                inside.events.push_back(answerOf(place == Place::MmSending ? 1 : 2, bundle, starts));
            else if (roll < 7)
                inside.events.push_back(answerOf(place == Place::MmSending ? 2 : 1, bundle, starts));
            else if (roll < 9)
                inside.events.push_back(request(model));
            else
                inside.events.push_back(pass(random_.below(3) * 3s + 1ns));
        }
        if (!inside.events.empty()) work.inside.push_back(std::move(inside));
    }
}

void Generator::addWaking(Event& work, const Model& model) {
    const auto happening = [&]() -> std::vector<Event> {
        const std::size_t roll = random_.below(10);
        if (roll < 3) return {};
        if (roll < 5) return {request(model)};
        if (roll < 6 || model.queue().empty()) return {pass(random_.below(7) * 1s)};
        return {rightAnswer(*model.queue().front())};
    };
    for (std::size_t count = random_.below(4); count > 1; --count) work.inside.push_back({Place::Waiting, happening()});
    if (random_.percent(25)) work.inside.push_back({Place::Expiring, happening()});
}

} // namespace simulation
