#include "redaction.h"

#include "body-writer.h"
#include "message-decoder.h"
#include "words.h"

#include <cerrno>
#include <cstring>
#include <sys/random.h>

namespace recording {
namespace {

template <class Hide> void hideStrings(Json& json, const Hide& hide) {
    if (json.is_string()) json = hide(json.get<std::string>());
    if (json.is_structured())
        for (Json& inner : json) hideStrings(inner, hide);
}

// Null unless the text is an object that is not nested deeply.
Json objectIn(const std::string& text) {
    constexpr int deepest = 16;
    bool isDeep = false;
    const auto json = Json::parse(
        text,
        [&](int depth, Json::parse_event_t, Json&) {
            isDeep = isDeep || depth > deepest;
            return !isDeep;
        },
        false);
    return json.is_object() && !isDeep ? json : Json();
}

} // namespace

Redaction::Redaction() {
    if (getrandom(key_.data(), sizeof key_, 0) != static_cast<ssize_t>(sizeof key_))
        throw RecordingError(std::string("no random key: ") + std::strerror(errno));
}

void Redaction::apply(Event& event) const {
    auto& recorded = event.recorded;
    if (recorded.kind == host::EventKind::process) return; // its name and version
    if (recorded.kind == host::EventKind::message) return hideMessage(event);
    recorded.data = hideText(recorded);
    recorded.size = static_cast<std::uint32_t>(recorded.data.size());
}

std::string Redaction::hidden(const std::string& text) const {
    return text.empty() ? text : '#' + hexOf(sipHash(key_, text));
}

void Redaction::hideMessage(Event& event) const {
    auto& recorded = event.recorded;
    auto decoded = decode(event, Numbers::plain);
    recorded.data.resize(std::min(recorded.data.size(), frameHeaderBytes));
    if (!decoded.problem.empty()) return;
    hideStrings(decoded.arguments, [this](const std::string& text) { return hidden(text); });
    const std::endian order = orderOf(recorded);
    const std::string body = writeBody(decoded.layout->arguments, decoded.arguments, order);
    store(recorded.data, 0, static_cast<std::uint32_t>(body.size()), order);
    recorded.data += body;
    recorded.size = static_cast<std::uint32_t>(recorded.data.size());
}

std::string Redaction::hideText(const host::RecordedEvent& recorded) const {
    if (recorded.kind != host::EventKind::command && recorded.kind != host::EventKind::result)
        return hidden(recorded.data);
    Json object = objectIn(recorded.data);
    if (object.is_null()) return hidden(recorded.data);
    hideStrings(object, [this](const std::string& text) { return hidden(text); });
    return object.dump();
}

} // namespace recording
