// The MM service: plays files, network streams and what other devices cast.
#include "common/exit-code.h"
#include "common/program.h"
#include "common/service.h"
#include "mmservice/uri-check.h"

#include <host/receiver.h>
#include <mmservice/messages.h>

#include <exception>

using MmService = services::Service<mmservice::messages::MmServiceReq, mmservice::messages::MmServiceInfo,
                                    mmservice::MMServiceInfo_t>;

int main(int argc, char** argv) {
    services::Program program("mmserviced", "The MM service of a receiver, for development: shows nothing for real.");
    if (const auto exitCode = program.parse(argc, argv)) return *exitCode;
    try {
        MmService service(program.table(), program.faults(), services::checkMmUri);
        return program.run(
            [&] { service.offer(host::messageQueue(), mmservice::serviceName, mmservice::messageSet()); });
    } catch (const std::exception& error) {
        program.complain(error.what());
        return services::failure;
    }
}
