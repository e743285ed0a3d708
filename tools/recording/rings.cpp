#include "rings.h"

#include "message-decoder.h"

#include <host/ring-reader.h>

#include <set>
#include <sys/stat.h>

namespace recording {
namespace {

class Ring final : public EventSource {
public:
    Ring(const std::string& file, bool fromNewest, std::shared_ptr<const bool> isListed)
        : reader_(file), isListed_(std::move(isListed)) {
        const auto info = reader_.info();
        origin_ = std::make_shared<const Origin>(
            Origin{info.process, info.version, info.pid, info.begin, info.boot, ownDecoder()});
        if (fromNewest) reader_.skipAll();
    }

    bool next(Event& event) override {
        try {
            host::RecordedEvent recorded;
            if (!reader_.next(recorded)) return false;
            const std::uint64_t lost = reader_.lostBytes();
            event = {origin_, std::move(recorded), lost - std::exchange(lost_, lost)};
            return true;
        } catch (const host::RingError& error) {
            throw RecordingError(error.what());
        }
    }

    // A process may be continued for as long as its ring is there.
    bool isOver() const override { return !*isListed_; }

private:
    host::RingReader reader_;
    std::shared_ptr<const bool> isListed_;
    std::shared_ptr<const Origin> origin_;
    std::uint64_t lost_ = 0;
};

} // namespace

std::vector<std::unique_ptr<EventSource>> Rings::appeared() {
    std::vector<std::unique_ptr<EventSource>> added;
    std::set<File> listed;
    for (const std::string& path : host::ringsIn(folder_)) {
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0) continue; // it was just removed or renamed
        const File file{status.st_dev, status.st_ino};
        listed.insert(file);
        if (Known& ring = known_[file]; !ring.isDone)
            if (auto source = open(path, ring)) added.push_back(std::move(source));
    }
    std::erase_if(known_, [&](auto& known) {
        *known.second.isListed = listed.count(known.first) > 0;
        return !*known.second.isListed;
    });
    begin_ = Begin::oldest;
    return added;
}

std::unique_ptr<EventSource> Rings::open(const std::string& path, Known& ring) {
    try {
        auto source = std::make_unique<Ring>(path, begin_ == Begin::newest, ring.isListed);
        ring.isDone = true;
        return source;
    } catch (const host::RingError& error) {
        ring.isDone = ++ring.attempts >= attempts_;
        if (ring.isDone) problems_.emplace_back(error.what());
        return nullptr;
    }
}

} // namespace recording
