// The MM service: plays files, network streams and what other devices cast.
#include "common/exit-code.h"
#include "common/program.h"
#include "mmservice/mm-service.h"

#include <host/receiver.h>

#include <exception>

int main(int argc, char** argv) {
    services::Program program("mmserviced", "The MM service of a receiver, for development: only simulates playback.");
    if (const auto exitCode = program.parse(argc, argv)) return *exitCode;
    try {
        services::MmService service(program.table(), program.faults());
        program.addTables([&] { return service.tables(); });
        return program.run([&] { service.offer(host::messageQueue()); });
    } catch (const std::exception& error) {
        program.reportError(error.what());
        return services::failure;
    }
}
