// A receiver whose services really play, and what is then seen and heard.
#pragma once

#include "integration/program-run.h"

#include <algorithm>
#include <media/picture.h>
#include <nlohmann/json.hpp>

namespace playing_receiver {

using namespace program_run;
using nlohmann::json;
using testing::HasSubstr;

constexpr int notShown = 7, givenUp = 8; // exit codes

// The channels dvb://one, dvb://two and dvb://news are the programs of one file. None of the others can be shown.
class PlayingReceiver : public Programs {
protected:
    PlayingReceiver() : list_((folder / "channels.toml").string()) {
        environment["TVSA_MEDIA_ENGINE"] = "gstreamer";
        environment["TVSA_MEDIA_OUTPUT"] = "none";
        environment["TVSA_LOG"] = "warning,service=info"; // for failures of the tests
        const std::string sample = std::string("file://") + MEDIA_SAMPLES + "/one.ts";
        addChannel("dvb://one", sample, 1);
        addChannel("dvb://two", sample, 2);
        addChannel("dvb://news", sample, 3);
        addChannel("dvb://no-program", sample, 9);
        addChannel("dvb://no-file", "file://none.ts", 1);
        addChannel("dvb://no-stream", "file://channels.toml", 1);
        addChannel("dvb://silent", "udp://127.0.0.1:" + std::to_string(silentPort()), 1);
        std::ofstream(list_, std::ios::app) << "[[channel]]\nuri = \"dvb://no-source\"\nname = \"none\"\n";
    }
    // Before the receiver starts.
    void addChannel(const std::string& uri, const std::string& source, int program) const {
        std::ofstream(list_, std::ios::app) << "[[channel]]\nuri = \"" << uri << "\"\nname = \"" << uri
                                            << "\"\nsource = \"" << source << "\"\nprogram = " << program << '\n';
    }
    void startTvService() { tvService_ = start({program("tvserviced"), "--channels", list_}); }
    void startAll() {
        startTvService();
        mmService_ = start({program("mmserviced")});
        host_ = start({program("frame-host"), "--application", "control"});
        waitForConnections();
    }
    void waitForConnections() const {
        EXPECT_TRUE(eventually([&] { return isConnected(); }))
            << tvctl({"doctor"}).output << tvService_->error() << mmService_->error() << host_->error();
    }
    void endAll() const {
        for (Running* const process : {host_.get(), tvService_.get(), mmService_.get()})
            EXPECT_EQ(process->terminate().exitCode, 0) << process->error();
    }

    Outcome tvctl(Words words) const {
        words.insert(words.begin(), program("tvctl"));
        return run(words);
    }
    // Whether the framework process has all its commands, of which "log" is the last, and a connection to each service.
    bool isConnected() const {
        const Outcome commands = tvctl({"help", "--json"}), counters = tvctl({"stats", "--json"});
        if (counters.exitCode != 0 || commands.output.find("\"log\"") == std::string::npos) return false;
        const auto services = json::parse(counters.output);
        return services.size() == 2 &&
               std::ranges::all_of(services, [](const auto& service) { return service.at("connected") == true; });
    }
    void play(const std::string& terminal, const std::string& uri) const {
        const Outcome outcome = tvctl({"play", terminal, uri});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.error << tvService_->error();
    }
    // The text of the QR code in a terminal's picture; empty without one.
    std::string codeOn(const std::string& terminal) const {
        const Outcome read = run({"zbarimg", "--quiet", "--raw", screenshotOf(terminal)});
        return read.output.substr(0, read.output.find('\n'));
    }
    media::Picture pictureOn(const std::string& terminal) const {
        return media::Picture(contentOf(screenshotOf(terminal)));
    }
    int pitchOn(const std::string& terminal) const {
        const Outcome heard = tvctl({"level", terminal, "--json"});
        return heard.exitCode == 0 ? json::parse(heard.output).at("pitch").get<int>() : 0;
    }
    bool sounds(const std::string& terminal, int pitch) const {
        return eventually([&] { return pitchOn(terminal) == pitch; });
    }

    std::unique_ptr<Running> tvService_, mmService_, host_;

private:
    std::string screenshotOf(const std::string& terminal) const {
        std::string picture = (folder / "picture.png").string();
        const Outcome taken = tvctl({"screenshot", terminal, picture});
        EXPECT_EQ(taken.exitCode, 0) << taken.error;
        return picture;
    }

    const std::string list_;

    // Of a socket that is not open any more: nobody sends to it.
    static int silentPort() { return 40'000 + getpid() % 20'000; }
};

} // namespace playing_receiver
