// A media engine of one's own: it "shows" sources by printing their addresses, on a thread of its own as a player does.
#include <host/printable.h>
#include <tvservice/values.h>

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <media/engine.h>
#include <media/plugin.h>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace {

using media::Terminal;
namespace result = media::result;

class PrintingEngine final : public media::Engine {
public:
    ~PrintingEngine() override { shutDown(); }
    const char* name() const override { return "printing"; }

    // When this returns, no event comes any more.
    void shutDown() override {
        if (!thread_.joinable()) return;
        post([this] { isOver_ = true; });
        thread_.join();
    }
    // The service waits for none of these: the thread does the work.
    void open(const Terminal& terminal, const media::Source& source, media::Events events) override {
        post([this, terminal, source, events = std::move(events)] { show(terminal, source, events); });
    }
    void close(const Terminal& terminal) override {
        post([this, terminal] { end(terminal); });
    }
    void swap(const Terminal& a, const Terminal& b) override {
        post([this, a, b] { std::swap(shown_[a], shown_[b]); });
    }

    // No tracks, no tuners, nothing to look at.
    std::int32_t choose(const Terminal&, media::TrackKind, std::int32_t) override { return result::nothingShown; }
    media::Tracks tracks(const Terminal& terminal) const override {
        media::Tracks none;
        none.audio.terminal = none.subtitle.terminal = none.video.terminal =
            none.teletext.terminal = {terminal.type, terminal.id};
        return none;
    }
    media::StreamCounts streamCounts(const media::Source&) const override { return {}; }
    std::optional<std::int32_t> rating(const media::Source&) const override { return std::nullopt; }
    tvservice::TvServiceTunerStatusMessage_t tuning(const Terminal& terminal, const media::Source&) const override {
        tvservice::TvServiceTunerStatusMessage_t status;
        status.byteParam1 = tvservice::tunerState::tuning;
        status.terminal = {terminal.type, terminal.id};
        return status;
    }
    tvservice::TvServiceTunerResult_t signal(const Terminal& terminal) const override {
        tvservice::TvServiceTunerResult_t signal;
        signal.byteParam1 = tvservice::signalState::present;
        signal.terminal = {terminal.type, terminal.id};
        return signal;
    }
    std::vector<std::uint32_t> usedTuners() const override { return {}; }
    std::string snapshot(const Terminal&) const override { throw media::Error("the printing engine has no pictures"); }
    media::Sound sound(const Terminal&) const override { throw media::Error("the printing engine has no sound"); }

private:
    struct Shown {
        media::Events events;
        bool isOpening = false;
    };

    void post(std::function<void()> work) {
        const std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
        changed_.notify_one();
    }
    void run() {
        while (!isOver_) {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return !work_.empty(); });
            const auto work = std::move(work_.front());
            work_.pop_front();
            lock.unlock(); // events call the engine
            work();
        }
    }

    void show(const Terminal& terminal, const media::Source& source, const media::Events& events) {
        end(terminal);
        std::fprintf(stderr, "terminal %d:%d opens %s\n", terminal.type, terminal.id,
                     host::printable(source.uri).c_str());
        shown_[terminal] = {events, true};
        post([this, terminal] { opened(terminal); }); // a player: when its first picture is there
    }
    void opened(const Terminal& terminal) {
        Shown& shown = shown_[terminal];
        if (std::exchange(shown.isOpening, false)) shown.events.opened({});
    }
    // Of what was not shown yet, the service hears that something else has come.
    void end(const Terminal& terminal) {
        const Shown former = std::exchange(shown_[terminal], {});
        if (former.isOpening) former.events.opened({result::superseded});
    }

    std::map<Terminal, Shown> shown_; // the thread's
    bool isOver_ = false;             // the thread's
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> work_;
    std::thread thread_{[this] { run(); }}; // begins when all others are there
};

} // namespace

const char* tvsaMediaEngineVersion() { return media::engineVersion; }
media::Engine* tvsaMediaEngine() { return new PrintingEngine; }
