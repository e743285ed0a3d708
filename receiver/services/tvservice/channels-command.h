// The shell command that lists the channels.
#pragma once

#include "tvservice/channel-list.h"

#include <appovshell/server.h>

namespace services {

// It and the list must live as long as the shell serves.
class ChannelsCommand {
public:
    explicit ChannelsCommand(const ChannelList& channels) : channels_(channels) {}
    // Registers "channels" with a shell. Returns 0, or the negative result of the registration.
    int registerWith(appovshell::Server& shell);

private:
    int print();

    const ChannelList& channels_;
    appovshell::Server* shell_ = nullptr;
};

} // namespace services
