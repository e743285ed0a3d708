// Reads a recording. Whatever is in the file, memory is bounded by its largest block and its number of processes.
#pragma once

#include "block-reader.h"
#include "event.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace recording {

class RecordingReader final : public EventSource {
public:
    // Throws RecordingError when the file is no recording, with what it is instead.
    explicit RecordingReader(const std::string& file);

    bool next(Event& event) override;
    bool isOver() const override { return true; }

    // Whether the file ended inside a block; known once next has returned false.
    bool isTruncated() const { return blocks_.isTruncated(); }
    // What wrote the section that the last event belongs to, and its schema; null before the first schema.
    const std::string& program() const { return program_; }
    std::shared_ptr<const MessageDecoder> decoder() const { return decoder_; }

private:
    struct Interface {
        bool isOwn = false; // of recordings' link type
        int resolution = 6; // of its times: 10 to the minus resolution seconds
        Origin description;
        std::shared_ptr<const Origin> origin; // once it has an event
    };

    bool nextPacket(Event& event);
    void readSection(const Block& block);
    void readInterface(const Block& block);
    bool readPacket(const Block& block, Event& event);
    void readSchema(const Block& block, std::string json);

    BlockReader blocks_;
    std::string program_;
    std::vector<Interface> interfaces_;
    std::shared_ptr<const MessageDecoder> decoder_; // of the section
    std::optional<Event> first_;                    // read in the constructor
};

} // namespace recording
