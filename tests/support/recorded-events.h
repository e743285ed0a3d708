// Events for tests of recordings.
#pragma once

#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <recording/event.h>
#include <recording/message-decoder.h>
#include <recording/words.h>
#include <schema/schema.h>
#include <stdexcept>
#include <string>
#include <utility>

namespace support {

inline std::shared_ptr<const recording::Origin> processNamed(const std::string& name, std::uint32_t pid = 7,
                                                             const std::string& boot = "this boot") {
    return std::make_shared<const recording::Origin>(
        recording::Origin{name, "1.2", pid, 1'000, boot, recording::ownDecoder()});
}

// Dates are times after a fixed moment.
inline constexpr std::int64_t firstDate = 1'800'000'000'000'000'000;

inline recording::Event eventOf(std::shared_ptr<const recording::Origin> origin, host::EventKind kind,
                                std::int64_t time, const std::string& name, const std::string& data) {
    recording::Event event;
    event.origin = std::move(origin);
    event.recorded.kind = kind;
    event.recorded.thread = 70;
    event.recorded.time = time;
    event.recorded.date = firstDate + time;
    event.recorded.name = name;
    event.recorded.data = data;
    event.recorded.size = static_cast<std::uint32_t>(data.size());
    return event;
}

inline recording::Event lineOf(std::shared_ptr<const recording::Origin> origin, std::int64_t time,
                               const std::string& text) {
    return eventOf(std::move(origin), host::EventKind::line, time, "service", text);
}

inline const schema::Message& messageNamed(const std::string& service, const std::string& name) {
    for (const auto& known : schema::services())
        if (known.name == service)
            for (const auto& message : known.messages)
                if (message.name == name) return message;
    throw std::out_of_range("no message " + name);
}

inline std::string frameOf(const frame::MsgMeta& meta, const std::string& body,
                           std::endian order = std::endian::native) {
    std::string bytes;
    for (const auto word : {static_cast<std::uint32_t>(body.size()), meta.instance, meta.interfaceCode, meta.messageId})
        recording::append(bytes, word, order);
    recording::append(bytes, meta.flag, order);
    bytes.append(3, '\0');
    for (const std::uint32_t word : {41U, 42U, 0U}) recording::append(bytes, word, order);
    return bytes + body;
}

// A folder of its own for each test.
class RecordingFolder {
public:
    RecordingFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "recordings-XXXXXX").string();
        if (!mkdtemp(name.data())) throw std::runtime_error("no folder " + name);
        path_ = name;
    }
    ~RecordingFolder() { std::filesystem::remove_all(path_); }

    std::string operator/(const std::string& name) const { return (path_ / name).string(); }
    void write(const std::string& name, const std::string& bytes) const {
        std::filesystem::remove(path_ / name); // some file systems write what replaces a file to the disk at once
        std::ofstream(path_ / name, std::ios::binary) << bytes;
    }
    std::string read(const std::string& name) const {
        std::ifstream file(path_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    bool has(const std::string& name) const { return std::filesystem::exists(path_ / name); }

private:
    std::filesystem::path path_;
};

// Events that a test hands out.
class GivenEvents final : public recording::EventSource {
public:
    explicit GivenEvents(std::shared_ptr<std::deque<recording::Event>> events) : events_(std::move(events)) {}
    bool next(recording::Event& event) override {
        if (events_->empty()) return false;
        event = std::move(events_->front());
        events_->pop_front();
        return true;
    }
    bool isOver() const override { return false; }

private:
    std::shared_ptr<std::deque<recording::Event>> events_;
};

} // namespace support
