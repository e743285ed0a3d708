// A receiver that really plays: what the benchmarks ask of it.
#pragma once

#include <kit/receiver-kit.h>
#include <string>
#include <sys/types.h>
#include <vector>

namespace bench {

class PlayingReceiver {
public:
    struct Channel {
        std::string uri, source;
        int program;
    };

    explicit PlayingReceiver(const std::vector<Channel>& channels);

    // Each waits for the answer, and returns the milliseconds that the adapter measured from the request to it. Throws
    // std::runtime_error when the answer is not that it is done.
    double play(const std::string& uri);
    double stop();

    // Requests channels with a pause after each, through a Zapper or directly, and waits until the last one is shown.
    // Returns the milliseconds from the last request until then.
    double zapThrough(const std::vector<std::string>& uris, bool withZapper);

    std::string picture(); // PNG, of what the TV service shows
    pid_t tvService() { return kit_.processId(receiver::Part::tvService); }

private:
    double answered(const std::string& request);

    receiver::ReceiverKit kit_;
};

} // namespace bench
