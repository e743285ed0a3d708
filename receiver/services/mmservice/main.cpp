// The MM service: plays files, network streams and what other devices cast.
#include "mmservice/mm-service.h"

#include <tvservice-adapter/service/program.h>

#include <media/commands.h>
#include <media/load.h>

int main(int argc, char** argv) {
    services::Program program("mmserviced", "The MM service of a receiver, for development.");
    return program.main(argc, argv, [&] {
        const auto engine = media::configuredEngine();
        media::Commands look(*engine);
        services::MmService service(program.table(), program.faults(), *engine);
        program.addCommands([&](appovshell::Server& shell) { return look.registerWith(shell); });
        return program.run(service);
    });
}
