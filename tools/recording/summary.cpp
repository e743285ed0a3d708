#include "summary.h"

#include "message-decoder.h"

#include <algorithm>
#include <utility>

namespace recording {
namespace {

constexpr std::size_t mostMessages = 1000; // different ones; a schema has fewer

std::string messageOf(const Event& event) {
    const auto decoded = decode(event, Numbers::plain);
    if (!decoded.layout) return "unknown";
    return decoded.layout->service + '.' + decoded.layout->name + (decoded.problem.empty() ? "" : " (undecodable)");
}

ProcessSummary& processOf(std::vector<ProcessSummary>& all, const Event& event) {
    const auto found = std::find_if(all.rbegin(), all.rend(),
                                    [&](const ProcessSummary& known) { return known.origin == event.origin; });
    if (found != all.rend()) return *found;
    return all.emplace_back(ProcessSummary{.origin = event.origin, .first = event.recorded.date});
}

void addSchema(Summary& summary, const RecordingReader& reader) {
    if (const auto decoder = reader.decoder()) summary.schemas.try_emplace(decoder->fingerprint(), reader.program());
}

} // namespace

void Summary::add(const Event& event) {
    ++events;
    lost += event.lost;
    ++kinds[nameOf(event.recorded.kind)];
    if (event.recorded.kind == host::EventKind::message)
        if (const auto name = messageOf(event); messages.size() < mostMessages || messages.count(name) > 0)
            ++messages[name];
    ProcessSummary& process = processOf(processes, event);
    ++process.events;
    process.lost += event.lost;
    process.last = std::max(process.last, event.recorded.date);
    first = events == 1 ? event.recorded.date : std::min(first, event.recorded.date);
    last = std::max(last, event.recorded.date);
}

Summary summaryOf(RecordingReader& reader) {
    Summary summary;
    addSchema(summary, reader);
    try {
        const Origin* previous = nullptr; // a further section has processes of its own
        for (Event event; reader.next(event); summary.add(event))
            if (std::exchange(previous, event.origin.get()) != event.origin.get()) addSchema(summary, reader);
    } catch (const RecordingError& error) {
        summary.problem = error.what();
    }
    summary.isTruncated = reader.isTruncated();
    return summary;
}

std::string nameOf(host::EventKind kind) {
    switch (kind) {
        case host::EventKind::process:
            return "process";
        case host::EventKind::message:
            return "message";
        case host::EventKind::connection:
            return "connection";
        case host::EventKind::line:
            return "line";
        case host::EventKind::command:
            return "command";
        case host::EventKind::result:
            return "result";
        case host::EventKind::runLog:
            return "runLog";
    }
    return "kind " + std::to_string(static_cast<int>(kind));
}

} // namespace recording
