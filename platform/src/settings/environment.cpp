#include <host/configuration.h>
#include <host/endpoint.h>
#include <host/environment.h>

#include <stdexcept>
#include <utility>

namespace host {
namespace {
std::string socketPath(const std::string& path) {
    if (const std::string problem = problemOfEndpoint(path); !problem.empty()) throw std::runtime_error(problem);
    return path;
}
} // namespace

std::string endpointOf(const std::string& service) {
    if (auto given = setting("endpoints." + service)) return std::move(given->text);
    return socketPath(runtimeDirectory() + "/" + service + ".sock");
}

std::string shellEndpointOf(const std::string& process) {
    return socketPath(runtimeDirectory() + "/" + process + ".shell");
}

} // namespace host
