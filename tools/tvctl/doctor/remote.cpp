#include "attempt.h"

#include <host/configuration.h>
#include <host/endpoint.h>
#include <host/keys.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace tvctl::doctor {
namespace {

constexpr std::string_view scheme = "tcp://";

std::string hostOf(const std::string& endpoint) {
    const auto colon = endpoint.rfind(':');
    return endpoint.substr(scheme.size(), colon < scheme.size() ? 0 : colon - scheme.size());
}

unsigned portOf(const std::string& endpoint) {
    unsigned port = 0;
    const auto colon = endpoint.rfind(':');
    std::from_chars(endpoint.data() + colon + 1, endpoint.data() + endpoint.size(), port);
    return port;
}

bool isEveryAddress(const std::string& host) { return host == "*" || host == "0.0.0.0" || host == "[::]"; }

// Whether a process of this machine listens at a port, as the system tells everybody: who knocks at such a door without
// a key is written down as a stranger.
bool isListening(unsigned wanted) {
    constexpr const char* listening = "0A";
    for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream lines(table);
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string number, own, other, state;
            if (!(words >> number >> own >> other >> state) || state != listening) continue;
            unsigned port = 0;
            std::from_chars(own.data() + own.rfind(':') + 1, own.data() + own.size(), port, 16);
            if (port == wanted) return true;
        }
    }
    return false;
}

// What is wrong with this machine's own keys.
std::optional<std::string> problemOfOwnKeys() {
    const auto file = host::setting("keys.file");
    if (!file) return "not configured, so that this machine cannot prove who it is";
    try {
        (void)host::readKeys(file->text);
        return std::nullopt;
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

bool isKey(Diagnosis& diagnosis, const std::string& subject, const std::string& key, const std::string& origin) {
    try {
        host::checkKey(key, origin);
        return true;
    } catch (const std::runtime_error& error) {
        diagnosis.wrong(subject, error.what(), "put there what tvctl keygen printed on the other machine");
        return false;
    }
}

// For who offers the service.
void checkOffer(Diagnosis& diagnosis, const Service& service, const std::string& endpoint,
                const host::Setting& clients) {
    std::set<std::string> keys;
    std::istringstream list(clients.text);
    for (std::string key; std::getline(list, key, ',');)
        if (isKey(diagnosis, "keys.clients", key, clients.origin) && !keys.insert(key).second)
            diagnosis.warn("keys.clients", clients.origin + " has a key twice: " + key, "remove one");
    if (keys.empty())
        return diagnosis.wrong("keys.clients", clients.origin + " names no client, so that nobody can come",
                               "name the public keys of the clients");
    const bool served = isListening(portOf(endpoint));
    const std::string holders =
        keys.size() == 1 ? "the holder of one key" : "the holders of " + std::to_string(keys.size()) + " keys";
    diagnosis.doors.push_back({endpoint, holders, served ? "a process listens here" : "nobody listens here"});
    diagnosis.ok(service.name, "where it is offered at " + endpoint + ", " + holders + " may come");
    if (isEveryAddress(hostOf(endpoint)))
        diagnosis.warn(service.name, endpoint + " is at every address of this machine, in all its networks",
                       "name the address that clients use");
}

// For who uses it.
void checkUse(Diagnosis& diagnosis, const Service& service, const std::string& endpoint, const host::Setting& key,
              std::chrono::milliseconds timeout) {
    if (!isKey(diagnosis, "keys.services." + service.name, key.text, key.origin)) return;
    if (isEveryAddress(hostOf(endpoint)))
        return diagnosis.wrong(service.name, endpoint + " is an address to listen at, and none to connect to",
                               "name the host in endpoints." + service.name);
    if (problemOfOwnKeys())
        return diagnosis.warn(service.name, endpoint + " was not tried, for want of keys", "mend keys.file first");
    if (const auto failure = failureOfAttempt(service, timeout))
        diagnosis.wrong(service.name, *failure, "compare keys, addresses and versions on both machines");
    else
        diagnosis.ok(service.name, endpoint + " has the right key, lets this machine in and has the same messages");
}

} // namespace

Diagnosis checkRemoteService(const Service& service, const std::string& endpoint, std::chrono::milliseconds timeout) {
    Diagnosis diagnosis;
    const std::string nameOfKey = "keys.services." + service.name;
    const auto clients = host::setting("keys.clients"), key = host::setting(nameOfKey);
    if (clients) checkOffer(diagnosis, service, endpoint, *clients);
    if (key) checkUse(diagnosis, service, endpoint, *key, timeout);
    if (!clients && (!key || isEveryAddress(hostOf(endpoint))))
        diagnosis.wrong(service.name,
                        endpoint + " is without keys: keys.clients is not configured" +
                            (key ? "" : ", and neither is " + nameOfKey),
                        "name the clients' keys where the service is, and the service's where its clients are");
    return diagnosis;
}

Diagnosis checkKeys() {
    Diagnosis diagnosis;
    bool needed = false;
    std::vector<std::string> unused;
    for (const auto& setting : host::settings()) {
        if (!setting.value) continue;
        needed |= setting.name.starts_with("endpoints.") && host::isRemote(setting.value->text);
        if (setting.name.starts_with("keys.")) unused.push_back(setting.name);
    }
    if (!needed) {
        for (const std::string& name : unused)
            diagnosis.warn(name, "not used, as no service is at a tcp:// address", "remove it, or set the endpoint");
        return diagnosis;
    }
    if (const auto problem = problemOfOwnKeys())
        diagnosis.wrong("keys.file", *problem, "make a new pair with tvctl keygen, and name its file in keys.file");
    else
        diagnosis.ok("keys.file",
                     "the public key of this machine is " + host::readKeys(host::setting("keys.file")->text).publicKey);
    return diagnosis;
}

} // namespace tvctl::doctor
