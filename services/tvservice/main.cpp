// The TV service: receives broadcasts and shows what comes in at the receiver's inputs.
#include "common/exit-code.h"
#include "common/program.h"
#include "common/service.h"
#include "tvservice/channel-list.h"
#include "tvservice/uri-check.h"

#include <host/receiver.h>
#include <tvservice/messages.h>

#include <exception>

using TvService = services::Service<tvservice::messages::TvServiceReq, tvservice::messages::TvServiceInfo,
                                    tvservice::TvServiceInfo_t>;

int main(int argc, char** argv) {
    services::Program program("tvserviced", "The TV service of a receiver, for development: shows nothing for real.");
    std::string channelFile;
    program.options().add_option("--channels", channelFile, "Channel list in place of the built-in one");
    if (const auto exitCode = program.parse(argc, argv)) return *exitCode;
    try {
        const auto channels =
            channelFile.empty() ? services::ChannelList::builtIn() : services::ChannelList::fromFile(channelFile);
        TvService service(program.table(), program.faults(),
                          [&](const std::string& uri) { return services::checkTvUri(channels, uri); });
        return program.run(
            [&] { service.offer(host::messageQueue(), tvservice::serviceName, tvservice::messageSet()); });
    } catch (const services::ChannelListError& error) {
        program.complain(error.what());
        return services::badData;
    } catch (const std::exception& error) {
        program.complain(error.what());
        return services::failure;
    }
}
