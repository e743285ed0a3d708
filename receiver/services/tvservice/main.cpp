// The TV service: receives broadcasts and shows what comes in at the receiver's inputs.
#include "common/exit-code.h"
#include "common/program.h"
#include "tvservice/channel-list.h"
#include "tvservice/channels-command.h"
#include "tvservice/emit.h"
#include "tvservice/tv-service.h"

#include <host/receiver.h>

#include <exception>

int main(int argc, char** argv) {
    services::Program program("tvserviced", "The TV service of a receiver, for development: only simulates reception.");
    std::string channelFile;
    program.addOption("--channels", channelFile, "Channel list in place of the built-in one");
    if (const auto exitCode = program.parse(argc, argv)) return *exitCode;
    try {
        const auto channels =
            channelFile.empty() ? services::ChannelList::builtIn() : services::ChannelList::fromFile(channelFile);
        services::TvService service(program.table(), program.faults(), channels);
        services::EmitCommand emit(service.sender());
        services::ChannelsCommand list(channels);
        program.addCommands([&](appovshell::Server& shell) {
            const int result = emit.registerWith(shell);
            return result < 0 ? result : list.registerWith(shell);
        });
        program.addTables([&] { return service.tables(); });
        return program.run([&] { service.offer(host::messageQueue()); });
    } catch (const services::ChannelListError& error) {
        program.reportError(error.what());
        return services::badData;
    } catch (const std::exception& error) {
        program.reportError(error.what());
        return services::failure;
    }
}
