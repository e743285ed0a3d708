// Hides what people watched: texts become hashes of them. Equal texts stay equal within a recording; nobody who lacks
// the key can tell what they were.
#pragma once

#include "event.h"
#include "sip-hash.h"

#include <string>

namespace recording {

class Redaction {
public:
    // With a random key, which only this object knows. Throws RecordingError.
    Redaction();
    explicit Redaction(const HashKey& key) : key_(key) {}

    // Replaces the texts of a message's arguments and of all other events; of a message that cannot be decoded, only
    // the header remains. Names of processes, modules and services stay, as do numbers and the members of a command.
    void apply(Event& event) const;

private:
    std::string hidden(const std::string& text) const;
    void hideMessage(Event& event) const;
    std::string hideText(const host::RecordedEvent& recorded) const;

    HashKey key_{};
};

} // namespace recording
