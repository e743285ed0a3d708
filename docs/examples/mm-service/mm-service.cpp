// An MM service of one's own, in place of mmserviced: it "plays" network streams by printing their addresses.
#include <host/printable.h>
#include <tvservice-adapter/service/play-service.h>
#include <tvservice-adapter/service/program.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

// Start your player here, and return. The result becomes the answer.
std::int32_t play(const services::Terminal& terminal, const std::string& uri) {
    if (!uri.starts_with("http://") && !uri.starts_with("https://")) return services::result::unsupportedUri;
    std::fprintf(stderr, "terminal %d:%d plays %s\n", terminal.type, terminal.id, host::printable(uri).c_str());
    return services::result::done;
}

void stop(const services::Terminal& terminal) {
    std::fprintf(stderr, "terminal %d:%d stops\n", terminal.type, terminal.id);
}

} // namespace

int main(int argc, char** argv) {
    services::Program program("mm-service", "Plays network streams by printing their addresses.");
    return program.main(argc, argv, [&] {
        services::MmPlayService service(program.table(), program.faults(), play, stop);
        return program.run(service);
    });
}
