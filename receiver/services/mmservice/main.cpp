// The MM service: plays files, network streams and what other devices cast.
#include <tvservice-adapter/service/mm-uris.h>
#include <tvservice-adapter/service/play-service.h>
#include <tvservice-adapter/service/program.h>

#include <cstdint>
#include <string>

int main(int argc, char** argv) {
    services::Program program("mmserviced", "The MM service of a receiver, for development: only simulates playback.");
    return program.main(argc, argv, [&] {
        const auto play = [](const services::Terminal&, const std::string& uri) { return services::checkMmUri(uri); };
        services::MmPlayService service(program.table(), program.faults(), play);
        return program.run(service);
    });
}
