// The TV service: receives broadcasts and shows what comes in at the receiver's inputs.
#include "tvservice/channel-list.h"
#include "tvservice/channels-command.h"
#include "tvservice/emit.h"
#include "tvservice/tv-service.h"

#include <tvservice-adapter/service/program.h>

#include <media/commands.h>
#include <media/load.h>
#include <memory>
#include <string>

int main(int argc, char** argv) {
    services::Program program("tvserviced", "The TV service of a receiver, for development.");
    std::string channelFile;
    program.addOption("--channels", channelFile, "Channel list in place of the built-in one");
    return program.main(argc, argv, [&]() -> int {
        const auto engine = media::configuredEngine();
        services::ChannelList channels;
        try {
            const auto check = [&engine](const std::string& transport) { return engine->problemOf(transport); };
            channels = channelFile.empty() ? services::ChannelList::builtIn()
                                           : services::ChannelList::fromFile(channelFile, check);
            for (const std::string& warning : channels.warnings()) program.reportError("warning: " + warning);
        } catch (const services::ChannelListError& error) {
            program.reportError(error.what());
            return services::badData;
        }
        media::Commands look(*engine);
        services::TvService service(program.table(), program.faults(), channels, *engine);
        services::EmitCommand emit(service.sender());
        services::ChannelsCommand list(channels);
        program.addCommands([&](appovshell::Server& shell) {
            int result = emit.registerWith(shell);
            if (result >= 0) result = list.registerWith(shell);
            return result < 0 ? result : look.registerWith(shell);
        });
        return program.run(service);
    });
}
