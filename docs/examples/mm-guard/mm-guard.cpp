// Wraps the reference MM service: logs each address and refuses those of hosts that are not allowed. All other
// addresses are shown as mmserviced shows them.
#include <host/printable.h>
#include <tvservice-adapter/service/mm-uris.h>
#include <tvservice-adapter/service/play-service.h>
#include <tvservice-adapter/service/program.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    services::Program program("mm-guard", "The reference MM service without the addresses of one host.");
    std::string refusedHost = "blocked.example";
    program.addOption("--refuse", refusedHost, "The host whose addresses are refused");
    return program.main(argc, argv, [&] {
        const auto play = [&](const services::Terminal&, const std::string& uri) {
            const bool refused = uri.find("://" + refusedHost + '/') != std::string::npos;
            std::fprintf(stderr, "%s: %s\n", host::printable(uri).c_str(), refused ? "refused" : "passed on");
            return refused ? services::result::unsupportedUri : services::checkMmUri(uri);
        };
        services::MmPlayService service(program.table(), program.faults(), play);
        return program.run(service);
    });
}
